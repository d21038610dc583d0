// Streams over real HTTP: the event source, the subscription manager and the facade's stream
// operations against the sandbox on loopback, with a main queue the test drains (so the manager's
// reconnect delays pass without waiting for them).

#include <gtest/gtest.h>

#include <thread>

#include <velora/core/Orvane.hpp>
#include <velora_sandbox/Sandbox.hpp>

#include "OverHttp.hpp"

namespace velora {
namespace {

using namespace std::chrono_literals;
namespace demo = sandbox::demo;

class StreamsOverHttp : public ::testing::Test {
 protected:
  /// Runs the main queue until `done` holds; false after 10 s.
  bool runUntil(const std::function<bool()>& done) {
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (!done()) {
      if (queue_->drain() == 0) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(2ms);
      }
    }
    return true;
  }

  Platform platform() {
    testing::HttpPlatform http;
    http.transport = transport_;
    http.queue = queue_;
    http.console = [this](std::string_view line) { console_.emplace_back(line); };
    return http.platform();
  }
  std::shared_ptr<Orvane> facade() { return testing::sandboxFacade(sandbox_, platform(), true); }

  std::shared_ptr<EventSource> source(const std::string& pathAndQuery, std::map<std::string, std::string> headers = {}) {
    auto s = EventSource::make(sandbox_.baseUrl() + pathAndQuery, std::move(headers), transport_, queue_);
    s->onOpen([this] { seen_.push_back("open"); });
    s->addEventListener("tick", [this](auto, auto, auto data) { seen_.push_back(*data); });
    s->onComplete([this](std::optional<int> status, std::optional<bool> reconnect, std::optional<TransportError> error) {
      completions_.push_back({status, reconnect, error ? std::optional<int>(error->code) : std::nullopt});
    });
    return s;
  }

  struct Completion {
    std::optional<int> status;
    std::optional<bool> reconnect;
    std::optional<int> error;
  };

  sandbox::Sandbox sandbox_{[] {
    sandbox::SandboxOptions o;
    o.positionIntervalMs = 50;
    o.widgetIntervalMs = 50;
    return o;
  }()};
  std::shared_ptr<HttpTransport> transport_ = makeCurlTransport();
  std::shared_ptr<testing::ManualQueue> queue_ = std::make_shared<testing::ManualQueue>();
  std::vector<std::string> seen_;
  std::vector<Completion> completions_;
  std::vector<std::string> console_;
};

TEST_F(StreamsOverHttp, RefusedAndCutStreamsAreReportedAsTheyEnd) {
  struct Case {
    const char* name;
    sandbox::StreamFaults faults;
    std::optional<int> status;
    std::optional<bool> reconnect;
    bool error;
  };
  const Case cases[] = {
      {"closed after two events", {.closeAfterEvents = 2}, 200, false, false},
      // A transfer error after the head: the error's code stands in for the status.
    {"cut in the middle of an event", {.cutMidEvent = true}, std::nullopt, false, true},
  };
  auto f = facade();
  for (const auto& c : cases) {
    completions_.clear();
    sandbox_.setStreamFaults(c.faults);
    auto manager = f->startNotifyHomeEvents("tag-1", std::nullopt, 60000);
    ASSERT_TRUE(manager);
    manager->eventSource->onComplete([this](auto status, auto reconnect, std::optional<TransportError> error) {
      completions_.push_back({status, reconnect, error ? std::optional<int>(error->code) : std::nullopt});
    });
    ASSERT_TRUE(runUntil([&] { return !completions_.empty(); })) << c.name;
    if (c.status) {
      EXPECT_EQ(completions_[0].status, c.status) << c.name;
    }
    EXPECT_EQ(completions_[0].reconnect, c.reconnect) << c.name;
    EXPECT_EQ(completions_[0].error.has_value(), c.error) << c.name;
    manager->removeAllListenersAndDisconnect();
  }
  sandbox_.setStreamFaults({});
}

TEST_F(StreamsOverHttp, DisconnectEndsTheServersStream) {
  auto s = source("/test/stream?events=1");
  s->connect();
  ASSERT_TRUE(runUntil([&] { return seen_.size() == 2; }));
  EXPECT_EQ(s->readyState(), EventSourceState::open);
  s->connect();  // ignored while open
  s->disconnect();
  EXPECT_EQ(s->readyState(), EventSourceState::closed);
  ASSERT_TRUE(runUntil([&] { return sandbox_.openStreamCount() == 0; }));
  EXPECT_EQ(sandbox_.requestCount("/test/stream"), 1u);
}

TEST_F(StreamsOverHttp, EverySubscriptionReceivesItsFirstEvents) {
  auto f = facade();
  std::map<std::string, int> events;
  const auto count = [&](const std::string& name) { return [&events, name](auto&&...) { ++events[name]; }; };
  std::vector<std::shared_ptr<SSEManager>> managers{
      f->startNotifyEventChanges(SSEStreamTypeEvent::generic, {"ITEM_VALUE_CHANGED"}, 100, count("events complete")),
      f->startNotifyRegionChanges({"tag-a", "tag-b"}, {}, 100, count("region complete"), count("positions")),
      f->startControllableItems(std::nullopt, std::nullopt, 100, count("items complete"), {}, count("items check")),
      f->startDiagnostic({"tag-a", "tag-b-lost"}, 100, count("diagnostic complete"), count("tagTracking")),
      f->startNotifyGroupEvents("12", 100, count("group subscription"), count("group change")),
      f->startNotifyHomeEvents(demo::kDemoTagId, std::nullopt, 100, count("home subscription"), count("home change")),
      f->startNotifyWidgetEvents("w-temp-1", 100, count("widget subscription"), count("widget change")),
  };
  const std::vector<std::string> expected{"events complete",   "region complete",    "positions",        "items complete",
                                          "items check",       "diagnostic complete", "tagTracking",      "group subscription",
                                          "group change",      "home subscription",  "home change",      "widget subscription",
                                          "widget change"};
  EXPECT_TRUE(runUntil([&] {
    return std::all_of(expected.begin(), expected.end(), [&](const auto& name) { return events[name] > 0; });
  }));
  for (const auto& name : expected) EXPECT_GT(events[name], 0) << name;
  for (auto& m : managers) m->removeAllListenersAndDisconnect();
}

TEST_F(StreamsOverHttp, SettingALightIsReportedOnTheItemStream) {
  auto f = facade();
  std::vector<ItemCurrentValue> changes;
  std::vector<ItemControllable> streamed;
  auto manager = f->startControllableItems(
      std::vector<int>{demo::kDemoLightItemId}, std::nullopt, 60000, [&](const auto& items) { streamed = items; },
      [&](const auto& values) { changes.insert(changes.end(), values.begin(), values.end()); });
  ASSERT_TRUE(runUntil([&] { return !streamed.empty(); }));
  ASSERT_EQ(streamed.size(), 1u);

  auto items = f->getControllableItems().get();
  const auto light = std::find_if(items.begin(), items.end(), [](const auto& i) { return i.id == demo::kDemoLightItemId; });
  ASSERT_NE(light, items.end());
  auto power = light->controls->at(0);
  ASSERT_EQ(power->currentValue().id, demo::kDemoLightPowerValueId);
  power->setCurrentValue({demo::kDemoLightPowerValueId, "on"});
  power->setCurrentValue({demo::kDemoLightPowerValueId, "on"});
  ASSERT_TRUE(runUntil([&] { return changes.size() >= 2; }));
  EXPECT_EQ(changes[0], (ItemCurrentValue{demo::kDemoLightPowerValueId, "on"}));
  EXPECT_EQ(sandbox_.itemSetCount(demo::kDemoLightPowerValueId), 2u);
  EXPECT_EQ(sandbox_.itemValue(demo::kDemoLightPowerValueId), "on");
  manager->removeAllListenersAndDisconnect();
}

}  // namespace
}  // namespace velora
