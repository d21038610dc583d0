#pragma once
// Session renewals run one at a time. A request that needs one while another runs waits in this
// queue instead of blocking its thread, and continues when the renewal before it has ended.

#include <deque>
#include <functional>
#include <memory>
#include <mutex>

namespace velora::detail {

class RenewalGate : public std::enable_shared_from_this<RenewalGate> {
 public:
  /// Calls `release` exactly once when the turn is over; later calls do nothing.
  using Release = std::function<void()>;
  using Turn = std::function<void(Release release)>;

  /// Runs `turn` now when the gate is free, else after the turns queued before it.
  void enter(Turn turn) {
    {
      std::lock_guard lock(mutex_);
      if (busy_) {
        waiting_.push_back(std::move(turn));
        return;
      }
      busy_ = true;
    }
    start(std::move(turn));
  }

 private:
  void start(Turn turn) {
    auto released = std::make_shared<std::once_flag>();
    turn([self = shared_from_this(), released] { std::call_once(*released, [&] { self->next(); }); });
  }
  void next() {
    Turn turn;
    {
      std::lock_guard lock(mutex_);
      if (waiting_.empty()) {
        busy_ = false;
        return;
      }
      turn = std::move(waiting_.front());
      waiting_.pop_front();
    }
    start(std::move(turn));
  }

  std::mutex mutex_;
  bool busy_ = false;
  std::deque<Turn> waiting_;
};

}  // namespace velora::detail
