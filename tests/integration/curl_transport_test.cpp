// The libcurl transport against the in-process sandbox server.

#include <velora/platform/HttpTransport.hpp>
#include <velora_sandbox/Sandbox.hpp>

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <future>
#include <mutex>
#include <thread>

namespace velora {
namespace {

using namespace std::chrono_literals;
constexpr auto kPatience = 15s;

/// Records the callbacks of one request and flags any that arrive out of order.
class Recorder : public HttpDelegate {
 public:
  bool willRedirect(HttpRequest& next, const HttpResponseHead& redirect) override {
    std::lock_guard lock(mutex_);
    redirectStatuses.push_back(redirect.status);
    if (head || completions) ++outOfOrder;
    (void)next;
    return follow;
  }
  void didReceiveResponse(const HttpResponseHead& received) override {
    {
      std::lock_guard lock(mutex_);
      if (head || completions) ++outOfOrder;
      head = received;
    }
    if (throwInCallbacks) throw std::runtime_error("delegate failure");
  }
  void didReceiveData(std::string_view chunk) override {
    {
      std::lock_guard lock(mutex_);
      if (!head || completions) ++outOfOrder;
      body.append(chunk);
    }
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
  // Read by the test after waitForCompletion().
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

/// A loopback port with nothing listening on it.
int closedPort() {
  const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  EXPECT_EQ(::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  EXPECT_EQ(::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length), 0);
  ::close(fd);
  return ntohs(address.sin_port);
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
  struct Case {
    const char* what;
    std::function<void(HttpHeaders&)> edit;
    HttpHeaders expected;
  };
  const Case cases[] = {
      {"set replaces every match at the first one's place", [](auto& h) { h.set("ACCEPT", "c"); },
       {{"ACCEPT", "c"}, {"X-Tag", "1"}}},
      {"set appends a new name", [](auto& h) { h.set("New", "n"); },
       {{"Accept", "a"}, {"X-Tag", "1"}, {"accept", "b"}, {"New", "n"}}},
      {"set with a name borrowed from its own fields", [](auto& h) { h.set(h.fields()[2].first, "z"); },
       {{"accept", "z"}, {"X-Tag", "1"}}},
      {"remove drops every match", [](auto& h) { h.remove("ACCEPT"); }, {{"X-Tag", "1"}}},
      {"mergeMissing keeps own names and takes repeated new ones whole",
       [](auto& h) { h.mergeMissing({{"x-tag", "2"}, {"Auth", "t"}, {"auth", "u"}}); },
       {{"Accept", "a"}, {"X-Tag", "1"}, {"accept", "b"}, {"Auth", "t"}, {"auth", "u"}}},
  };
  for (const auto& c : cases) {
    HttpHeaders headers = start;
    c.edit(headers);
    EXPECT_EQ(headers, c.expected) << c.what;
  }
  EXPECT_EQ(start.get("x-TAG"), "1");
  EXPECT_EQ(start.get("ACCEPT"), "a");
  EXPECT_FALSE(start.contains("Missing"));
}

TEST_F(CurlTransportTest, DeliversStatusHeadAndBodyInOrder) {
  const std::pair<int, std::string> cases[] = {{200, "fine"}, {201, "made"}, {204, ""},
                                               {404, "nothing-here"}, {500, "broken"}, {503, "later"}};
  for (const auto& [status, body] : cases) {
    auto r = run(makeRequest(url("/test/status/" + std::to_string(status) + "?body=" + body)));
    ASSERT_TRUE(r->head) << status << (r->error ? r->error->message : "");
    EXPECT_EQ(r->head->status, status);
    EXPECT_EQ(r->body, body) << status;
    EXPECT_EQ(r->error, std::nullopt) << status;
    EXPECT_EQ(r->completions, 1);
    EXPECT_EQ(r->outOfOrder, 0) << status;
  }
}

TEST_F(CurlTransportTest, SendsMethodHeadersAndBodyAsGiven) {
  const std::string big(3 << 20, 'b');  // large enough that curl would otherwise ask for 100-continue
  const HttpRequest cases[] = {
      makeRequest({}, "GET", {}, {{"X-Custom", "1"}, {"Accept", "application/json"}}),
      makeRequest({}, "POST", big, {{"Content-Type", "application/octet-stream"}}),
      makeRequest({}, "PUT", "{\"a\":1}"),
      makeRequest({}, "PATCH", "p"),
      makeRequest({}, "DELETE"),
  };
  for (auto request : cases) {
    sandbox.clearRecordedRequests();
    request.url = url("/test/echo?q=1");
    auto r = run(request);
    EXPECT_EQ(r->error, std::nullopt) << request.method;
    const auto seen = sandbox.requests("/test/echo");
    ASSERT_EQ(seen.size(), 1u) << request.method;
    EXPECT_EQ(seen[0].method, request.method);
    EXPECT_EQ(seen[0].query, "q=1");
    EXPECT_TRUE(seen[0].body == request.body) << request.method << " body of " << seen[0].body.size();
    EXPECT_EQ(seen[0].headers.count("expect"), 0u) << request.method;
    // Only the caller decides the content type; curl must not invent a form encoding.
    EXPECT_EQ(seen[0].headers.count("content-type"), request.headers.contains("Content-Type") ? 1u : 0u);
    for (const auto& [name, value] : request.headers.fields()) {
      std::string lower(name);
      for (auto& ch : lower) ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
      auto [first, last] = seen[0].headers.equal_range(lower);
      ASSERT_EQ(std::distance(first, last), 1) << name;
      EXPECT_EQ(first->second, value);
    }
  }
}

TEST_F(CurlTransportTest, FailuresMapToPlatformErrors) {
  struct Case {
    std::string url;
    std::chrono::milliseconds timeout;
    int code;
    std::string messagePrefix;
  };
  const Case cases[] = {
      {"http://127.0.0.1:" + std::to_string(closedPort()) + "/", 0ms, transport_error::kCannotConnectToHost,
       "Could not connect to the server. ("},
      {url("/test/status/200?delay_ms=3000"), 200ms, transport_error::kTimedOut, "The request timed out."},
      {url("/test/drop"), 0ms, transport_error::kNetworkConnectionLost, "The network connection was lost."},
      {"ftp://127.0.0.1:1/file", 0ms, transport_error::kUnsupportedURL, "unsupported URL"},
      {"http://[::1/", 0ms, transport_error::kBadURL, "bad URL"},
  };
  for (const auto& c : cases) {
    const auto began = std::chrono::steady_clock::now();
    auto r = run(makeRequest(c.url, "GET", {}, {}, c.timeout));
    ASSERT_TRUE(r->error) << c.url;
    EXPECT_EQ(r->error->code, c.code) << c.url << ": " << r->error->message;
    EXPECT_TRUE(r->error->message.starts_with(c.messagePrefix)) << r->error->message;
    EXPECT_EQ(r->completions, 1);
    EXPECT_LT(std::chrono::steady_clock::now() - began, 2s) << c.url;
  }
}

TEST_F(CurlTransportTest, ManyConcurrentRequestsCompleteExactlyOnce) {
  constexpr int kThreads = 4, kPerThread = 50;
  // The server spends a thread per connection, and every request here may get a connection.
  sandbox::SandboxOptions options;
  options.threads = kThreads * kPerThread + 16;
  sandbox::Sandbox roomy(options);
  std::vector<std::atomic<int>> completions(kThreads * kPerThread);
  std::atomic<int> ok{0};
  std::mutex mutex;
  std::condition_variable allDone;
  int finished = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = t * kPerThread; i < (t + 1) * kPerThread; ++i) {
        startDataRequest(*transport, makeRequest(roomy.baseUrl() + "/test/bytes/" + std::to_string(1000 + i)), [&, i](DataResult result) {
          ++completions[i];
          if (result.response && result.response->head.status == 200 && result.response->body.size() == 1000u + i) ++ok;
          std::lock_guard lock(mutex);
          if (++finished == kThreads * kPerThread) allDone.notify_all();
        });
      }
    });
  }
  for (auto& thread : threads) thread.join();
  {
    std::unique_lock lock(mutex);
    ASSERT_TRUE(allDone.wait_for(lock, kPatience, [&] { return finished == kThreads * kPerThread; }));
  }
  transport.reset();  // anything still owed would complete now and show up as a second call
  EXPECT_EQ(ok.load(), kThreads * kPerThread);
  for (std::size_t i = 0; i < completions.size(); ++i) EXPECT_EQ(completions[i].load(), 1) << i;
}

TEST_F(CurlTransportTest, FollowsRedirectsKeepingHeadersAcrossHosts) {
  sandbox::Sandbox other;  // a different origin
  const std::string target = other.baseUrl() + "/test/echo";
  struct Case {
    int code;
    std::string method, expectedMethod;
    bool keepsBody;
  };
  const Case cases[] = {{301, "POST", "GET", false}, {302, "POST", "GET", false}, {303, "POST", "GET", false},
                        {303, "PUT", "GET", false},  {302, "PUT", "PUT", true},   {307, "POST", "POST", true},
                        {308, "PUT", "PUT", true}};
  for (const auto& c : cases) {
    other.clearRecordedRequests();
    const std::string label = std::to_string(c.code) + " " + c.method;
    auto r = run(makeRequest(url("/test/redirect?code=" + std::to_string(c.code) + "&to=" + target), c.method,
                             "payload", {{"Authorization", "Bearer secret"}, {"Content-Type", "text/plain"}}));
    EXPECT_EQ(r->error, std::nullopt) << label;
    EXPECT_EQ(r->redirectStatuses, std::vector<int>{c.code}) << label;
    ASSERT_TRUE(r->head) << label;
    EXPECT_EQ(r->head->status, 200) << label;
    EXPECT_EQ(r->head->url, target);
    const auto seen = other.requests("/test/echo");
    ASSERT_EQ(seen.size(), 1u) << label;
    EXPECT_EQ(seen[0].method, c.expectedMethod) << label;
    EXPECT_EQ(seen[0].body, c.keepsBody ? "payload" : "") << label;
    EXPECT_EQ(seen[0].headers.count("content-type"), c.keepsBody ? 1u : 0u) << label;
    const auto auth = seen[0].headers.find("authorization");
    ASSERT_NE(auth, seen[0].headers.end()) << label;
    EXPECT_EQ(auth->second, "Bearer secret");
  }
  transport.reset();  // drop the idle connections, so `other` need not wait them out when it stops
}

TEST_F(CurlTransportTest, RefusedRedirectCompletesWithTheRedirectItself) {
  auto recorder = std::make_shared<Recorder>();
  recorder->follow = false;
  auto r = run(makeRequest(url("/test/redirect?code=302&to=/test/echo")), recorder);
  EXPECT_EQ(r->error, std::nullopt);
  ASSERT_TRUE(r->head);
  EXPECT_EQ(r->head->status, 302);
  EXPECT_EQ(r->head->headers.get("location"), "/test/echo");
  EXPECT_EQ(r->outOfOrder, 0);
  EXPECT_EQ(sandbox.requestCount("/test/echo"), 0u);
}

TEST_F(CurlTransportTest, RedirectChainIsCutAfterSixteenHops) {
  auto within = run(makeRequest(url("/test/redirect-chain/16")));
  EXPECT_EQ(within->error, std::nullopt);
  EXPECT_EQ(within->redirectStatuses.size(), 16u);
  ASSERT_TRUE(within->head);
  EXPECT_EQ(within->head->status, 200);

  auto beyond = run(makeRequest(url("/test/redirect-chain/17")));
  EXPECT_EQ(beyond->error, (TransportError{transport_error::kHTTPTooManyRedirects, "too many HTTP redirects"}));
  EXPECT_EQ(beyond->redirectStatuses.size(), 16u);
  EXPECT_FALSE(beyond->head);
}

TEST_F(CurlTransportTest, CancelCompletesOnceWithCancelled) {
  const TransportError cancelled{transport_error::kCancelled, "cancelled"};
  // From another thread, while the server is still thinking; repeated and late cancels are no-ops.
  auto waiting = std::make_shared<Recorder>();
  auto call = transport->start(makeRequest(url("/test/status/200?delay_ms=5000")), waiting);
  call->cancel();
  call->cancel();
  ASSERT_TRUE(waiting->waitForCompletion());
  call->cancel();
  EXPECT_EQ(waiting->error, cancelled);

  // From inside a callback, mid-body: no data after it.
  auto streaming = std::make_shared<Recorder>();
  std::shared_ptr<HttpCall> streamingCall;
  std::once_flag once;
  std::atomic<bool> ready{false};
  streaming->onData = [&] {
    if (ready) std::call_once(once, [&] { streamingCall->cancel(); });
  };
  streamingCall = transport->start(makeRequest(url("/test/bytes/50000000")), streaming);
  ready = true;
  ASSERT_TRUE(streaming->waitForCompletion());
  EXPECT_EQ(streaming->error, cancelled);
  EXPECT_LT(streaming->body.size(), 50000000u);

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
  const auto began = std::chrono::steady_clock::now();
  transport.reset();
  EXPECT_LT(std::chrono::steady_clock::now() - began, 5s);
  for (const auto& recorder : recorders) {
    EXPECT_EQ(recorder->completions, 1);
    EXPECT_EQ(recorder->error, (TransportError{transport_error::kCancelled, "cancelled"}));
  }
  for (const auto& call : calls) call->cancel();  // calls outlive their transport
}

TEST_F(CurlTransportTest, CollectsLargeBodiesAndSurvivesThrowingDelegates) {
  std::promise<DataResult> promise;
  startDataRequest(*transport, makeRequest(url("/test/bytes/20000000")), [&](DataResult r) { promise.set_value(std::move(r)); });
  auto future = promise.get_future();
  ASSERT_EQ(future.wait_for(kPatience), std::future_status::ready);
  const DataResult result = future.get();
  ASSERT_TRUE(result.response);
  EXPECT_EQ(result.response->body.size(), 20000000u);

  auto thrower = std::make_shared<Recorder>();
  thrower->throwInCallbacks = true;
  EXPECT_EQ(run(makeRequest(url("/test/bytes/100000")), thrower)->error, std::nullopt);
  EXPECT_EQ(thrower->body.size(), 100000u);
  EXPECT_EQ(run(makeRequest(url("/test/status/200?body=still")))->body, "still");
}

}  // namespace
}  // namespace velora
