#pragma once

#include <velora/core/Record.hpp>

namespace velora {

/// Advertising duty cycle of the tag. `high` and `alwaysOn` both mean continuous advertising.
VELORA_ENUM(BLEFrequency, low, middle, high, alwaysOn);

/// Seconds on air and off air per period; no time off means continuous advertising.
struct BLEDutyCycle {
  double tON = 0;
  double tOFF = 0;
  friend bool operator==(const BLEDutyCycle&, const BLEDutyCycle&) = default;
};

constexpr BLEDutyCycle dutyCycle(BLEFrequency frequency) {
  switch (frequency) {
    case BLEFrequency::low:
      return {0.5, 1.0};
    case BLEFrequency::middle:
      return {1.0, 1.0};
    case BLEFrequency::high:
    case BLEFrequency::alwaysOn:
      return {0.0, 0.0};  // the same on purpose: both mean always on air
  }
  return {};
}

}  // namespace velora
