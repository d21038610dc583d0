// The map view against a web view that records scripts and answers as the test says: the script
// text of every command, the refusals that evaluate nothing, decoded results, the handshake, the
// page's authentication failures, and positions arriving through the notification centre.

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include <velora/velora.hpp>

#include "Fakes.hpp"

namespace velora {
namespace {

using testing::FakePlatform;

class RecordingWebView : public WebView {
 public:
  struct Evaluation {
    std::string script;
    ScriptCompletion completion;
  };
  std::vector<Evaluation> evaluations;
  std::vector<std::pair<std::string, HttpHeaders>> loads;
  std::map<std::string, MessageHandler> handlers;
  NavigationObserver navigation;
  bool developerExtras = false;

  std::vector<std::string> scripts() const {
    std::vector<std::string> out;
    for (const auto& e : evaluations) out.push_back(e.script);
    return out;
  }
  /// Answers the last evaluation.
  void answer(std::optional<std::string> result, std::optional<std::string> error = std::nullopt) {
    evaluations.back().completion(std::move(result), std::move(error));
  }
  void postMessage(const std::string& body) { handlers.at("customJSHandler")(body); }

  void load(const std::string& url, const HttpHeaders& headers) override { loads.emplace_back(url, headers); }
  void setNavigationObserver(NavigationObserver observer) override { navigation = std::move(observer); }
  void evaluateScript(const std::string& script, ScriptCompletion completion) override {
    evaluations.push_back({script, std::move(completion)});
  }
  void addScriptMessageHandler(const std::string& name, MessageHandler handler) override { handlers[name] = std::move(handler); }
  void removeScriptMessageHandler(const std::string& name) override { handlers.erase(name); }
  void setDeveloperExtrasEnabled(bool enabled) override { developerExtras = enabled; }
  void setColorScheme(ColorScheme) override {}
  void takeSnapshot(SnapshotCompletion completion) override { completion(std::nullopt, "no snapshots here"); }
};

struct Outcome {
  int calls = 0;
  std::optional<std::string> result;
  std::optional<PlatformError> error;
  DynamicMapView::Completion completion() {
    return [this](std::optional<std::string> r, std::optional<PlatformError> e) {
      ++calls;
      result = std::move(r);
      error = std::move(e);
    };
  }
};

class Delegate : public DynamicMapViewDelegate {
 public:
  std::vector<std::string> calls;
  void mapViewInitDidComplete(DynamicMapView&, const std::string& operationId) override {
    calls.push_back("complete " + operationId);
  }
  void mapViewInitDidFail(DynamicMapView&, const PlatformError& error) override {
    calls.push_back("fail " + error.domain + " " + std::to_string(error.code));
  }
  void didReceiveEvent(DynamicMapView&, const MapEvent& event, const MapEventPayload&) override {
    calls.push_back("event " + event.type.value_or("?"));
  }
  void didReceiveError(DynamicMapView&, const PlatformError&) override { calls.push_back("error"); }
};

class MapViewTest : public ::testing::Test {
 protected:
  FakePlatform fakes;
  std::shared_ptr<Orvane> sdk = testing::makeTestFacade(fakes, EnvironmentModel("http://sdk.test/", 30), true);
  std::shared_ptr<RecordingWebView> web = std::make_shared<RecordingWebView>();
  std::shared_ptr<DynamicMapView> view = DynamicMapView::make(web, *sdk);
  std::shared_ptr<Delegate> delegate = std::make_shared<Delegate>();

  /// Loads the page and lets the view's init script return `key`.
  void handshake(const std::string& key) {
    view->load("http://sdk.test/map/", HttpHeaders{}, ConfigurationModel(), delegate);
    web->navigation.finished("http://sdk.test/map/");
    web->answer(key);
  }
  static std::string event(const std::string& type, const std::string& payload, const std::string& key = "") {
    MapEvent e{type, key.empty() ? std::nullopt : std::optional(key), payload};
    return encodeJSON(e);
  }
};

MapPositionModel desk() {
  MapPositionModel p;
  p.mapId = 3;
  p.x = 22;
  p.y = 4.5;
  return p;
}

TEST_F(MapViewTest, EveryCommandEvaluatesItsExactScript) {
  const struct {
    std::function<void(DynamicMapView&)> command;
    const char* script;
  } cases[] = {
      {[](auto& v) { v.initAuth(SDKCredentialsModel{"abc"}); }, R"(ORVSDK_initAuth({"token":"abc"});)"},
      {[](auto& v) { v.initAllBookingLayer(BookFilterModel{.date = "2024-03-15"}); },
       R"(ORVSDK_initAllBookingLayerBy({"date":"2024-03-15","hasPosition":false});)"},
      {[](auto& v) { v.setDarkMode(true); }, "ORVSDK_setDarkMode(true);"},
      {[](auto& v) { v.setStyle(StyleConfigurationModel{.bookingLayer = {.radiusMeter = 3}}); }, nullptr},
      {[](auto& v) { v.setStartBookingDate("2024-03-15"); }, R"(ORVSDK_setStartBookingDate("2024-03-15");)"},
      {[](auto& v) { v.setBookingDate("a\"b"); }, R"(ORVSDK_setBookingDate("a"b");)"},
      {[](auto& v) { v.resetView(); }, "ORVSDK_actionResetView();"},
      {[](auto& v) { v.rotate(-15); }, "ORVSDK_action_rotate(-15);"},
      {[](auto& v) { v.rotateAbsolute(90); }, "ORVSDK_action_rotate_absolute(90);"},
      {[](auto& v) { v.hideRoomLayer(false); }, "ORVSDK_action_hide_room_layer(false);"},
      {[](auto& v) { v.nextFloor(); }, "ORVSDK_nextFloor();"},
      {[](auto& v) { v.showTag("T1", false); }, R"(ORVSDK_showTag("T1", false);)"},
      {[](auto& v) { v.getFloor({}); }, "ORVSDK_getFloor();"},
      {[](auto& v) { v.getFloors({}); }, "ORVSDK_getFloors();"},
      {[](auto& v) { v.getFloorsWithJump({}); }, "ORVSDK_getFloorsWithJump();"},
      {[](auto& v) { v.getCurrentFloor({}); }, "ORVSDK_getCurrentFloor();"},
      {[](auto& v) { v.gotoFloorBy(3); }, "ORVSDK_gotoFloorById(3);"},
      {[](auto& v) { v.gotoFloor(FloorModel{AnyCodable::object({{"mapId", 3}})}); }, R"(ORVSDK_gotoFloor({"mapId":3});)"},
      {[](auto& v) { v.gotoFromMe(desk(), true, std::nullopt); },
       R"(ORVSDK_gotoFromMe({"mapId":3,"x":22.0,"y":4.5}, true, null);)"},
      {[](auto& v) { v.goto_(desk(), desk(), false, 7); },
       R"(ORVSDK_goto({"mapId":3,"x":22.0,"y":4.5}, {"mapId":3,"x":22.0,"y":4.5}, false, 7);)"},
      {[](auto& v) { v.removeNavigation(); }, "ORVSDK_removeNavigation();"},
      {[](auto& v) { v.loadGenericResource("desk", std::nullopt, "EPARK"); },
       R"(ORVSDK_loadGenericResource("desk", "", "EPARK");)"},
      {[](auto& v) { v.selectPoi(GenericResourceModel{AnyCodable::object({{"id", 9}})}, true); },
       R"(ORVSDK_selectPoi({"id":9}, true);)"},
      {[](auto& v) { v.selectPoiById(12, false); }, "ORVSDK_selectPoiById(12, false);"},
      {[](auto& v) { v.drawPin(desk(), "pin.png"); }, R"(ORVSDK_drawPin({"mapId":3,"x":22.0,"y":4.5}, "pin.png");)"},
      {[](auto& v) { v.centerToPosition(desk(), 2); }, R"(ORVSDK_centerToPosition({"mapId":3,"x":22.0,"y":4.5}, 2.0);)"},
      {[](auto& v) { v.centerToRoom(1201); }, "ORVSDK_centerToRoom(1201);"},
      {[](auto& v) { v.clearSelection(); }, "ORVSDK_actionClearSelection();"},
      {[](auto& v) { v.showResourceOnMap(std::vector<Resource>{}, true); }, "ORVSDK_showResourceOnMap([], true);"},
      {[](auto& v) { v.setGPSPosition(ORVGPSPosition{.latitude = 45.5, .longitude = 9.1}); },
       R"(ORVSDK_receiveGps({"latitude":45.5,"longitude":9.1}, false);)"},
      {[](auto& v) { v.resetCompass(true); }, "ORVSDK_resetCompass(true);"},
      {[](auto& v) { v.setCompass(90, true); }, "ORVSDK_setCompass(90.0, true, 0.0);"},
      {[](auto& v) { v.forceFollowMe(true); }, "ORVSDK_forceFollowMe(true);"},
      {[](auto& v) { v.activatePositionMarker(false); }, "ORVSDK_activatePositionMarker(false);"},
      {[](auto& v) { v.clearPositionMarker(); }, "ORVSDK_clearPositionMarker();"},
      {[](auto& v) { v.getPositionMarker({}); }, "ORVSDK_getPositionMarker();"},
      {[](auto& v) { v.resetPath(); }, "ORVSDK_resetPath();"},
      {[](auto& v) { v.resetDataAndTag(); }, "ORVSDK_resetDataAndTag();"},
      {[](auto& v) { v.resetAll(); }, "ORVSDK_resetAll();"},
      {[](auto& v) { v.resetPathAndData(); }, "ORVSDK_resetPathAndData();"},
      {[](auto& v) { v.setTag("T2", true); }, R"(ORVSDK_setTag("T2", true);)"},
      {[](auto& v) { v.getCurrentMapRotationDeg({}); }, "ORVSDK_getCurrentMapRotationDeg();"},
      {[](auto& v) { v.unselectRooms(); }, "iosUnselectRooms();"},
      {[](auto& v) { v.selectRoom(1201); }, "iosSelectRoom(1201);"},
      {[](auto& v) { v.rotatePin(12.5); }, "iosRotatePin(12.5);"},
      {[](auto& v) { v.sendPosition(45.5, 9.1); }, "iosLatLngReceive({latitude:45.5,longitude:9.1});"},
  };
  for (const auto& c : cases) {
    web->evaluations.clear();
    c.command(*view);
    ASSERT_EQ(web->evaluations.size(), 1u);
    if (c.script) {
      EXPECT_EQ(web->evaluations[0].script, c.script);
    } else {
      EXPECT_EQ(web->evaluations[0].script.rfind("ORVSDK_setStyle({\"icons\":", 0), 0u) << web->evaluations[0].script;
      EXPECT_NE(web->evaluations[0].script.find(R"("bookingLayer":{"radiusMeter":3})"), std::string::npos);
    }
  }
}

TEST(MapScriptNumber, ShortestTextThatReadsBackWithWholeDoublesMarked) {
  const struct {
    double value;
    const char* text;
  } doubles[] = {{90, "90.0"},   {45.5, "45.5"},     {9.1, "9.1"},     {0.1 + 0.2, "0.30000000000000004"},
                 {-0.0, "-0.0"}, {1e6, "1000000.0"}, {1e-4, "0.0001"}, {1e-5, "1e-05"},
                 {1e20, "1e+20"}};
  for (const auto& c : doubles) EXPECT_EQ(mapScriptNumber(c.value), c.text) << c.value;
  EXPECT_EQ(mapScriptNumber(std::int64_t{2986}), "2986");
  EXPECT_EQ(mapScriptNumber(std::int64_t{-7}), "-7");
}

TEST_F(MapViewTest, RefusedCommandsEvaluateNothingAndCompleteOnce) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  MapPositionModel broken = desk();
  broken.x = nan;
  const struct {
    std::function<void(DynamicMapView&, DynamicMapView::Completion)> command;
    const char* error;
    std::int64_t code;
  } cases[] = {
      {[](auto& v, auto c) { v.sdkInit(std::nullopt, c); }, "Missing SDK init parameters", kMapMissingInitParameters},
      {[](auto& v, auto c) { v.selectPoi(std::nullopt, true, c); }, "Invalid Parameter", kMapInvalidParameter},
      {[](auto& v, auto c) { v.selectPoiById(std::nullopt, true, c); }, "Invalid Parameter", kMapInvalidParameter},
      {[](auto& v, auto c) { v.drawPin(std::nullopt, "x", c); }, "Invalid Parameter", kMapInvalidParameter},
      {[&](auto& v, auto c) { v.centerToPosition(broken, 1, c); }, "Invalid Parameter", kMapInvalidParameter},
      {[](auto& v, auto c) { v.showResourceOnMap(std::nullopt, true, c); }, "Invalid Parameter", kMapInvalidParameter},
      {[&](auto& v, auto c) { v.setGPSPosition(ORVGPSPosition{.latitude = nan}, false, c); }, "Invalid Parameter",
       kMapInvalidParameter},
  };
  for (const auto& c : cases) {
    Outcome outcome;
    c.command(*view, outcome.completion());
    EXPECT_TRUE(web->evaluations.empty()) << c.error;
    EXPECT_EQ(outcome.calls, 1);
    ASSERT_TRUE(outcome.error);
    EXPECT_EQ(outcome.error->domain, c.error);
    EXPECT_EQ(outcome.error->code, c.code);
  }
}

TEST_F(MapViewTest, ResultsDecodeOrReportTheirOwnFailure) {
  std::optional<MapPositionModel> marker;
  std::optional<PlatformError> error;
  view->getPositionMarker([&](auto value, auto e) { marker = value, error = e; });
  web->answer(R"({"mapId":3,"x":10.5,"y":4,"roomId":1201})");
  ASSERT_TRUE(marker);
  EXPECT_EQ(marker->roomId, 1201);

  const struct {
    std::optional<std::string> result;
    std::optional<std::string> scriptError;
    const char* expected;
  } failures[] = {
      {R"({"x":1})", std::nullopt, "getPositionMarker - Unable to decode MapPositionModel"},
      {std::nullopt, std::nullopt, "getPositionMarker - Unable to decode MapPositionModel"},
      {std::nullopt, "ReferenceError: Can't find variable: ORVSDK_getPositionMarker",
       "ReferenceError: Can't find variable: ORVSDK_getPositionMarker"},
  };
  for (const auto& f : failures) {
    int calls = 0;
    view->getPositionMarker([&](auto value, auto e) { ++calls, marker = value, error = e; });
    web->answer(f.result, f.scriptError);
    EXPECT_EQ(calls, 1);
    EXPECT_FALSE(marker);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain, f.expected);
  }

  std::optional<std::vector<FloorModel>> floors;
  view->getFloors([&](auto value, auto e) { floors = value, error = e; });
  web->answer("[1,2]");
  EXPECT_EQ(error->domain, "JSON Parser Error");
  std::optional<double> rotation;
  view->getCurrentMapRotationDeg([&](auto value, auto) { rotation = value; });
  web->answer("-32.5");
  EXPECT_EQ(rotation, -32.5);
}

TEST_F(MapViewTest, HandshakeMatchesOnlyTheKeyOfTheLastInit) {
  handshake("key-1");
  EXPECT_TRUE(web->developerExtras);
  ASSERT_EQ(web->evaluations.size(), 1u);
  // The page gets the session's token inside the configuration; the application's copy has none.
  EXPECT_NE(web->evaluations[0].script.find(R"({"auth":{"token":"tok"},"style":)"), std::string::npos);
  EXPECT_FALSE(view->configurationModel()->credentials().token);

  web->postMessage(event("success", "{}", "other"));
  web->postMessage(event("success", "{}", "key-1"));
  web->postMessage(event("error", "{}", "key-1"));
  web->postMessage(event("floorChange", R"({"mapId":4})", "key-1"));  // a handshake key: nothing more
  web->postMessage(event("floorChange", "[]"));                         // does not decode: dropped
  web->postMessage(R"({"type":"mapClick","payload":)");                // not JSON: dropped
  web->postMessage(event("mapClick", R"({"mapId":3,"x":1,"y":2})"));
  EXPECT_EQ(delegate->calls, (std::vector<std::string>{"event success", "complete key-1",
                                                       "fail Unknown error message -1", "event mapClick"}));

  // A later init replaces the key.
  view->sdkInit(ConfigurationModel());
  web->answer("key-2");
  web->postMessage(event("success", "{}", "key-1"));
  EXPECT_EQ(delegate->calls.back(), "event success");

  // Delegates are held weakly.
  delegate.reset();
  web->postMessage(event("success", "{}", "key-2"));
}

TEST_F(MapViewTest, AuthErrorRenewsThroughThePipelineThenSendsTheToken) {
  handshake("key-1");
  int requests = 0;
  int status = 200;
  fakes.transport->responder = [&](const HttpRequest& request) {
    ++requests;
    EXPECT_EQ(request.url, "http://sdk.test/api/v2/filter/section?sectionTypes=MAP");
    return testing::FakeTransport::Reply{status, "[]"};
  };
  web->evaluations.clear();
  web->postMessage(event("authError", R"({"status":"KO","statusCode":401})"));
  fakes.queue->drain();
  EXPECT_EQ(requests, 1);
  EXPECT_EQ(web->scripts(), std::vector<std::string>{R"(ORVSDK_initAuth({"token":"tok"});)"});
  EXPECT_TRUE(delegate->calls.empty());

  // A failed renewal is only logged.
  const Platform previous = Platform::getDefault();
  Platform::setDefault(fakes.platform());
  status = 500;
  web->evaluations.clear();
  web->postMessage(event("authError", "{}"));
  fakes.queue->drain();
  EXPECT_EQ(requests, 2);
  EXPECT_TRUE(web->evaluations.empty());
  EXPECT_TRUE(delegate->calls.empty());
  EXPECT_FALSE(fakes.consoleLines.empty());
  Platform::setDefault(previous);
}

TEST_F(MapViewTest, PositionsAndHeadingsFromTheNotificationCentreReachThePage) {
  auto& center = *sdk->platform().notifications;
  center.post({kGPSPositionAvailable, {{"payload", ORVGPSPosition{.mapId = 3, .x = 1.5, .y = 2}}}});
  center.post({kGPSHeadingAvailable, {{"payload", ORVSPositionHeadingModel{.heading = 90}}}});
  center.post({kGPSPositionAvailable, {{"payload", std::string("not a position")}}});
  EXPECT_TRUE(web->evaluations.empty());  // delivered on the main queue
  fakes.queue->drain();
  EXPECT_EQ(web->scripts(), (std::vector<std::string>{R"(ORVSDK_receiveGps({"mapId":3,"x":1.5,"y":2.0}, false);)",
                                                      "ORVSDK_setCompass(90.0, true, 0.0);"}));

  // Queued deliveries for a view that is gone do nothing.
  center.post({kGPSHeadingAvailable, {{"payload", ORVSPositionHeadingModel{.heading = 1}}}});
  web->evaluations.clear();
  view.reset();
  fakes.queue->drain();
  EXPECT_TRUE(web->evaluations.empty());
}

class Backgrounds : public DynamicMapResourcesDelegate {
 public:
  bool fail = false;
  Task<std::vector<MapBackground>> loadMapBackgrounds(std::optional<std::string>) override {
    if (fail) throw PlatformError("no backgrounds", 7);
    co_return std::vector<MapBackground>{{"floor-1.png", "iVBORw0="}};
  }
};

TEST_F(MapViewTest, MapsBackgroundComeFromTheResourcesDelegate) {
  auto resources = std::make_shared<Backgrounds>();
  view->load("http://sdk.test/map/", std::nullopt, ConfigurationModel(), delegate, resources);
  for (bool fail : {false, true}) {
    resources->fail = fail;
    web->evaluations.clear();
    Outcome outcome;
    view->setMapsBackground(outcome.completion());
    fakes.queue->drain();
    if (!fail) {
      EXPECT_EQ(web->scripts(),
                std::vector<std::string>{R"(ORVSDK_setMapsBackground([{"filename":"floor-1.png","base64":"iVBORw0="}]);)"});
      web->answer("ok");
      EXPECT_EQ(outcome.result, "ok");
    } else {
      EXPECT_TRUE(web->evaluations.empty());
      ASSERT_TRUE(outcome.error);
      EXPECT_EQ(outcome.error->domain, "no backgrounds");
    }
    EXPECT_EQ(outcome.calls, 1);
  }
}

}  // namespace
}  // namespace velora
