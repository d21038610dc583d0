#pragma once
// Dates stored by the library are seconds since 2001-01-01T00:00:00Z, the reference date of the
// platform's own stores, so that stored sessions keep their meaning across implementations.

#include <chrono>

namespace velora {

/// A point in time; stored as seconds since the reference date 2001-01-01T00:00:00Z.
using Date = std::chrono::system_clock::time_point;

/// 2001-01-01T00:00:00Z in seconds since the Unix epoch.
inline constexpr long long kReferenceDateUnixSeconds = 978307200;

/// `date` as (fractional) seconds since 2001-01-01T00:00:00Z; negative before it.
inline double secondsSinceReferenceDate(Date date) {
  using namespace std::chrono;
  return duration<double>(date.time_since_epoch()).count() - static_cast<double>(kReferenceDateUnixSeconds);
}

/// The date `seconds` after 2001-01-01T00:00:00Z, truncated to the clock's resolution; the inverse of
/// secondsSinceReferenceDate.
inline Date dateFromReferenceSeconds(double seconds) {
  using namespace std::chrono;
  return Date(duration_cast<Date::duration>(duration<double>(seconds + static_cast<double>(kReferenceDateUnixSeconds))));
}

}  // namespace velora
