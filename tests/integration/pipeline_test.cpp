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

std::string percentEncode(std::string_view text) {
  static constexpr char hex[] = "0123456789ABCDEF";
  std::string out;
  for (unsigned char c : text) {
    if (std::isalnum(c) || c == '-' || c == '_' || c == '.') {
      out.push_back(static_cast<char>(c));
    } else {
      out += '%';
      out += hex[c >> 4];
      out += hex[c & 15];
    }
  }
  return out;
}


class PipelineOverHttp : public ::testing::Test {
 protected:
  std::shared_ptr<Orvane> facade(const std::string& endpoint, std::int64_t timeout = 10, bool loggedIn = true) {
    http_.executor = executor_;
    return testing::sandboxFacade(sandbox_, http_.platform(), loggedIn, std::nullopt, timeout, endpoint);
  }

  /// The callback form's one answer, checked to arrive once and on the main queue.
  ResponseMessage viaCallback(Orvane& f, const std::string& path) {
    std::promise<ResponseMessage> answer;
    std::atomic<int> calls{0};
    f.resumeSession(*f.makeRequest(path), ResponseMessage{}, [&](const ResponseMessage& m) {
      EXPECT_TRUE(queue_->isCurrent());
      if (++calls == 1) answer.set_value(m);
    });
    auto future = answer.get_future();
    EXPECT_EQ(future.wait_for(std::chrono::seconds(20)), std::future_status::ready);
    // A second call would be posted behind this marker.
    std::promise<void> drained;
    queue_->post([&] { drained.set_value(); });
    drained.get_future().wait();
    EXPECT_EQ(calls.load(), 1);
    return future.get();
  }

  ResponseMessage viaAwait(Orvane& f, const std::string& path) {
    try {
      return f.resumeAsyncSession<ResponseMessage>(*f.makeRequest(path)).get();
    } catch (const APIError& e) {
      return e.responseMessage;
    }
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

TEST_F(PipelineOverHttp, StatusRulesInBothForms) {
  struct Case {
    int status;
    std::string body;
    std::int64_t callbackCode;
    std::string callbackMessage;
    std::int64_t awaitCode;
    std::string awaitMessage;
  };
  const Case cases[] = {
      {200, R"({"code":0,"message":"fine"})", 200, "ResponseMessage completed successfully", 0, "fine"},
      {200, "not json", -27004, "JSON Parsing Failure", -27003, "Invalid JSON decoded"},
      {201, "", 201, "created", 201, "Invalid status code"},
      {204, "", 204, "no content", 204, "Invalid status code"},
      {404, "", 404, "not found", 404, "Invalid status code"},
      {404, R"({"code":40401,"message":"Desk not found"})", 40401, "Desk not found", 40401, "Desk not found"},
      {500, "", 500, "internal server error", 500, "Invalid status code"},
      {500, R"({"code":50001,"message":"Database down","trace":"t-1"})", 50001, "Database down", 50001, "Database down"},
  };
  auto f = facade(sandbox_.baseUrl());
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c.status) + " " + c.body);
    const std::string path = "/test/status/" + std::to_string(c.status) + "?body=" + percentEncode(c.body);
    auto m = viaCallback(*f, path);
    EXPECT_EQ(m.code, c.callbackCode);
    EXPECT_EQ(m.message, c.callbackMessage);
    auto a = viaAwait(*f, path);
    EXPECT_EQ(a.code, c.awaitCode);
    EXPECT_EQ(a.message, c.awaitMessage);
  }
}

TEST_F(PipelineOverHttp, TransportFailuresBecomeCodesAndMessages) {
  auto refused = facade("http://127.0.0.1:" + std::to_string(testing::closedLoopbackPort()));
  auto m = viaCallback(*refused, "/api/v1/public/diagnostic/check");
  EXPECT_EQ(m.code, -1004);
  EXPECT_EQ(m.message->rfind("Could not connect to the server.", 0), 0u) << *m.message;
  auto a = viaAwait(*refused, "/api/v1/public/diagnostic/check");
  EXPECT_EQ(a.code, -27003);
  EXPECT_EQ(a.message, "Unknown error occurred");
  EXPECT_EQ(a.trace->rfind("Could not connect to the server.", 0), 0u);

  auto slow = facade(sandbox_.baseUrl(), /*timeout=*/1);
  m = viaCallback(*slow, "/test/status/200?delay_ms=4000");
  EXPECT_EQ(m.code, -1001);
  EXPECT_EQ(m.message->rfind("The request timed out.", 0), 0u) << *m.message;
}

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
      auto request = *facade.makeRequest("/test/status/200?delay_ms=30&i=" + std::to_string(index) + "&body=" + percentEncode(R"({"code":0})"));
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

TEST_F(PipelineOverHttp, UtilityOperationsAgainstTheSandbox) {
  auto f = facade(sandbox_.baseUrl());
  EXPECT_EQ(f->checkConnection().get().code, 200);
  auto config = f->getConfiguration("tag-7").get();
  EXPECT_EQ(config.appId, "it.app");
  EXPECT_EQ(config.uuid, f->envUUID);
  EXPECT_EQ(config.iosadvConf.tagid, "tag-7");
  EXPECT_EQ(f->getOrCreateConfiguration(std::nullopt).get().uuid, f->envUUID);

  std::promise<std::pair<std::optional<SdkImage>, std::optional<PlatformError>>> image;
  f->downloadSdkImage("/api/v1/public/image/logo.png", true, [&](auto i, auto e) { image.set_value({i, e}); });
  auto [picture, error] = image.get_future().get();
  ASSERT_TRUE(picture) << (error ? error->domain : "");
  EXPECT_EQ(picture->format, SdkImage::Format::png);

  EXPECT_FALSE(f->fetchResource(sandbox_.baseUrl() + "/api/v1/public/image/logo.png").get().empty());
  try {
    f->fetchResource("/api/v1/public/image/none.png").get();
    ADD_FAILURE();
  } catch (const APIError& e) {
    EXPECT_EQ(e.responseMessage.code, 404);
  }
}

TEST_F(PipelineOverHttp, WithoutAnyTokenTheFormsDiffer) {
  auto f = facade(sandbox_.baseUrl(), 10, /*loggedIn=*/false);
  EXPECT_EQ(viaCallback(*f, "/test/echo").code, -28005);
  EXPECT_EQ(sandbox_.requestCount("/test/echo"), 0u);
  auto echo = f->resumeAsyncSession<AnyCodable>(*f->makeRequest("/test/echo")).get();
  EXPECT_FALSE(echo.find("headers")->find("authorization"));
  EXPECT_EQ(sandbox_.requestCount("/test/echo"), 1u);
}

}  // namespace
}  // namespace velora
