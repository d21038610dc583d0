// The sandbox's equipment routes and event streams over real HTTP, read with a plain HTTP client
// so that these tests do not depend on the library's own stream client.

#include <gtest/gtest.h>
#include <httplib.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "velora_sandbox/Sandbox.hpp"

#include "Fakes.hpp"

namespace {

using nlohmann::json;
using velora::sandbox::Sandbox;
namespace demo = velora::sandbox::demo;
constexpr auto kDeadline = std::chrono::seconds(10);

struct SseEvent {
  std::string id, name, data;
};

// Complete events only; frames without an event name (a retry advice) are left out.
std::vector<SseEvent> parseEvents(const std::string& raw) {
  std::vector<SseEvent> events;
  for (std::size_t start = 0, end; (end = raw.find("\n\n", start)) != std::string::npos; start = end + 2) {
    SseEvent event;
    std::istringstream block(raw.substr(start, end - start));
    for (std::string line; std::getline(block, line);) {
      const auto colon = line.find(": ");
      const std::string field = line.substr(0, colon);
      if (colon != std::string::npos && field != "retry") {
        (field == "id" ? event.id : field == "event" ? event.name : event.data) = line.substr(colon + 2);
      }
    }
    if (!event.name.empty()) {
      events.push_back(event);
    }
  }
  return events;
}

std::vector<SseEvent> named(const std::vector<SseEvent>& events, const std::string& name) {
  std::vector<SseEvent> matching;
  std::copy_if(events.begin(), events.end(), std::back_inserter(matching),
               [&name](const SseEvent& e) { return e.name == name; });
  return matching;
}

using velora::testing::eventually;

// What a Reader has received so far.
struct Seen {
  httplib::Response head;
  std::string raw;
  std::vector<SseEvent> events;
  bool ended = false;
  httplib::Error error = httplib::Error::Success;
};

// Reads one answer on a thread of its own; the test waits on what has arrived.
class Reader {
 public:
  Reader(const Sandbox& sandbox, const std::string& method, const std::string& target, const std::string& body = {},
         const std::string& authorization = {})
      : client_(sandbox.baseUrl()) {
    client_.set_read_timeout(std::chrono::seconds(120));
    req_.method = method;
    req_.path = target;
    req_.body = body;
    if (!authorization.empty()) {
      req_.set_header("Authorization", authorization);
    }
    req_.response_handler = [this](const httplib::Response& res) { return update([&] { seen_.head = res; }); };
    req_.content_receiver = [this](const char* data, std::size_t size, std::uint64_t, std::uint64_t) {
      return update([&] { seen_.raw.append(data, size); });
    };
    thread_ = std::thread([this] {
      const auto result = client_.send(req_);
      update([&] {
        seen_.error = result.error();
        seen_.ended = true;
      });
    });
  }
  // The client goes away; stop() is repeated in case the request had not started yet.
  ~Reader() {
    std::unique_lock lock(mutex_);
    while (!seen_.ended) {
      client_.stop();
      changed_.wait_for(lock, std::chrono::milliseconds(10));
    }
    lock.unlock();
    thread_.join();
  }

  // Once `ready` holds for what has arrived, the answer has ended or the deadline has passed.
  Seen waitFor(const std::function<bool(const Seen&)>& ready) {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, kDeadline, [&] {
      seen_.events = parseEvents(seen_.raw);
      return seen_.ended || ready(seen_);
    });
    return seen_;
  }
  Seen waitForEvents(std::size_t count) {
    return waitFor([count](const Seen& s) { return s.events.size() >= count; });
  }
  Seen now() {
    return waitFor([](const Seen&) { return true; });
  }
  Seen waitForEnd() {
    return waitFor([](const Seen&) { return false; });
  }

 private:
  template <class F>
  bool update(F change) {
    {
      const std::lock_guard lock(mutex_);
      change();
    }
    changed_.notify_all();
    return true;
  }

  httplib::Client client_;
  httplib::Request req_;
  std::mutex mutex_;
  std::condition_variable changed_;
  Seen seen_;
  std::thread thread_;
};

std::vector<int> ids(const json& items) {
  std::vector<int> result;
  for (const auto& item : items) {
    result.push_back(item["id"]);
  }
  return result;
}

class SandboxStreams : public ::testing::Test {
 protected:
  static velora::sandbox::SandboxOptions fast() {
    velora::sandbox::SandboxOptions options;
    options.positionIntervalMs = 30;
    options.widgetIntervalMs = 30;
    return options;
  }
  httplib::Result post(const std::string& path, const std::string& body, bool withToken = true) {
    httplib::Client client(sandbox.baseUrl());
    return client.Post(path, withToken ? httplib::Headers{{"Authorization", bearer}} : httplib::Headers{}, body,
                       "application/json");
  }
  std::unique_ptr<Reader> open(const std::string& path, const std::string& body) {
    return std::make_unique<Reader>(sandbox, "POST", path, body, bearer);
  }

  Sandbox sandbox{fast()};
  std::string bearer = "Bearer " + sandbox.issueAccessToken(demo::kUser);
};
using SandboxEquipment = SandboxStreams;
using SandboxStreamFaults = SandboxStreams;

struct Endpoint {
  std::string path, body, connectEvent;
  std::function<void(const json&)> check;
};

const std::vector<Endpoint> kEndpoints = {
    {"/api/v1/item/listen", R"({"itemIdList":[1,2]})", "complete",
     [](const json& items) { EXPECT_EQ(ids(items), std::vector<int>({1, 2})); }},
    {"/api/v1/realtime/sse/position/filtered", R"({"filter":{"tagIdList":["t-1","t-2"]}})", "complete",
     [](const json& positions) { EXPECT_TRUE(positions.size() == 2 && positions[1]["tagid"] == "t-2"); }},
    {"/api/v1/diagnostic/sse", R"({"tagTracking":{"forgetTagMillis":60000,"tags":["a","b-lost"]}})", "complete",
     [](const json& data) { EXPECT_EQ(data, json::parse(R"({"tagTracking":{"a":"VISIBLE","b-lost":"VISIBLE"}})")); }},
    {"/api/ssemanager/stream/events", R"({"filter":{"outputEvents":["ITEM_VALUE_CHANGED","OTHER"]}})", "complete",
     [](const json& data) {
       EXPECT_EQ(data, json::parse(R"({"status":"SUBSCRIBED","message":"Subscribed to 2 event types",
                                       "statusCode":200})"));
     }},
    {"/api/v2/widget/card/stream/home/events", "{}", "subscription",
     [](const json& data) { EXPECT_EQ(data["container"], "home"); }},
    {"/api/v2/widget/card/stream/widget/room/events", R"({"roomId":"12"})", "subscription",
     [](const json& data) { EXPECT_TRUE(data["container"] == "room-12" && !data["widgets"].empty()); }},
    {"/api/v2/widget/card/stream/widget/events", R"({"componentId":"w-x"})", "subscription",
     [](const json& data) { EXPECT_EQ(data["widgets"][0]["componentId"], "w-x"); }},
};

TEST_F(SandboxStreams, EveryEndpointNeedsATokenAndOpensWithItsConnectEvent) {
  std::vector<std::unique_ptr<Reader>> readers;
  for (const auto& e : kEndpoints) {
    SCOPED_TRACE(e.path);
    const auto refused = post(e.path, e.body, /*withToken=*/false);
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->status, 401);
    EXPECT_EQ(json::parse(refused->body)["code"], 401);

    readers.push_back(open(e.path, e.body));
    const Seen seen = readers.back()->waitForEvents(1);
    ASSERT_FALSE(seen.events.empty());
    EXPECT_EQ(std::to_string(seen.head.status) + " " + seen.head.get_header_value("Content-Type") + " " +
                  seen.head.get_header_value("Cache-Control"), "200 text/event-stream no-cache");
    EXPECT_EQ(seen.events[0].name + " " + seen.events[0].id, e.connectEvent + " 1");
    e.check(json::parse(seen.events[0].data));
  }
  EXPECT_EQ(sandbox.openStreamCount(), kEndpoints.size());
  EXPECT_EQ(sandbox.streamsOpened(), kEndpoints.size());
  // Quiet streams (the item and event streams are among the first four) must notice their clients
  // leave; stopping must not wait for the streams still open.
  readers.erase(readers.begin(), readers.begin() + 4);
  EXPECT_TRUE(eventually([&] { return sandbox.openStreamCount() == kEndpoints.size() - 4; }));
  sandbox.stop();
  EXPECT_EQ(sandbox.openStreamCount(), 0u);
}

TEST_F(SandboxStreams, MalformedBodiesGet400InsteadOfAStream) {
  const std::vector<std::vector<std::string>> cases = {  // path, body, part of the message
      {"/api/v1/item/listen", "not json", "not valid JSON"},
      {"/api/v1/item/listen", R"({"itemIdList":[1,"2"]})", "itemIdList"},
      {"/api/v1/item/listen", R"({"sseConfig":{"checkTimeout":"1s"}})", "sseConfig.checkTimeout"},
      {"/api/v1/diagnostic/sse", "{}", "tagTracking"},
      {"/api/ssemanager/stream/events", R"({"filter":{"outputEvents":[1]}})", "filter.outputEvents"},
      {"/api/v2/widget/card/stream/widget/room/events", "{}", "roomId"},
      {"/api/v2/widget/card/stream/widget/events", R"({"componentId":7})", "componentId"},
  };
  for (const auto& c : cases) {
    const auto res = post(c[0], c[1]);
    ASSERT_TRUE(res);
    EXPECT_EQ(res->status, 400) << c[0];
    EXPECT_NE(json::parse(res->body)["message"].get<std::string>().find(c[2]), std::string::npos) << res->body;
  }
  EXPECT_EQ(sandbox.streamsOpened(), 0u);
}

TEST_F(SandboxStreams, ChecksComeAtTheIntervalTheBodyAsksFor) {
  const std::vector<std::tuple<std::string, std::string, long long>> cases = {  // path, body, gap
      {"/api/v1/item/listen", R"({"sseConfig":{"checkTimeout":100}})", 100},
      {"/api/ssemanager/stream/events", R"({"update":{"checkTimeout":60}})", 60},
      {"/api/v2/widget/card/stream/widget/events", R"({"componentId":"w","update":{"checkTime":5}})", 20},
  };
  const auto unconfigured = open("/api/v1/item/listen", "{}");
  for (const auto& [path, body, gapMs] : cases) {
    SCOPED_TRACE(body);
    const auto checks =
        named(open(path, body)->waitFor([](const Seen& s) { return named(s.events, "check").size() >= 3; }).events,
              "check");
    ASSERT_GE(checks.size(), 3u);
    const auto now = std::chrono::duration_cast<std::chrono::milliseconds>(
                         std::chrono::system_clock::now().time_since_epoch()).count();
    for (std::size_t i = 1; i < checks.size(); ++i) {
      EXPECT_GE(std::stoll(checks[i].data) - std::stoll(checks[i - 1].data), gapMs - 1);
      EXPECT_LT(now - std::stoll(checks[i].data), 60000);  // milliseconds since the epoch
    }
  }
  EXPECT_TRUE(named(unconfigured->now().events, "check").empty());  // a minute apart by default
}

TEST_F(SandboxStreams, ASetValueReachesTheItemAndEventStreamsAtOnce) {
  const auto items = open("/api/v1/item/listen", R"({"itemIdList":[1]})");
  const auto events = open("/api/ssemanager/stream/events", "{}");
  const auto otherEvents = open("/api/ssemanager/stream/events", R"({"filter":{"outputEvents":["X"]}})");
  for (const auto* reader : {&items, &events, &otherEvents}) {
    ASSERT_EQ((*reader)->waitForEvents(1).events.size(), 1u);
  }
  ASSERT_EQ(post("/api/v1/item/set", R"({"id":103,"value":"off"})")->status, 200);  // item 2
  ASSERT_EQ(post("/api/v1/item/set", R"({"id":101,"value":"on"})")->status, 200);

  const auto changes = named(items->waitForEvents(2).events, "value_change");
  ASSERT_EQ(changes.size(), 1u);  // item 2 is not streamed here
  EXPECT_EQ(json::parse(changes[0].data), json::parse(R"([{"id":101,"value":"on"}])"));
  const auto relayed = named(events->waitForEvents(3).events, "ITEM_VALUE_CHANGED");
  ASSERT_EQ(relayed.size(), 2u);
  EXPECT_EQ(json::parse(relayed[1].data),
            json::parse(R"({"status":"ITEM_VALUE_CHANGED","message":"Meeting room light: power = on","statusCode":200})"));
  EXPECT_TRUE(named(otherEvents->now().events, "ITEM_VALUE_CHANGED").empty());
}

TEST_F(SandboxEquipment, ListAppliesEachFilterKey) {
  const std::vector<int> all = {1, 2, 3, 4, 5, 6, 7, 8};
  const std::vector<std::pair<std::string, std::vector<int>>> cases = {
      {"{}", all},
      {R"({"filter":{"roomId":11}})", {1, 3, 6}},
      {R"({"filter":{"areaId":4,"logicName":"door.f1.kitchen"}})", {5}},
      {R"({"filter":{"types":["DOOR","BLIND"],"mapId":1}})", {3, 4, 5}},
      {R"({"filter":{"hasPosition":true}})", {1, 2, 3, 4, 5, 6, 7}},
      {R"({"filter":{"referencePoint":{"mapId":1,"x":5,"y":4},"radius":4}})", {1, 6}},
      {R"({"filter":{"widgetNames":["door","sensor"]}})", {4, 5, 7, 8}},
  };
  for (const auto& [body, expected] : cases) {
    const auto res = post("/api/v1/item/list", body);
    ASSERT_TRUE(res && res->status == 200) << body;
    EXPECT_EQ(ids(json::parse(res->body)), expected) << body;
  }
  for (const std::string body : {R"({"filter":{"roomId":"11"}})", "nope"}) {
    EXPECT_EQ(post("/api/v1/item/list", body)->status, 400) << body;
  }
}

TEST_F(SandboxEquipment, SetAcceptsOnlyValuesTheControlTakes) {
  struct Case {
    std::string body;
    int status, valueId;
    std::string stored;  // the value afterwards
  };
  const std::vector<Case> cases = {
      {R"({"id":999,"value":"on"})", 404, 101, "off"},   {R"({"id":"101","value":"on"})", 400, 101, "off"},
      {R"({"id":101,"value":"maybe"})", 400, 101, "off"}, {R"({"id":102,"value":"101"})", 400, 102, "60"},
      {R"({"id":114,"value":"dry"})", 400, 114, "auto"},  {R"({"id":101,"value":"on"})", 200, 101, "on"},
      {R"({"id":112,"value":"22.5"})", 200, 112, "22.5"}, {R"({"id":114,"value":"heat"})", 200, 114, "heat"},
      {R"({"id":106})", 200, 106, ""},  // a button press without a value
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.body);
    const std::size_t before = sandbox.itemSetCount(c.valueId);
    const auto res = post("/api/v1/item/set", c.body);
    ASSERT_TRUE(res);
    EXPECT_EQ(res->status, c.status);
    EXPECT_EQ(sandbox.itemValue(c.valueId), c.stored);
    EXPECT_EQ(sandbox.itemSetCount(c.valueId), before + (c.status == 200));
    EXPECT_TRUE(c.status != 200 || json::parse(res->body) == json::parse(c.body)) << res->body;
  }
  EXPECT_THROW(sandbox.itemValue(999), std::invalid_argument);
}

TEST_F(SandboxStreams, ScriptedEventsFollowTheirSequence) {
  using Check = std::function<void(const std::vector<SseEvent>&)>;
  const auto data = [](const SseEvent& e) { return json::parse(e.data); };
  const std::vector<std::tuple<std::string, std::string, std::string, Check>> cases = {
      {"/api/v2/widget/card/stream/home/events", "{}", "subscription add update remove remove_all add",
       [&](const auto& e) {
         const auto id = [&](int i) { return data(e[i])["widgets"][0]["componentId"]; };
         EXPECT_TRUE(id(1) == id(3) && id(1) != id(5));  // a new widget each round
         EXPECT_NE(data(e[1]), data(e[2]));               // the update changed it
         EXPECT_EQ(data(e[4]), json({{"container", "home"}}));
       }},
      {"/api/v2/widget/card/stream/widget/room/events", R"({"roomId":"13"})", "subscription add update", nullptr},
      {"/api/v2/widget/card/stream/widget/events", R"({"componentId":"w"})", "subscription update update", nullptr},
      {"/api/v1/realtime/sse/position/filtered", R"({"filter":{"tagIdList":["t-1","t-2"]}})",
       "complete positions positions",
       [&](const auto& e) {  // a tag moves a metre per report
         const json a = data(e[1])[1], b = data(e[2])[1];
         EXPECT_EQ(std::abs(a["x"].get<double>() - b["x"].get<double>()) +
                       std::abs(a["y"].get<double>() - b["y"].get<double>()), 1.0);
         EXPECT_LT(a["sentAt"].get<long long>(), b["sentAt"].get<long long>());
       }},
      {"/api/v1/diagnostic/sse", R"({"tagTracking":{"forgetTagMillis":0,"tags":["a","b-lost"]}})",
       "complete tagTracking", [&](const auto& e) { EXPECT_EQ(data(e[1]), json({{"a", "VISIBLE"}, {"b-lost", "LOST"}})); }},
  };
  for (const auto& [path, body, sequence, check] : cases) {
    SCOPED_TRACE(path);
    const auto expected = static_cast<std::size_t>(std::count(sequence.begin(), sequence.end(), ' ') + 1);
    auto events = open(path, body)->waitForEvents(expected).events;
    ASSERT_GE(events.size(), expected);
    events.resize(expected);
    std::string names;
    for (const auto& e : events) {
      names += (names.empty() ? "" : " ") + e.name;
    }
    EXPECT_EQ(names, sequence);
    if (check) {
      check(events);
    }
  }
}

TEST_F(SandboxStreamFaults, EachSwitchMisbehavesForTheNextStreamOnly) {
  struct Case {
    std::string faults, path, body;  // a body: POST with a token, else GET
    int status;
    bool cleanEnd;
    std::size_t events;
  };
  const std::string testStream = "/test/stream?events=5&close=1";
  const std::vector<Case> cases = {
      {R"({"closeAfterEvents":2})", testStream, "", 200, true, 2},
      {R"({"closeAfterEvents":3})", "/api/v1/item/listen", R"({"sseConfig":{"checkTimeout":20}})", 200, true, 3},
      {R"({"refuseUnauthorized":true})", "/api/v1/item/listen", "{}", 401, true, 0},
      {R"({"headerDelayMs":300})", testStream, "", 200, true, 5},
      {R"({"cutMidEvent":true})", testStream, "", 200, false, 1},
      {"{}", testStream, "", 200, true, 5},
  };
  httplib::Client control(sandbox.baseUrl());
  for (const auto& c : cases) {
    SCOPED_TRACE(c.faults + " " + c.path);
    json faults = json::parse(c.faults);
    faults["remaining"] = 1;
    ASSERT_EQ(control.Post("/test/stream-faults", faults.dump(), "application/json")->status, 200);
    const Seen seen =
        Reader(sandbox, c.body.empty() ? "GET" : "POST", c.path, c.body, c.body.empty() ? "" : bearer).waitForEnd();
    EXPECT_EQ(seen.head.status, c.status);
    EXPECT_EQ(seen.error == httplib::Error::Success, c.cleanEnd);
    EXPECT_EQ(seen.events.size(), c.events);
    EXPECT_TRUE(c.cleanEnd || seen.raw.find("id: 2\n") < seen.raw.size());  // half an event before the cut
  }
  sandbox.setStreamFaults({.refuseUnauthorized = true});  // every stream until replaced
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(post("/api/ssemanager/stream/events", "{}")->status, 401);
  }
  sandbox.setStreamFaults({});
  EXPECT_EQ(Reader(sandbox, "GET", "/test/stream?events=1&close=1").waitForEnd().events.size(), 1u);
  EXPECT_THROW(sandbox.setStreamFaults({.remaining = -2}), std::invalid_argument);
  EXPECT_EQ(control.Post("/test/stream-faults", R"({"closeAfterEvents":-1})", "application/json")->status, 400);
}

TEST_F(SandboxStreams, TestStreamSendsRetryAndNumberedEventsThenClosesOrIdles) {
  const Seen closing =
      Reader(sandbox, "GET", "/test/stream?events=3&retry=1500&close=1&interval_ms=10", "", "Bearer abc").waitForEnd();
  EXPECT_EQ(closing.error, httplib::Error::Success);
  EXPECT_TRUE(closing.raw.starts_with("retry: 1500\n\nid: 1\nevent: tick\n")) << closing.raw;
  ASSERT_EQ(closing.events.size(), 3u);
  for (std::size_t i = 0; i < closing.events.size(); ++i) {
    EXPECT_EQ(closing.events[i].id, std::to_string(i + 1));
    EXPECT_EQ(json::parse(closing.events[i].data), json({{"n", i + 1}, {"authorization", "Bearer abc"}}));
  }

  auto idle = std::make_unique<Reader>(sandbox, "GET", "/test/stream?events=2");
  EXPECT_EQ(idle->waitForEvents(2).events.size(), 2u);
  EXPECT_EQ(sandbox.openStreamCount(), 1u);  // still open after its events
  idle.reset();
  EXPECT_TRUE(eventually([&] { return sandbox.openStreamCount() == 0; }));
  EXPECT_EQ(httplib::Client(sandbox.baseUrl()).Get("/test/stream?events=x")->status, 400);
}

}  // namespace
