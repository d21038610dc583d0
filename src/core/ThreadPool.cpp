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

/// Its state is shared with the workers, so that the pool can be destroyed from one of its own
/// threads (the last owner let go in a task): that worker then ends instead of joining itself.
class ThreadPool final : public Executor {
 public:
  explicit ThreadPool(unsigned threads) {
    for (unsigned i = 0; i < threads; ++i) workers_.emplace_back([state = state_] { work(*state); });
  }
  ~ThreadPool() override {
    {
      std::lock_guard lock(state_->mutex);
      state_->stopping = true;
    }
    state_->ready.notify_all();
    for (auto& worker : workers_) {
      if (worker.get_id() == std::this_thread::get_id()) {
        worker.detach();
      } else {
        worker.join();  // queued work still runs first
      }
    }
  }

  void post(std::function<void()> work) override {
    {
      std::lock_guard lock(state_->mutex);
      state_->queue.push_back(std::move(work));
    }
    state_->ready.notify_one();
  }

 private:
  struct State {
    std::mutex mutex;
    std::condition_variable ready;
    std::deque<std::function<void()>> queue;
    bool stopping = false;
  };

  static void work(State& state) {
    std::unique_lock lock(state.mutex);
    while (true) {
      state.ready.wait(lock, [&] { return state.stopping || !state.queue.empty(); });
      if (state.queue.empty()) return;
      auto next = std::move(state.queue.front());
      state.queue.pop_front();
      lock.unlock();
      next();
      lock.lock();
    }
  }

  std::shared_ptr<State> state_ = std::make_shared<State>();
  std::vector<std::thread> workers_;
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
