#pragma once
// The Server-Sent-Events client: one long-lived request whose body is parsed into events and
// handed to the owner's callbacks on the main queue. It never reconnects by itself; when the
// request ends it reports the status, a reconnect advice and the error, and the owner decides.

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <velora/core/PlatformError.hpp>
#include <velora/platform/HttpTransport.hpp>
#include <velora/platform/MainQueue.hpp>
#include <velora/sse/EventStreamParser.hpp>

namespace velora {

/// closed (initial), connecting after connect, open once the response headers arrive, closed
/// again after disconnect. The end of the request leaves the state as it is.
enum class EventSourceState { connecting, open, closed };

/// A message callback or named listener: the event's id, its name ("message" for unnamed events)
/// and its data text, each absent when the event had none. Runs on the main queue.
using EventHandler = std::function<void(std::optional<std::string> id, std::optional<std::string> event,
                                        std::optional<std::string> data)>;
/// Runs on the main queue when the request ends. After a response: its HTTP status and the advice
/// to reconnect (true for every status but 200), or, when the transfer then failed, the error's
/// code, false and the error. Without any response (e.g. no network): only the error.
using EventCompletionHandler =
    std::function<void(std::optional<int> statusCode, std::optional<bool> reconnect, std::optional<TransportError> error)>;

/// What an owner needs of an event stream, so that it can be handed a substitute for EventSource.
/// The callback setters replace an earlier callback; set them before connecting.
class EventSourceProtocol {
 public:
  virtual ~EventSourceProtocol() = default;
  /// The owner's extra request headers, sent on every connect and set again on a redirect.
  virtual std::map<std::string, std::string> headers() const = 0;
  /// Milliseconds to wait before reconnecting: the last event's "retry" field, or
  /// EventSource::DefaultRetryTime when that event had none.
  virtual long long retryTime() const = 0;
  /// The stream's address.
  virtual std::string url() const = 0;
  /// The id of the last event received; absent at first and after an event without id.
  virtual std::optional<std::string> lastEventId() const = 0;
  /// Where the connection stands; see EventSourceState.
  virtual EventSourceState readyState() const = 0;
  /// Opens the stream, sending "Last-Event-Id" when an id is given; ignored while open.
  virtual void connect(std::optional<std::string> lastEventId = std::nullopt) = 0;
  /// Closes the stream and cancels its request; no completion is promised afterwards.
  virtual void disconnect() = 0;
  /// The event names that have a listener.
  virtual std::vector<std::string> events() const = 0;
  /// Called when the response headers arrive, whatever the HTTP status.
  virtual void onOpen(std::function<void()> callback) = 0;
  /// Called when a connection's request ends.
  virtual void onComplete(EventCompletionHandler callback) = 0;
  /// Called for unnamed events and events named "message".
  virtual void onMessage(EventHandler callback) = 0;
  /// Called for events named `event`, replacing an earlier listener of that name. An event named
  /// "message" reaches both this listener and the message callback.
  virtual void addEventListener(const std::string& event, EventHandler handler) = 0;
  /// Drops the listener of that name; its events are then ignored.
  virtual void removeEventListener(const std::string& event) = 0;
};

/// The Server-Sent-Events client over the platform's HTTP transport: sends "Accept:
/// text/event-stream" and "Cache-Control: no-cache" (replacing owner headers of those names) and
/// never times out an idle stream. Callbacks that would run after the source is released are skipped.
class EventSource : public EventSourceProtocol, public std::enable_shared_from_this<EventSource> {
 public:
  /// Milliseconds before a reconnect unless the server announces another time.
  static constexpr long long DefaultRetryTime = 3000;

  /// A GET of `url` carrying `headers`.
  static std::shared_ptr<EventSource> make(std::string url, std::map<std::string, std::string> headers,
                                           std::shared_ptr<HttpTransport> transport, std::shared_ptr<MainQueue> mainQueue);
  /// The whole request (method, body, headers) is sent on every connect. Throws PlatformError
  /// "SSE init failed. Missing or malformed URL" (-3003) when it has no URL.
  static std::shared_ptr<EventSource> make(HttpRequest request, std::map<std::string, std::string> headers,
                                           std::shared_ptr<HttpTransport> transport, std::shared_ptr<MainQueue> mainQueue);
  ~EventSource() override;

  std::map<std::string, std::string> headers() const override { return headers_; }
  long long retryTime() const override;
  std::string url() const override { return request_.url; }
  std::optional<std::string> lastEventId() const override;
  EventSourceState readyState() const override { return state_; }
  /// Body bytes received while open, over every connection: what an idle watchdog looks at.
  std::uint64_t bytesReceived() const { return bytesReceived_; }

  /// Opens the stream; ignored while open. Each connect starts with a fresh parser.
  void connect(std::optional<std::string> lastEventId = std::nullopt) override;
  /// Closed, and the request cancelled.
  void disconnect() override;
  /// Sets the state to open as if the response had arrived, so that connect is ignored until the
  /// next disconnect.
  void readyStateOpen() { state_ = EventSourceState::open; }

  std::vector<std::string> events() const override;
  void onOpen(std::function<void()> callback) override;
  void onComplete(EventCompletionHandler callback) override;
  void onMessage(EventHandler callback) override;
  void addEventListener(const std::string& event, EventHandler handler) override;
  void removeEventListener(const std::string& event) override;

 private:
  class Connection;
  EventSource(HttpRequest request, std::map<std::string, std::string> headers, std::shared_ptr<HttpTransport> transport,
              std::shared_ptr<MainQueue> mainQueue);
  void notify(const std::vector<Event>& events);
  void post(std::function<void(EventSource&)> work);

  HttpRequest request_;
  const std::map<std::string, std::string> headers_;
  std::shared_ptr<HttpTransport> transport_;
  std::shared_ptr<MainQueue> mainQueue_;
  std::atomic<EventSourceState> state_{EventSourceState::closed};
  std::atomic<std::uint64_t> bytesReceived_{0};

  mutable std::mutex mutex_;  // guards everything below
  std::optional<std::string> lastEventId_;
  long long retryTime_ = DefaultRetryTime;
  std::function<void()> onOpen_;
  EventCompletionHandler onComplete_;
  EventHandler onMessage_;
  std::map<std::string, EventHandler> listeners_;
  std::shared_ptr<HttpCall> call_;
};

}  // namespace velora
