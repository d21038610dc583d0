#pragma once
// CRC-8 with polynomial 0x97, initial remainder 0, most significant bit first, no reflection and no
// final XOR: the check byte of the tag identity in the advertised UUID.

#include <cstddef>
#include <cstdint>

namespace velora {

/// CRC-8 (polynomial 0x97, initial 0, MSB first, no reflection, no final XOR) that gives the check
/// byte of the advertised proximity UUID.
struct CRC {
  /// Folds `message` into `remainder` and returns the new remainder.
  static std::uint8_t u8(std::uint8_t message, std::uint8_t& remainder);
  /// The CRC of `size` bytes at `data`, starting from remainder 0; 0 for no bytes.
  static std::uint8_t crc8(const std::uint8_t* data, std::size_t size);
};

}  // namespace velora
