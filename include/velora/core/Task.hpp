#pragma once
// Task<T>: the awaitable form of every library operation.
//
// A task is lazy: it starts when it is awaited (`co_await task` inside another coroutine) or when
// `get()` blocks the calling thread for its result. It carries a std::stop_token (a task awaited by
// another inherits the awaiting task's token; `cancel()` requests stop on a top-level task) and an
// executor, inherited the same way, on which it resumes after waiting:
//
// - under `get()` the executor is the blocked thread itself: the reply is decoded and the task
//   finishes on the caller's thread, with no hop through another thread;
// - a task awaited from a coroutine that runs on the application's main queue resumes there;
// - otherwise it resumes on the library's thread pool (`Platform::executor`).
//
// `get()` must not be called on the main queue's own thread: the task may need that queue (a
// browser login runs there), so the library stops the process with a message saying so instead
// of hanging.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <coroutine>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <thread>
#include <utility>

#include <velora/core/Executor.hpp>

namespace velora {

/// Thrown into a task whose stop was requested while it waited for something cancellable.
class CancellationError : public std::exception {
 public:
  /// Always "CancellationError".
  const char* what() const noexcept override { return "CancellationError"; }
};

template <class T = void>
class Task;

namespace detail {

/// The stop token of the awaiting coroutine when it is one of ours; an empty token otherwise.
template <class Promise>
std::stop_token stopTokenOf(std::coroutine_handle<Promise> handle) {
  if constexpr (requires { handle.promise().stopToken(); }) {
    return handle.promise().stopToken();
  } else {
    return {};
  }
}

/// The executor the awaiting coroutine runs under when it is one of ours and has one.
template <class Promise>
std::shared_ptr<Executor> executorOf(std::coroutine_handle<Promise> handle) {
  if constexpr (requires { handle.promise().executor(); }) {
    return handle.promise().executor();
  } else {
    return {};
  }
}

/// Resumes `handle` on `executor`, or right here when there is none.
inline void resumeOn(const std::shared_ptr<Executor>& executor, std::coroutine_handle<> handle) {
  if (executor) {
    executor->post([handle] { handle.resume(); });
  } else {
    handle.resume();
  }
}

/// The thread blocked in Task::get(): work posted here runs on it until the task has finished.
class BlockedCaller final : public Executor {
 public:
  void post(std::function<void()> work) override {
    {
      std::lock_guard lock(mutex_);
      work_.push_back(std::move(work));
    }
    signal();
  }
  void finish() {
    {
      std::lock_guard lock(mutex_);
      finished_ = true;
    }
    signal();
  }
  /// Runs posted work on the calling thread until finish().
  void runUntilFinished() {
    std::unique_lock lock(mutex_);
    while (true) {
      if (!finished_ && work_.empty()) {
        lock.unlock();
        spinBriefly();
        lock.lock();
      }
      sleeping_ = true;
      ready_.wait(lock, [&] { return finished_ || !work_.empty(); });
      sleeping_ = false;
      signalled_.store(false, std::memory_order_relaxed);
      if (work_.empty()) return;
      auto work = std::move(work_.front());
      work_.pop_front();
      lock.unlock();
      work();
      lock.lock();
    }
  }

 private:
  // A reply usually comes back within a fraction of a millisecond. Waiting for it awake for a
  // short while saves the wake-up of a sleeping thread, the largest cost of a round trip here.
  static constexpr auto kSpin = std::chrono::microseconds(200);
  void spinBriefly() {
    const auto until = std::chrono::steady_clock::now() + kSpin;
    while (!signalled_.load(std::memory_order_acquire) && std::chrono::steady_clock::now() < until) {
      std::this_thread::yield();
    }
  }
  void signal() {
    signalled_.store(true, std::memory_order_release);
    std::lock_guard lock(mutex_);
    if (sleeping_) ready_.notify_one();
  }

  std::mutex mutex_;
  std::condition_variable ready_;
  std::deque<std::function<void()>> work_;
  std::atomic<bool> signalled_{false};
  bool sleeping_ = false;
  bool finished_ = false;
};

class TaskPromiseBase {
 public:
  std::suspend_always initial_suspend() noexcept { return {}; }

  struct FinalAwaiter {
    bool await_ready() noexcept { return false; }
    template <class Promise>
    std::coroutine_handle<> await_suspend(std::coroutine_handle<Promise> handle) noexcept {
      TaskPromiseBase& self = handle.promise();
      if (self.continuation_) return self.continuation_;
      if (auto caller = std::move(self.blockedCaller_)) caller->finish();
      return std::noop_coroutine();
    }
    void await_resume() noexcept {}
  };
  FinalAwaiter final_suspend() noexcept { return {}; }

  void unhandled_exception() noexcept { error_ = std::current_exception(); }

  std::stop_token stopToken() const { return token_; }
  void inheritStopToken(std::stop_token token) {
    if (token.stop_possible()) token_ = std::move(token);
  }
  void requestStop() { ownStop_.request_stop(); }

  const std::shared_ptr<Executor>& executor() const { return executor_; }
  /// Only the first executor sticks: a task keeps resuming where it started.
  void adoptExecutor(std::shared_ptr<Executor> executor) {
    if (!executor_) executor_ = std::move(executor);
  }

  void setContinuation(std::coroutine_handle<> continuation) { continuation_ = continuation; }
  void setBlockedCaller(std::shared_ptr<BlockedCaller> caller) {
    blockedCaller_ = caller;
    executor_ = std::move(caller);
  }
  void rethrowIfFailed() const {
    if (error_) std::rethrow_exception(error_);
  }

 private:
  std::stop_source ownStop_;
  std::stop_token token_ = ownStop_.get_token();
  std::shared_ptr<Executor> executor_;
  std::coroutine_handle<> continuation_;
  std::shared_ptr<BlockedCaller> blockedCaller_;
  std::exception_ptr error_;
};

template <class T>
class TaskPromise : public TaskPromiseBase {
 public:
  Task<T> get_return_object() noexcept;
  template <class U>
  void return_value(U&& value) { value_.emplace(std::forward<U>(value)); }
  T take() {
    rethrowIfFailed();
    return std::move(*value_);
  }

 private:
  std::optional<T> value_;
};

template <>
class TaskPromise<void> : public TaskPromiseBase {
 public:
  Task<void> get_return_object() noexcept;
  void return_void() noexcept {}
  void take() { rethrowIfFailed(); }
};

}  // namespace detail

/// The result of an awaitable operation: a lazy coroutine producing a T (nothing for `Task<void>`)
/// or an exception, such as APIError or PlatformError. It starts when awaited or when get() is
/// called, and runs once. A task owns its coroutine: destroying a task that has not finished
/// destroys the coroutine.
template <class T>
class [[nodiscard]] Task {
 public:
  /// @{
  /// Coroutine plumbing: the promise type the compiler uses and the handle of the coroutine.
  using promise_type = detail::TaskPromise<T>;
  using Handle = std::coroutine_handle<promise_type>;
  /// @}

  /// @{
  /// Moves the coroutine over; the moved-from task is empty and may only be destroyed or assigned.
  /// Tasks cannot be copied.
  Task(Task&& other) noexcept : handle_(std::exchange(other.handle_, {})) {}
  Task& operator=(Task&& other) noexcept {
    if (this != &other) {
      destroy();
      handle_ = std::exchange(other.handle_, {});
    }
    return *this;
  }
  /// @}
  Task(const Task&) = delete;
  Task& operator=(const Task&) = delete;
  ~Task() { destroy(); }

  /// Runs the task to completion on the calling thread and returns its result or rethrows its
  /// error. Blocks; inside a coroutine use co_await, and never call it on the main queue's thread.
  T get() {
    auto caller = std::make_shared<detail::BlockedCaller>();
    handle_.promise().setBlockedCaller(caller);
    handle_.resume();
    caller->runUntilFinished();
    return handle_.promise().take();
  }

  /// Requests stop: cancellable waits inside the task throw CancellationError, transfers end.
  void cancel() { handle_.promise().requestStop(); }
  /// The token the task watches: its own until it is awaited by a task whose token can be stopped,
  /// that task's from then on (so cancel() then no longer reaches it).
  std::stop_token stopToken() const { return handle_.promise().stopToken(); }

  /// What `co_await task` suspends on: the awaited task inherits the awaiting coroutine's stop token
  /// and executor, runs, and hands back its result or rethrows its error.
  struct Awaiter {
    Handle child;  ///< The awaited task's coroutine; still owned by the Task.
    /// @{
    /// Coroutine protocol: always starts the child at once, and resumes the awaiting coroutine when
    /// the child finishes.
    bool await_ready() const noexcept { return false; }
    template <class Promise>
    std::coroutine_handle<> await_suspend(std::coroutine_handle<Promise> parent) noexcept {
      child.promise().inheritStopToken(detail::stopTokenOf(parent));
      child.promise().adoptExecutor(detail::executorOf(parent));
      child.promise().setContinuation(parent);
      return child;
    }
    T await_resume() { return child.promise().take(); }
    /// @}
  };
  /// @{
  /// Lets a coroutine `co_await` the task, as a temporary or a named task. Await a task once only:
  /// its result is moved out.
  Awaiter operator co_await() && noexcept { return Awaiter{handle_}; }
  Awaiter operator co_await() & noexcept { return Awaiter{handle_}; }
  /// @}

 private:
  friend promise_type;
  explicit Task(Handle handle) : handle_(handle) {}
  void destroy() {
    if (handle_) handle_.destroy();
    handle_ = {};
  }
  Handle handle_;
};

namespace detail {
template <class T>
Task<T> TaskPromise<T>::get_return_object() noexcept {
  return Task<T>(std::coroutine_handle<TaskPromise<T>>::from_promise(*this));
}
inline Task<void> TaskPromise<void>::get_return_object() noexcept {
  return Task<void>(std::coroutine_handle<TaskPromise<void>>::from_promise(*this));
}
}  // namespace detail

/// Awaitable that yields the current task's stop token: `auto token = co_await currentStopToken();`
/// Outside a task (another kind of coroutine) the token is empty and can never be stopped.
struct currentStopToken {
  std::stop_token token;  ///< Filled in when awaited.
  /// @{
  /// Coroutine protocol: reads the awaiting task's token without suspending.
  bool await_ready() const noexcept { return false; }
  template <class Promise>
  bool await_suspend(std::coroutine_handle<Promise> handle) noexcept {
    token = detail::stopTokenOf(handle);
    return false;
  }
  std::stop_token await_resume() const noexcept { return token; }
  /// @}
};

/// Starts a task without waiting for it: it runs on the calling thread until it first waits. `done`
/// runs with the task's error, if any, where the task ends. The frame frees itself.
void detachTask(Task<void> task, std::function<void(std::exception_ptr)> done = {});

}  // namespace velora
