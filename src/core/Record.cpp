#include <velora/core/Record.hpp>

#include <cstdint>
#include <random>
#include <vector>

namespace velora::detail {

std::string makeUUID() {
  thread_local std::mt19937_64 random{std::random_device{}() ^ (static_cast<std::uint64_t>(std::random_device{}()) << 32)};
  std::uint8_t bytes[16];
  for (auto& b : bytes) b = static_cast<std::uint8_t>(random());
  bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0F) | 0x40);
  bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3F) | 0x80);
  static constexpr char hex[] = "0123456789ABCDEF";
  std::string out;
  for (int i = 0; i < 16; ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) out.push_back('-');
    out.push_back(hex[bytes[i] >> 4]);
    out.push_back(hex[bytes[i] & 0xF]);
  }
  return out;
}

std::string JsonPath::text() const {
  std::vector<const JsonPath*> steps;
  for (const JsonPath* p = this; p && p->parent; p = p->parent) steps.push_back(p);
  std::string out = "$";
  for (auto it = steps.rbegin(); it != steps.rend(); ++it) {
    if ((*it)->isIndex) {
      out += "[" + std::to_string((*it)->index) + "]";
    } else {
      out += ".";
      out += (*it)->key;
    }
  }
  return out;
}

void throwDecoding(const JsonPath& path, const std::string& reason) { throw DecodingError(path.text(), reason); }

std::string_view kindName(const AnyCodable& value) {
  if (value.isNull()) return "null";
  if (value.as<bool>()) return "a boolean";
  if (value.as<std::int64_t>() || value.as<double>()) return "a number";
  if (value.as<std::string>()) return "a string";
  if (value.as<Bytes>()) return "data";
  if (value.isArray()) return "an array";
  return "an object";
}

}  // namespace velora::detail
