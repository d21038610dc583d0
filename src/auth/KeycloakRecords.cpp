#include <velora/auth/KeycloakRecords.hpp>

#include <chrono>

namespace velora {
namespace {
thread_local std::optional<Date> decodingTime;
constexpr double kValidityMarginSeconds = 60;
}  // namespace

namespace detail {
Date decodingNow() { return decodingTime.value_or(std::chrono::system_clock::now()); }
ScopedDecodingTime::ScopedDecodingTime(Date now) : previous_(decodingTime) { decodingTime = now; }
ScopedDecodingTime::~ScopedDecodingTime() { decodingTime = previous_; }
}  // namespace detail

void KeyCloakAuthResponse::didDecode() {
  if (!storingDate) storingDate = detail::decodingNow();
}

bool KeyCloakAuthResponse::valid(const std::optional<double>& lifetime, Date now) const {
  if (!lifetime || !storingDate) return false;
  const double deadline = secondsSinceReferenceDate(*storingDate) + (*lifetime - kValidityMarginSeconds);
  return secondsSinceReferenceDate(now) < deadline;
}

}  // namespace velora
