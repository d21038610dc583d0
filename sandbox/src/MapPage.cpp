// The map page that the library's map view loads into its web view, and the building data the
// page draws. The page's files are public like any web page; its data needs the same access
// token as the platform's routes, so that an expired token reaches the page as a 401 it reports.

#include <initializer_list>
#include <string_view>

#include "DemoData.hpp"
#include "SandboxInternal.hpp"

namespace velora::sandbox::detail {
namespace {

using nlohmann::json;

// Where the demo building stands: the floor plans' point x 0, y 0. The page turns latitude and
// longitude into plan metres from here (x to the east, y to the south).
constexpr double kOriginLatitude = 45.5;
constexpr double kOriginLongitude = 9.1;

std::string_view contentType(std::string_view name) {
  const auto dot = name.rfind('.');
  const std::string_view extension = dot == std::string_view::npos ? "" : name.substr(dot);
  if (extension == ".html") {
    return "text/html;charset=utf-8";
  }
  if (extension == ".js") {
    return "text/javascript;charset=utf-8";
  }
  if (extension == ".css") {
    return "text/css;charset=utf-8";
  }
  if (extension == ".svg") {
    return "image/svg+xml";
  }
  return "application/octet-stream";
}

void sendWebFile(httplib::Response& res, std::string_view name) {
  for (const EmbeddedFile& file : embeddedWebFiles()) {
    if (file.name == name) {
      // Served from memory and changed only by a rebuild; revalidating costs nothing.
      res.set_header("Cache-Control", "no-cache");
      res.set_content(std::string(file.text), std::string(contentType(name)));
      return;
    }
  }
  sendMessage(res, 404, "No map page file " + std::string(name));
}

// Without the slash the page's relative script addresses would resolve against "/".
void mapRoot(Exchange& x) {
  x.res.status = 301;
  x.res.set_header("Location", "/map/");
}

void mapIndex(Exchange& x) { sendWebFile(x.res, "index.html"); }

void mapFile(Exchange& x) { sendWebFile(x.res, x.match[1].str()); }

json floorJson(const Floor& floor) {
  json rooms = json::array();
  for (std::size_t i = 0; i < floor.rooms.size(); ++i) {
    const Room& room = floor.rooms[i];
    const int xTo = i + 1 < floor.rooms.size() ? floor.rooms[i + 1].xFrom : floor.width;
    rooms.push_back({{"id", room.id},
                     {"name", room.name},
                     {"areaId", room.areaId},
                     {"x", room.xFrom},
                     {"y", 0},
                     {"width", xTo - room.xFrom},
                     {"depth", floor.depth}});
  }
  return {{"id", floor.mapId},
          {"mapId", floor.mapId},
          {"level", floor.level},
          {"name", "Floor " + std::to_string(floor.level)},
          {"width", floor.width},
          {"depth", floor.depth},
          {"rooms", std::move(rooms)}};
}

// Only what has a place on a floor can be drawn.
json placed(const json& list, std::initializer_list<const char*> keys) {
  json out = json::array();
  for (const json& entry : list) {
    if (!entry.contains("position")) {
      continue;
    }
    json kept = json::object();
    for (const char* key : keys) {
      if (const auto it = entry.find(key); it != entry.end()) {
        kept[key] = *it;
      }
    }
    out.push_back(std::move(kept));
  }
  return out;
}

void mapBuilding(Exchange& x) {
  const DemoData& data = x.services.data;
  json floors = json::array();
  for (const Floor& floor : data.floors) {
    floors.push_back(floorJson(floor));
  }
  sendJson(x.res, 200,
           {{"origin", {{"latitude", kOriginLatitude}, {"longitude", kOriginLongitude}}},
            {"floors", std::move(floors)},
            {"resources", placed(data.booking.resources, {"id", "name", "type", "subtype", "position"})},
            {"items", placed(data.items, {"id", "name", "type", "position"})}});
}

constexpr Route kMapPageRoutes[] = {
    {"GET", "/map",                      mapRoot},
    {"GET", "/map/",                     mapIndex},
    {"GET", "/map/([A-Za-z0-9_.-]+)",    mapFile},
};

constexpr Route kMapDataRoutes[] = {
    {"GET", "/api/v1/map/building", mapBuilding},
};

}  // namespace

RouteTable mapPageRoutes() { return kMapPageRoutes; }
RouteTable mapDataRoutes() { return kMapDataRoutes; }

}  // namespace velora::sandbox::detail
