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

/// A counting semaphore whose waiters are suspended tasks: they are released first in, first out,
/// and resume on their own task's executor. Use it to bound how many tasks run a section at once.
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
    /// Made by AsyncSemaphore::wait; the semaphore must outlive the wait.
    explicit WaitAwaiter(AsyncSemaphore& semaphore) : semaphore_(semaphore) {}
    /// @{
    /// Coroutine protocol: takes a permit, and suspends the task only when none is left; a waiting
    /// task is resumed by `signal` on the task's executor.
    bool await_ready() const noexcept { return false; }
    template <class Promise>
    bool await_suspend(std::coroutine_handle<Promise> handle) {
      return suspend(handle, detail::executorOf(handle));
    }
    void await_resume() const noexcept {}
    /// @}

   private:
    bool suspend(std::coroutine_handle<> handle, std::shared_ptr<Executor> executor);
    AsyncSemaphore& semaphore_;
    std::shared_ptr<Suspension> suspension_;
  };

  /// `co_await semaphore.waitUnlessCancelled();` waits for a permit; throws CancellationError when
  /// the task's stop is requested before or while it waits, leaving `value` as it was.
  class CancellableWaitAwaiter {
   public:
    /// Made by AsyncSemaphore::waitUnlessCancelled; the semaphore must outlive the wait.
    explicit CancellableWaitAwaiter(AsyncSemaphore& semaphore) : semaphore_(semaphore) {}
    /// @{
    /// Coroutine protocol: takes a permit unless the task is already cancelled, and suspends the task
    /// only when none is left; a stop request while suspended gives the claim back and resumes the
    /// task, whose `await_resume` then throws CancellationError.
    bool await_ready() const noexcept { return false; }
    template <class Promise>
    bool await_suspend(std::coroutine_handle<Promise> handle) {
      return suspend(handle, detail::stopTokenOf(handle), detail::executorOf(handle));
    }
    void await_resume() const;
    /// @}

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

  /// Awaitable that takes a permit, suspending the task until one is signalled; it cannot be
  /// cancelled, so the task waits on even after its stop is requested.
  WaitAwaiter wait() { return WaitAwaiter(*this); }
  /// Awaitable that takes a permit like `wait`, but throws CancellationError (and leaves `value` as
  /// it was) when the task's stop is requested before or during the wait.
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
