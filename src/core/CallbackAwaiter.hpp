#pragma once
// `auto [value, error] = co_await awaitCompletion<T>(start);` runs a callback-style operation
// inside a task: `start` receives the completion, which may run on any thread (or before `start`
// returns); the task resumes on the task pool.

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

#include <velora/core/PlatformError.hpp>
#include <velora/core/Task.hpp>

namespace velora::detail {

template <class T>
class CompletionAwaiter {
 public:
  using Completion = std::function<void(std::optional<T>, std::optional<PlatformError>)>;
  using Result = std::pair<std::optional<T>, std::optional<PlatformError>>;

  explicit CompletionAwaiter(std::function<void(Completion)> start) : start_(std::move(start)), state_(std::make_shared<State>()) {}

  bool await_ready() const noexcept { return false; }
  bool await_suspend(std::coroutine_handle<> handle) {
    auto state = state_;
    start_([state](std::optional<T> value, std::optional<PlatformError> error) {
      std::unique_lock lock(state->mutex);
      if (state->done) return;  // a completion fires once; ignore a faulty second call
      state->result = Result{std::move(value), std::move(error)};
      state->done = true;
      if (auto waiting = std::exchange(state->waiting, {})) {
        lock.unlock();
        resumeOnTaskPool(waiting);
      }
    });
    std::lock_guard lock(state->mutex);
    if (state->done) return false;
    state->waiting = handle;
    return true;
  }
  Result await_resume() { return std::move(state_->result); }

 private:
  struct State {
    std::mutex mutex;
    Result result;
    std::coroutine_handle<> waiting;
    bool done = false;
  };
  std::function<void(Completion)> start_;
  std::shared_ptr<State> state_;
};

template <class T>
CompletionAwaiter<T> awaitCompletion(std::function<void(typename CompletionAwaiter<T>::Completion)> start) {
  return CompletionAwaiter<T>(std::move(start));
}

}  // namespace velora::detail
