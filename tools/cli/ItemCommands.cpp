// items list and items set: the building's controllable equipment.

#include <memory>
#include <sstream>

#include <velora/building/ControllableItems.hpp>

#include "Command.hpp"
#include "Session.hpp"

namespace velora::cli {
namespace {

struct ListOptions {
  int room = 0, area = 0, map = 0;
  std::string logicName;
  std::vector<std::string> types, widgets;
  bool hasPosition = false;
  CLI::Option *roomOption = nullptr, *areaOption = nullptr, *mapOption = nullptr, *logicNameOption = nullptr;
};

std::optional<ItemControllableFilter> filterFrom(const ListOptions& o) {
  ItemControllableFilter filter;
  bool any = o.hasPosition || !o.types.empty() || !o.widgets.empty();
  if (o.roomOption->count() > 0) filter.roomId = o.room, any = true;
  if (o.areaOption->count() > 0) filter.areaId = o.area, any = true;
  if (o.mapOption->count() > 0) filter.mapId = o.map, any = true;
  if (o.logicNameOption->count() > 0) filter.logicName = o.logicName, any = true;
  if (!o.types.empty()) {
    filter.types.emplace();
    for (const auto& type : o.types) filter.types->push_back(enumFromRaw<ControllableElementType>(type));
  }
  filter.widgetNames = o.widgets;
  filter.hasPosition = o.hasPosition;
  if (!any) return std::nullopt;
  return filter;
}

std::string describeControl(const ItemControl& control) {
  return control.name + "=" + control.currentValue().value.value_or("-") + " (" +
         std::string(rawValue(control.type)).substr(std::string_view("CTRL_").size()) + ", value id " +
         std::to_string(control.currentValue().id) + ")";
}

std::string describeItems(const std::vector<ItemControllable>& items) {
  if (items.empty()) return "(no items match)";
  std::ostringstream text;
  for (const auto& item : items) {
    text << item.id << "  " << rawValue(item.type) << "  " << item.name.value_or(item.logicName);
    if (item.position && item.position->roomId) text << "  room " << *item.position->roomId;
    text << '\n';
    for (const auto& control : item.controls.value_or(std::vector<std::shared_ptr<ItemControl>>{})) {
      if (control) text << "    " << describeControl(*control) << '\n';
    }
  }
  return text.str();
}

void list(Context& ctx, const ListOptions& options) {
  Orvane& orvane = connectWithSession(ctx);
  const auto items = ctx.await("Listing the equipment", orvane.getControllableItems(filterFrom(options)));
  ctx.out.show<std::vector<ItemControllable>>(items, describeItems);
}

struct SetOptions {
  int item = 0;
  std::string control;
  std::string value;
};

void set(Context& ctx, const SetOptions& options) {
  Orvane& orvane = connectWithSession(ctx);
  const auto items = ctx.await("Finding the item", orvane.getControllableItems());
  const auto item = std::find_if(items.begin(), items.end(), [&](const auto& i) { return i.id == options.item; });
  if (item == items.end()) throw UsageError("no item with id " + std::to_string(options.item) + "; see velora items list");
  const auto controls = item->controls.value_or(std::vector<std::shared_ptr<ItemControl>>{});
  const auto control =
      std::find_if(controls.begin(), controls.end(), [&](const auto& c) { return c && c->name == options.control; });
  if (control == controls.end()) {
    throw UsageError("item " + std::to_string(options.item) + " has no control named '" + options.control + "'");
  }
  // Assigning the control's value would send it without waiting for the answer; a copy made
  // from its record carries the new value and lets this command report what the server stored.
  auto edited = encode(**control);
  for (auto& [key, member] : *edited.as<AnyCodable::Object>()) {
    if (key == "currentValue") member = encode(ItemCurrentValue{(*control)->currentValue().id, options.value});
  }
  const auto stored = ctx.await("Setting " + options.control, orvane.setControllableItem(decode<ItemControl>(edited)));
  ctx.out.show<ItemCurrentValue>(stored, [&](const ItemCurrentValue& v) {
    return item->name.value_or(item->logicName) + ": " + options.control + " = " + v.value.value_or("-");
  });
}

}  // namespace

void addItemCommands(CommandSet& commands) {
  CLI::App* items = commands.group("items", "List the building's equipment or set one of its controls");

  auto listOptions = std::make_shared<ListOptions>();
  CLI::App* listCommand = commands.add(*items, "list", "List the equipment and the current value of each control",
                                       [listOptions](Context& ctx) { list(ctx, *listOptions); });
  listOptions->roomOption = listCommand->add_option("--room", listOptions->room, "Only items in this room");
  listOptions->areaOption = listCommand->add_option("--area", listOptions->area, "Only items in this area");
  listOptions->mapOption = listCommand->add_option("--map", listOptions->map, "Only items on this map");
  listOptions->logicNameOption = listCommand->add_option("--logic-name", listOptions->logicName, "Only this logical name");
  listCommand->add_option("--type", listOptions->types, "Only these kinds (LIGHT, DOOR, BLIND, TEMPERATURE...)");
  listCommand->add_option("--widget", listOptions->widgets, "Only these widget names");
  listCommand->add_flag("--has-position", listOptions->hasPosition, "Only items placed on a map");

  auto setOptions = std::make_shared<SetOptions>();
  CLI::App* setCommand = commands.add(*items, "set", "Set a control of an item, e.g. 'items set 1 power on'",
                                      [setOptions](Context& ctx) { set(ctx, *setOptions); });
  setCommand->add_option("ITEM", setOptions->item, "Item id")->required();
  setCommand->add_option("CONTROL", setOptions->control, "Control name")->required();
  setCommand->add_option("VALUE", setOptions->value, "New value, as text")->required();
}

}  // namespace velora::cli
