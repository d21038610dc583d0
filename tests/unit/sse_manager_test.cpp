// The subscription manager on a transport the test drives: construction errors, listeners, the
// console lines and the narrow reconnect rules.

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include <velora/sse/SSEManager.hpp>
#include <velora/sse/SSERecords.hpp>

#include "Fakes.hpp"

namespace velora {
namespace {

using testing::SteppedTransport;
using namespace std::chrono_literals;

class SSEManagerTest : public ::testing::Test {
 protected:
  Platform platform() {
    Platform p;
    p.transport = transport;
    p.mainQueue = queue;
    p.console = [this](std::string_view line) { console.emplace_back(line); };
    return p;
  }
  HttpRequest streamRequest() {
    HttpRequest request;
    request.url = "http://platform.test/api/v1/item/listen";
    return request;
  }
  std::shared_ptr<SSEManager> postManager(std::map<std::string, EventHandler> events = {}) {
    return SSEManager::make(true, streamRequest(), SSEManager::Headers{{"Authorization", "Bearer t"}},
                            AnyCodable::object({{"update", AnyCodable::object({{"checkTime", 1000}})}}), events, platform());
  }
  void respond(int status) { transport->last().didReceiveResponse(HttpResponseHead{status}); }

  std::shared_ptr<SteppedTransport> transport = std::make_shared<SteppedTransport>();
  std::shared_ptr<testing::ManualQueue> queue = std::make_shared<testing::ManualQueue>();
  std::vector<std::string> console;
};

TEST_F(SSEManagerTest, ConstructionByPathJoinsWithoutSeparator) {
  auto manager = SSEManager::make("http://platform.test/api", "/stream/events", std::nullopt, false, platform());
  EXPECT_EQ(manager->serverURL, "http://platform.test/api/stream/events");
  EXPECT_EQ(manager->eventSource->url(), "http://platform.test/api/stream/events");
  EXPECT_TRUE(manager->eventSource->headers().empty());
  EXPECT_TRUE(transport->started.empty());  // not asked to connect

  auto connected = SSEManager::make("http://platform.test/", "/s", SSEManager::Headers{{"X", "1"}}, true, platform());
  ASSERT_EQ(transport->started.size(), 1u);
  EXPECT_EQ(transport->started[0]->request.method, "GET");
  EXPECT_EQ(transport->started[0]->request.url, "http://platform.test/s");  // the safe parser folds "//"
  EXPECT_EQ(transport->started[0]->request.headers.get("X"), "1");
}

TEST_F(SSEManagerTest, ConstructionErrors) {
  const auto nan = std::numeric_limits<double>::quiet_NaN();
  struct Case {
    const char* name;
    std::function<void()> make;
    std::int64_t code;
    const char* domain;
  };
  const Case cases[] = {
      {"not a URL", [&] { SSEManager::make("http://platform.test/a b", "/c", std::nullopt, true, platform()); }, -3000,
       "An unexpected error occurred with SSE Manager. Please contact support. Missing or malformed URL"},
      {"no body", [&] { SSEManager::make(true, streamRequest(), std::nullopt, std::nullopt, std::nullopt, platform()); }, -3001,
       "An unexpected error occurred with SSE Manager. Please contact support. Missing or malformed JSON"},
      {"body not JSON", [&] { SSEManager::make(true, streamRequest(), std::nullopt, AnyCodable(nan), std::nullopt, platform()); },
       -3001, "An unexpected error occurred with SSE Manager. Please contact support. Missing or malformed JSON"},
      {"request without URL",
       [&] { SSEManager::make(true, HttpRequest{}, std::nullopt, AnyCodable::object({}), std::nullopt, platform()); }, -3003,
       "SSE init failed. Missing or malformed URL"},
  };
  for (const auto& c : cases) {
    try {
      c.make();
      ADD_FAILURE() << c.name << ": no error";
    } catch (const PlatformError& e) {
      EXPECT_EQ(e.code, c.code) << c.name;
      EXPECT_EQ(e.domain, c.domain) << c.name;
    }
  }
  EXPECT_TRUE(transport->started.empty());
}

TEST_F(SSEManagerTest, PostRequestCarriesBodyAndListenersReceiveNamedEvents) {
  std::vector<std::string> seen;
  auto manager = postManager({{"check", [&](auto, auto name, auto data) { seen.push_back(*name + ":" + *data); }}});
  ASSERT_EQ(transport->started.size(), 1u);
  const auto& request = transport->started[0]->request;
  EXPECT_EQ(request.method, "POST");
  EXPECT_EQ(request.body, R"({"update":{"checkTime":1000}})");
  EXPECT_EQ(request.headers.get("Authorization"), "Bearer t");
  EXPECT_EQ(manager->eventSource->events(), std::vector<std::string>{"check"});

  manager->addEventListener("complete", [&](auto, auto name, auto data) { seen.push_back(*name + ":" + *data); });
  respond(200);
  transport->last().didReceiveData("event: complete\ndata: [1]\n\nevent: check\ndata: 7\n\ndata: unnamed\n\n");
  queue->drain();
  EXPECT_EQ(seen, (std::vector<std::string>{"complete:[1]", "check:7"}));  // the unnamed one has no listener
  EXPECT_EQ(console, std::vector<std::string>{"SSEManager - CONNECTED"});

  manager->removeEventListener("check");
  EXPECT_EQ(manager->eventSource->events(), std::vector<std::string>{"complete"});
  manager->removeAllListenersAndDisconnect();
  EXPECT_TRUE(manager->eventListenersCompletionHandler().empty());
  EXPECT_TRUE(manager->eventSource->events().empty());
  EXPECT_EQ(manager->eventSource->readyState(), EventSourceState::closed);
  EXPECT_TRUE(transport->started[0]->cancelled);
}

TEST_F(SSEManagerTest, ReconnectRules) {
  struct Case {
    const char* name;
    std::function<void(SteppedTransport&)> end;  // how the first request ends
    bool retried;
  };
  const Case cases[] = {
      {"no response at all", [](SteppedTransport& t) { t.last().didComplete(TransportError{-1004, "refused"}); }, true},
      {"closed with 200",
       [](SteppedTransport& t) {
         t.last().didReceiveResponse(HttpResponseHead{200});
         t.last().didComplete(std::nullopt);
       },
       false},
      // The advice is to reconnect, but the source is still open, so the connect is ignored.
      {"opened with 401",
       [](SteppedTransport& t) {
         t.last().didReceiveResponse(HttpResponseHead{401});
         t.last().didComplete(std::nullopt);
       },
       false},
  };
  for (const auto& c : cases) {
    transport->started.clear();
    console.clear();
    auto manager = postManager();
    c.end(*transport);
    queue->drain();
    EXPECT_EQ(console.back(), "SSEManager - DISCONNECTED") << c.name;
    queue->advance(2999ms);
    EXPECT_EQ(transport->started.size(), 1u) << c.name;
    queue->advance(1ms);
    EXPECT_EQ(transport->started.size(), c.retried ? 2u : 1u) << c.name;
    manager->removeAllListenersAndDisconnect();
  }
}

TEST_F(SSEManagerTest, FailingStreamIsRetriedAfterEachRetryTimeAndAfterDisconnectToo) {
  auto manager = postManager();
  for (int attempt = 1; attempt <= 3; ++attempt) {
    ASSERT_EQ(transport->started.size(), static_cast<std::size_t>(attempt));
    transport->last().didComplete(TransportError{-1004, "refused"});
    queue->drain();
    queue->advance(3000ms);
  }
  // A reconnect scheduled before the owner stopped the stream still connects it again.
  transport->last().didComplete(TransportError{-1004, "refused"});
  queue->drain();
  manager->removeAllListenersAndDisconnect();
  const auto before = transport->started.size();
  queue->advance(3000ms);
  EXPECT_EQ(transport->started.size(), before + 1);
  EXPECT_EQ(manager->eventSource->readyState(), EventSourceState::connecting);
}

TEST_F(SSEManagerTest, ReconnectWaitsTheServersRetryTimeAndStopsWithTheManager) {
  auto manager = postManager();
  respond(200);
  transport->last().didReceiveData("retry: 10000\n\n");
  manager->eventSource->disconnect();  // so that the reconnect can take effect
  transport->last().didComplete(std::nullopt);
  // A 200 end is not retried; make the same source fail without a response instead.
  manager->eventSource->connect();
  transport->last().didComplete(TransportError{-1005, "lost"});
  queue->drain();
  const auto before = transport->started.size();
  queue->advance(9999ms);
  EXPECT_EQ(transport->started.size(), before);
  queue->advance(1ms);
  EXPECT_EQ(transport->started.size(), before + 1);

  transport->last().didComplete(TransportError{-1004, "refused"});
  queue->drain();
  manager.reset();  // the scheduled reconnect finds no manager
  queue->advance(20000ms);
  EXPECT_EQ(transport->started.size(), before + 1);
}

TEST(SSERecords, StreamTypeTravelsUnderAWireTextOtherThanItsName) {
  EXPECT_EQ(encodeJSON(SSEStreamTypeEvent::tagid), "\"TAGID_EVENT\"");
}

}  // namespace
}  // namespace velora
