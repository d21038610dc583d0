#pragma once
// A counting semaphore for tasks: waiting suspends the task instead of blocking a thread.
// Waiters are released first in, first out, and resume on their task's executor (on the
// signalling thread when the task has none). `waitUnlessCancelled` watches the waiting task's stop
// token and gives its claim back when the task is cancelled.

#include <coroutine>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>

#include <velora/core/Task.hpp>

namespace velora {

class AsyncSemaphore {
 public:
  /// Stops the process with "AsyncSemaphore requires a value equal or greater than zero" when
  /// `value` is negative.
  explicit AsyncSemaphore(std::int64_t value);
  /// Stops the process when tasks are still suspended on the semaphore.
  ~AsyncSemaphore();
  AsyncSemaphore(const AsyncSemaphore&) = delete;
  AsyncSemaphore& operator=(const AsyncSemaphore&) = delete;

  /// Permits minus waiters; negative means that many tasks are suspended or about to suspend.
  std::int64_t value() const;

  /// Releases one permit. True when it resumed a suspended task.
  bool signal();

  class Suspension;

  /// `co_await semaphore.wait();` waits for a permit, ignoring cancellation.
  class WaitAwaiter {
   public:
    explicit WaitAwaiter(AsyncSemaphore& semaphore) : semaphore_(semaphore) {}
    bool await_ready() const noexcept { return false; }
    template <class Promise>
    bool await_suspend(std::coroutine_handle<Promise> handle) {
      return suspend(handle, detail::executorOf(handle));
    }
    void await_resume() const noexcept {}

   private:
    bool suspend(std::coroutine_handle<> handle, std::shared_ptr<Executor> executor);
    AsyncSemaphore& semaphore_;
    std::shared_ptr<Suspension> suspension_;
  };

  /// `co_await semaphore.waitUnlessCancelled();` waits for a permit; throws CancellationError when
  /// the task's stop is requested before or while it waits, leaving `value` as it was.
  class CancellableWaitAwaiter {
   public:
    explicit CancellableWaitAwaiter(AsyncSemaphore& semaphore) : semaphore_(semaphore) {}
    bool await_ready() const noexcept { return false; }
    template <class Promise>
    bool await_suspend(std::coroutine_handle<Promise> handle) {
      return suspend(handle, detail::stopTokenOf(handle), detail::executorOf(handle));
    }
    void await_resume() const;

   private:
    bool suspend(std::coroutine_handle<> handle, std::stop_token token, std::shared_ptr<Executor> executor);
    struct OnStop {
      CancellableWaitAwaiter* awaiter;
      void operator()() const noexcept;
    };
    AsyncSemaphore& semaphore_;
    std::shared_ptr<Suspension> suspension_;
    std::optional<std::stop_callback<OnStop>> onStop_;
    bool registering_ = false;
    bool cancelled_ = false;
  };

  WaitAwaiter wait() { return WaitAwaiter(*this); }
  CancellableWaitAwaiter waitUnlessCancelled() { return CancellableWaitAwaiter(*this); }

 private:
  void lock() const { mutex_.lock(); }
  void unlock() const { mutex_.unlock(); }

  mutable std::recursive_mutex mutex_;
  std::int64_t value_;
  // New waiters go to the front and signals take from the back: first in, first out.
  std::deque<std::shared_ptr<Suspension>> suspensions_;
};

}  // namespace velora
