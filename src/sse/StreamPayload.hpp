#pragma once
// Turning a stream event's data text into the record its operation promises. Data that does not
// decode is dropped: a stream carries on after one bad event.

#include <functional>
#include <optional>
#include <string>

#include <velora/core/Record.hpp>
#include <velora/sse/EventSource.hpp>

namespace velora::detail {

template <class T>
std::optional<T> decodeData(const std::optional<std::string>& data) {
  if (!data) return std::nullopt;
  try {
    return decodeJSON<T>(*data);
  } catch (const JsonError&) {
    return std::nullopt;
  }
}

/// Calls `callback` with the decoded record.
template <class T, class Callback>
EventHandler decoded(Callback callback) {
  return [callback = std::move(callback)](std::optional<std::string>, std::optional<std::string>,
                                          std::optional<std::string> data) {
    if (!callback) return;
    if (auto value = decodeData<T>(data)) callback(*value);
  };
}

/// Calls `handler` with the raw event when its data decodes as T.
template <class T>
EventHandler validated(EventHandler handler) {
  return [handler = std::move(handler)](std::optional<std::string> id, std::optional<std::string> name,
                                        std::optional<std::string> data) {
    if (handler && decodeData<T>(data)) handler(std::move(id), std::move(name), std::move(data));
  };
}

inline EventHandler passThrough(EventHandler handler) {
  return [handler = std::move(handler)](std::optional<std::string> id, std::optional<std::string> name,
                                        std::optional<std::string> data) {
    if (handler) handler(std::move(id), std::move(name), std::move(data));
  };
}

/// The check text as sent ("" when the event had no data).
inline EventHandler checkText(std::function<void(const std::string&)> callback) {
  return [callback = std::move(callback)](std::optional<std::string>, std::optional<std::string>,
                                          std::optional<std::string> data) {
    if (callback) callback(data.value_or(""));
  };
}

}  // namespace velora::detail

// The facade's stream operations still spell the former name of this namespace.
namespace velora {
}  // namespace velora
