// The event-stream client against a transport the test drives step by step.

#include <gtest/gtest.h>

#include <velora/sse/EventSource.hpp>

#include "Fakes.hpp"

namespace velora {
namespace {

using testing::SteppedTransport;

struct Recorded {
  std::vector<std::string> lines;
  void add(const std::string& kind, std::optional<std::string> id, std::optional<std::string> name, std::optional<std::string> data) {
    lines.push_back(kind + " id=" + id.value_or("-") + " event=" + name.value_or("-") + " data=" + data.value_or("-"));
  }
};

class EventSourceTest : public ::testing::Test {
 protected:
  std::shared_ptr<EventSource> make(std::map<std::string, std::string> headers = {}) {
    auto source = EventSource::make("http://platform.test/stream", std::move(headers), transport, queue);
    source->onOpen([this] { seen.lines.push_back("open"); });
    source->onMessage([this](auto id, auto name, auto data) { seen.add("message", id, name, data); });
    source->addEventListener("positions", [this](auto id, auto name, auto data) { seen.add("positions", id, name, data); });
    source->addEventListener("message", [this](auto id, auto name, auto data) { seen.add("listener", id, name, data); });
    source->onComplete([this](std::optional<int> status, std::optional<bool> reconnect, std::optional<TransportError> error) {
      seen.lines.push_back("complete status=" + (status ? std::to_string(*status) : "-") + " reconnect=" +
                           (reconnect ? (*reconnect ? "true" : "false") : "-") + " error=" + (error ? std::to_string(error->code) : "-"));
    });
    return source;
  }

  std::shared_ptr<SteppedTransport> transport = std::make_shared<SteppedTransport>();
  std::shared_ptr<testing::ManualQueue> queue = std::make_shared<testing::ManualQueue>();
  Recorded seen;
};

TEST_F(EventSourceTest, HeadersOverridesAndLastEventId) {
  auto source = make({{"Authorization", "Bearer t"}, {"Accept", "application/json"}, {"Cache-Control", "max-age=5"}});
  EXPECT_EQ(source->readyState(), EventSourceState::closed);
  source->connect("41");
  EXPECT_EQ(source->readyState(), EventSourceState::connecting);
  const auto& request = transport->started.at(0)->request;
  EXPECT_EQ(request.method, "GET");
  EXPECT_EQ(request.timeout.count(), 0);
  EXPECT_EQ(request.headers.size(), 4u);
  for (auto [name, value] : {std::pair{"Authorization", "Bearer t"}, std::pair{"Accept", "text/event-stream"},
                             std::pair{"Cache-Control", "no-cache"}, std::pair{"Last-Event-Id", "41"}}) {
    EXPECT_EQ(request.headers.get(name), value) << name;
  }
  // A redirect gets the owner's headers again.
  HttpRequest next;
  next.headers.set("Authorization", "stale");
  EXPECT_TRUE(transport->last().willRedirect(next, HttpResponseHead{302}));
  EXPECT_EQ(next.headers.get("Authorization"), "Bearer t");
}

TEST_F(EventSourceTest, EventsReachTheirCallbacksOnlyWhileOpen) {
  auto source = make();
  source->connect();
  transport->last().didReceiveData("data: before-open\n\n");  // dropped
  transport->last().didReceiveResponse(HttpResponseHead{200});
  transport->last().didReceiveData("id: 7\nretry: 10000\nevent: positions\ndata: {\"x\":1}\n\ndata: plain\n\n");
  EXPECT_TRUE(seen.lines.empty()) << "callbacks run on the main queue";
  EXPECT_FALSE(source->lastEventId());  // the second event had no id
  EXPECT_EQ(source->retryTime(), 3000);  // nor a retry field
  transport->last().didReceiveData("retry: 5000\n\nevent: message\ndata: both\n\n");
  EXPECT_EQ(source->retryTime(), 3000);
  source->connect();  // already open: no second request
  EXPECT_EQ(transport->started.size(), 1u);
  queue->drain();
  EXPECT_EQ(seen.lines, (std::vector<std::string>{"open", "positions id=7 event=positions data={\"x\":1}",
                                                  "message id=- event=message data=plain", "message id=- event=message data=both",
                                                  "listener id=- event=message data=both"}));
}

TEST_F(EventSourceTest, CompletionRules) {
  struct Case {
    std::optional<int> status;  // response head, if any
    std::optional<TransportError> error;
    const char* expected;
  };
  const Case cases[] = {
      {200, std::nullopt, "complete status=200 reconnect=false error=-"},
      {401, std::nullopt, "complete status=401 reconnect=true error=-"},
      {204, std::nullopt, "complete status=204 reconnect=true error=-"},
      {200, TransportError{-1005, "lost"}, "complete status=-1005 reconnect=false error=-1005"},
      {std::nullopt, TransportError{-1004, "refused"}, "complete status=- reconnect=- error=-1004"},
  };
  for (const auto& c : cases) {
    seen.lines.clear();
    auto source = make();
    source->connect();
    if (c.status) transport->last().didReceiveResponse(HttpResponseHead{*c.status});
    transport->last().didComplete(c.error);
    queue->drain();
    EXPECT_EQ(seen.lines.back(), c.expected);
    EXPECT_EQ(source->readyState(), c.status ? EventSourceState::open : EventSourceState::connecting);
  }
}

TEST_F(EventSourceTest, DisconnectCancelsAndAReleasedSourceGetsNothing) {
  auto source = make();
  source->connect();
  transport->last().didReceiveResponse(HttpResponseHead{200});
  transport->last().didReceiveData("data: queued\n\n");
  source->disconnect();
  EXPECT_TRUE(transport->started[0]->cancelled);
  EXPECT_EQ(source->readyState(), EventSourceState::closed);
  transport->last().didReceiveData("data: after\n\n");  // closed: dropped
  source.reset();
  EXPECT_GE(queue->drain(), 1);
  EXPECT_TRUE(seen.lines.empty());
}

}  // namespace
}  // namespace velora
