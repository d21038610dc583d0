#pragma once
// Shared by the operations: their query strings, and the awaitable forms' option
// of dropping values of a kind this library does not know.

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <velora/booking/Booking.hpp>
#include <velora/core/Record.hpp>
#include <velora/core/Task.hpp>

namespace velora::detail {

/// Every byte but letters, digits and "-._~" as %XX, so a value reaches the server as typed.
inline std::string queryEscape(std::string_view value) {
  static constexpr char hex[] = "0123456789ABCDEF";
  std::string out;
  for (const char c : value) {
    const auto byte = static_cast<unsigned char>(c);
    if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '.' || c == '_' ||
        c == '~') {
      out.push_back(c);
    } else {
      out.push_back('%');
      out.push_back(hex[byte >> 4]);
      out.push_back(hex[byte & 0xF]);
    }
  }
  return out;
}

/// A path followed by "key=value" items: "?" before the first, "&" before the others. An absent
/// value is left out together with its key.
class Query {
 public:
  explicit Query(std::string path) : text_(std::move(path)) {}

  Query& add(std::string_view key, std::string_view value) {
    text_ += first_ ? '?' : '&';
    first_ = false;
    text_.append(key).append("=").append(queryEscape(value));
    return *this;
  }
  /// Days as "yyyy-MM-dd" in the local time zone.
  Query& add(std::string_view key, Date day) { return add(key, std::string_view(dayText(day))); }
  template <TolerantEnum E>
  Query& add(std::string_view key, E value) {
    return add(key, rawValue(value));
  }
  template <class T>
  Query& add(std::string_view key, const std::optional<T>& value) {
    if (value) add(key, *value);
    return *this;
  }

  std::string text() const { return text_; }

 private:
  std::string text_;
  bool first_ = true;
};

/// The awaited list, without the entries `isUnknown` picks when `filterUnknownValues` is set.
template <class T>
Task<std::vector<T>> keepingKnown(Task<std::vector<T>> reply, bool filterUnknownValues, bool (*isUnknown)(const T&)) {
  auto values = co_await std::move(reply);
  if (filterUnknownValues) std::erase_if(values, isUnknown);
  co_return values;
}

}  // namespace velora::detail
