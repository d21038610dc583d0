#include <velora/sse/EventSource.hpp>

namespace velora {

/// One connection attempt: its own parser, fed on the transport's I/O thread (one thread per
/// request, so the parser needs no lock). Holds the source weakly, so a released source stops
/// receiving anything.
class EventSource::Connection : public HttpDelegate {
 public:
  explicit Connection(std::weak_ptr<EventSource> source) : source_(std::move(source)) {}

  bool willRedirect(HttpRequest& next, const HttpResponseHead&) override {
    // The owner's headers (the bearer token among them) survive the redirect.
    if (auto source = source_.lock()) {
      for (const auto& [name, value] : source->headers_) next.headers.set(name, value);
    }
    return true;
  }

  void didReceiveResponse(const HttpResponseHead& head) override {
    status_ = head.status;
    auto source = source_.lock();
    if (!source) return;
    source->state_ = EventSourceState::open;
    source->post([](EventSource& s) {
      std::function<void()> callback;
      {
        std::lock_guard lock(s.mutex_);
        callback = s.onOpen_;
      }
      if (callback) callback();
    });
  }

  void didReceiveData(std::string_view chunk) override {
    auto source = source_.lock();
    if (!source || source->state_ != EventSourceState::open) return;  // not open: dropped
    source->bytesReceived_ += chunk.size();
    source->notify(parser_.append(chunk));
  }

  void didComplete(std::optional<TransportError> error) override {
    auto source = source_.lock();
    if (!source) return;
    std::optional<int> status;
    std::optional<bool> reconnect;
    if (status_) {
      status = error ? error->code : *status_;
      // A stream that ended normally with 200 is not to be reopened; any other status is.
      reconnect = error ? false : *status_ != 200;
    }
    source->post([status, reconnect, error](EventSource& s) {
      EventCompletionHandler callback;
      {
        std::lock_guard lock(s.mutex_);
        callback = s.onComplete_;
      }
      if (callback) callback(status, reconnect, error);
    });
  }

 private:
  std::weak_ptr<EventSource> source_;
  EventStreamParser parser_;
  std::optional<int> status_;
};

std::shared_ptr<EventSource> EventSource::make(std::string url, std::map<std::string, std::string> headers,
                                               std::shared_ptr<HttpTransport> transport, std::shared_ptr<MainQueue> mainQueue) {
  HttpRequest request;
  request.url = std::move(url);
  return std::shared_ptr<EventSource>(new EventSource(std::move(request), std::move(headers), std::move(transport), std::move(mainQueue)));
}

std::shared_ptr<EventSource> EventSource::make(HttpRequest request, std::map<std::string, std::string> headers,
                                               std::shared_ptr<HttpTransport> transport, std::shared_ptr<MainQueue> mainQueue) {
  if (request.url.empty()) throw PlatformError("SSE init failed. Missing or malformed URL", -3003);
  return std::shared_ptr<EventSource>(new EventSource(std::move(request), std::move(headers), std::move(transport), std::move(mainQueue)));
}

EventSource::EventSource(HttpRequest request, std::map<std::string, std::string> headers, std::shared_ptr<HttpTransport> transport,
                         std::shared_ptr<MainQueue> mainQueue)
    : request_(std::move(request)), headers_(std::move(headers)), transport_(std::move(transport)), mainQueue_(std::move(mainQueue)) {
  request_.timeout = std::chrono::milliseconds(0);  // an idle stream never times out
}

EventSource::~EventSource() {
  if (call_) call_->cancel();
}

long long EventSource::retryTime() const {
  std::lock_guard lock(mutex_);
  return retryTime_;
}

std::optional<std::string> EventSource::lastEventId() const {
  std::lock_guard lock(mutex_);
  return lastEventId_;
}

void EventSource::connect(std::optional<std::string> lastEventId) {
  if (state_ == EventSourceState::open) return;
  state_ = EventSourceState::connecting;
  HttpHeaders session;
  for (const auto& [name, value] : headers_) session.set(name, value);
  if (lastEventId) session.set("Last-Event-Id", *lastEventId);
  session.set("Accept", "text/event-stream");
  session.set("Cache-Control", "no-cache");
  HttpRequest request = request_;
  request.headers.mergeMissing(session);
  auto call = transport_->start(std::move(request), std::make_shared<Connection>(weak_from_this()));
  std::lock_guard lock(mutex_);
  call_ = std::move(call);
}

void EventSource::disconnect() {
  state_ = EventSourceState::closed;
  std::shared_ptr<HttpCall> call;
  {
    std::lock_guard lock(mutex_);
    call = std::move(call_);
  }
  if (call) call->cancel();
}

void EventSource::notify(const std::vector<Event>& events) {
  for (const Event& event : events) {
    EventHandler message, listener;
    {
      std::lock_guard lock(mutex_);
      // Both reset when the event lacks them: an event without id clears the stored id.
      lastEventId_ = event.id;
      retryTime_ = event.retryTime().value_or(DefaultRetryTime);
      if (event.onlyRetryEvent()) continue;
      if (!event.event || *event.event == "message") message = onMessage_;
      if (event.event) {
        if (auto it = listeners_.find(*event.event); it != listeners_.end()) listener = it->second;
      }
    }
    if (message) {
      post([message, id = event.id, data = event.data](EventSource&) { message(id, std::string("message"), data); });
    }
    if (listener) {
      post([listener, id = event.id, name = event.event, data = event.data](EventSource&) { listener(id, name, data); });
    }
  }
}

void EventSource::post(std::function<void(EventSource&)> work) {
  mainQueue_->post([weak = weak_from_this(), work = std::move(work)] {
    if (auto self = weak.lock()) work(*self);  // skipped when the source is gone
  });
}

std::vector<std::string> EventSource::events() const {
  std::lock_guard lock(mutex_);
  std::vector<std::string> names;
  for (const auto& [name, handler] : listeners_) names.push_back(name);
  return names;
}

void EventSource::onOpen(std::function<void()> callback) {
  std::lock_guard lock(mutex_);
  onOpen_ = std::move(callback);
}

void EventSource::onComplete(EventCompletionHandler callback) {
  std::lock_guard lock(mutex_);
  onComplete_ = std::move(callback);
}

void EventSource::onMessage(EventHandler callback) {
  std::lock_guard lock(mutex_);
  onMessage_ = std::move(callback);
}

void EventSource::addEventListener(const std::string& event, EventHandler handler) {
  std::lock_guard lock(mutex_);
  listeners_[event] = std::move(handler);
}

void EventSource::removeEventListener(const std::string& event) {
  std::lock_guard lock(mutex_);
  listeners_.erase(event);
}

}  // namespace velora
