// The sandbox's map page over real HTTP: its files and their content types, the page functions
// the map view calls and the building data it draws. The building data's bearer check and the
// realm's login form are tested with the realm.

#include <gtest/gtest.h>
#include <httplib.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "velora_sandbox/Sandbox.hpp"

namespace {

using nlohmann::json;
using velora::sandbox::Sandbox;
namespace demo = velora::sandbox::demo;

bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

TEST(MapPage, FilesAreServedWithTheirContentTypes) {
  struct Case {
    const char* path;
    int status;
    const char* contentType;  // the media type, before any parameter
    const char* inBody;
  };
  const Case cases[] = {
      {"/map/", 200, "text/html", R"(<script src="bridge.js"></script>)"},
      {"/map/index.html", 200, "text/html", R"(<svg id="map")"},
      {"/map/bridge.js", 200, "text/javascript", "function ORVSDK_init(config)"},
      {"/map/map.js", 200, "text/javascript", "class Drawing"},
      {"/map/map.css", 200, "text/css", ".room"},
      {"/map/nothing.js", 404, "application/json", "No map page file nothing.js"},
      {"/map/web/map.js", 404, "application/json", "No route for GET /map/web/map.js"},
  };
  Sandbox sandbox;
  httplib::Client client(sandbox.baseUrl());
  for (const Case& c : cases) {
    SCOPED_TRACE(c.path);
    const auto res = client.Get(c.path);
    ASSERT_TRUE(res);
    EXPECT_EQ(res->status, c.status);
    const std::string type = res->get_header_value("Content-Type");
    EXPECT_EQ(type.substr(0, type.find(';')), c.contentType);
    EXPECT_TRUE(contains(res->body, c.inBody)) << res->body.substr(0, 300);
  }
  const auto bare = client.Get("/map");
  ASSERT_TRUE(bare);
  EXPECT_EQ(bare->status, 301);
  EXPECT_EQ(bare->get_header_value("Location"), "/map/");
}

// Every page function the map view's script lines call, and the older ones.
TEST(MapPage, BridgeDefinesEveryPageFunction) {
  const std::vector<std::string> functions = {
      "ORVSDK_init(config)", "ORVSDK_initAuth(", "ORVSDK_initAllBookingLayerBy(", "ORVSDK_setDarkMode(",
      "ORVSDK_getStyle(", "ORVSDK_setStyle(", "ORVSDK_setStartBookingDate(", "ORVSDK_setBookingDate(",
      "ORVSDK_actionResetView(", "ORVSDK_action_rotate(", "ORVSDK_action_rotate_absolute(",
      "ORVSDK_action_hide_room_layer(", "ORVSDK_nextFloor(", "ORVSDK_showTag(", "ORVSDK_getFloor(",
      "ORVSDK_getFloors(", "ORVSDK_getFloorsWithJump(", "ORVSDK_getCurrentFloor(", "ORVSDK_gotoFloorById(",
      "ORVSDK_gotoFloor(", "ORVSDK_gotoFromMe(", "ORVSDK_goto(", "ORVSDK_removeNavigation(",
      "ORVSDK_loadGenericResource(", "ORVSDK_selectPoi(", "ORVSDK_selectPoiById(", "ORVSDK_drawPin(",
      "ORVSDK_centerToPosition(", "ORVSDK_centerToRoom(", "ORVSDK_actionClearSelection(",
      "ORVSDK_showResourceOnMap(", "ORVSDK_receiveGps(", "ORVSDK_resetCompass(", "ORVSDK_setCompass(",
      "ORVSDK_forceFollowMe(", "ORVSDK_activatePositionMarker(", "ORVSDK_clearPositionMarker(",
      "ORVSDK_getPositionMarker(", "ORVSDK_resetPath(", "ORVSDK_resetDataAndTag(", "ORVSDK_resetAll(",
      "ORVSDK_resetPathAndData(", "ORVSDK_setTag(", "ORVSDK_getCurrentMapRotationDeg(",
      "ORVSDK_setMapsBackground(", "iosUnselectRooms(", "iosSelectRoom(", "iosRotatePin(",
      "iosLatLngReceive(",
  };
  Sandbox sandbox;
  httplib::Client client(sandbox.baseUrl());
  const auto bridge = client.Get("/map/bridge.js");
  ASSERT_TRUE(bridge);
  for (const std::string& name : functions) {
    EXPECT_TRUE(contains(bridge->body, "\nfunction " + name)) << name;
  }
  // The host's handler, and the console where there is none.
  EXPECT_TRUE(contains(bridge->body, "window.webkit.messageHandlers.customJSHandler"));
  EXPECT_TRUE(contains(bridge->body, "console.log("));
}

TEST(MapPage, BuildingDataHasTheFloorsRoomsAndPlacedResources) {
  Sandbox sandbox;
  httplib::Client client(sandbox.baseUrl());
  const auto res = client.Get("/api/v1/map/building",
                              {{"Authorization", "Bearer " + sandbox.issueAccessToken(demo::kUser)}});
  ASSERT_TRUE(res);
  ASSERT_EQ(res->status, 200);
  const json body = json::parse(res->body);
  EXPECT_EQ(body["origin"], json({{"latitude", 45.5}, {"longitude", 9.1}}));

  struct RoomCase {
    int mapId, roomId, x, width;
    const char* name;
  };
  // Each room runs from its xFrom to the next one's, the last to the floor's width.
  const RoomCase rooms[] = {
      {1, 11, 0, 10, "Meeting room"}, {1, 12, 10, 10, "Open space"},   {1, 13, 20, 10, "Kitchen"},
      {1, 14, 30, 10, "Entrance hall"}, {2, 21, 0, 12, "Focus area"}, {2, 22, 12, 8, "Project room"},
      {2, 23, 20, 20, "Open space 2"},
  };
  ASSERT_EQ(body["floors"].size(), 2u);
  for (const RoomCase& c : rooms) {
    SCOPED_TRACE(c.roomId);
    const json& floor = body["floors"][c.mapId - 1];
    EXPECT_EQ(floor["mapId"], c.mapId);
    EXPECT_EQ(floor["level"], c.mapId);
    EXPECT_EQ(floor["depth"], 20);
    const auto& list = floor["rooms"];
    const auto room = std::find_if(list.begin(), list.end(), [&](const json& r) { return r["id"] == c.roomId; });
    ASSERT_NE(room, list.end());
    EXPECT_EQ((*room)["name"], c.name);
    EXPECT_EQ((*room)["x"], c.x);
    EXPECT_EQ((*room)["y"], 0);
    EXPECT_EQ((*room)["width"], c.width);
    EXPECT_EQ((*room)["depth"], 20);
  }

  struct PlacedCase {
    const char* list;
    json id;
    bool drawn;  // only what has a position
  };
  const PlacedCase placed[] = {
      {"resources", "1101", true}, {"resources", "4203", true}, {"resources", "9001", true},
      {"resources", "1105", false}, {"resources", "3001", false}, {"items", 1, true},
      {"items", 7, true}, {"items", 8, false},
  };
  for (const PlacedCase& c : placed) {
    SCOPED_TRACE(c.id.dump());
    const auto& list = body[c.list];
    const auto entry = std::find_if(list.begin(), list.end(), [&](const json& e) { return e["id"] == c.id; });
    ASSERT_EQ(entry != list.end(), c.drawn);
    if (c.drawn) {
      EXPECT_TRUE((*entry)["position"].contains("mapId"));
      EXPECT_TRUE((*entry)["name"].is_string());
    }
  }
  EXPECT_EQ(body["resources"][0]["type"], "DESK");
}

// The scripts as the sandbox serves them must at least parse; their behaviour is tested in a
// browser.
TEST(MapPage, ScriptsPassANodeSyntaxCheck) {
  if (std::system("command -v node >/dev/null 2>&1") != 0) {
    GTEST_SKIP() << "node is not installed";
  }
  Sandbox sandbox;
  httplib::Client client(sandbox.baseUrl());
  const auto dir = std::filesystem::temp_directory_path() /
                   ("velora-map-page-" + std::to_string(sandbox.port()));
  std::filesystem::create_directories(dir);
  for (const char* name : {"bridge.js", "map.js"}) {
    SCOPED_TRACE(name);
    const auto res = client.Get(std::string("/map/") + name);
    ASSERT_TRUE(res);
    ASSERT_EQ(res->status, 200);
    const auto file = dir / name;
    std::ofstream(file) << res->body;
    const std::string command = "node --check '" + file.string() + "' 2>&1";
    EXPECT_EQ(std::system(command.c_str()), 0);
  }
  std::filesystem::remove_all(dir);
}

}  // namespace
