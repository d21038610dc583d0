// The facade's stream operations against a scripted transport: what each subscription sends,
// which events it listens to, the check interval clamp, and how event data reaches the callbacks.

#include <gtest/gtest.h>

#include <velora/core/Orvane.hpp>

#include "Fakes.hpp"

namespace velora {
namespace {

using testing::FakePlatform;
using Reply = testing::FakeTransport::Reply;

std::shared_ptr<Orvane> loggedInFacade(FakePlatform& fakes, const std::string& endpoint = "http://platform.test/base") {
  return testing::makeTestFacade(fakes, EnvironmentModel(endpoint, 30), true);
}

std::vector<std::string> sorted(std::vector<std::string> names) {
  std::sort(names.begin(), names.end());
  return names;
}

struct Operation {
  const char* name;
  std::function<std::shared_ptr<SSEManager>(Orvane&, int checkTimeout)> start;
  const char* path;
  const char* body;  // with the check interval 5000
  std::vector<std::string> events;
};

const Operation kOperations[] = {
    {"event changes",
     [](Orvane& o, int t) { return o.startNotifyEventChanges(SSEStreamTypeEvent::generic, {"BOOKING"}, t); },
     "/api/ssemanager/stream/events",
     R"({"filter":{"streamType":"GENERIC_EVENT","outputEvents":["BOOKING"]},"update":{"checkTimeout":5000}})",
     {"BOOKING", "check", "complete"}},
    {"region changes", [](Orvane& o, int t) { return o.startNotifyRegionChanges({"tag-1"}, {ORVRegion{"r1"}}, t); },
     "/api/v1/realtime/sse/position/filtered", R"({"filter":{"tagIdList":["tag-1"]},"update":{"checkTimeout":5000}})",
     {"check", "complete", "positions"}},
    {"controllable items",
     [](Orvane& o, int t) {
       ItemControllableFilter filter;
       filter.roomId = 12;
       return o.startControllableItems(std::vector<int>{1, 2}, filter, t);
     },
     "/api/v1/item/listen",
     R"({"itemIdList":[1,2],"filter":{"roomId":12,"radius":0.0,"hasPosition":false,"widgetNames":[]},"sseConfig":{"checkTimeout":5000}})",
     {"check", "complete", "value_change"}},
    {"diagnostic", [](Orvane& o, int) { return o.startDiagnostic({"tag-1", "tag-2"}, 1500.5); }, "/api/v1/diagnostic/sse",
     R"({"tagTracking":{"forgetTagMillis":1500.5,"tags":["tag-1","tag-2"]}})", {"check", "complete", "tagTracking"}},
    {"group", [](Orvane& o, int t) { return o.startNotifyGroupEvents("room-12", t); },
     "/api/v2/widget/card/stream/widget/room/events", R"({"update":{"checkTime":5000},"roomId":"room-12"})",
     {"add", "check", "remove", "remove_all", "subscription", "update"}},
    {"home",
     [](Orvane& o, int t) { return o.startNotifyHomeEvents("tag-1", std::vector<std::string>{"w1"}, t); },
     "/api/v2/widget/card/stream/home/events", R"({"filter":{"tagid":"tag-1","widgetIdList":["w1"]},"update":{"checkTime":5000}})",
     {"add", "check", "remove", "remove_all", "subscription", "update"}},
    {"widget", [](Orvane& o, int t) { return o.startNotifyWidgetEvents("w1", t); },
     "/api/v2/widget/card/stream/widget/events", R"({"componentId":"w1","update":{"checkTime":5000}})",
     {"check", "subscription", "update"}},
};

TEST(StreamOperations, EachSubscriptionSendsItsBodyWithTheSessionHeaders) {
  for (const auto& op : kOperations) {
    FakePlatform fakes;
    fakes.transport->responder = [](const HttpRequest&) { return Reply{200, ": open\n\n"}; };
    auto facade = loggedInFacade(fakes);
    auto manager = op.start(*facade, 5000);
    ASSERT_TRUE(manager) << op.name;
    ASSERT_EQ(fakes.transport->requests().size(), 1u) << op.name;
    const auto request = fakes.transport->requests()[0];
    EXPECT_EQ(request.method, "POST") << op.name;
    EXPECT_EQ(request.url, std::string("http://platform.test/base") + op.path) << op.name;
    EXPECT_EQ(request.body, op.body) << op.name;
    EXPECT_EQ(request.headers.get("Authorization"), "Bearer tok") << op.name;
    EXPECT_EQ(request.headers.get("uuid"), facade->envUUID) << op.name;
    EXPECT_EQ(request.headers.get("Accept"), "text/event-stream") << op.name;
    EXPECT_EQ(sorted(manager->eventSource->events()), op.events) << op.name;
    manager->removeAllListenersAndDisconnect();
  }
}

TEST(StreamOperations, NoManagerWhenTheEndpointIsNotAURL) {
  for (const auto& op : kOperations) {
    FakePlatform fakes;
    auto facade = loggedInFacade(fakes, "http://platform test/base");
    EXPECT_FALSE(op.start(*facade, 5000)) << op.name;
    EXPECT_TRUE(fakes.transport->requests().empty()) << op.name;
  }
}

TEST(StreamOperations, CheckIntervalIsClampedWithALogLine) {
  struct Case {
    int given;
    int sent;
    bool logged;
  };
  for (const auto& c : {Case{120000, 60000, true}, Case{60000, 60000, false}, Case{0, 0, false}, Case{-5, -5, false}}) {
    FakePlatform fakes;
    fakes.transport->responder = [](const HttpRequest&) { return Reply{200, ""}; };
    auto facade = loggedInFacade(fakes);
    auto manager = facade->startNotifyHomeEvents("tag-1", std::nullopt, c.given);
    EXPECT_EQ(decodeJSON<SSESubscriptionRequest>(fakes.transport->requests().at(0).body.text()).update.checkTime, c.sent) << c.given;
    const std::string line = "checkTimeout Max Value is 60000 your current value is " + std::to_string(c.given) + ". Set to 60000 max.";
    EXPECT_EQ(std::count(fakes.consoleLines.begin(), fakes.consoleLines.end(), line), c.logged ? 1 : 0) << c.given;
  }
}

TEST(StreamOperations, WidgetEventsReachCallbacksAndBadDataIsDropped) {
  FakePlatform fakes;
  fakes.transport->responder = [](const HttpRequest&) {
    return Reply{200,
                 "event: subscription\ndata: {\"container\":\"home\",\"widgets\":[{\"type\":\"WIDGET_FUTURE\",\"x\":1}]}\n\n"
                 "event: add\ndata: {\"container\":\"home\",\"widgets\":[]}\n\n"
                 "event: update\ndata: not json\n\n"
                 "event: remove\ndata: {\"widgets\":[{\"type\":\"BUTTON\"}]}\n\n"  // required keys missing: dropped
                 "event: remove_all\ndata: {\"container\":\"home\"}\n\n"
                 "event: check\ndata: 1700000000000\n\n"};
  };
  auto facade = loggedInFacade(fakes);
  std::vector<std::string> seen;
  auto manager = facade->startNotifyHomeEvents(
      "tag-1", std::nullopt, 1000,
      [&](const SSEWidgetEventChange& widgets) {
        ASSERT_TRUE(widgets.widgets);
        seen.push_back("subscription " + encodeJSON(widgets.widgets->at(0)));
      },
      [&](SSEWidgetEventsType type, const SSEWidgetEventChange& change) {
        seen.push_back(std::string(rawValue(type)) + " " + change.container.value_or("-"));
      },
      [&](const std::string& check) { seen.push_back("check " + check); });
  fakes.queue->drain();
  EXPECT_EQ(seen, (std::vector<std::string>{"subscription {\"type\":\"WIDGET_FUTURE\",\"x\":1}", "add home",
                                            "remove_all home", "check 1700000000000"}));
}

TEST(StreamOperations, ItemStreamDeliversBoundItemsAndValueChanges) {
  FakePlatform fakes;
  fakes.transport->responder = [](const HttpRequest& request) {
    if (request.url.ends_with("/item/set")) return Reply{200, request.body.text()};
    return Reply{200,
                 "event: complete\ndata: [{\"id\":1,\"logicName\":\"l\",\"widgetName\":\"light\",\"type\":\"LIGHT\","
                 "\"controls\":[{\"name\":\"power\",\"type\":\"CTRL_TOGGLE\",\"currentValue\":{\"id\":101,\"value\":\"off\"}}]}]\n\n"
                 "event: value_change\ndata: [{\"id\":101,\"value\":\"on\"}]\n\n"
                 "event: value_change\ndata: {\"id\":102,\"value\":\"40\"}\n\n"
                 "event: value_change\ndata: {\"value\":\"no id\"}\n\n"};
  };
  auto facade = loggedInFacade(fakes);
  std::vector<ItemControllable> items;
  std::vector<ItemCurrentValue> changes;
  auto manager = facade->startControllableItems(
      std::nullopt, std::nullopt, 1000, [&](const std::vector<ItemControllable>& list) { items = list; },
      [&](const std::vector<ItemCurrentValue>& values) { changes.insert(changes.end(), values.begin(), values.end()); });
  fakes.queue->drain();
  EXPECT_EQ(changes, (std::vector<ItemCurrentValue>{{101, "on"}, {102, "40"}}));
  ASSERT_EQ(items.size(), 1u);
  // The controls write through to the facade that streamed them.
  items[0].controls->at(0)->setCurrentValue({101, "on"});
  fakes.queue->drain();
  EXPECT_EQ(fakes.transport->requests().back().url, "http://platform.test/base/api/v1/item/set");
}

}  // namespace
}  // namespace velora
