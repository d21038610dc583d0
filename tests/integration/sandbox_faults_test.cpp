// The sandbox's fault rules over loopback: the bytes each action puts on the wire, which requests
// a rule applies to and how often, the HTTP control routes, and the demo data loader's refusals.

#include <gtest/gtest.h>
#include <httplib.h>

#include <future>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "DemoData.hpp"
#include "Fakes.hpp"
#include "velora_sandbox/Sandbox.hpp"

namespace {

using nlohmann::json;
using velora::sandbox::FaultAction;
using velora::sandbox::FaultRule;
using velora::sandbox::Sandbox;
using velora::testing::eventually;
using velora::testing::rawExchange;

constexpr const char* kCheckPath = "/api/v1/public/diagnostic/check";
const std::string kCheckBody = R"({"code":200,"message":"Velora sandbox is up"})";

std::string rawGet(const Sandbox& sandbox, const std::string& target) {
  return rawExchange(sandbox.port(), "GET " + target + " HTTP/1.1\r\nHost: s\r\nConnection: close\r\n\r\n");
}

// What follows the head of a raw answer; the whole text when it has no head.
std::string bodyOf(const std::string& raw) {
  const auto end = raw.find("\r\n\r\n");
  return end == std::string::npos ? raw : raw.substr(end + 4);
}

TEST(FaultActions, PutWhatTheySayOnTheWire) {
  struct Case {
    std::string name;
    FaultRule rule;
    std::string target;
    std::string head;  // the status line, then a header line that must be in the head
    std::string body;  // exactly what follows the head before the connection closes
  };
  const std::vector<Case> cases = {
      {"status with a body", {.action = FaultAction::status, .status = 503, .body = "down", .contentType = "text/plain"},
       kCheckPath, "HTTP/1.1 503 Service Unavailable\r\n|Content-Type: text/plain\r\n", "down"},
      {"status without a body", {.action = FaultAction::status, .status = 418}, kCheckPath,
       "HTTP/1.1 418 I'm a teapot\r\n|Content-Type: application/json\r\n",
       R"({"code":418,"message":"Injected by a sandbox fault rule"})"},
      {"delay, then the route", {.action = FaultAction::delay, .delayMs = 1}, kCheckPath,
       "HTTP/1.1 200 OK\r\n|Content-Length: 45\r\n", kCheckBody},
      {"malformed body", {.action = FaultAction::malformedBody}, kCheckPath,
       "HTTP/1.1 200 OK\r\n|Content-Length: 28\r\n", R"({"velora-sandbox":"malformed)"},
      {"malformed body of its own", {.action = FaultAction::malformedBody, .body = "<html>"}, "/nowhere",
       "HTTP/1.1 404 Not Found\r\n|Content-Type: application/json\r\n", "<html>"},
      {"truncated body, half by default", {.action = FaultAction::truncatedBody}, kCheckPath,
       "HTTP/1.1 200 OK\r\n|Content-Length: 45\r\n", kCheckBody.substr(0, 22)},
      {"close mid-body: one chunk, no last chunk", {.action = FaultAction::closeMidBody, .bytes = 7}, kCheckPath,
       "HTTP/1.1 200 OK\r\n|Transfer-Encoding: chunked\r\n", "7\r\n" + kCheckBody.substr(0, 7) + "\r\n"},
      {"close mid-stream", {.action = FaultAction::closeMidBody, .bytes = 5}, "/test/stream?events=3&close=1",
       "HTTP/1.1 200 OK\r\n|Content-Type: text/event-stream\r\n", "5\r\nid: 1\r\n"},
      {"drop: not even a status line", {.action = FaultAction::dropConnection}, kCheckPath, "", ""},
      {"redirect to itself, query kept", {.action = FaultAction::redirectLoop}, std::string(kCheckPath) + "?x=1",
       "HTTP/1.1 302 Found\r\n|Location: " + std::string(kCheckPath) + "?x=1\r\n", ""},
  };
  Sandbox sandbox;
  for (auto c : cases) {
    SCOPED_TRACE(c.name);
    sandbox.clearFaults();
    c.rule.path = c.target.substr(0, c.target.find('?'));
    const int id = sandbox.addFault(c.rule);
    const std::string raw = rawGet(sandbox, c.target);
    EXPECT_EQ(sandbox.faultHits(id), 1u);
    EXPECT_EQ(bodyOf(raw), c.body);
    if (c.head.empty()) {
      EXPECT_EQ(raw, "");
      continue;
    }
    const auto bar = c.head.find('|');
    EXPECT_TRUE(raw.starts_with(c.head.substr(0, bar))) << raw;
    EXPECT_NE(raw.substr(0, raw.find("\r\n\r\n") + 2).find(c.head.substr(bar + 1)), std::string::npos) << raw;
    EXPECT_FALSE(json::accept(bodyOf(raw)) && c.rule.action != FaultAction::status && c.rule.action != FaultAction::delay);
  }
  // A stream cut short or replaced ends its session rather than leaving it waiting.
  EXPECT_TRUE(eventually([&] { return sandbox.openStreamCount() == 0; }));
}

// The delayed request waits without holding up others, and stopping the sandbox ends the wait.
TEST(FaultActions, DelayHoldsOnlyTheRequestItAppliesTo) {
  Sandbox sandbox;
  const int id = sandbox.addFault({.path = kCheckPath, .action = FaultAction::delay, .remaining = 1, .delayMs = 600000});
  auto delayed = std::async(std::launch::async, [url = sandbox.baseUrl()] {
    httplib::Client client(url);
    client.set_read_timeout(std::chrono::seconds(120));
    const auto res = client.Get(kCheckPath);
    return res ? res->status : -1;
  });
  ASSERT_TRUE(eventually([&] { return sandbox.faultHits(id) == 1; }));
  httplib::Client client(sandbox.baseUrl());
  const auto prompt = client.Get(kCheckPath);
  ASSERT_TRUE(prompt);
  EXPECT_EQ(prompt->body, kCheckBody);
  EXPECT_EQ(delayed.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
  sandbox.stop();
  EXPECT_EQ(delayed.get(), 503);
}

TEST(FaultActions, UnauthorizedOnceAnswersThePlatforms401ThenLetsRequestsThrough) {
  Sandbox sandbox;
  httplib::Client client(sandbox.baseUrl());
  const httplib::Headers auth = {{"Authorization", "Bearer " + sandbox.issueAccessToken(velora::sandbox::demo::kUser)}};
  const auto genuine = client.Post("/api/v1/item/list", "{}", "application/json");
  ASSERT_TRUE(genuine);
  ASSERT_EQ(genuine->status, 401);

  const int id = sandbox.addFault(FaultRule::unauthorizedOnce("/api/v1/item/.*", "POST"));
  std::vector<std::pair<int, std::string>> seen;
  for (int i = 0; i < 3; ++i) {
    const auto res = client.Post("/api/v1/item/list", auth, "{}", "application/json");
    ASSERT_TRUE(res);
    seen.emplace_back(res->status, res->status == 401 ? res->body : "");
  }
  EXPECT_EQ(seen, (std::vector<std::pair<int, std::string>>{{401, genuine->body}, {200, ""}, {200, ""}}));
  EXPECT_EQ(sandbox.faultHits(id), 1u);
}

TEST(FaultRules, ApplyToMatchingPathsAndMethodsOnly) {
  struct Case {
    std::string pattern, ruleMethod, method, target;
    bool faulted;
  };
  const std::vector<Case> cases = {
      {"/api/v1/item/.*", "", "POST", "/api/v1/item/list", true},
      {"/api/v1/item/.*", "", "POST", "/api/v1/items", false},
      {"/api/v1/item/list", "", "POST", "/api/v1/item/list/more", false},  // the whole path must match
      {"/api/v1/item/list", "", "POST", "/api/v1/item/list?x=1", true},    // the query is not part of it
      {"/api/v1/item/list", "POST", "GET", "/api/v1/item/list", false},
      {kCheckPath, "GET", "HEAD", kCheckPath, true},
      {"/nowhere/.*", "", "DELETE", "/nowhere/at/all", true},
      {"/realms/velora/.*", "", "GET", "/realms/velora/.well-known/openid-configuration", true},
      {".*", "", "GET", "/test/faults", false},  // the control route stays usable
  };
  Sandbox sandbox;
  httplib::Client client(sandbox.baseUrl());
  for (const auto& c : cases) {
    SCOPED_TRACE(c.pattern + " " + c.ruleMethod + " / " + c.method + " " + c.target);
    sandbox.clearFaults();
    sandbox.addFault({.path = c.pattern, .method = c.ruleMethod, .action = FaultAction::status, .status = 599});
    httplib::Request req;
    req.method = c.method;
    req.path = c.target;
    const auto res = client.send(req);
    ASSERT_TRUE(res);
    EXPECT_EQ(res->status == 599, c.faulted) << res->status;
  }
}

TEST(FaultRules, CountRequestsAndYieldToEarlierRules) {
  Sandbox sandbox;
  httplib::Client client(sandbox.baseUrl());
  const int first = sandbox.addFault({.path = "/test/echo", .remaining = 2, .status = 501});
  const int second = sandbox.addFault({.path = "/test/e.*", .status = 502});
  const int other = sandbox.addFault({.path = "/elsewhere", .status = 503});
  std::vector<int> statuses;
  for (int i = 0; i < 4; ++i) {
    const auto res = client.Get("/test/echo");
    statuses.push_back(res ? res->status : -1);
  }
  EXPECT_EQ(statuses, (std::vector<int>{501, 501, 502, 502}));
  EXPECT_EQ(sandbox.faultHits(first), 2u);
  EXPECT_EQ(sandbox.faultHits(second), 2u);
  EXPECT_EQ(sandbox.faultHits(other), 0u);

  sandbox.clearFaults();
  EXPECT_THROW(sandbox.faultHits(first), std::invalid_argument);
  EXPECT_GT(sandbox.addFault({.path = "/x"}), other);  // ids are not used again
  const auto res = client.Get("/test/echo");
  ASSERT_TRUE(res);
  EXPECT_EQ(res->status, 200);
}

TEST(FaultRules, RefuseRulesThatCannotWork) {
  const std::vector<std::pair<FaultRule, std::string>> cases = {
      {{.path = "("}, "path is not a valid regular expression"},
      {{.path = "/x", .method = "G T"}, "method must be letters"},
      {{.path = "/x", .remaining = 0}, "remaining must be"},
      {{.path = "/x", .status = 99}, "status must be from 200 to 599"},
      {{.path = "/x", .action = FaultAction::delay, .delayMs = 600001}, "delayMs must be"},
      {{.path = "/x", .contentType = "a\r\nX-Injected: 1"}, "contentType must be one line"},
      {{.path = "/x", .action = FaultAction::malformedBody, .body = ""}, "must not be empty"},
  };
  Sandbox sandbox;
  for (const auto& [rule, message] : cases) {
    try {
      sandbox.addFault(rule);
      ADD_FAILURE() << "accepted: " << message;
    } catch (const std::invalid_argument& e) {
      EXPECT_NE(std::string(e.what()).find(message), std::string::npos) << e.what();
    }
  }
}

TEST(FaultControlRoute, AddsListsAndClearsRules) {
  Sandbox sandbox;
  httplib::Client client(sandbox.baseUrl());
  const auto one = client.Post("/test/faults", R"({"path":"/test/echo","action":"unauthorized"})", "application/json");
  ASSERT_TRUE(one);
  ASSERT_EQ(one->status, 200) << one->body;
  EXPECT_EQ(json::parse(one->body)["remaining"], 1);  // the unauthorized action answers once
  const auto two = client.Post("/test/faults",
                               R"([{"path":"/a","method":"put","action":"delay","delayMs":5,"remaining":3},
                                   {"path":"/b","action":"truncatedBody","bytes":4}])",
                               "application/json");
  ASSERT_TRUE(two);
  ASSERT_EQ(two->status, 200) << two->body;
  ASSERT_EQ(json::parse(two->body).size(), 2u);

  ASSERT_EQ(client.Get("/test/echo")->status, 401);
  const auto listed = client.Get("/test/faults");
  ASSERT_TRUE(listed);
  const json rules = json::parse(listed->body);
  ASSERT_EQ(rules.size(), 3u);
  EXPECT_EQ(rules[0]["hits"], 1);
  EXPECT_EQ(rules[0]["remaining"], 0);
  EXPECT_EQ(rules[1]["method"], "PUT");

  const auto cleared = client.Delete("/test/faults");
  ASSERT_TRUE(cleared);
  EXPECT_EQ(cleared->status, 200);
  EXPECT_EQ(client.Get("/test/faults")->body, "[]");
}

TEST(FaultControlRoute, RefusesBadRulesWith400AndAddsNoneOfAList) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"not json", "must be a JSON object (one rule) or an array of rules"},
      {"[]", "The array of rules is empty"},
      {"[7]", "[0]. must be a JSON object"},
      {R"({"action":"status"})", "path and action are required"},
      {R"({"path":"/x","action":"explode"})", "action must be one of"},
      {R"({"path":"/x","action":"status","delayMs":5})", "delayMs does not apply to the status action"},
      {R"({"path":"/x","action":"delay"})", "delayMs is required for the delay action"},
      {R"({"path":"/x","action":"status","status":"500"})", "status must be an integer"},
      {R"([{"path":"/x","action":"status"},{"path":"/y","action":"status","remaining":0}])", "[1].remaining must be"},
  };
  Sandbox sandbox;
  httplib::Client client(sandbox.baseUrl());
  for (const auto& [body, message] : cases) {
    SCOPED_TRACE(body);
    const auto res = client.Post("/test/faults", body, "application/json");
    ASSERT_TRUE(res);
    EXPECT_EQ(res->status, 400);
    EXPECT_NE(res->body.find(message), std::string::npos) << res->body;
  }
  EXPECT_EQ(client.Get("/test/faults")->body, "[]");
}

// The loader must stop the sandbox at start-up, naming the file, rather than serve broken data.
TEST(DemoData, RefusesFilesThatDoNotParseOrDoNotFit) {
  namespace detail = velora::sandbox::detail;
  struct Case {
    std::string file, replace, with, message;  // replace "*": the whole file becomes `with`; "" leaves it out
  };
  const std::vector<Case> cases = {
      {"building.json", "*", "{", "building.json is not valid JSON"},
      {"widgets.json", "*", "", "widgets.json is missing"},
      {"equipment.json", R"("id": 102)", R"("id": 101)", "equipment.json: items[0].controls[1].currentValue.id is used"},
      {"equipment.json", R"("roomId": 11)", R"("roomId": 99)", "equipment.json: items[0].position names no room"},
      {"equipment.json", R"("min": 0.0)", R"("min": "0")", "items[0].controls[1].min must be a number"},
      {"building.json", R"("xFrom": 10)", R"("xFrom": 0)", "building.json: floors[0].rooms[1] must start"},
      {"login-codes.json", R"("user": "alice")", R"("user": "mallory")", "login-codes.json: codes[1].user is no user"},
      {"booking.json", R"("subtype": "S",)", R"("subtype": "XL",)", "booking.json: resources[12].subtype must be a locker size"},
      {"booking.json", R"("roomId": 23)", R"("roomId": 99)", "booking.json: resources[5].position names no room"},
      {"booking.json", R"("id": "1102")", R"("id": "1101")", "resources[1].id is used by another resource"},
      {"booking.json", R"("capacity": "8")", R"("capacity": 8)", "resources[7].data must be an object of strings"},
      {"booking.json", R"("user": "demo")", R"("user": "mallory")", "agenda[0].user is no user of the realm"},
      {"booking.json", R"("mapId": 2,)", R"("mapId": 1,)", "booking.json: floors repeats map id 1"},
      {"home.json", R"("type": "HEADER")", R"("kind": "HEADER")", "home.json: containers[0] needs \"type\""},
      {"notifications.json", R"("user": "alice")", R"("user": "mallory")", "notifications.json: notifications[4].user names no demo user"},
      {"notifications.json", R"("id": "n-2")", R"("id": "n-1")", "notifications.json: notifications[1] repeats the id n-1"},
      {"notifications.json", R"("status": "READ")", R"("status": "SEEN")", "notifications[2].status must be SENT, READ or DELETED"},
      {"notifications.json", R"("type": "CALENDAR", "name": "Day")", R"("kind": "CALENDAR", "name": "Day")",
       "notifications.json: dnd.day/time[0] needs \"type\""},
      {"notifications.json", R"("day/time/interval")", R"("day/time/intervals")", "notifications.json: dnd needs \"day/time/interval\""},
  };
  const auto isUser = [](std::string_view name) { return name == "demo" || name == "alice"; };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.file + ": " + c.with);
    std::vector<std::pair<std::string, std::string>> texts;
    for (const auto& file : detail::embeddedDataFiles()) {
      std::string text(file.text);
      if (file.name == c.file && c.replace == "*") {
        text = c.with;
      } else if (file.name == c.file) {
        const auto at = text.find(c.replace);
        ASSERT_NE(at, std::string::npos);
        text.replace(at, c.replace.size(), c.with);
      }
      if (!text.empty()) {
        texts.emplace_back(file.name, std::move(text));
      }
    }
    std::vector<detail::EmbeddedFile> files;
    for (const auto& [name, text] : texts) {
      files.push_back({name, text});
    }
    try {
      detail::loadDemoData(detail::DataFiles(files), isUser);
      ADD_FAILURE() << "loaded";
    } catch (const std::runtime_error& e) {
      EXPECT_NE(std::string(e.what()).find(c.message), std::string::npos) << e.what();
    }
  }
}

}  // namespace
