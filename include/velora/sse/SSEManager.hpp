#pragma once
// One subscription stream: builds the stream request, keeps the named listeners, logs connection
// and disconnection, and reconnects after the server's retry time when the stream ends.
//
// Reconnecting is deliberately narrow. The reconnect sends no "Last-Event-Id", so the server
// starts the subscription over; and since EventSource::connect is ignored while the source is
// still open (completion does not change its state), the delayed reconnect only reopens a stream
// that never got its response headers, or one that its owner disconnected in the meantime. A
// stream that has gone quiet is restarted by its owner (the check events tell when).
//
// An owner may opt in to a fuller policy instead (setReconnectPolicy, StreamReconnectPolicy.hpp).

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <string>

#include <velora/core/AnyCodable.hpp>
#include <velora/platform/Platform.hpp>
#include <velora/sse/EventSource.hpp>
#include <velora/sse/StreamReconnectPolicy.hpp>

namespace velora {

/// One subscription stream: its request, its named listeners and its reconnection. The facade's
/// stream operations make one per stream; keep it while the stream is wanted and end it with
/// removeAllListenersAndDisconnect(). Listeners and the open and end callbacks run on the main queue.
class SSEManager : public std::enable_shared_from_this<SSEManager> {
 public:
  /// Extra request headers by name; the facade passes its session's, the bearer token among them.
  using Headers = std::map<std::string, std::string>;

  /// A GET stream of `path` followed directly by `subPath` (no separator is added). Throws
  /// PlatformError -3000 when the two do not form a URL.
  static std::shared_ptr<SSEManager> make(const std::string& path, const std::string& subPath,
                                          std::optional<Headers> headers, bool autoConnect,
                                          const Platform& platform = Platform::getDefault());

  /// A POST of `request` with `body` as JSON; `events` become the listeners. Throws PlatformError
  /// -3001 when there is no body or it cannot be written as JSON, -3003 when the request has no URL.
  static std::shared_ptr<SSEManager> make(bool autoConnect, HttpRequest request, std::optional<Headers> headers,
                                          std::optional<AnyCodable> body,
                                          std::optional<std::map<std::string, EventHandler>> events,
                                          const Platform& platform = Platform::getDefault());

  SSEManager(const SSEManager&) = delete;
  SSEManager& operator=(const SSEManager&) = delete;

  /// The stream's address as built by the GET form of make; empty for the POST form.
  std::optional<std::string> serverURL;
  /// The connection. The owner may replace it; reconnects use whichever source is current.
  std::shared_ptr<EventSource> eventSource;

  /// Stores the handler (replacing one of the same name) and registers it on the event source.
  void addEventListener(const std::string& event, EventHandler handler);
  /// Removes the handler of that name, here and on the event source.
  void removeEventListener(const std::string& event);
  /// Removes every listener, here and on the event source, and disconnects the event source.
  void removeAllListenersAndDisconnect();

  /// The listeners by event name, as given to make or added since; each new event source of the
  /// reconnect policy gets them all.
  const std::map<std::string, EventHandler>& eventListenersCompletionHandler() const { return listeners_; }

  /// @{
  /// Opts in to (or, with `enabled` false, out of) the fuller reconnection: every ending but a
  /// clean 200 end reconnects after a backoff, with a new event source that carries this
  /// manager's listeners and sends "Last-Event-Id" (the id of the last event received); a stream
  /// open for `resetAfter` starts the backoff over; the idle watchdog reconnects a silent stream;
  /// removeAllListenersAndDisconnect() ends it for good, a pending reconnect included. Applies
  /// from the next ending; the watchdog starts with the next open. Set it before connecting.
  /// reconnectPolicy() gives the policy in force (disabled unless set).
  void setReconnectPolicy(StreamReconnectPolicy policy);
  StreamReconnectPolicy reconnectPolicy() const;
  /// @}

 private:
  explicit SSEManager(const Platform& platform) : platform_(platform) {}
  void wire(EventSource& source);
  void connected(const EventSource* source);
  void ended(const EventSource* source, std::optional<int> status, std::optional<TransportError> error);
  /// Drops `source`'s connection and schedules the next attempt. Needs `mutex_` held.
  void scheduleReconnect(std::unique_lock<std::mutex>& lock);
  void reopen(std::uint64_t generation);
  void watch(std::uint64_t generation);
  double draw();

  Platform platform_;
  std::map<std::string, EventHandler> listeners_;
  /// What each new event source of the reconnect policy is made from.
  HttpRequest request_;
  Headers headers_;

  mutable std::mutex mutex_;  // guards the policy state below
  StreamReconnectPolicy policy_;
  bool stopped_ = false;
  /// Failed attempts since the last stable connection.
  int attempt_ = 0;
  /// Changes with every new connection and on stop; timers of an older one do nothing.
  std::uint64_t generation_ = 0;
  /// The source whose ending the policy waits for; none while a reconnect is pending.
  const EventSource* live_ = nullptr;
  std::optional<std::string> resumeId_;
  std::uint64_t watchedBytes_ = 0;
  int quietChecks_ = 0;
  std::mt19937_64 random_{std::random_device{}()};
};

}  // namespace velora
