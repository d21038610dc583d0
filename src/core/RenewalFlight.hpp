#pragma once
// One renewal shared by every request that needs it (single-flight). The first request that meets
// an expired session starts the renewal; requests arriving while it runs join it instead of
// queueing a renewal of their own, and all of them learn its one outcome.

#include <functional>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include <velora/core/SessionRenewer.hpp>

namespace velora::detail {

/// How a shared renewal ended for the requests that joined it.
struct FlightLanding {
  enum class Next {
    send,    // a valid token is in force: send
    refuse,  // no way to a token: the form's refusal
    failed,  // the renewal failed: every request reports `result`
  };
  Next next = Next::send;
  /// The failed renewal was the captive one rather than a refresh.
  bool captive = false;
  RenewalResult result;
};

class RenewalFlight : public std::enable_shared_from_this<RenewalFlight> {
 public:
  using Waiter = std::function<void(const FlightLanding&)>;
  /// Ends the flight; only the first call counts.
  using Land = std::function<void(FlightLanding)>;
  using Start = std::function<void(Land land)>;

  /// Adds `waiter` to the renewal in flight, or starts one with `start` when none runs. Every
  /// waiter is called exactly once, with the outcome of the flight it joined, on the thread that
  /// lands it.
  void join(Waiter waiter, const Start& start) {
    {
      std::lock_guard lock(mutex_);
      waiters_.push_back(std::move(waiter));
      if (flying_) return;
      flying_ = true;
    }
    auto landed = std::make_shared<std::once_flag>();
    start([self = shared_from_this(), landed](FlightLanding landing) {
      std::call_once(*landed, [&] { self->land(landing); });
    });
  }

 private:
  void land(const FlightLanding& landing) {
    std::vector<Waiter> waiters;
    {
      std::lock_guard lock(mutex_);
      waiters = std::exchange(waiters_, {});
      flying_ = false;
    }
    for (auto& waiter : waiters) waiter(landing);
  }

  std::mutex mutex_;
  bool flying_ = false;
  std::vector<Waiter> waiters_;
};

}  // namespace velora::detail
