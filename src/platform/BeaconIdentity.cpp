// The beacon's manufacturer data and the text form of its proximity UUID.

#include <velora/platform/BlePeripheral.hpp>

namespace velora {

std::array<std::uint8_t, 23> BeaconIdentity::manufacturerData() const {
  std::array<std::uint8_t, 23> out{};
  out[0] = 0x02;  // beacon type
  out[1] = 0x15;  // length of what follows: UUID, major, minor, power
  for (std::size_t i = 0; i < proximityUUID.size(); ++i) out[2 + i] = proximityUUID[i];
  out[18] = static_cast<std::uint8_t>(major >> 8);
  out[19] = static_cast<std::uint8_t>(major & 0xFF);
  out[20] = static_cast<std::uint8_t>(minor >> 8);
  out[21] = static_cast<std::uint8_t>(minor & 0xFF);
  // Two's complement on air: -59 dBm is 0xC5.
  out[22] = static_cast<std::uint8_t>(measuredPower);
  return out;
}

namespace {

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

std::optional<std::array<std::uint8_t, 16>> BeaconIdentity::parseUUID(const std::string& text) {
  // 8-4-4-4-12 hex digits: 36 characters with dashes at fixed places and nowhere else.
  if (text.size() != 36) return std::nullopt;
  std::array<std::uint8_t, 16> out{};
  std::size_t byte = 0;
  for (std::size_t i = 0; i < text.size();) {
    if (i == 8 || i == 13 || i == 18 || i == 23) {
      if (text[i] != '-') return std::nullopt;
      ++i;
      continue;
    }
    const int high = hexValue(text[i]);
    const int low = hexValue(text[i + 1]);
    if (high < 0 || low < 0) return std::nullopt;
    out[byte++] = static_cast<std::uint8_t>(high << 4 | low);
    i += 2;
  }
  return out;
}

}  // namespace velora
