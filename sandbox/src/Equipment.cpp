// The demo building's controllable items: what /api/v1/item/list answers, what /item/set
// changes and what the item streams relay. The items themselves come from equipment.json.

#include <algorithm>
#include <charconv>
#include <cmath>
#include <stdexcept>

#include "SandboxInternal.hpp"

namespace velora::sandbox::detail {
namespace {

using nlohmann::json;

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

Equipment::Equipment(const json& items) : items_(items.begin(), items.end()) {
  for (std::size_t i = 0; i < items_.size(); ++i) {
    auto controls = items_[i].find("controls");
    for (std::size_t c = 0; controls != items_[i].end() && c < controls->size(); ++c) {
      controls_[(*controls)[c]["currentValue"]["id"].get<int>()] = ControlRef{i, c};
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

}  // namespace velora::sandbox::detail
