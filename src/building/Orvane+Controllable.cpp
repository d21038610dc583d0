// Controllable items: the equipment a user may operate, and setting a control's value.

#include <velora/building/ControllableItems.hpp>
#include <velora/core/Orvane.hpp>

#include "core/Operation.hpp"

namespace velora {
namespace {

struct GetControllableItems {
  std::optional<ItemControllableFilter> filter;
  static constexpr OperationInfo info{"getControllableItems", "POST", "/api/v1/item/list"};
  using Reply = std::vector<ItemControllable>;
  ItemControllableRequest body(const Orvane&) const { return {filter}; }
  /// Setting a returned control's value then sends it through this facade.
  static void afterDecode(Reply& items, Orvane& facade) { bindControls(items, facade.weak_from_this()); }
  VELORA_FIELDS(GetControllableItems, filter);
};
VELORA_REGISTER_OPERATION(GetControllableItems);

/// Sends the control's current value; `control` is that value.
struct SetControllableItem {
  ItemCurrentValue control;
  static constexpr OperationInfo info{"setControllableItem", "POST", "/api/v1/item/set"};
  using Reply = ItemCurrentValue;
  const ItemCurrentValue& body(const Orvane&) const { return control; }
  VELORA_FIELDS(SetControllableItem, control);
};
VELORA_REGISTER_OPERATION(SetControllableItem);

}  // namespace

void Orvane::getControllableItems(std::optional<ItemControllableFilter> filter, ResponseCallback callback) {
  call(GetControllableItems{std::move(filter)}, std::move(callback));
}
Task<std::vector<ItemControllable>> Orvane::getControllableItems(std::optional<ItemControllableFilter> filter) {
  return call(GetControllableItems{std::move(filter)});
}
Task<std::vector<ItemControllable>> Orvane::getControllableItems() { return call(GetControllableItems{}); }

void Orvane::setControllableItem(const ItemControl& control, ResponseCallback callback) {
  call(SetControllableItem{control.currentValue()}, std::move(callback));
}
Task<ItemCurrentValue> Orvane::setControllableItem(const ItemControl& control) {
  return call(SetControllableItem{control.currentValue()});
}

}  // namespace velora
