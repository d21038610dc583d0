#include <velora/core/Orvane.hpp>

namespace velora {
namespace {
constexpr std::string_view kListPath = "/api/v1/item/list";
constexpr std::string_view kSetPath = "/api/v1/item/set";
}  // namespace

void Orvane::getControllableItems(std::optional<ItemControllableFilter> filter, ResponseCallback callback) {
  auto request = makeRequest(kListPath, "POST", encodeJSON(ItemControllableRequest{std::move(filter)}));
  if (!request) return deliver(std::move(callback), APIError::invalidData().responseMessage);
  resumeSession(std::move(*request), std::vector<ItemControllable>{}, std::move(callback));
}

Task<std::vector<ItemControllable>> Orvane::getControllableItems(std::optional<ItemControllableFilter> filter) {
  auto request = makeRequest(kListPath, "POST", encodeJSON(ItemControllableRequest{std::move(filter)}));
  if (!request) throw APIError::invalidData();
  auto reply = resumeAsyncSession<std::vector<ItemControllable>>(std::move(*request));
  std::vector<ItemControllable> items = co_await std::move(reply);
  bindControls(items, weak_from_this());
  co_return items;
}

void Orvane::setControllableItem(const ItemControl& control, ResponseCallback callback) {
  auto request = makeRequest(kSetPath, "POST", encodeJSON(control.currentValue()));
  if (!request) return deliver(std::move(callback), APIError::invalidData().responseMessage);
  resumeSession(std::move(*request), ItemCurrentValue{}, std::move(callback));
}

Task<ItemCurrentValue> Orvane::setControllableItem(const ItemControl& control) {
  auto request = makeRequest(kSetPath, "POST", encodeJSON(control.currentValue()));
  if (!request) throw APIError::invalidData();
  auto reply = resumeAsyncSession<ItemCurrentValue>(std::move(*request));
  co_return co_await std::move(reply);
}

}  // namespace velora
