#pragma once
// What the browser tests share.

#include <cctype>
#include <cstdio>
#include <string>

namespace velora::testing {

/// `text` as one query value: everything but unreserved characters percent-encoded.
inline std::string percentEncode(const std::string& text) {
  std::string out;
  for (unsigned char c : text) {
    if (std::isalnum(c) || c == '-' || c == '_' || c == '.' || c == '~') {
      out += static_cast<char>(c);
    } else {
      char escaped[4];
      std::snprintf(escaped, sizeof escaped, "%%%02X", c);
      out += escaped;
    }
  }
  return out;
}

}  // namespace velora::testing
