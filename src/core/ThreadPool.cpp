// The library's own threads: work that must leave the transport's I/O thread, and tasks that run
// on no queue of the application's, continue here.

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include <velora/core/Task.hpp>

namespace velora {
namespace {

class ThreadPool final : public Executor {
 public:
  explicit ThreadPool(unsigned threads) {
    for (unsigned i = 0; i < threads; ++i) workers_.emplace_back([this] { work(); });
  }
  ~ThreadPool() override {
    {
      std::lock_guard lock(mutex_);
      stopping_ = true;
    }
    ready_.notify_all();
    workers_.clear();  // joins; queued work still runs first
  }

  void post(std::function<void()> work) override {
    {
      std::lock_guard lock(mutex_);
      queue_.push_back(std::move(work));
    }
    ready_.notify_one();
  }

 private:
  void work() {
    std::unique_lock lock(mutex_);
    while (true) {
      ready_.wait(lock, [&] { return stopping_ || !queue_.empty(); });
      if (queue_.empty()) return;
      auto next = std::move(queue_.front());
      queue_.pop_front();
      lock.unlock();
      next();
      lock.lock();
    }
  }

  std::mutex mutex_;
  std::condition_variable ready_;
  std::deque<std::function<void()>> queue_;
  bool stopping_ = false;
  std::vector<std::jthread> workers_;
};

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

std::shared_ptr<Executor> makeThreadPool(unsigned threads) { return std::make_shared<ThreadPool>(threads == 0 ? 1 : threads); }

void detachTask(Task<void> task, std::function<void(std::exception_ptr)> done) { runDetached(std::move(task), std::move(done)); }

}  // namespace velora
