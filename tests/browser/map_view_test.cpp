// The map view driving the sandbox's map page in a real web view: the handshake, commands read
// back from the page, clicks and room crossings reaching the delegate, an expired token on the
// page renewed once at the realm, and a snapshot of what the page drew.

#include <gtest/gtest.h>

#include <chrono>
#include <set>

#include <velora/platform/WebKitWebView.hpp>
#include <velora/velora.hpp>
#include <velora_sandbox/Sandbox.hpp>

#include "BrowserSupport.hpp"
#include "integration/OverHttp.hpp"

namespace velora {
namespace {

using namespace std::chrono_literals;
namespace demo = sandbox::demo;

class RecordingDelegate : public DynamicMapViewDelegate {
 public:
  std::optional<std::string> initialised;
  std::optional<PlatformError> failed;
  std::vector<std::pair<MapEvent, MapEventPayload>> events;

  void mapViewInitDidComplete(DynamicMapView&, const std::string& operationId) override { initialised = operationId; }
  void mapViewInitDidFail(DynamicMapView&, const PlatformError& error) override { failed = error; }
  void didReceiveEvent(DynamicMapView&, const MapEvent& event, const MapEventPayload& payload) override {
    events.emplace_back(event, payload);
  }
  void didReceiveError(DynamicMapView&, const PlatformError&) override {}

  const MapPositionModel* lastPosition(const std::string& type) const {
    for (auto it = events.rbegin(); it != events.rend(); ++it) {
      if (it->first.type == type) return std::get_if<MapPositionModel>(&it->second);
    }
    return nullptr;
  }
};

class MapViewInBrowser : public ::testing::Test {
 protected:
  void SetUp() override {
    testing::HttpPlatform http;
    http.queue = queue;
    clock->now_ = std::chrono::system_clock::now();
    http.clock = clock;
    const KeycloakEnvironment keycloak = testing::passwordLoginIdentity(sandbox);
    sdk = testing::sandboxFacade(sandbox, http.platform("map.it"), false, keycloak);
    bool loggedIn = false;
    sdk->backgroundLogin(demo::kUser, demo::kPassword, -1, [&](auto token, auto) { loggedIn = token.has_value(); });
    ASSERT_TRUE(waitFor([&] { return loggedIn; })) << "no login";

    WebViewOptions options;
    options.offscreen = true;
    options.width = 800;
    options.height = 600;
    web = makeWebKitWebView(options);
    view = DynamicMapView::make(web, *sdk);
    view->load(sandbox.baseUrl() + "/map/", std::nullopt, ConfigurationModel(), delegate);
    ASSERT_TRUE(waitFor([&] { return delegate->initialised || delegate->failed; })) << "no handshake";
    ASSERT_TRUE(delegate->initialised) << delegate->failed->domain;
  }

  bool waitFor(const std::function<bool()>& done) { return queue->runUntil(done, 30s); }

  template <class T>
  T value(const std::function<void(DynamicMapView::ValueCompletion<T>)>& command) {
    std::optional<T> out;
    std::optional<PlatformError> error;
    bool done = false;
    command([&](std::optional<T> v, std::optional<PlatformError> e) { out = std::move(v), error = std::move(e), done = true; });
    EXPECT_TRUE(waitFor([&] { return done; }));
    if (error) throw *error;
    return *out;
  }

  std::optional<std::string> text(const std::function<void(DynamicMapView::Completion)>& command) {
    return value<std::string>([&](auto completion) {
      command([completion](std::optional<std::string> r, std::optional<PlatformError> e) {
        completion(r.value_or("(undefined)"), std::move(e));
      });
    });
  }

  std::shared_ptr<GlibMainQueue> queue = std::make_shared<GlibMainQueue>();
  std::shared_ptr<testing::ManualClock> clock = std::make_shared<testing::ManualClock>();
  sandbox::Sandbox sandbox{testing::browserSandboxOptions()};
  std::shared_ptr<Orvane> sdk;
  std::shared_ptr<WebView> web;
  std::shared_ptr<DynamicMapView> view;
  std::shared_ptr<RecordingDelegate> delegate = std::make_shared<RecordingDelegate>();
};

TEST_F(MapViewInBrowser, CommandsChangeWhatThePageShows) {
  const auto floors = value<std::vector<FloorModel>>([&](auto c) { view->getFloors(c); });
  ASSERT_GE(floors.size(), 2u);
  const auto first = value<FloorModel>([&](auto c) { view->getCurrentFloor(c); });
  EXPECT_EQ(first.json.find("mapId")->number(), floors[0].json.find("mapId")->number());

  const auto second = *floors[1].json.find("mapId")->number();
  EXPECT_EQ(text([&](auto c) { view->gotoFloorBy(static_cast<std::int64_t>(second), c); }), "ok");
  EXPECT_EQ(value<FloorModel>([&](auto c) { view->getCurrentFloor(c); }).json.find("mapId")->number(), second);
  ASSERT_TRUE(waitFor([&] { return !delegate->events.empty() && delegate->events.back().first.type == "floorChange"; }));

  EXPECT_EQ(text([&](auto c) { view->rotateAbsolute(30, c); }), "30");
  EXPECT_EQ(value<double>([&](auto c) { view->getCurrentMapRotationDeg(c); }), 30.0);

  // A page function that does not exist is the web view's error, passed on.
  try {
    value<StyleConfigurationModel>([&](auto c) {
      web->evaluateScript("ORVSDK_noSuchFunction();", [c](auto, auto e) {
        c(std::nullopt, PlatformError(e.value_or("none"), kMapScriptFailed));
      });
    });
    ADD_FAILURE() << "no error";
  } catch (const PlatformError& e) {
    EXPECT_NE(e.domain.find("ORVSDK_noSuchFunction"), std::string::npos);
  }
}

TEST_F(MapViewInBrowser, AClickReachesTheDelegateAsMapClick) {
  EXPECT_EQ(text([&](auto c) { view->gotoFloorBy(1, c); }), "ok");
  // The middle of the meeting room (x 0-10 on floor 1), clicked where it is on screen.
  web->evaluateScript(
      "(() => { const r = document.querySelector('[data-room=\"11\"]').getBoundingClientRect();"
      " document.querySelector('[data-room=\"11\"]').dispatchEvent(new MouseEvent('click', {bubbles: true,"
      " clientX: r.left + r.width / 2, clientY: r.top + r.height / 2})); })()",
      [](auto, auto) {});
  ASSERT_TRUE(waitFor([&] { return delegate->lastPosition("mapClick") != nullptr; }));
  const auto& click = *delegate->lastPosition("mapClick");
  EXPECT_EQ(click.mapId, 1);
  EXPECT_NEAR(click.x, 5, 0.5);
  EXPECT_EQ(click.roomId, 11);
}

TEST_F(MapViewInBrowser, APositionFromTheNotificationCentreMovesTheMarkerIntoARoom) {
  sdk->platform().notifications->post(
      {kGPSPositionAvailable, {{"payload", ORVGPSPosition{.mapId = 1, .x = 25, .y = 5, .tagid = "velora-demo-tag"}}}});
  ASSERT_TRUE(waitFor([&] { return delegate->lastPosition("roomEnter") != nullptr; }));
  EXPECT_EQ(delegate->lastPosition("roomEnter")->roomId, 13);

  const auto marker = value<MapPositionModel>([&](auto c) { view->getPositionMarker(c); });
  EXPECT_EQ(marker.mapId, 1);
  EXPECT_EQ(marker.x, 25);
  EXPECT_EQ(marker.roomId, 13);

  sdk->platform().notifications->post({kGPSPositionAvailable, {{"payload", ORVGPSPosition{.mapId = 1, .x = 35, .y = 5}}}});
  ASSERT_TRUE(waitFor([&] { return delegate->lastPosition("roomExit") != nullptr; }));
  EXPECT_EQ(delegate->lastPosition("roomExit")->x, 25);
}

TEST_F(MapViewInBrowser, AnExpiredTokenOnThePageIsRenewedOnceAtTheRealm) {
  const std::string tokenPath = "/realms/" + std::string(demo::kRealm) + "/protocol/openid-connect/token";
  const auto before = sandbox.requestCount(tokenPath);
  const auto oldToken = sdk->accessToken();
  // The token expires for the realm, which refuses the page's requests, and for the library, whose
  // next request renews the session first. Both of the page's data requests report the expiry.
  sandbox.advanceClock(301s);
  clock->now_ += 301s;
  view->initAllBookingLayer(BookFilterModel{.date = "2024-03-15"});
  ASSERT_TRUE(waitFor([&] { return sdk->accessToken() != oldToken; })) << "no renewal";
  ASSERT_TRUE(waitFor([&] { return sandbox.requestCount("/api/v2/filter/section") == 2; }));
  const auto renewals = sandbox.requests(tokenPath);
  ASSERT_EQ(renewals.size(), before + 1);
  EXPECT_NE(renewals.back().body.find("grant_type=refresh_token"), std::string::npos);
  // The page now holds the new token: its data requests succeed again without another renewal.
  EXPECT_EQ(text([&](auto c) { view->setBookingDate("2024-03-16", c); }), "ok");
  auto pageToken = text([&](auto c) { web->evaluateScript("state.token", [c](auto r, auto) { c(r, std::nullopt); }); });
  EXPECT_EQ(pageToken, sdk->accessToken());
  EXPECT_EQ(sandbox.requests(tokenPath).size(), before + 1);
  for (const auto& [event, payload] : delegate->events) EXPECT_NE(event.type, "authError");
}

TEST_F(MapViewInBrowser, TheSnapshotIsAPngOfTheDrawnPlan) {
  std::optional<std::vector<std::uint8_t>> png;
  bool done = false;
  web->takeSnapshot([&](auto image, auto) { png = std::move(image), done = true; });
  ASSERT_TRUE(waitFor([&] { return done; }));
  ASSERT_TRUE(png);
  cairo_surface_t* image = testing::decodePng(*png);
  ASSERT_EQ(cairo_surface_status(image), CAIRO_STATUS_SUCCESS);
  const int width = cairo_image_surface_get_width(image);
  const int height = cairo_image_surface_get_height(image);
  const int stride = cairo_image_surface_get_stride(image);
  const unsigned char* pixels = cairo_image_surface_get_data(image);
  std::set<std::uint32_t> colours;
  for (int y = 0; y < height; y += 4) {
    for (int x = 0; x < width; x += 4) colours.insert(*reinterpret_cast<const std::uint32_t*>(pixels + y * stride + x * 4));
  }
  cairo_surface_destroy(image);
  EXPECT_GT(width, 100);
  // Rooms, walls, labels and background: a blank page would give one colour.
  EXPECT_GT(colours.size(), 3u);
}

}  // namespace
}  // namespace velora
