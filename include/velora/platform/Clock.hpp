#pragma once

#include <stop_token>

#include <velora/core/Date.hpp>

namespace velora {

/// Wall-clock time, for token validity and dates, and the waits of the library's timed loops.
class Clock {
 public:
  virtual ~Clock() = default;
  /// The current wall-clock time.
  virtual Date now() const = 0;
  /// Blocks the calling thread until `deadline` on this clock or until `stop` is requested,
  /// whichever comes first; true when stopped. A condition wait, so a stop ends it at once.
  virtual bool waitUntil(Date deadline, std::stop_token stop) const;
};

/// The system's wall clock: what the library uses unless a test puts in a controllable clock.
class SystemClock : public Clock {
 public:
  Date now() const override { return std::chrono::system_clock::now(); }
};

}  // namespace velora
