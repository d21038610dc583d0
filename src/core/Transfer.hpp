#pragma once
// `co_await transfer(session, request)`: a data request as an awaitable. The task resumes on the
// task pool; a stop requested on the task cancels the transfer (it then ends with kCancelled).

#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>

#include <velora/core/HttpSession.hpp>
#include <velora/core/Task.hpp>

namespace velora::detail {

class TransferAwaiter {
 public:
  TransferAwaiter(std::shared_ptr<const HttpSession> session, HttpRequest request)
      : session_(std::move(session)), request_(std::move(request)), state_(std::make_shared<State>()) {}

  bool await_ready() const noexcept { return false; }

  template <class Promise>
  bool await_suspend(std::coroutine_handle<Promise> handle) {
    return suspend(handle, stopTokenOf(handle));
  }

  DataResult await_resume() { return std::move(state_->result); }

 private:
  struct State {
    std::mutex mutex;
    DataResult result;
    std::coroutine_handle<> waiting;
    bool done = false;
  };
  struct OnStop {
    std::shared_ptr<HttpCall> call;
    void operator()() const noexcept { call->cancel(); }
  };

  bool suspend(std::coroutine_handle<> handle, std::stop_token token) {
    auto state = state_;
    auto call = session_->data(std::move(request_), [state](DataResult result) {
      std::unique_lock lock(state->mutex);
      state->result = std::move(result);
      state->done = true;
      if (auto waiting = std::exchange(state->waiting, {})) {
        lock.unlock();
        resumeOnTaskPool(waiting);
      }
    });
    onStop_.emplace(std::move(token), OnStop{std::move(call)});
    std::lock_guard lock(state->mutex);
    if (state->done) return false;  // finished before we could suspend: carry on inline
    state->waiting = handle;
    return true;
  }

  std::shared_ptr<const HttpSession> session_;
  HttpRequest request_;
  std::shared_ptr<State> state_;
  std::optional<std::stop_callback<OnStop>> onStop_;
};

inline TransferAwaiter transfer(std::shared_ptr<const HttpSession> session, HttpRequest request) {
  return TransferAwaiter(std::move(session), std::move(request));
}

}  // namespace velora::detail
