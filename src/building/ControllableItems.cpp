#include <velora/building/ControllableItems.hpp>
#include <velora/core/Orvane.hpp>

namespace velora {

void ItemControl::setCurrentValue(ItemCurrentValue value) {
  currentValue_ = std::move(value);
  std::shared_ptr<Orvane> bound = facade_.lock();
  if (bound_ && !bound) return;  // its facade (and with it the environment to send to) is gone
  Orvane& facade = bound ? *bound : Orvane::shared();
  // A task of its own, through the awaitable form: it runs here only until it first waits (for
  // the semaphore or the transfer), so the assigning thread never blocks; the answer is not needed.
  detachTask([](Task<ItemCurrentValue> sending) -> Task<void> {
    try {
      co_await std::move(sending);
    } catch (const std::exception&) {
      // Nobody awaits a write-through; the pipeline has printed what went wrong.
    }
  }(facade.setControllableItem(*this)));
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
