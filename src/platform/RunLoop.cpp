#include <velora/platform/MainQueue.hpp>

namespace velora {

void RunLoop::post(std::function<void()> work) { postAfter(std::chrono::milliseconds(0), std::move(work)); }

void RunLoop::postAfter(std::chrono::milliseconds delay, std::function<void()> work) {
  {
    std::lock_guard lock(mutex_);
    work_.emplace(Clock::now() + delay, std::move(work));
  }
  posts_.fetch_add(1, std::memory_order_release);
  wake_.notify_one();
}

bool RunLoop::isCurrent() const {
  std::lock_guard lock(mutex_);
  return runner_ == std::this_thread::get_id();
}

std::function<void()> RunLoop::next(std::unique_lock<std::mutex>& lock) {
  while (!stopped_) {
    if (work_.empty()) {
      // Replies usually follow within a fraction of a millisecond; waiting for them awake for a
      // short while saves waking a sleeping thread, the largest cost of a round trip.
      const auto seen = posts_.load(std::memory_order_acquire);
      lock.unlock();
      for (const auto until = Clock::now() + kSpin; posts_.load(std::memory_order_acquire) == seen && Clock::now() < until;) {
        std::this_thread::yield();
      }
      lock.lock();
      if (work_.empty() && !stopped_) wake_.wait(lock);
      continue;
    }
    auto first = work_.begin();
    if (first->first > Clock::now()) {
      wake_.wait_until(lock, first->first);
      continue;
    }
    auto work = std::move(first->second);
    work_.erase(first);
    return work;
  }
  return {};
}

void RunLoop::run() {
  runUntil([] { return false; });
}

bool RunLoop::runUntil(const std::function<bool()>& done) {
  std::unique_lock lock(mutex_);
  runner_ = std::this_thread::get_id();
  stopped_ = false;
  while (true) {
    lock.unlock();
    if (done()) {
      lock.lock();
      runner_ = {};
      return true;
    }
    lock.lock();
    auto work = next(lock);
    if (!work) break;
    lock.unlock();
    work();
    lock.lock();
  }
  runner_ = {};
  return false;
}

void RunLoop::stop() {
  {
    std::lock_guard lock(mutex_);
    stopped_ = true;
  }
  wake_.notify_all();
}

ThreadQueue::ThreadQueue() {
  std::mutex started;
  std::condition_variable ready;
  bool running = false;
  // The thread owns the loop too, so that it can outlive a queue destroyed from this very thread.
  thread_ = std::thread([&, loop = loop_] {
    loop->post([&] {
      std::lock_guard lock(started);
      running = true;
      ready.notify_one();
    });
    loop->run();
  });
  std::unique_lock lock(started);
  ready.wait(lock, [&] { return running; });
}

ThreadQueue::~ThreadQueue() {
  loop_->stop();
  if (thread_.get_id() == std::this_thread::get_id()) {
    thread_.detach();
  } else {
    thread_.join();
  }
}

}  // namespace velora
