// The threads on which suspended tasks resume: completions arrive on the transport's I/O thread
// or on a signalling thread, and neither may run the rest of an application's coroutine.

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include <velora/core/Task.hpp>

namespace velora::detail {
namespace {

class TaskPool {
 public:
  explicit TaskPool(unsigned threads) {
    for (unsigned i = 0; i < threads; ++i) workers_.emplace_back([this](std::stop_token stop) { work(stop); });
  }
  ~TaskPool() {
    {
      std::lock_guard lock(mutex_);
      stopping_ = true;
    }
    ready_.notify_all();
    workers_.clear();  // joins
  }

  void post(std::coroutine_handle<> handle) {
    {
      std::lock_guard lock(mutex_);
      queue_.push_back(handle);
    }
    ready_.notify_one();
  }

 private:
  void work(std::stop_token) {
    std::unique_lock lock(mutex_);
    while (true) {
      ready_.wait(lock, [&] { return stopping_ || !queue_.empty(); });
      if (queue_.empty()) return;
      auto handle = queue_.front();
      queue_.pop_front();
      lock.unlock();
      handle.resume();
      lock.lock();
    }
  }

  std::mutex mutex_;
  std::condition_variable ready_;
  std::deque<std::coroutine_handle<>> queue_;
  bool stopping_ = false;
  std::vector<std::jthread> workers_;
};

TaskPool& pool() {
  static TaskPool instance(std::max(2u, std::thread::hardware_concurrency()));
  return instance;
}

struct DetachedTask {
  struct promise_type {
    DetachedTask get_return_object() noexcept { return {}; }
    std::suspend_never initial_suspend() noexcept { return {}; }
    std::suspend_never final_suspend() noexcept { return {}; }
    void return_void() noexcept {}
    void unhandled_exception() noexcept { std::terminate(); }
  };
};

DetachedTask runDetached(Task<void> task, std::function<void(std::exception_ptr)> done) {
  std::exception_ptr error;
  try {
    co_await std::move(task);
  } catch (...) {
    error = std::current_exception();
  }
  if (done) done(error);
}

}  // namespace

void resumeOnTaskPool(std::coroutine_handle<> handle) { pool().post(handle); }

}  // namespace velora::detail

namespace velora {
void detachTask(Task<void> task, std::function<void(std::exception_ptr)> done) {
  detail::runDetached(std::move(task), std::move(done));
}
}  // namespace velora
