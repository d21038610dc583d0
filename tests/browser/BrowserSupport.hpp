#pragma once
// What the browser tests share.

#include <cairo.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include <velora_sandbox/Sandbox.hpp>

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

/// A sandbox for the web engine, which keeps its connections open: they idle out soon, so that
/// the sandbox stops soon.
inline sandbox::SandboxOptions browserSandboxOptions() {
  sandbox::SandboxOptions options;
  options.threads = 4;
  options.keepAliveTimeoutSeconds = 1;
  return options;
}

/// The image of `png`; a surface in an error state when it does not decode. The caller destroys it.
inline cairo_surface_t* decodePng(const std::vector<std::uint8_t>& png) {
  struct Reader {
    const std::vector<std::uint8_t>& bytes;
    std::size_t at = 0;
  } reader{png};
  return cairo_image_surface_create_from_png_stream(
      [](void* closure, unsigned char* data, unsigned int length) {
        auto* r = static_cast<Reader*>(closure);
        if (r->bytes.size() - r->at < length) return CAIRO_STATUS_READ_ERROR;
        std::copy_n(r->bytes.begin() + static_cast<std::ptrdiff_t>(r->at), length, data);
        r->at += length;
        return CAIRO_STATUS_SUCCESS;
      },
      &reader);
}

}  // namespace velora::testing
