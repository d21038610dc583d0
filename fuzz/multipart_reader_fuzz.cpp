// The sandbox's multipart reader on arbitrary bodies (it must answer with parts or a reason, never
// crash or read outside the body), and on bodies in the client's upload layout made from the
// input, whose parts it must give back exactly.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <variant>

#include "Multipart.hpp"

namespace {

using velora::sandbox::detail::MultipartEntry;
using velora::sandbox::detail::readMultipart;

constexpr std::string_view kBoundary = "9F1C2B7E-3D4A-4C5B-8E6F-0A1B2C3D4E5F";

/// A part as the client writes it: "Content-Type : " with a space, no space before filename.
std::string part(std::string_view name, std::string_view file, std::string_view type, std::string_view bytes) {
  std::string text = "--" + std::string(kBoundary) + "\r\nContent-Disposition: form-data; name=\"" + std::string(name) + "\"";
  if (!file.empty()) text += ";filename=\"" + std::string(file) + "\"";
  text += "\r\nContent-Type : " + std::string(type) + "\r\n\r\n";
  text.append(bytes);
  return text + "\r\n";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  // Any body at all, with the boundary taken from its first line.
  const auto newline = input.find('\n');
  auto boundary = input.substr(0, std::min<std::size_t>(newline, 70));
  if (!boundary.empty() && boundary.back() == '\r') boundary.remove_suffix(1);
  if (!boundary.empty()) (void)readMultipart(input, boundary);

  // The input split in three (photo, voice, form) and written in the client's layout.
  const std::size_t a = size / 3, b = 2 * size / 3;
  const std::string_view photo = input.substr(0, a), voice = input.substr(a, b - a), form = input.substr(b);
  // A part's bytes may not hold the delimiter itself; the client's boundary is a fresh UUID.
  if (input.find(kBoundary) != std::string_view::npos) return 0;
  const std::string body = part("image", "A.jpg", "image/jpeg", photo) + part("sound", "B.aac", "audio/x-aac", voice) +
                           part("form", "", "application/json", form) + "\r\n--" + std::string(kBoundary) + "--\r\n";
  const auto result = readMultipart(body, kBoundary);
  const auto* parts = std::get_if<std::vector<MultipartEntry>>(&result);
  if (!parts || parts->size() != 3 || (*parts)[0].content != photo || (*parts)[1].content != voice || (*parts)[2].content != form ||
      (*parts)[0].filename != "A.jpg" || (*parts)[1].mediaType != "audio/x-aac" || (*parts)[2].filename) {
    __builtin_trap();  // a body in the client's layout must come back exactly as written
  }
  return 0;
}
