// The two encoders that put texts into requests: the operations' query strings and the form body
// of the identity server's token requests. Whatever the texts, a query string must read back as
// the values given (absent ones left out) and make a URL the operations' URL parser accepts with
// exactly that query; a form body must read back as the pairs given, in order.

#include <fuzzer/FuzzedDataProvider.h>

#include <velora/auth/KeycloakManager.hpp>
#include <velora/core/URL.hpp>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/Query.hpp"

namespace {

using Pairs = std::vector<std::pair<std::string, std::string>>;

void check(bool condition) {
  if (!condition) std::abort();
}

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;  // the encoders write upper-case digits only
}

/// "%XX" back to bytes; nullopt for a byte that should have been escaped, or a broken escape.
std::optional<std::string> unescape(std::string_view text, std::string_view allowed) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '%') {
      if (i + 2 >= text.size()) return std::nullopt;
      const int high = hexValue(text[i + 1]), low = hexValue(text[i + 2]);
      if (high < 0 || low < 0) return std::nullopt;
      out.push_back(static_cast<char>(high * 16 + low));
      i += 2;
    } else if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
               allowed.find(c) != std::string_view::npos) {
      out.push_back(c);
    } else {
      return std::nullopt;
    }
  }
  return out;
}

/// "k=v&k=v" back to pairs.
std::optional<Pairs> readPairs(std::string_view text, std::string_view allowed) {
  Pairs pairs;
  if (text.empty()) return pairs;
  for (std::size_t start = 0;;) {
    const std::size_t end = std::min(text.find('&', start), text.size());
    const std::string_view item = text.substr(start, end - start);
    const std::size_t equals = item.find('=');
    if (equals == std::string_view::npos) return std::nullopt;
    auto key = unescape(item.substr(0, equals), allowed);
    auto value = unescape(item.substr(equals + 1), allowed);
    if (!key || !value) return std::nullopt;
    pairs.emplace_back(std::move(*key), std::move(*value));
    if (end == text.size()) return pairs;
    start = end + 1;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider input(data, size);

  // Query keys are the operations' own names; the values are the caller's.
  static constexpr const char* kKeys[] = {"type", "date", "search", "id", "size"};
  velora::detail::Query query("/api/v2/booking/user/list");
  Pairs added;
  const int count = input.ConsumeIntegralInRange(0, 5);
  for (int i = 0; i < count; ++i) {
    const char* key = kKeys[input.ConsumeIntegralInRange<std::size_t>(0, std::size(kKeys) - 1)];
    std::optional<std::string> value;
    if (input.ConsumeBool()) value = input.ConsumeRandomLengthString(64);
    query.add(key, value);
    if (value) added.emplace_back(key, *value);
  }
  const std::string text = query.text();
  const std::string_view path = "/api/v2/booking/user/list";
  check(text.compare(0, path.size(), path) == 0);
  const std::string_view items = std::string_view(text).substr(path.size());
  check(added.empty() ? items.empty() : items.front() == '?');
  if (!added.empty()) check(readPairs(items.substr(1), "-._~") == added);
  const auto url = velora::URL::safeInit("https://platform.test" + text);
  check(url && url->path() == path && url->query().value_or("") == (added.empty() ? "" : items.substr(1)));

  Pairs form;
  while (input.remaining_bytes() > 0 && form.size() < 8) {
    std::string key = input.ConsumeRandomLengthString(32);
    form.emplace_back(std::move(key), input.ConsumeRandomLengthString(128));
  }
  const std::string body = velora::KeycloakManager::formBody(form);
  check(readPairs(body, "-._~/?") == form);
  return 0;
}
