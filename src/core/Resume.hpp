#pragma once
// Where a library coroutine continues after it waits, and how a callback-style step is awaited.

#include <coroutine>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

#include <velora/core/Fatal.hpp>
#include <velora/core/PlatformError.hpp>
#include <velora/core/Task.hpp>
#include <velora/platform/Platform.hpp>

namespace velora::detail {

/// `co_await ResumeHere{platform};` fixes where the current task resumes after it waits, without
/// suspending: under Task::get() the blocked caller; on the main queue the main queue; otherwise
/// the platform's executor. Calling get() on the main queue's own thread would wait for work
/// that only that thread can run, so it stops the process with a message instead of hanging.
struct ResumeHere {
  const Platform& platform;
  bool await_ready() const noexcept { return false; }
  template <class Promise>
  bool await_suspend(std::coroutine_handle<Promise> handle) const {
    if (auto executor = executorOf(handle)) {
      if (dynamic_cast<BlockedCaller*>(executor.get()) && platform.mainQueue->isCurrent()) {
        fatal("velora: Task::get() was called on the main queue's thread, which the task may need; "
              "co_await the task or use the operation's callback form there");
      }
    } else if constexpr (requires { handle.promise().adoptExecutor(executor); }) {
      handle.promise().adoptExecutor(platform.mainQueue->isCurrent() ? std::shared_ptr<Executor>(platform.mainQueue)
                                                                     : platform.executor);
    }
    return false;
  }
  void await_resume() const noexcept {}
};

/// `Result r = co_await awaitCallback<Result>(start);` runs a callback-style step inside a task:
/// `start` receives the completion and the task's stop token; the completion may run on any
/// thread (or before `start` returns), and only its first call counts. The task resumes on its
/// executor.
template <class Result>
class CallbackAwaiter {
 public:
  using Done = std::function<void(Result)>;
  using Start = std::function<void(Done, std::stop_token)>;

  explicit CallbackAwaiter(Start start) : start_(std::move(start)), state_(std::make_shared<State>()) {}

  bool await_ready() const noexcept { return false; }
  template <class Promise>
  bool await_suspend(std::coroutine_handle<Promise> handle) {
    auto state = state_;
    state->executor = executorOf(handle);
    start_(
        [state](Result result) {
          std::unique_lock lock(state->mutex);
          if (state->done) return;
          state->result = std::move(result);
          state->done = true;
          if (auto waiting = std::exchange(state->waiting, {})) {
            lock.unlock();
            resumeOn(state->executor, waiting);
          }
        },
        stopTokenOf(handle));
    std::lock_guard lock(state->mutex);
    if (state->done) return false;  // finished before we could suspend: carry on here
    state->waiting = handle;
    return true;
  }
  Result await_resume() { return std::move(*state_->result); }

 private:
  struct State {
    std::mutex mutex;
    std::optional<Result> result;
    std::coroutine_handle<> waiting;
    std::shared_ptr<Executor> executor;
    bool done = false;
  };
  Start start_;
  std::shared_ptr<State> state_;
};

template <class Result>
CallbackAwaiter<Result> awaitCallback(typename CallbackAwaiter<Result>::Start start) {
  return CallbackAwaiter<Result>(std::move(start));
}

/// `auto [value, error] = co_await awaitCompletion<T>(start);` for the (value, error) completions
/// of the login flows.
template <class T>
using Completion = std::function<void(std::optional<T>, std::optional<PlatformError>)>;
template <class T>
CallbackAwaiter<std::pair<std::optional<T>, std::optional<PlatformError>>> awaitCompletion(std::function<void(Completion<T>)> start) {
  using Result = std::pair<std::optional<T>, std::optional<PlatformError>>;
  return awaitCallback<Result>([start = std::move(start)](std::function<void(Result)> done, std::stop_token) {
    start([done = std::move(done)](std::optional<T> value, std::optional<PlatformError> error) {
      done(Result{std::move(value), std::move(error)});
    });
  });
}

}  // namespace velora::detail
