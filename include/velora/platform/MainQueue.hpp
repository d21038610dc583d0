#pragma once
// The application's main queue: every callback of the library reaches the application here.

#include <atomic>
#include <chrono>
#include <cstdint>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

#include <velora/core/Executor.hpp>

namespace velora {

/// An executor that also runs work after a delay; its thread is the application's main thread.
class MainQueue : public Executor {
 public:
  /// Runs `work` on this queue once `delay` has passed, not earlier; work due at the same time
  /// runs in the order posted.
  virtual void postAfter(std::chrono::milliseconds delay, std::function<void()> work) = 0;
  /// True when called from the thread that runs this queue's work.
  virtual bool isCurrent() const = 0;
};

/// A queue that the host runs on a thread of its own choosing (`run`, `runUntil`).
class RunLoop : public MainQueue {
 public:
  void post(std::function<void()> work) override;
  void postAfter(std::chrono::milliseconds delay, std::function<void()> work) override;
  bool isCurrent() const override;

  /// Runs work until `stop()` is called.
  void run();
  /// Runs work until `done()` holds (checked after each item) or `stop()`; false on stop.
  bool runUntil(const std::function<bool()>& done);
  /// Makes run or runUntil return after the current work; work still queued waits for the next
  /// run. Callable from any thread. A stop before the loop runs is forgotten: each run starts anew.
  void stop();

 private:
  using Clock = std::chrono::steady_clock;
  std::function<void()> next(std::unique_lock<std::mutex>& lock);

  static constexpr auto kSpin = std::chrono::microseconds(200);
  mutable std::mutex mutex_;
  std::condition_variable wake_;
  std::multimap<Clock::time_point, std::function<void()>> work_;  // ordered by due time, then FIFO
  std::atomic<std::uint64_t> posts_{0};
  std::thread::id runner_;
  bool stopped_ = false;
};

/// A main queue with a thread of its own, for hosts without a run loop (and for tests). It may be
/// destroyed from its own thread (the last owner let go in a callback): the thread then ends
/// after the current work instead of joining itself.
class ThreadQueue : public MainQueue {
 public:
  ThreadQueue();
  ~ThreadQueue() override;
  void post(std::function<void()> work) override { loop_->post(std::move(work)); }
  void postAfter(std::chrono::milliseconds delay, std::function<void()> work) override {
    loop_->postAfter(delay, std::move(work));
  }
  bool isCurrent() const override { return loop_->isCurrent(); }

 private:
  std::shared_ptr<RunLoop> loop_ = std::make_shared<RunLoop>();
  std::thread thread_;
};

}  // namespace velora
