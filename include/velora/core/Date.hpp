#pragma once
// Dates stored by the library are seconds since 2001-01-01T00:00:00Z, the reference date of the
// platform's own stores, so that stored sessions keep their meaning across implementations.

#include <chrono>

namespace velora {

using Date = std::chrono::system_clock::time_point;

/// 2001-01-01T00:00:00Z in seconds since the Unix epoch.
inline constexpr long long kReferenceDateUnixSeconds = 978307200;

inline double secondsSinceReferenceDate(Date date) {
  using namespace std::chrono;
  return duration<double>(date.time_since_epoch()).count() - static_cast<double>(kReferenceDateUnixSeconds);
}

inline Date dateFromReferenceSeconds(double seconds) {
  using namespace std::chrono;
  return Date(duration_cast<Date::duration>(duration<double>(seconds + static_cast<double>(kReferenceDateUnixSeconds))));
}

}  // namespace velora
