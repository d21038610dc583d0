#pragma once

#include <velora/core/Date.hpp>

namespace velora {

/// Wall-clock time, for token validity and dates.
class Clock {
 public:
  virtual ~Clock() = default;
  virtual Date now() const = 0;
};

class SystemClock : public Clock {
 public:
  Date now() const override { return std::chrono::system_clock::now(); }
};

}  // namespace velora
