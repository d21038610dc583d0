#include <velora/semaphore/AsyncSemaphore.hpp>

#include <algorithm>
#include <limits>

#include <velora/core/Fatal.hpp>

namespace velora {

class AsyncSemaphore::Suspension {
 public:
  enum class State { suspendedUnlessCancelled, suspended, pending, cancelled };
  Suspension(State s, std::coroutine_handle<> h, std::shared_ptr<Executor> e)
      : state(s), continuation(h), executor(std::move(e)) {}
  State state;
  std::coroutine_handle<> continuation;
  std::shared_ptr<Executor> executor;
  bool holdsContinuation() const { return state == State::suspended || state == State::suspendedUnlessCancelled; }
};

AsyncSemaphore::AsyncSemaphore(std::int64_t value) : value_(value) {
  if (value < 0) fatal("AsyncSemaphore requires a value equal or greater than zero");
}

AsyncSemaphore::~AsyncSemaphore() {
  if (!suspensions_.empty()) {
    fatal("AsyncSemaphore is deallocated while some task(s) are suspended waiting for a signal.");
  }
}

std::int64_t AsyncSemaphore::value() const {
  std::lock_guard guard(mutex_);
  return value_;
}

bool AsyncSemaphore::signal() {
  std::unique_lock guard(mutex_);
  if (value_ == std::numeric_limits<std::int64_t>::max()) fatal("AsyncSemaphore value overflow");
  ++value_;
  if (suspensions_.empty()) return false;
  auto suspension = std::move(suspensions_.back());
  suspensions_.pop_back();
  if (!suspension->holdsContinuation()) return false;
  guard.unlock();
  detail::resumeOn(suspension->executor, suspension->continuation);
  return true;
}

bool AsyncSemaphore::WaitAwaiter::suspend(std::coroutine_handle<> handle, std::shared_ptr<Executor> executor) {
  std::lock_guard guard(semaphore_.mutex_);
  if (--semaphore_.value_ >= 0) return false;
  suspension_ = std::make_shared<Suspension>(Suspension::State::suspended, handle, std::move(executor));
  semaphore_.suspensions_.push_front(suspension_);
  return true;
}

bool AsyncSemaphore::CancellableWaitAwaiter::suspend(std::coroutine_handle<> handle, std::stop_token token,
                                                     std::shared_ptr<Executor> executor) {
  if (token.stop_requested()) {
    cancelled_ = true;  // cancelled before the wait: the count is not touched
    return false;
  }
  std::lock_guard guard(semaphore_.mutex_);
  if (--semaphore_.value_ >= 0) return false;
  suspension_ = std::make_shared<Suspension>(Suspension::State::pending, handle, std::move(executor));
  suspension_->state = Suspension::State::suspendedUnlessCancelled;
  semaphore_.suspensions_.push_front(suspension_);
  if (token.stop_possible()) {
    // The lock is held while the stop callback registers, so no signal can resume this task
    // before the awaiter is fully set up. A stop that is already requested runs OnStop right here.
    registering_ = true;
    onStop_.emplace(std::move(token), OnStop{this});
    registering_ = false;
    if (cancelled_) return false;
  }
  return true;
}

void AsyncSemaphore::CancellableWaitAwaiter::OnStop::operator()() const noexcept {
  AsyncSemaphore& semaphore = awaiter->semaphore_;
  std::unique_lock guard(semaphore.mutex_);
  auto& waiting = semaphore.suspensions_;
  auto it = std::find(waiting.begin(), waiting.end(), awaiter->suspension_);
  // Not in the list: a signal has already handed this waiter its permit and resumed it.
  if (it == waiting.end()) return;
  waiting.erase(it);
  ++semaphore.value_;  // the waiter gives its claim back
  auto continuation = awaiter->suspension_->continuation;
  auto executor = awaiter->suspension_->executor;
  awaiter->suspension_->state = Suspension::State::cancelled;
  awaiter->cancelled_ = true;
  if (awaiter->registering_) return;  // suspend() sees `cancelled_` and does not suspend
  guard.unlock();
  detail::resumeOn(executor, continuation);
}

void AsyncSemaphore::CancellableWaitAwaiter::await_resume() const {
  if (cancelled_) throw CancellationError();
}

}  // namespace velora
