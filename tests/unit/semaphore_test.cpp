// The task semaphore: FIFO release, permit accounting, cancellation before and during the wait.

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <thread>
#include <vector>

#include <velora/semaphore/AsyncSemaphore.hpp>

namespace velora {
namespace {

/// Events recorded by waiters; the test blocks on it instead of sleeping.
struct Journal {
  std::mutex mutex;
  std::condition_variable changed;
  std::vector<int> entries;

  void add(int entry) {
    std::lock_guard lock(mutex);
    entries.push_back(entry);
    changed.notify_all();
  }
  bool awaitSize(std::size_t n) {
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, std::chrono::seconds(10), [&] { return entries.size() >= n; });
  }
};

Task<void> waiter(AsyncSemaphore& semaphore, Journal& journal, int id) {
  co_await semaphore.wait();
  journal.add(id);
}

Task<void> cancellableWaiter(AsyncSemaphore& semaphore, Journal& journal, int id) {
  co_await semaphore.waitUnlessCancelled();
  journal.add(id);
}

TEST(AsyncSemaphore, ReleasesWaitersFirstInFirstOut) {
  for (bool cancellable : {false, true}) {
    AsyncSemaphore semaphore(0);
    Journal journal;
    constexpr int kWaiters = 20;
    for (int i = 0; i < kWaiters; ++i) {
      detachTask(cancellable ? cancellableWaiter(semaphore, journal, i) : waiter(semaphore, journal, i));
    }
    EXPECT_EQ(semaphore.value(), -kWaiters);
    for (int i = 0; i < kWaiters; ++i) {
      EXPECT_TRUE(semaphore.signal());
      ASSERT_TRUE(journal.awaitSize(i + 1));
      EXPECT_EQ(journal.entries.back(), i);
    }
    EXPECT_EQ(semaphore.value(), 0);
  }
}

TEST(AsyncSemaphore, SignalWithoutWaiterAddsAnUncappedPermit) {
  AsyncSemaphore semaphore(1);
  EXPECT_FALSE(semaphore.signal());
  EXPECT_FALSE(semaphore.signal());
  EXPECT_EQ(semaphore.value(), 3);
  Journal journal;
  for (int i = 0; i < 3; ++i) waiter(semaphore, journal, i).get();  // none suspends
  EXPECT_EQ(journal.entries.size(), 3u);
  EXPECT_EQ(semaphore.value(), 0);
}

TEST(AsyncSemaphore, CancelledBeforeTheWaitThrowsWithoutTouchingTheCount) {
  AsyncSemaphore semaphore(0);
  Journal journal;
  auto task = cancellableWaiter(semaphore, journal, 1);
  task.cancel();
  EXPECT_THROW(task.get(), CancellationError);
  EXPECT_EQ(semaphore.value(), 0);
  EXPECT_TRUE(journal.entries.empty());
}

TEST(AsyncSemaphore, CancelledDuringTheWaitThrowsAndGivesItsClaimBack) {
  AsyncSemaphore semaphore(0);
  Journal journal;
  detachTask(cancellableWaiter(semaphore, journal, 1));  // ahead in line, stays waiting
  auto task = cancellableWaiter(semaphore, journal, 2);
  std::exception_ptr error;
  std::thread runner([&] {
    try {
      task.get();
    } catch (...) {
      error = std::current_exception();
    }
  });
  while (semaphore.value() != -2) std::this_thread::yield();
  task.cancel();
  runner.join();
  ASSERT_TRUE(error);
  EXPECT_THROW(std::rethrow_exception(error), CancellationError);
  EXPECT_EQ(semaphore.value(), -1);
  // The remaining waiter is still first in line and the cancelled one is gone.
  EXPECT_TRUE(semaphore.signal());
  ASSERT_TRUE(journal.awaitSize(1));
  EXPECT_EQ(journal.entries, std::vector<int>{1});
  EXPECT_FALSE(semaphore.signal());
}

TEST(AsyncSemaphore, StressExclusiveSectionHoldsUnderContentionAndCancellation) {
  AsyncSemaphore semaphore(1);
  std::atomic<int> inside{0}, maxInside{0}, done{0}, cancelled{0};
  constexpr int kThreads = 4, kPerThread = 200;
  auto critical = [&](AsyncSemaphore& s) -> Task<void> {
    co_await s.waitUnlessCancelled();
    const int now = ++inside;
    int seen = maxInside.load();
    while (now > seen && !maxInside.compare_exchange_weak(seen, now)) {
    }
    --inside;
    s.signal();
  };
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kPerThread; ++i) {
        auto task = critical(semaphore);
        if ((i + t) % 7 == 0) task.cancel();
        try {
          task.get();
          ++done;
        } catch (const CancellationError&) {
          ++cancelled;
        }
      }
    });
  }
  for (auto& t : threads) t.join();
  EXPECT_EQ(maxInside.load(), 1);
  EXPECT_EQ(done + cancelled, kThreads * kPerThread);
  EXPECT_EQ(semaphore.value(), 1);
}

TEST(AsyncSemaphoreDeathTest, PreconditionsStopTheProcess) {
  EXPECT_DEATH(AsyncSemaphore(-1), "AsyncSemaphore requires a value equal or greater than zero");
  EXPECT_DEATH(
      {
        auto* semaphore = new AsyncSemaphore(0);
        Journal journal;
        detachTask(waiter(*semaphore, journal, 0));
        delete semaphore;
      },
      "AsyncSemaphore is deallocated while some task\\(s\\) are suspended waiting for a signal.");
}

}  // namespace
}  // namespace velora
