// The libcurl transport against the in-process sandbox server.

#include <velora/platform/HttpTransport.hpp>
#include <velora_sandbox/Sandbox.hpp>

#include <gtest/gtest.h>

#include "Fakes.hpp"

#include <atomic>
#include <condition_variable>
#include <functional>
#include <future>
#include <mutex>
#include <thread>
#include <tuple>

namespace velora {
namespace {

using namespace std::chrono_literals;
constexpr auto kPatience = 15s;
const TransportError kCancelled{transport_error::kCancelled, "cancelled"};

/// Records one request's callbacks and counts any that arrive out of order.
class Recorder : public HttpDelegate {
 public:
  bool willRedirect(HttpRequest&, const HttpResponseHead& redirect) override {
    std::lock_guard lock(mutex_);
    redirectStatuses.push_back(redirect.status);
    return follow;
  }
  void didReceiveResponse(const HttpResponseHead& received) override {
    std::unique_lock lock(mutex_);
    outOfOrder += (head || completions) ? 1 : 0;
    head = received;
    if (throwInCallbacks) throw std::runtime_error("delegate failure");
  }
  void didReceiveData(std::string_view chunk) override {
    std::unique_lock lock(mutex_);
    outOfOrder += (!head || completions) ? 1 : 0;
    body.append(chunk);
    lock.unlock();
    if (onData) onData();
    if (throwInCallbacks) throw 42;
  }
  void didComplete(std::optional<TransportError> result) override {
    std::lock_guard lock(mutex_);
    ++completions;
    error = std::move(result);
    done_.notify_all();
  }
  bool waitForCompletion() {
    std::unique_lock lock(mutex_);
    return done_.wait_for(lock, kPatience, [&] { return completions > 0; });
  }

  bool follow = true;
  bool throwInCallbacks = false;
  std::function<void()> onData;
  // Read by the test once completed.
  std::vector<int> redirectStatuses;
  std::optional<HttpResponseHead> head;
  std::string body;
  int completions = 0;
  int outOfOrder = 0;
  std::optional<TransportError> error;

 private:
  std::mutex mutex_;
  std::condition_variable done_;
};

HttpRequest makeRequest(std::string url, std::string method = "GET", std::string body = {}, HttpHeaders headers = {},
                        std::chrono::milliseconds timeout = 0ms) {
  HttpRequest request;
  request.url = std::move(url);
  request.method = std::move(method);
  request.body = std::move(body);
  request.headers = std::move(headers);
  request.timeout = timeout;
  return request;
}

class CurlTransportTest : public ::testing::Test {
 protected:
  std::string url(const std::string& path) const { return sandbox.baseUrl() + path; }

  std::shared_ptr<Recorder> run(HttpRequest request, std::shared_ptr<Recorder> recorder = std::make_shared<Recorder>()) {
    transport->start(std::move(request), recorder);
    EXPECT_TRUE(recorder->waitForCompletion()) << "no didComplete";
    return recorder;
  }

  sandbox::Sandbox sandbox;
  std::shared_ptr<HttpTransport> transport = makeCurlTransport();
};

TEST(HttpHeadersTest, EditsFieldsByCaseInsensitiveName) {
  const HttpHeaders start{{"Accept", "a"}, {"X-Tag", "1"}, {"accept", "b"}};
  const std::tuple<const char*, std::function<void(HttpHeaders&)>, HttpHeaders> cases[] = {
      {"set replaces every match at the first's place", [](auto& h) { h.set("ACCEPT", "c"); },
       {{"ACCEPT", "c"}, {"X-Tag", "1"}}},
      {"set appends a new name", [](auto& h) { h.set("New", "n"); },
       {{"Accept", "a"}, {"X-Tag", "1"}, {"accept", "b"}, {"New", "n"}}},
      {"set with a name borrowed from its own fields", [](auto& h) { h.set(h.fields()[2].first, "z"); },
       {{"accept", "z"}, {"X-Tag", "1"}}},
      {"remove drops every match", [](auto& h) { h.remove("ACCEPT"); }, {{"X-Tag", "1"}}},
      {"mergeMissing keeps own names, takes repeated new ones whole",
       [](auto& h) { h.mergeMissing({{"x-tag", "2"}, {"Auth", "t"}, {"auth", "u"}}); },
       {{"Accept", "a"}, {"X-Tag", "1"}, {"accept", "b"}, {"Auth", "t"}, {"auth", "u"}}},
  };
  for (const auto& [what, edit, expected] : cases) {
    HttpHeaders headers = start;
    edit(headers);
    EXPECT_EQ(headers, expected) << what;
  }
  EXPECT_EQ(start.get("x-TAG"), "1");
  EXPECT_EQ(start.get("ACCEPT"), "a");
}

TEST_F(CurlTransportTest, DeliversStatusHeadAndBodyInOrder) {
  const std::pair<int, std::string> cases[] = {{200, "fine"}, {204, ""}, {404, "nothing-here"}, {500, "broken"}};
  for (const auto& [status, body] : cases) {
    auto r = run(makeRequest(url("/test/status/" + std::to_string(status) + "?body=" + body)));
    ASSERT_TRUE(r->head) << status << (r->error ? r->error->message : "");
    EXPECT_EQ(r->head->status, status);
    EXPECT_EQ(r->body, body) << status;
    EXPECT_EQ(r->error, std::nullopt) << status;
    EXPECT_EQ(r->outOfOrder, 0) << status;
  }
}

TEST_F(CurlTransportTest, SendsMethodHeadersAndBodyAsGiven) {
  const std::string big(3 << 20, 'b');  // big enough that curl would otherwise wait for 100-continue
  const HttpRequest cases[] = {
      makeRequest({}, "GET", {}, {{"x-custom", "1"}, {"accept", "application/json"}}),
      makeRequest({}, "POST", big, {{"content-type", "application/octet-stream"}}),
      makeRequest({}, "PUT", "{\"a\":1}"),
      makeRequest({}, "DELETE"),
  };
  for (auto request : cases) {
    sandbox.clearRecordedRequests();
    request.url = url("/test/echo?q=1");
    EXPECT_EQ(run(request)->error, std::nullopt) << request.method;
    const auto seen = sandbox.requests("/test/echo");
    ASSERT_EQ(seen.size(), 1u) << request.method;
    EXPECT_EQ(seen[0].method, request.method);
    EXPECT_EQ(seen[0].query, "q=1");
    EXPECT_TRUE(seen[0].body == request.body) << request.method << " body of " << seen[0].body.size();
    EXPECT_EQ(seen[0].headers.count("expect"), 0u) << request.method;
    // Only the caller decides the content type; curl must not invent a form encoding.
    EXPECT_EQ(seen[0].headers.count("content-type"), request.headers.contains("Content-Type") ? 1u : 0u);
    for (const auto& [name, value] : request.headers.fields()) {  // replacing curl's own Accept, too
      ASSERT_EQ(seen[0].headers.count(name), 1u) << name;
      EXPECT_EQ(seen[0].headers.find(name)->second, value);
    }
  }
}

TEST_F(CurlTransportTest, FailuresMapToPlatformErrors) {
  sandbox.addFault({.path = "/dropped", .action = sandbox::FaultAction::dropConnection});
  const std::tuple<std::string, std::chrono::milliseconds, int, std::string> cases[] = {
      {"http://127.0.0.1:" + std::to_string(testing::closedLoopbackPort()) + "/", 0ms, transport_error::kCannotConnectToHost,
       "Could not connect to the server. ("},
      {url("/test/status/200?delay_ms=1000"), 200ms, transport_error::kTimedOut, "The request timed out."},
      {url("/dropped"), 0ms, transport_error::kNetworkConnectionLost, "The network connection was lost."},
      {"ftp://127.0.0.1:1/file", 0ms, transport_error::kUnsupportedURL, "unsupported URL"},
      {"http://[::1/", 0ms, transport_error::kBadURL, "bad URL"},
  };
  for (const auto& [target, timeout, code, messagePrefix] : cases) {
    auto r = run(makeRequest(target, "GET", {}, {}, timeout));
    ASSERT_TRUE(r->error) << target;
    EXPECT_EQ(r->error->code, code) << target << ": " << r->error->message;
    EXPECT_TRUE(r->error->message.starts_with(messagePrefix)) << r->error->message;
  }
}

TEST_F(CurlTransportTest, StressManyConcurrentRequestsCompleteExactlyOnce) {
  constexpr int kThreads = 4, kPerThread = 50, kTotal = kThreads * kPerThread;
  // The server spends a thread per connection, and each of these requests may open one.
  sandbox::SandboxOptions options;
  options.threads = kTotal + 16;
  sandbox::Sandbox roomy(options);
  std::vector<std::atomic<int>> completions(kTotal);
  std::atomic<int> ok{0}, finished{0};
  std::promise<void> allDone;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = t * kPerThread; i < (t + 1) * kPerThread; ++i) {
        const auto size = static_cast<std::size_t>(1000 + i);
        startDataRequest(*transport, makeRequest(roomy.baseUrl() + "/test/bytes/" + std::to_string(size)),
                         [&, i, size](DataResult result) {
                           ++completions[i];
                           if (result.response && result.response->body.size() == size) ++ok;
                           if (++finished == kTotal) allDone.set_value();
                         });
      }
    });
  }
  for (auto& thread : threads) thread.join();
  const auto status = allDone.get_future().wait_for(kPatience);
  transport.reset();  // anything still owed would complete now and show up as a second call
  ASSERT_EQ(status, std::future_status::ready);
  EXPECT_EQ(ok.load(), kTotal);
  for (int i = 0; i < kTotal; ++i) EXPECT_EQ(completions[i].load(), 1) << i;
}

TEST_F(CurlTransportTest, RequestsStartedFromCallbacksRunPromptly) {
  // Each completion starts the next request from the I/O thread, with nothing else in flight.
  std::promise<int> finished;
  std::function<void(int)> next = [&](int remaining) {
    startDataRequest(*transport, makeRequest(url("/test/status/200?body=x")), [&, remaining](DataResult result) {
      if (!result.response || remaining == 0) return finished.set_value(remaining);
      next(remaining - 1);
    });
  };
  next(20);
  auto outcome = finished.get_future();
  const auto status = outcome.wait_for(kPatience);
  transport.reset();  // no callback may run once the locals it uses are gone
  ASSERT_EQ(status, std::future_status::ready);
  EXPECT_EQ(outcome.get(), 0);
}

TEST_F(CurlTransportTest, FollowsRedirectsKeepingHeadersAcrossHosts) {
  sandbox::Sandbox other;  // a different origin
  const std::string target = other.baseUrl() + "/test/echo";
  // code, method, method that arrives, whether the body (and its Content-Type) survive
  const std::tuple<int, std::string, std::string, bool> cases[] = {
      {301, "POST", "GET", false}, {302, "POST", "GET", false}, {303, "POST", "GET", false},
      {303, "PUT", "GET", false},  {302, "PUT", "PUT", true},   {307, "POST", "POST", true},
      {308, "PUT", "PUT", true}};
  for (const auto& [code, method, arrivingMethod, keepsBody] : cases) {
    other.clearRecordedRequests();
    const std::string label = std::to_string(code) + " " + method;
    auto r = run(makeRequest(url("/test/redirect?code=" + std::to_string(code) + "&to=" + target), method, "payload",
                             {{"Authorization", "Bearer secret"}, {"Content-Type", "text/plain"}}));
    EXPECT_EQ(r->error, std::nullopt) << label;
    EXPECT_EQ(r->redirectStatuses, std::vector<int>{code}) << label;
    ASSERT_TRUE(r->head) << label;
    EXPECT_EQ(r->head->status, 200) << label;
    EXPECT_EQ(r->head->url, target);
    const auto seen = other.requests("/test/echo");
    ASSERT_EQ(seen.size(), 1u) << label;
    EXPECT_EQ(seen[0].method, arrivingMethod) << label;
    EXPECT_EQ(seen[0].body, keepsBody ? "payload" : "") << label;
    EXPECT_EQ(seen[0].headers.count("content-type"), keepsBody ? 1u : 0u) << label;
    ASSERT_EQ(seen[0].headers.count("authorization"), 1u) << label;
    EXPECT_EQ(seen[0].headers.find("authorization")->second, "Bearer secret");
  }
  transport.reset();  // drop the idle connections, so `other` need not wait them out when it stops
}

TEST_F(CurlTransportTest, RedirectsStopWhenRefusedOrAfterSixteenHops) {
  auto refusing = std::make_shared<Recorder>();
  refusing->follow = false;
  auto refused = run(makeRequest(url("/test/redirect?code=302&to=/test/echo")), refusing);
  EXPECT_EQ(refused->error, std::nullopt);
  ASSERT_TRUE(refused->head);
  EXPECT_EQ(refused->head->status, 302);
  EXPECT_EQ(refused->head->headers.get("location"), "/test/echo");
  EXPECT_EQ(refused->outOfOrder, 0);
  EXPECT_EQ(sandbox.requestCount("/test/echo"), 0u);

  // redirect-chain/n answers n + 1 redirects, the last one to /test/echo.
  auto within = run(makeRequest(url("/test/redirect-chain/15")));
  EXPECT_EQ(within->error, std::nullopt);
  EXPECT_EQ(within->redirectStatuses.size(), 16u);
  EXPECT_EQ(within->head ? within->head->status : 0, 200);

  auto beyond = run(makeRequest(url("/test/redirect-chain/16")));
  EXPECT_EQ(beyond->error, (TransportError{transport_error::kHTTPTooManyRedirects, "too many HTTP redirects"}));
  EXPECT_EQ(beyond->redirectStatuses.size(), 16u);
  EXPECT_FALSE(beyond->head);
}

TEST_F(CurlTransportTest, CancelCompletesOnceWithCancelled) {
  // From another thread, while the server is still thinking; repeated and late cancels are no-ops.
  auto waiting = std::make_shared<Recorder>();
  auto call = transport->start(makeRequest(url("/test/status/200?delay_ms=5000")), waiting);
  call->cancel();
  call->cancel();
  EXPECT_TRUE(waiting->waitForCompletion());
  call->cancel();
  EXPECT_EQ(waiting->error, kCancelled);

  // From inside a callback, mid-body: nothing but didComplete follows.
  auto streaming = std::make_shared<Recorder>();
  std::shared_ptr<HttpCall> streamingCall;
  std::atomic<bool> started{false};
  int chunksAfterCancel = -1;  // I/O thread only until completion
  streaming->onData = [&] {
    if (!started) return;
    if (chunksAfterCancel++ < 0) streamingCall->cancel();
  };
  streamingCall = transport->start(makeRequest(url("/test/bytes/50000000")), streaming);
  started = true;
  EXPECT_TRUE(streaming->waitForCompletion());  // no early return: onData uses locals
  EXPECT_EQ(streaming->error, kCancelled);
  EXPECT_LT(streaming->body.size(), 50000000u);
  EXPECT_EQ(chunksAfterCancel, 0);

  transport.reset();
  EXPECT_EQ(waiting->completions, 1);
  EXPECT_EQ(streaming->completions, 1);
  EXPECT_EQ(streaming->outOfOrder, 0);
}

TEST_F(CurlTransportTest, DestroyingTheTransportCancelsEverythingInFlight) {
  std::vector<std::shared_ptr<Recorder>> recorders(8);
  std::vector<std::shared_ptr<HttpCall>> calls;
  for (auto& recorder : recorders) {
    recorder = std::make_shared<Recorder>();
    calls.push_back(transport->start(makeRequest(url("/test/status/200?delay_ms=10000")), recorder));
  }
  transport.reset();  // the delayed answers are ten seconds away: each one ends cancelled
  for (const auto& recorder : recorders) {
    EXPECT_EQ(recorder->completions, 1);
    EXPECT_EQ(recorder->error, kCancelled);
  }
  for (const auto& call : calls) call->cancel();  // calls outlive their transport
}

TEST_F(CurlTransportTest, CollectsLargeBodiesAndSurvivesThrowingDelegates) {
  EXPECT_EQ(run(makeRequest(url("/test/bytes/20000000")))->body.size(), 20000000u);
  auto thrower = std::make_shared<Recorder>();
  thrower->throwInCallbacks = true;
  EXPECT_EQ(run(makeRequest(url("/test/bytes/100000")), thrower)->error, std::nullopt);
  EXPECT_EQ(thrower->body.size(), 100000u);
  EXPECT_EQ(run(makeRequest(url("/test/status/200?body=still")))->body, "still");
}

}  // namespace
}  // namespace velora
