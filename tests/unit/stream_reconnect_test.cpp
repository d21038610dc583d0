// The opt-in reconnect policy of a subscription stream, on a transport the test plays and a main
// queue whose time the test advances; the jitter's random numbers are the test's.

#include <gtest/gtest.h>

#include <velora/core/Orvane.hpp>
#include <velora/sse/SSEManager.hpp>

#include "Fakes.hpp"

namespace velora {
namespace {

using testing::SteppedTransport;
using namespace std::chrono_literals;

class StreamReconnectTest : public ::testing::Test {
 public:
  Platform platform() {
    Platform p;
    p.transport = transport;
    p.mainQueue = queue;
    p.console = [](std::string_view) {};
    return p;
  }
  /// A stream with `policy` (enabled unless `enabled` is false), connected; every jitter draw is `draw`.
  std::shared_ptr<SSEManager> start(StreamReconnectPolicy policy, bool enabled = true) {
    auto manager = SSEManager::make("http://platform.test", "/stream", SSEManager::Headers{{"Authorization", "Bearer t"}},
                                    false, platform());
    policy.enabled = enabled;
    policy.random = [this] { return draw; };
    manager->setReconnectPolicy(std::move(policy));
    manager->addEventListener("tick", [this](std::optional<std::string> id, auto, std::optional<std::string> data) {
      received.push_back(id.value_or("-") + ":" + data.value_or("-"));
    });
    manager->eventSource->connect();
    queue->drain();
    return manager;
  }
  HttpDelegate& current() { return *transport->started.back()->delegate; }
  void open(int status = 200) {
    current().didReceiveResponse(HttpResponseHead{status});
    queue->drain();
  }
  void send(std::string_view bytes) {
    current().didReceiveData(bytes);
    queue->drain();
  }
  void cut() {
    current().didComplete(TransportError{transport_error::kNetworkConnectionLost, "the network connection was lost"});
    queue->drain();
  }
  /// Milliseconds of queue time until the next connection attempt starts; nullopt when none
  /// starts within `limit`.
  std::optional<long long> nextAttemptAfter(std::chrono::milliseconds limit = 10s) {
    const auto before = transport->started.size();
    for (long long ms = 0; ms <= limit.count(); ++ms) {
      if (transport->started.size() > before) return ms;
      queue->advance(1ms);
    }
    return std::nullopt;
  }

  std::shared_ptr<SteppedTransport> transport = std::make_shared<SteppedTransport>();
  std::shared_ptr<testing::ManualQueue> queue = std::make_shared<testing::ManualQueue>();
  double draw = 0.5;
  std::vector<std::string> received;
};

TEST_F(StreamReconnectTest, BackoffGrowsToItsCapWithinTheJitterBounds) {
  struct Case {
    double draw;
    std::vector<long long> delays;
  };
  // 100 ms doubling up to 1000 ms, each spread over ±50 %.
  const Case cases[] = {
      {0.0, {50, 100, 200, 400, 500, 500}},
      {0.5, {100, 200, 400, 800, 1000, 1000}},
      {0.999999, {150, 300, 600, 1200, 1500, 1500}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.draw);
    transport->started.clear();
    draw = c.draw;
    auto manager = start({.initialDelay = 100ms, .multiplier = 2, .maxDelay = 1000ms, .jitter = 0.5});
    for (long long expected : c.delays) {
      cut();  // before any response: no network
      EXPECT_EQ(nextAttemptAfter(), expected);
    }
    manager->removeAllListenersAndDisconnect();
  }
}

TEST_F(StreamReconnectTest, WhichEndingsReconnectWithAndWithoutThePolicy) {
  struct Case {
    const char* name;
    std::function<void(StreamReconnectTest&)> end;
    bool withPolicy;
    bool withoutPolicy;
  };
  const Case cases[] = {
      {"no response", [](StreamReconnectTest& t) { t.cut(); }, true, true},
      {"open, then cut", [](StreamReconnectTest& t) { t.open(); t.cut(); }, true, false},
      {"503, then ended",
       [](StreamReconnectTest& t) {
         t.open(503);
         t.current().didComplete(std::nullopt);
         t.queue->drain();
       },
       true, false},
      {"200, then ended cleanly",
       [](StreamReconnectTest& t) {
         t.open();
         t.current().didComplete(std::nullopt);
         t.queue->drain();
       },
       false, false},
  };
  for (const auto& c : cases) {
    for (bool policy : {true, false}) {
      SCOPED_TRACE(std::string(c.name) + (policy ? " (policy)" : " (no policy)"));
      transport->started.clear();
      auto manager = start({.initialDelay = 100ms, .jitter = 0, .idleTimeout = 1000ms}, policy);
      c.end(*this);
      EXPECT_EQ(nextAttemptAfter().has_value(), policy ? c.withPolicy : c.withoutPolicy);
      manager->removeAllListenersAndDisconnect();
    }
  }
}

TEST_F(StreamReconnectTest, AStableConnectionStartsTheBackoffOver) {
  auto manager = start({.initialDelay = 100ms, .multiplier = 2, .jitter = 0, .resetAfter = 5000ms});
  cut();
  EXPECT_EQ(nextAttemptAfter(), 100);
  open();
  queue->advance(4999ms);  // not stable yet
  cut();
  EXPECT_EQ(nextAttemptAfter(), 200);
  open();
  queue->advance(5000ms);
  cut();
  EXPECT_EQ(nextAttemptAfter(), 100);
}

TEST_F(StreamReconnectTest, AReconnectResumesAfterTheLastEventReceived) {
  auto manager = start({.initialDelay = 100ms, .jitter = 0});
  EXPECT_FALSE(transport->started.back()->request.headers.contains("Last-Event-Id"));
  open();
  send("id: 6\nevent: tick\ndata: a\n\nid: 7\nevent: tick\ndata: b\n\nid: 8\nevent: tick\nda");  // cut mid-event
  cut();
  ASSERT_TRUE(nextAttemptAfter());
  EXPECT_EQ(transport->started.back()->request.headers.get("Last-Event-Id"), "7");
  EXPECT_EQ(transport->started.back()->request.headers.get("Authorization"), "Bearer t");
  cut();  // an attempt that received nothing keeps the id
  ASSERT_TRUE(nextAttemptAfter());
  EXPECT_EQ(transport->started.back()->request.headers.get("Last-Event-Id"), "7");
  open();
  send("id: 8\nevent: tick\ndata: c\n\n");  // the new source carries the manager's listeners
  EXPECT_EQ(received, (std::vector<std::string>{"6:a", "7:b", "8:c"}));
}

TEST_F(StreamReconnectTest, TheWatchdogReconnectsAStreamSilentForTheIdleTime) {
  auto manager = start({.initialDelay = 0ms, .idleTimeout = 400ms});
  open();
  for (int i = 0; i < 5; ++i) {  // a byte now and then keeps it, a "check" as much as an event
    queue->advance(300ms);
    send(i % 2 ? "event: check\ndata: 1\n\n" : ":\n");
  }
  ASSERT_EQ(transport->started.size(), 1u);
  const auto silentFor = nextAttemptAfter();
  ASSERT_TRUE(silentFor);
  EXPECT_GE(*silentFor, 400);
  EXPECT_LE(*silentFor, 500);  // within a quarter of the idle time
  EXPECT_TRUE(transport->started.front()->cancelled);
  // The old connection's own ending, arriving late, starts no second attempt.
  transport->started.front()->delegate->didComplete(TransportError{transport_error::kCancelled, "cancelled"});
  queue->drain();
  EXPECT_FALSE(nextAttemptAfter(1s));
}

TEST_F(StreamReconnectTest, StoppingDuringTheBackoffEndsTheStreamAtOnce) {
  auto manager = start({.initialDelay = 1000ms, .jitter = 0});
  open();
  cut();
  manager->removeAllListenersAndDisconnect();
  EXPECT_FALSE(nextAttemptAfter(60s));
  EXPECT_EQ(manager->eventSource->readyState(), EventSourceState::closed);
}

TEST(StreamReconnectFacade, TheFacadesStreamsTakeItsPolicyWhenStarted) {
  for (bool policy : {true, false}) {
    SCOPED_TRACE(policy ? "policy" : "no policy");
    testing::FakePlatform fakes;
    fakes.transport->responder = [](const HttpRequest&) {
      return testing::FakeTransport::Reply{0, "", TransportError{transport_error::kCannotConnectToHost, "refused"}};
    };
    auto facade = testing::makeTestFacade(fakes, EnvironmentModel("http://platform.test"), true);
    if (policy) facade->setStreamReconnectPolicy({.enabled = true, .initialDelay = 100ms, .jitter = 0});
    auto stream = facade->startDiagnostic({"tag"}, 1000);
    fakes.queue->drain();
    ASSERT_EQ(fakes.transport->requests().size(), 1u);
    fakes.queue->advance(100ms);  // the policy's delay, not the server's retry time of 3 s
    EXPECT_EQ(fakes.transport->requests().size(), policy ? 2u : 1u);
    stream->removeAllListenersAndDisconnect();
  }
}

}  // namespace
}  // namespace velora
