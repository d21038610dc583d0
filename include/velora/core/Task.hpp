#pragma once
// Task<T>: the awaitable form of every library operation.
//
// A task is lazy: it starts when it is awaited (`co_await task` inside another coroutine) or when
// `get()` blocks the calling thread for its result. It carries a std::stop_token: a task awaited by
// another inherits the awaiting task's token, and `cancel()` requests stop on a top-level task.
// Library awaitables (the semaphore's cancellable wait, HTTP transfers) watch that token.
//
// A task suspended on I/O or on the semaphore resumes on the library's task pool, never on the
// transport's I/O thread and never on the application's main queue, so `get()` may be called from
// the main thread without deadlock.

#include <condition_variable>
#include <coroutine>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <utility>

namespace velora {

/// Thrown into a task whose stop was requested while it waited for something cancellable.
class CancellationError : public std::exception {
 public:
  const char* what() const noexcept override { return "CancellationError"; }
};

template <class T = void>
class Task;

namespace detail {

/// Resumes a suspended coroutine on the library's task pool.
void resumeOnTaskPool(std::coroutine_handle<> handle);

/// The stop token of the awaiting coroutine when it is one of ours; an empty token otherwise.
template <class Promise>
std::stop_token stopTokenOf(std::coroutine_handle<Promise> handle) {
  if constexpr (requires { handle.promise().stopToken(); }) {
    return handle.promise().stopToken();
  } else {
    return {};
  }
}

/// Shared between a task's frame and a thread blocked in get().
struct BlockingWaiter {
  std::mutex mutex;
  std::condition_variable done;
  bool finished = false;
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
      if (auto waiter = std::move(self.waiter_)) {
        std::lock_guard lock(waiter->mutex);
        waiter->finished = true;
        waiter->done.notify_all();
      }
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
  void setContinuation(std::coroutine_handle<> continuation) { continuation_ = continuation; }
  void setWaiter(std::shared_ptr<BlockingWaiter> waiter) { waiter_ = std::move(waiter); }
  void rethrowIfFailed() const {
    if (error_) std::rethrow_exception(error_);
  }

 private:
  std::stop_source ownStop_;
  std::stop_token token_ = ownStop_.get_token();
  std::coroutine_handle<> continuation_;
  std::shared_ptr<BlockingWaiter> waiter_;
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

template <class T>
class [[nodiscard]] Task {
 public:
  using promise_type = detail::TaskPromise<T>;
  using Handle = std::coroutine_handle<promise_type>;

  Task(Task&& other) noexcept : handle_(std::exchange(other.handle_, {})) {}
  Task& operator=(Task&& other) noexcept {
    if (this != &other) {
      destroy();
      handle_ = std::exchange(other.handle_, {});
    }
    return *this;
  }
  Task(const Task&) = delete;
  Task& operator=(const Task&) = delete;
  ~Task() { destroy(); }

  /// Runs the task to completion on the calling thread's behalf and returns its result or
  /// rethrows its error. Blocks; do not call it from inside a coroutine (use co_await).
  T get() {
    auto waiter = std::make_shared<detail::BlockingWaiter>();
    handle_.promise().setWaiter(waiter);
    handle_.resume();
    std::unique_lock lock(waiter->mutex);
    waiter->done.wait(lock, [&] { return waiter->finished; });
    return handle_.promise().take();
  }

  /// Requests stop: cancellable waits inside the task throw CancellationError, transfers end.
  void cancel() { handle_.promise().requestStop(); }
  std::stop_token stopToken() const { return handle_.promise().stopToken(); }

  struct Awaiter {
    Handle child;
    bool await_ready() const noexcept { return false; }
    template <class Promise>
    std::coroutine_handle<> await_suspend(std::coroutine_handle<Promise> parent) noexcept {
      child.promise().inheritStopToken(detail::stopTokenOf(parent));
      child.promise().setContinuation(parent);
      return child;
    }
    T await_resume() { return child.promise().take(); }
  };
  Awaiter operator co_await() && noexcept { return Awaiter{handle_}; }
  Awaiter operator co_await() & noexcept { return Awaiter{handle_}; }

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
struct currentStopToken {
  std::stop_token token;
  bool await_ready() const noexcept { return false; }
  template <class Promise>
  bool await_suspend(std::coroutine_handle<Promise> handle) noexcept {
    token = detail::stopTokenOf(handle);
    return false;
  }
  std::stop_token await_resume() const noexcept { return token; }
};

/// Starts a task without waiting for it; `done` runs on the task pool or the completing thread
/// with the task's error, if any. The frame frees itself when the task ends.
void detachTask(Task<void> task, std::function<void(std::exception_ptr)> done = {});

}  // namespace velora
