// The URL every operation is built with. `URL::safeInit` accepts exactly what `URL::parse` accepts;
// it changes nothing but the path's doubled slashes, so scheme, host, port, query and fragment stay
// as parsed and a path without "//" leaves the text as written; the text it gives parses to the
// same parts again, and is never longer than the input.

#include <velora/core/URL.hpp>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

namespace {

using velora::URL;

void check(bool condition) {
  if (!condition) std::abort();
}

bool sameParts(const URL& a, const URL& b) {
  return a.scheme() == b.scheme() && a.host() == b.host() && a.port() == b.port() && a.query() == b.query() &&
         a.fragment() == b.fragment();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const auto parsed = URL::parse(text);
  const auto safe = URL::safeInit(text);
  check(parsed.has_value() == safe.has_value());
  if (!parsed) return 0;

  check(parsed->absoluteString() == text);
  check(sameParts(*parsed, *safe));
  check(safe->absoluteString().size() <= text.size() && safe->path().size() <= parsed->path().size());
  if (parsed->path().find("//") == std::string_view::npos) check(safe->absoluteString() == text && safe->path() == parsed->path());

  const auto again = URL::parse(safe->absoluteString());
  check(again && sameParts(*again, *safe) && again->path() == safe->path());
  return 0;
}
