// The reconnect policy over real HTTP: a stream the sandbox cuts in the middle of an event comes
// back with "Last-Event-Id" and the server carries on after that event, so nothing is lost.

#include <gtest/gtest.h>

#include <thread>

#include <velora/sse/SSEManager.hpp>
#include <velora_sandbox/Sandbox.hpp>

#include "OverHttp.hpp"

namespace velora {
namespace {

using namespace std::chrono_literals;

/// Runs `queue` until `done` holds; false after 10 s.
bool runUntil(testing::ManualQueue& queue, const std::function<bool()>& done) {
  const auto deadline = std::chrono::steady_clock::now() + 10s;
  while (!done()) {
    if (queue.drain() == 0) {
      if (std::chrono::steady_clock::now() > deadline) return false;
      std::this_thread::sleep_for(2ms);
    }
  }
  return true;
}

Platform platformOn(std::shared_ptr<testing::ManualQueue> queue) {
  testing::HttpPlatform http;
  http.queue = std::move(queue);
  return http.platform();
}

TEST(StreamResume, AStreamCutMidEventResumesAfterTheLastEventWithoutLosingOne) {
  sandbox::Sandbox sandbox;
  sandbox.setStreamFaults({.cutMidEvent = true, .remaining = 1});
  auto queue = std::make_shared<testing::ManualQueue>();
  auto manager = SSEManager::make(sandbox.baseUrl(), "/test/stream?events=6&interval_ms=10&close=1", std::nullopt, false,
                                  platformOn(queue));
  manager->setReconnectPolicy({.enabled = true, .initialDelay = 0ms});
  std::vector<std::int64_t> numbers;
  manager->addEventListener("tick", [&](auto, auto, std::optional<std::string> data) {
    const AnyCodable event = AnyCodable::parse(data.value_or("{}"));
    const AnyCodable* n = event.find("n");
    const std::int64_t* value = n ? n->as<std::int64_t>() : nullptr;
    numbers.push_back(value ? *value : -1);
  });
  manager->eventSource->connect();

  ASSERT_TRUE(runUntil(*queue, [&] { return numbers.size() >= 6; }));
  EXPECT_EQ(numbers, (std::vector<std::int64_t>{1, 2, 3, 4, 5, 6}));
  const auto sent = sandbox.requests("/test/stream");
  ASSERT_EQ(sent.size(), 2u);
  EXPECT_FALSE(sent[0].headers.contains("last-event-id"));
  EXPECT_EQ(sent[1].headers.find("last-event-id")->second, "1");
  manager->removeAllListenersAndDisconnect();
}

TEST(StreamResume, TheSandboxCutsARandomOpenStreamOnItsSwitch) {
  // The switch's first cut comes one period after the sandbox starts: long enough for the stream to
  // be open and have delivered events even in a sanitizer build, where connecting is slow.
  sandbox::Sandbox sandbox([] {
    sandbox::SandboxOptions o;
    o.cutRandomStreamEveryMs = 500;
    return o;
  }());
  auto queue = std::make_shared<testing::ManualQueue>();
  auto source = EventSource::make(sandbox.baseUrl() + "/test/stream?events=100000&interval_ms=5", {},
                                  platformOn(queue).transport, queue);
  int events = 0;
  std::optional<TransportError> ending;
  source->addEventListener("tick", [&](auto, auto, auto) { ++events; });
  source->onComplete([&](auto, auto, std::optional<TransportError> error) { ending = error.value_or(TransportError{}); });
  source->connect();
  ASSERT_TRUE(runUntil(*queue, [&] { return ending.has_value(); }));
  EXPECT_GT(events, 0);
  EXPECT_NE(ending->code, 0) << "cut, not ended";
}

}  // namespace
}  // namespace velora
