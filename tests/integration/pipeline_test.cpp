// The request pipeline over real HTTP: the curl transport against the sandbox on loopback.

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <future>

#include <velora/core/Orvane.hpp>
#include <velora_sandbox/Sandbox.hpp>

#include "OverHttp.hpp"

namespace velora {
namespace {

class PipelineOverHttp : public ::testing::Test {
 protected:
  std::shared_ptr<Orvane> facade(const std::string& endpoint) {
    http_.executor = executor_;
    return testing::sandboxFacade(sandbox_, http_.platform(), true, std::nullopt, 10, endpoint);
  }

  /// The library's pool, counting what it is asked to run.
  struct CountingExecutor : Executor {
    std::shared_ptr<Executor> pool = makeThreadPool();
    std::atomic<int> posts{0};
    void post(std::function<void()> work) override {
      ++posts;
      pool->post(std::move(work));
    }
  };

  sandbox::Sandbox sandbox_;
  testing::HttpPlatform http_;
  std::shared_ptr<MainQueue> queue_ = http_.queue;
  std::shared_ptr<CountingExecutor> executor_ = std::make_shared<CountingExecutor>();
};

TEST_F(PipelineOverHttp, EveryCallbackFiresOnceOnTheMainQueue) {
  auto f = facade(sandbox_.baseUrl());
  constexpr int kRequests = 200;
  std::mutex mutex;
  std::condition_variable done;
  std::vector<int> calls(kRequests, 0);
  int answered = 0, offQueue = 0;
  for (int i = 0; i < kRequests; ++i) {
    const std::string path = i % 2 ? "/api/v1/public/diagnostic/check" : "/test/status/500";
    f->resumeSession(*f->makeRequest(path), ResponseMessage{}, [&, i](const ResponseMessage&) {
      std::lock_guard lock(mutex);
      if (!queue_->isCurrent()) ++offQueue;
      ++calls[i];
      ++answered;
      done.notify_all();
    });
  }
  std::unique_lock lock(mutex);
  ASSERT_TRUE(done.wait_for(lock, std::chrono::seconds(30), [&] { return answered >= kRequests; }));
  lock.unlock();
  std::promise<void> drained;
  queue_->post([&] { drained.set_value(); });
  drained.get_future().wait();
  EXPECT_EQ(offQueue, 0);
  EXPECT_EQ(std::count(calls.begin(), calls.end(), 1), kRequests);
}

TEST_F(PipelineOverHttp, AnAwaitedReplyComesBackToTheThreadThatWaitsForIt) {
  auto f = facade(sandbox_.baseUrl());
  // get(): the blocked caller decodes its own reply; the library's pool is not involved.
  EXPECT_EQ(f->checkConnection().get().code, 200);
  EXPECT_EQ(executor_->posts.load(), 0);

  // A coroutine on the main queue carries on on the main queue after each wait.
  std::promise<std::pair<bool, std::int64_t>> resumed;
  queue_->post([&] {
    detachTask([](Orvane& f, MainQueue& queue, std::promise<std::pair<bool, std::int64_t>>& out) -> Task<void> {
      auto checking = f.checkConnection();
      ResponseMessage reply = co_await std::move(checking);
      out.set_value({queue.isCurrent(), reply.code});
    }(*f, *queue_, resumed));
  });
  auto future = resumed.get_future();
  ASSERT_EQ(future.wait_for(std::chrono::seconds(20)), std::future_status::ready);
  EXPECT_EQ(future.get(), std::make_pair(true, std::int64_t{200}));
  EXPECT_EQ(executor_->posts.load(), 0);
}

TEST_F(PipelineOverHttp, AwaitedRequestsNeverExceedTheSemaphorePermits) {
  auto f = facade(sandbox_.baseUrl());
  // Construction and the login each added a permit: three awaited requests may run at once.
  const int permits = static_cast<int>(f->resumeAsyncSessionSemaphore.value());
  constexpr int kRequests = 12;
  std::atomic<int> finished{0};
  std::promise<void> all;
  sandbox_.clearRecordedRequests();
  for (int i = 0; i < kRequests; ++i) {
    auto task = [](Orvane& facade, int index, std::atomic<int>& count, std::promise<void>& done) -> Task<void> {
      // The body is {"code":0}, percent-encoded.
      auto request = *facade.makeRequest("/test/status/200?delay_ms=30&body=%7B%22code%22%3A0%7D&i=" + std::to_string(index));
      auto reply = facade.resumeAsyncSession<ResponseMessage>(std::move(request));
      co_await std::move(reply);
      if (++count == kRequests) done.set_value();
    };
    detachTask(task(*f, i, finished, all));
  }
  ASSERT_EQ(all.get_future().wait_for(std::chrono::seconds(30)), std::future_status::ready);
  EXPECT_EQ(f->resumeAsyncSessionSemaphore.value(), permits);
  EXPECT_LE(sandbox_.peakConcurrency(), static_cast<std::size_t>(permits));
  EXPECT_EQ(sandbox_.requests("/test/status/200").size(), static_cast<std::size_t>(kRequests));
}

}  // namespace
}  // namespace velora
