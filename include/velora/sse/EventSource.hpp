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

enum class EventSourceState { connecting, open, closed };

using EventHandler = std::function<void(std::optional<std::string> id, std::optional<std::string> event,
                                        std::optional<std::string> data)>;
using EventCompletionHandler =
    std::function<void(std::optional<int> statusCode, std::optional<bool> reconnect, std::optional<TransportError> error)>;

class EventSourceProtocol {
 public:
  virtual ~EventSourceProtocol() = default;
  virtual std::map<std::string, std::string> headers() const = 0;
  virtual long long retryTime() const = 0;
  virtual std::string url() const = 0;
  virtual std::optional<std::string> lastEventId() const = 0;
  virtual EventSourceState readyState() const = 0;
  virtual void connect(std::optional<std::string> lastEventId = std::nullopt) = 0;
  virtual void disconnect() = 0;
  virtual std::vector<std::string> events() const = 0;
  virtual void onOpen(std::function<void()> callback) = 0;
  virtual void onComplete(EventCompletionHandler callback) = 0;
  virtual void onMessage(EventHandler callback) = 0;
  virtual void addEventListener(const std::string& event, EventHandler handler) = 0;
  virtual void removeEventListener(const std::string& event) = 0;
};

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
