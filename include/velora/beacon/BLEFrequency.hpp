#pragma once

#include <velora/core/Record.hpp>

namespace velora {

/// Advertising duty cycle of the tag. `high` and `alwaysOn` both mean continuous advertising.
VELORA_ENUM(BLEFrequency, low, middle, high, alwaysOn);

/// Seconds on air and off air per period; no time off means continuous advertising.
struct BLEDutyCycle {
  double tON = 0;   ///< Seconds each advertising burst stays on air; 0 with `tOFF` 0 means always on.
  double tOFF = 0;  ///< Seconds of silence between bursts; 0 means the advertisement never pauses.
  /// Member-wise comparison.
  friend bool operator==(const BLEDutyCycle&, const BLEDutyCycle&) = default;
};

/// The fixed cycle a frequency stands for: `low` 0.5 s on / 1.0 s off, `middle` 1.0 s / 1.0 s,
/// `high` and `alwaysOn` continuous (both times 0). A frequency passed to startAdvertisingRegion
/// replaces the configuration's own `tON`/`tOFF` with this cycle.
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
