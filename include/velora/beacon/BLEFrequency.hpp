#pragma once

#include <velora/core/Record.hpp>

namespace velora {

/// Advertising duty cycle of the tag. `high` and `alwaysOn` both mean continuous advertising.
VELORA_ENUM(BLEFrequency, low, middle, high, alwaysOn);

}  // namespace velora
