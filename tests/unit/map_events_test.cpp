// The map page's messages: each event type with the payload the page sends, the payloads that do
// not decode, how the view is to route an event, and the navigation display texts.

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>
#include <variant>

#include <velora/velora.hpp>

namespace velora {
namespace {

MapEvent message(const std::string& type, std::optional<std::string> payload, std::optional<std::string> key = std::nullopt) {
  return decodeJSON<MapEvent>(encodeJSON(MapEvent{type, std::move(key), std::move(payload)}));
}

template <class T>
const T& as(const MapEventPayload& payload) {
  if (!std::holds_alternative<T>(payload)) throw std::runtime_error("payload is case " + std::to_string(payload.index()));
  return std::get<T>(payload);
}

TEST(MapEvents, EveryTypeDecodesTheRecordItNames) {
  const struct {
    const char* type;
    const char* payload;
    std::function<void(const MapEventPayload&)> check;
  } cases[] = {
      {"initCompleted", R"({"status":"OK","statusCode":200})",
       [](const auto& p) { EXPECT_EQ(as<GenericEventResponse>(p).statusCode, 200); }},
      {"success", R"({"status":"OK","message":"done"})",
       [](const auto& p) { EXPECT_EQ(as<GenericEventResponse>(p).message, "done"); }},
      {"goto", R"({"mapId":3,"points":[{"x":1,"y":2}],"distance":14.5})",
       [](const auto& p) { EXPECT_EQ(as<PathModel>(p).json.find("distance")->number(), 14.5); }},
      {"gotoFromMe", R"({"mapId":3,"points":[]})",
       [](const auto& p) { EXPECT_EQ(as<PathModel>(p).json.dump(), R"({"mapId":3,"points":[]})"); }},
      {"error", R"({"status":"KO","message":"no route","statusCode":404})",
       [](const auto& p) { EXPECT_EQ(as<GenericEventResponse>(p).status, "KO"); }},
      {"parkConf", R"({"availableDateList":["2024-03-15","2024-03-18"]})",
       [](const auto& p) { EXPECT_EQ(as<BookingConfigurationResponse>(p).availableDateList->at(1), "2024-03-18"); }},
      {"deskConf", R"({})", [](const auto& p) { EXPECT_FALSE(as<BookingConfigurationResponse>(p).availableDateList); }},
      {"bookingResource",
       R"({"id":2101,"name":"Desk 2.01","x":22.0,"y":4.0,"color":"#0a0","info":{)"
       R"("booking":{"resId":2101,"editable":true,"type":"DESK"},)"
       R"("reservation":[{"index":0,"date":"2024-03-15","availableQuantity":1,"bookableStatus":"BOOKABLE"},)"
       R"({"index":1,"date":"2024-03-16","bookableStatus":"HELD"}],"position":{"mapId":3,"x":22,"y":4}}})",
       [](const auto& p) {
         const auto& click = as<MapClickResponse>(p);
         EXPECT_EQ(click.info->booking->resId, 2101);
         EXPECT_EQ(click.info->reservation->at(0).bookableStatus, ReservationBookableStatus::BOOKABLE);
         EXPECT_EQ(click.info->reservation->at(1).bookableStatus, ReservationBookableStatus::UNBOOKABLE);
         EXPECT_EQ(click.info->position->mapId, 3);
       }},
      {"mapClick", R"({"mapId":3,"x":10.5,"y":4.25,"level":2})",
       [](const auto& p) { EXPECT_EQ(as<MapPositionModel>(p).y, 4.25); }},
      {"navStats",
       R"({"totalDistance":42.0,"remainingDistance":12.5,"vehicles":[{"name":"walk","totalTimeSecond":40,"remainingTimeSecond":61}],)"
       R"("nextSteps":[{"type":"left","value":"3 m","remainingDistance":3},{"type":"escalator"}]})",
       [](const auto& p) {
         const auto& stats = as<NavigationStatsModel>(p);
         EXPECT_EQ(stats.vehicles->at(0).localizedRemainingTime(), "2 min");
         EXPECT_EQ(stats.nextSteps->at(0).type, NavigationStepType::left);
         EXPECT_EQ(stats.nextSteps->at(1).type, NavigationStepType::portal);
       }},
      {"navInfo", R"({"type":"FLOOR_CHANGE","mapName":"Level 2","position":{"mapId":4,"x":1,"y":1}})",
       [](const auto& p) { EXPECT_EQ(as<NavigationInfoModel>(p).position->mapId, 4); }},
      {"resource",
       R"({"filter":{"type":"DESK"},"data":[{"id":"R-12","name":"Desk 12","type":"DESK","favourite":true}]})",
       [](const auto& p) { EXPECT_EQ(as<FilterResourceModel>(p).data->at(0).id, "R-12"); }},
      {"tagVisibility", R"({"tagid":"a4da22e0","visible":false})",
       [](const auto& p) { EXPECT_EQ(as<TagVisibilityModel>(p).tagid, "a4da22e0"); }},
      {"roomEnter", R"({"mapId":3,"roomId":17,"x":5,"y":6})",
       [](const auto& p) { EXPECT_EQ(as<MapPositionModel>(p).roomId, 17); }},
      {"roomExit", R"({"mapId":3,"roomId":17,"areaId":2,"x":5,"y":6})",
       [](const auto& p) { EXPECT_EQ(as<MapPositionModel>(p).areaId, 2); }},
      {"floorChange", R"({"id":4,"name":"Level 2","level":2})",
       [](const auto& p) { EXPECT_EQ(as<FloorModel>(p).json.find("name")->dump(), R"("Level 2")"); }},
      {"resourceClick", R"({"id":12})", [](const auto& p) { EXPECT_EQ(as<ResourceClickModel>(p).id, 12); }},
      {"followUserTag", R"({"tagid":"a4da22e0","follow":true})",
       [](const auto& p) { EXPECT_TRUE(as<FollowUserTagModel>(p).follow); }},
      {"authError", R"({"status":"UNAUTHORIZED","statusCode":401})",
       [](const auto& p) { EXPECT_EQ(as<GenericEventResponse>(p).statusCode, 401); }},
      {"forceFollowUserChanged", "true", [](const auto& p) { EXPECT_TRUE(as<bool>(p)); }},
      {"nearDestination", R"({"message":"5 m"})",
       [](const auto& p) { EXPECT_EQ(as<GenericEventResponse>(p).message, "5 m"); }},
      {"resetFollowBehaviour", R"({})", [](const auto& p) { EXPECT_EQ(as<GenericEventResponse>(p), GenericEventResponse{}); }},
  };
  ASSERT_EQ(enumCases(MapEventType{}).size(), std::size(cases));
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    const auto& c = cases[i];
    SCOPED_TRACE(c.type);
    // The table follows the declaration order of the enumeration.
    EXPECT_EQ(rawValue(enumCases(MapEventType{})[i].value), c.type);
    const auto event = message(c.type, c.payload);
    EXPECT_EQ(event.eventType(), enumCases(MapEventType{})[i].value);
    const auto payload = event.decodedPayload();
    ASSERT_TRUE(payload);
    EXPECT_NO_THROW(c.check(*payload));
  }
}

TEST(MapEvents, AMessageAsThePagePostsIt) {
  const auto event = decodeJSON<MapEvent>(
      R"({"type":"resourceClick","key":"op-9","payload":"{\"id\":\"A12\"}"})");
  EXPECT_EQ(event.key, "op-9");
  EXPECT_EQ(as<ResourceV3ClickModel>(*event.decodedPayload()).id, "A12");
  EXPECT_EQ(encodeJSON(decodeJSON<MapEvent>(R"({"type":"mapClick"})")), R"({"type":"mapClick"})");
}

TEST(MapEvents, PayloadsThatDoNotDecodeAreAbsent) {
  const struct {
    std::optional<std::string> type;
    std::optional<std::string> payload;
  } cases[] = {
      {"zoomChanged", R"({"zoom":3})"},
      {"ResourceClick", R"({"id":12})"},
      {std::nullopt, R"({"status":"OK"})"},
      {"success", std::nullopt},
      {"success", "not json"},
      {"success", R"(["OK"])"},
      {"tagVisibility", R"({"tagid":"a4da22e0"})"},
      {"resourceClick", R"({"id":true})"},
      {"resourceClick", R"({"id":12.5})"},
      {"forceFollowUserChanged", "1"},
      {"forceFollowUserChanged", R"("true")"},
      {"goto", R"([{"x":1,"y":2}])"},
      {"floorChange", "null"},
      {"mapClick", R"({"x":1,"y":2})"},
      {"navStats", R"({"nextSteps":[{"value":"3 m"}]})"},
      {"bookingResource", R"({"id":1,"name":"Desk","x":1,"y":2,"info":{"reservation":{"index":0}}})"},
  };
  for (const auto& c : cases) {
    const MapEvent event{c.type, std::nullopt, c.payload};
    EXPECT_FALSE(event.decodedPayload()) << c.type.value_or("(no type)") << " " << c.payload.value_or("(no payload)");
  }
}

TEST(MapEvents, FollowRequestsAreTheSameWhateverTheirId) {
  const auto a = decodeJSON<FollowUserTagModel>(R"({"tagid":"t1","follow":true})");
  const auto b = decodeJSON<FollowUserTagModel>(R"({"tagid":"t1","follow":true})");
  EXPECT_NE(a.id, b.id);
  EXPECT_EQ(a.id.size(), 36u);
  EXPECT_EQ(a, b);
  EXPECT_EQ(encodeJSON(a), R"({"tagid":"t1","follow":true})");
}

TEST(MapEvents, Routing) {
  enum class Route { drop, initCompleted, initFailed, renewAuthentication, deliver };
  const struct {
    const char* type;
    std::optional<std::string> payload;
    std::optional<std::string> key;
    std::optional<std::string> initializedKey;
    Route route;
  } cases[] = {
      {"success", "{}", "K1", "K1", Route::initCompleted},
      {"success", "{}", "K2", "K1", Route::deliver},
      {"success", "{}", "K1", std::nullopt, Route::deliver},
      {"success", "{}", std::nullopt, "K1", Route::deliver},
      {"success", std::nullopt, "K1", "K1", Route::drop},
      {"error", "{}", "K1", "K1", Route::initFailed},
      {"error", "{}", "K2", "K1", Route::deliver},
      {"initCompleted", "{}", "K1", "K1", Route::drop},
      {"navInfo", R"({"type":"FLOOR"})", "K1", "K1", Route::drop},
      {"authError", "{}", std::nullopt, "K1", Route::renewAuthentication},
      {"authError", "{}", "K2", "K1", Route::renewAuthentication},
      {"authError", "{}", "K1", "K1", Route::drop},
      {"authError", "oops", std::nullopt, "K1", Route::drop},
      {"forceFollowUserChanged", "false", std::nullopt, std::nullopt, Route::deliver},
      {"unknown", "{}", std::nullopt, std::nullopt, Route::drop},
  };
  for (const auto& c : cases) {
    const auto route = routeMapEvent(message(c.type, c.payload, c.key), c.initializedKey);
    EXPECT_EQ(static_cast<Route>(route.index()), c.route)
        << c.type << " key " << c.key.value_or("-") << " init " << c.initializedKey.value_or("-");
  }

  const auto completed = routeMapEvent(message("success", "{}", "K1"), std::string("K1"));
  EXPECT_EQ(std::get<map_route::InitCompleted>(completed).operationId, "K1");
  const auto delivered = routeMapEvent(message("forceFollowUserChanged", "false"), std::nullopt);
  EXPECT_EQ(std::get<map_route::Deliver>(delivered).payload, MapEventPayload(false));
}

TEST(MapEvents, AFailedHandshakeFillsInWhatThePageLeftOut) {
  const struct {
    const char* payload;
    const char* domain;
    std::int64_t code;
    const char* status;
  } cases[] = {
      {"{}", "Unknown error message", -1, "Unknown error"},
      {R"({"message":"bad configuration","statusCode":422,"status":"INVALID"})", "bad configuration", 422, "INVALID"},
      {R"({"statusCode":0})", "Unknown error message", 0, "Unknown error"},
  };
  for (const auto& c : cases) {
    const auto route = routeMapEvent(message("error", c.payload, "K1"), std::string("K1"));
    const auto& error = std::get<map_route::InitFailed>(route).error;
    EXPECT_EQ(error.domain, c.domain) << c.payload;
    EXPECT_EQ(error.code, c.code) << c.payload;
    EXPECT_EQ(error.userInfo, (std::map<std::string, std::string>{{"status", c.status}})) << c.payload;
  }
}

TEST(MapEvents, NavigationTexts) {
  const struct {
    NavigationStepType type;
    std::optional<std::string> value;
    const char* language;
    const char* text;
  } steps[] = {
      {NavigationStepType::left, std::nullopt, "en", "Turn left"},
      {NavigationStepType::right, "5 m", "en", "Turn right (5 m)"},
      {NavigationStepType::lift, std::nullopt, "it", "Prendi l'ascensore"},
      {NavigationStepType::stairs, "2", "it-IT", "Prendi le scale (2)"},
      {NavigationStepType::destination, std::nullopt, "IT", "Sei vicino alla destinazione"},
      {NavigationStepType::straight, std::nullopt, "fr", "Go straight on"},
      {NavigationStepType::portal, "", "", "Go through the portal ()"},
  };
  for (const auto& s : steps) {
    EXPECT_EQ(NavigationStepModel({.type = s.type, .value = s.value, .remainingDistance = std::nullopt})
                  .extendedTypeLocalizedWithValue(s.language),
              s.text);
  }
  EXPECT_EQ(localizationKey(NavigationStepType::destination), "map-near-destination-label");
  EXPECT_EQ(mapLocalized("map-unknown", "it"), "map-unknown");

  const struct {
    std::optional<double> seconds;
    const char* text;
  } times[] = {
      {std::nullopt, "--"}, {0, "0 min"}, {60, "1 min"}, {60.5, "2 min"}, {61, "2 min"}, {3600, "60 min"}, {-20, "0 min"},
  };
  for (const auto& t : times) {
    EXPECT_EQ((VehiclesStats{.name = "walk", .totalTimeSecond = 90, .remainingTimeSecond = t.seconds}).localizedRemainingTime(),
              t.text);
  }
}

}  // namespace
}  // namespace velora
