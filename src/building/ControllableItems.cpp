#include <velora/building/ControllableItems.hpp>
#include <velora/core/Orvane.hpp>

namespace velora {

void ItemControl::setCurrentValue(ItemCurrentValue value) {
  currentValue_ = std::move(value);
  std::shared_ptr<Orvane> bound = facade_.lock();
  if (bound_ && !bound) return;  // its facade (and with it the environment to send to) is gone
  Orvane& facade = bound ? *bound : Orvane::shared();
  // The callback form starts the request without blocking the caller; its answer is not needed.
  facade.setControllableItem(*this, [](const ResponseMessage&) {});
  facade.platform().print("setControllableItem(" + encodeJSON(currentValue_) + ")");
}

void bindControls(std::vector<ItemControllable>& items, const std::weak_ptr<Orvane>& facade) {
  for (auto& item : items) {
    if (!item.controls) continue;
    for (auto& control : *item.controls) {
      if (control) control->bind(facade);
    }
  }
}

}  // namespace velora
