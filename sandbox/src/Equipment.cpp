// The demo building's controllable items: what /api/v1/item/list answers, what /item/set
// changes and what the item streams relay.

#include <algorithm>
#include <charconv>
#include <cmath>
#include <stdexcept>

#include "SandboxInternal.hpp"

namespace velora::sandbox::detail {
namespace {

using nlohmann::json;

constexpr const char* kIconPath = "/api/v1/public/image/icon.webp";

// Rooms 11 to 14 lie side by side along x on floor 1; area 3 holds the first two, area 4 the
// others.
json position(int roomId, double x, double y) {
  return {{"mapId", 1}, {"roomId", roomId}, {"areaId", roomId <= 12 ? 3 : 4}, {"x", x}, {"y", y}, {"level", 1}};
}

json icon(const std::string& name, const std::string& alt) {
  return {{"name", name}, {"alt", alt}, {"lightPath", kIconPath}};
}

// Controls get their value ids when the demo set is assembled; `value` null leaves none.
json control(const std::string& name, const std::string& type, const json& value) {
  json currentValue = json::object();
  if (!value.is_null()) {
    currentValue["value"] = value;
  }
  return {{"name", name}, {"type", type}, {"currentValue", std::move(currentValue)}};
}

json toggle(const std::string& name, const std::string& initial) {
  json c = control(name, "CTRL_TOGGLE", initial);
  c["toggleOnValue"] = "on";
  c["toggleOffValue"] = "off";
  return c;
}

json slider(const std::string& name, const std::string& initial, double min, double max, double step) {
  json c = control(name, "CTRL_SLIDER", initial);
  c["min"] = min;
  c["max"] = max;
  c["step"] = step;
  return c;
}

json button(const std::string& name, const std::string& buttonValue) {
  json c = control(name, "CTRL_BUTTON", nullptr);
  c["buttonValue"] = buttonValue;
  return c;
}

json label(const std::string& name, const std::string& value) { return control(name, "CTRL_LABEL", value); }

json choice(const std::string& name, const std::string& initial, const std::vector<std::string>& options) {
  json c = control(name, "CTRL_CHOICE", initial);
  c["choiceType"] = "RADIO";
  c["choiceOptions"] = json::array();
  for (const auto& option : options) {
    c["choiceOptions"].push_back({{"name", option}, {"optionValue", option}});
  }
  return c;
}

json item(int id, const std::string& logicName, const std::string& widgetName, const std::string& name,
          const std::string& type, const json& where, const json& controls) {
  json result = {{"id", id},
                 {"logicName", logicName},
                 {"widgetName", widgetName},
                 {"name", name},
                 {"type", type},
                 {"icon", icon(widgetName, name)}};
  if (!where.is_null()) {
    result["position"] = where;
  }
  if (!controls.is_null()) {
    result["controls"] = controls;
  }
  return result;
}

std::vector<json> demoItems() {
  return {
      item(1, "light.f1.meeting-room", "light", "Meeting room light", "LIGHT", position(11, 5, 4),
           json::array({toggle("power", "off"), slider("brightness", "60", 0, 100, 10)})),
      item(2, "light.f1.open-space", "light", "Open space light", "LIGHT", position(12, 15, 10),
           json::array({toggle("power", "on"), slider("brightness", "80", 0, 100, 10)})),
      item(3, "blind.f1.meeting-room", "blind", "Meeting room blind", "BLIND", position(11, 2, 8),
           json::array({slider("position", "100", 0, 100, 10), button("up", "up"), button("down", "down")})),
      item(4, "door.f1.entrance", "door", "Main entrance", "DOOR", position(14, 35, 18),
           json::array({button("open", "open"), label("state", "closed")})),
      item(5, "door.f1.kitchen", "door", "Kitchen door", "DOOR", position(13, 25, 2),
           json::array({button("open", "open"), label("state", "closed")})),
      item(6, "thermostat.f1.meeting-room", "thermostat", "Meeting room thermostat", "TEMPERATURE",
           position(11, 8, 2),
           json::array({slider("setpoint", "21", 16, 28, 0.5), label("temperature", "21.5 °C"),
                        choice("mode", "auto", {"heat", "cool", "auto"})})),
      item(7, "occupancy.f1.open-space", "sensor", "Open space occupancy", "OCCUPANCY", position(12, 18, 12),
           nullptr),
      // Mounted in a shaft that no floor plan shows, hence no position.
      item(8, "air.building", "sensor", "Building air quality", "AIR_QUALITY", nullptr,
           json::array({label("co2", "420 ppm")})),
  };
}

bool contains(const std::vector<std::string>& list, const json& text) {
  return list.empty() || std::find(list.begin(), list.end(), text.get<std::string>()) != list.end();
}

bool matches(const json& item, const ItemFilter& f) {
  if (!f.itemIds.empty() &&
      std::find(f.itemIds.begin(), f.itemIds.end(), item["id"].get<int>()) == f.itemIds.end()) {
    return false;
  }
  if ((f.logicName && item["logicName"] != *f.logicName) || !contains(f.types, item["type"]) ||
      !contains(f.widgetNames, item["widgetName"])) {
    return false;
  }
  const bool nearby = f.referencePoint && f.radius > 0;
  const bool needsPosition = f.hasPosition || f.areaId || f.roomId || f.mapId || nearby;
  const auto where = item.find("position");
  if (where == item.end()) {
    return !needsPosition;
  }
  const auto same = [&where](const char* key, const std::optional<int>& wanted) {
    return !wanted || where->value(key, json()) == *wanted;
  };
  if (!same("areaId", f.areaId) || !same("roomId", f.roomId) || !same("mapId", f.mapId)) {
    return false;
  }
  return !nearby || std::hypot((*where)["x"].get<double>() - f.referencePoint->first,
                               (*where)["y"].get<double>() - f.referencePoint->second) <= f.radius;
}

std::optional<double> parseNumber(const std::string& text) {
  double number = 0;
  const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (text.empty() || ec != std::errc() || end != text.data() + text.size() || !std::isfinite(number)) {
    return std::nullopt;
  }
  return number;
}

// Buttons and labels take any value: a button press sends its own, and labels are displays the
// platform lets integrations update.
void validate(const json& control, const std::optional<std::string>& value) {
  const auto type = control["type"].get<std::string>();
  const auto name = control["name"].get<std::string>();
  if (type == "CTRL_SLIDER") {
    const auto number = value ? parseNumber(*value) : std::nullopt;
    if (!number || *number < control["min"].get<double>() || *number > control["max"].get<double>()) {
      throw RequestError(400, name + " takes a number from " + control["min"].dump() + " to " +
                                  control["max"].dump());
    }
  } else if (type == "CTRL_TOGGLE") {
    if (!value || (*value != control["toggleOnValue"] && *value != control["toggleOffValue"])) {
      throw RequestError(400, name + " takes " + control["toggleOnValue"].get<std::string>() + " or " +
                                  control["toggleOffValue"].get<std::string>());
    }
  } else if (type == "CTRL_CHOICE") {
    const auto& options = control["choiceOptions"];
    if (!value || std::none_of(options.begin(), options.end(),
                               [&value](const json& option) { return option["optionValue"] == *value; })) {
      throw RequestError(400, name + " takes one of its option values");
    }
  }
}

}  // namespace

ItemFilter parseItemFilter(const json& filter, const std::string& prefix) {
  ItemFilter f;
  if (const json* v = optionalMember(filter, "logicName", JsonKind::string, prefix + "logicName")) {
    f.logicName = v->get<std::string>();
  }
  const std::pair<const char*, std::optional<int>*> places[] = {
      {"areaId", &f.areaId}, {"roomId", &f.roomId}, {"mapId", &f.mapId}};
  for (const auto& [key, slot] : places) {
    if (const json* v = optionalMember(filter, key, JsonKind::integer, prefix + key)) {
      *slot = v->get<int>();
    }
  }
  if (const json* v = optionalList(filter, "types", JsonKind::string, prefix + "types")) {
    f.types = v->get<std::vector<std::string>>();
  }
  if (const json* v = optionalList(filter, "widgetNames", JsonKind::string, prefix + "widgetNames")) {
    f.widgetNames = v->get<std::vector<std::string>>();
  }
  if (const json* v = optionalMember(filter, "hasPosition", JsonKind::boolean, prefix + "hasPosition")) {
    f.hasPosition = v->get<bool>();
  }
  if (const json* v = optionalMember(filter, "radius", JsonKind::number, prefix + "radius")) {
    f.radius = v->get<double>();
  }
  if (const json* point = optionalMember(filter, "referencePoint", JsonKind::object, prefix + "referencePoint")) {
    const json* x = optionalMember(*point, "x", JsonKind::number, prefix + "referencePoint.x");
    const json* y = optionalMember(*point, "y", JsonKind::number, prefix + "referencePoint.y");
    if (x == nullptr || y == nullptr) {
      throw RequestError(400, prefix + "referencePoint needs x and y");
    }
    f.referencePoint = std::pair{x->get<double>(), y->get<double>()};
  }
  return f;
}

Equipment::Equipment() : items_(demoItems()) {
  int nextValueId = 101;
  for (std::size_t i = 0; i < items_.size(); ++i) {
    auto controls = items_[i].find("controls");
    for (std::size_t c = 0; controls != items_[i].end() && c < controls->size(); ++c) {
      (*controls)[c]["currentValue"]["id"] = nextValueId;
      controls_[nextValueId++] = ControlRef{i, c};
    }
  }
}

json Equipment::list(const ItemFilter& filter) const {
  json matching = json::array();
  const std::lock_guard lock(mutex_);
  for (const auto& entry : items_) {
    if (matches(entry, filter)) {
      matching.push_back(entry);
    }
  }
  return matching;
}

ValueChange Equipment::set(int valueId, std::optional<std::string> value,
                           const std::function<void(const ValueChange&)>& publish) {
  const std::lock_guard lock(mutex_);
  const auto ref = controls_.find(valueId);
  if (ref == controls_.end()) {
    throw RequestError(404, "No control value with id " + std::to_string(valueId));
  }
  json& owner = items_[ref->second.item];
  json& target = owner["controls"][ref->second.control];
  validate(target, value);
  json& current = target["currentValue"];
  if (value) {
    current["value"] = *value;
  } else {
    current.erase("value");
  }
  ++setCounts_[valueId];
  ValueChange change{owner["id"].get<int>(), valueId, std::move(value), owner["name"].get<std::string>(),
                     target["name"].get<std::string>()};
  publish(change);
  return change;
}

std::size_t Equipment::setCount(int valueId) const {
  const std::lock_guard lock(mutex_);
  const auto it = setCounts_.find(valueId);
  return it == setCounts_.end() ? 0 : it->second;
}

std::optional<std::string> Equipment::value(int valueId) const {
  const std::lock_guard lock(mutex_);
  const auto ref = controls_.find(valueId);
  if (ref == controls_.end()) {
    throw std::invalid_argument("velora-sandbox: no control value with id " + std::to_string(valueId));
  }
  const json& current = items_[ref->second.item]["controls"][ref->second.control]["currentValue"];
  return current.contains("value") ? std::optional(current["value"].get<std::string>()) : std::nullopt;
}

void addEquipmentRoutes(Router& router, const Realm& realm, Equipment& equipment, StreamHub& hub) {
  addPlatformRoute(router, realm, "POST", "/api/v1/item/list",
                   [&equipment](const httplib::Request& req, httplib::Response& res, const std::smatch&) {
                     const json body = parseObjectBody(req.body);
                     const json* filter = optionalMember(body, "filter", JsonKind::object, "filter");
                     sendJson(res, 200, equipment.list(filter ? parseItemFilter(*filter, "filter.") : ItemFilter{}));
                   });
  addPlatformRoute(router, realm, "POST", "/api/v1/item/set",
                   [&equipment, &hub](const httplib::Request& req, httplib::Response& res, const std::smatch&) {
                     const json body = parseObjectBody(req.body);
                     const json* id = optionalMember(body, "id", JsonKind::integer, "id");
                     if (id == nullptr) {
                       throw RequestError(400, "id is required");
                     }
                     const json* value = optionalMember(body, "value", JsonKind::string, "value");
                     const ValueChange change =
                         equipment.set(id->get<int>(), value ? std::optional(value->get<std::string>()) : std::nullopt,
                                       [&hub](const ValueChange& c) { hub.publish(c); });
                     json stored = {{"id", change.valueId}};
                     if (change.value) {
                       stored["value"] = *change.value;
                     }
                     sendJson(res, 200, stored);
                   });
}

}  // namespace velora::sandbox::detail
