#pragma once

#include <array>

#include <velora/core/Record.hpp>

namespace velora {

/// Advertising duty cycle of the tag. `high` and `alwaysOn` both mean continuous advertising.
enum class BLEFrequency { low, middle, high, alwaysOn };

constexpr auto enumCases(BLEFrequency) {
  using E = BLEFrequency;
  return std::array{EnumCase<E>{E::low, "low"}, EnumCase<E>{E::middle, "middle"}, EnumCase<E>{E::high, "high"},
                    EnumCase<E>{E::alwaysOn, "alwaysOn"}};
}

}  // namespace velora
