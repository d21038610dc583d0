#include <condition_variable>
#include <mutex>

#include <velora/platform/Clock.hpp>

namespace velora {

bool Clock::waitUntil(Date deadline, std::stop_token stop) const {
  // Waited on the steady clock for the time left, so that a change of the wall clock neither
  // stretches nor cuts an advertising period.
  const auto left = deadline - now();
  std::mutex mutex;
  std::condition_variable_any woken;
  std::unique_lock lock(mutex);
  return woken.wait_for(lock, stop, left, [] { return false; }) || stop.stop_requested();
}

}  // namespace velora
