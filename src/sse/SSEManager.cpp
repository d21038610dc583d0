#include <velora/core/URL.hpp>
#include <velora/sse/SSEManager.hpp>

namespace velora {
namespace {
constexpr const char* kMalformedURL =
    "An unexpected error occurred with SSE Manager. Please contact support. Missing or malformed URL";
constexpr const char* kMalformedJSON =
    "An unexpected error occurred with SSE Manager. Please contact support. Missing or malformed JSON";
}  // namespace

std::shared_ptr<SSEManager> SSEManager::make(const std::string& path, const std::string& subPath,
                                             std::optional<Headers> headers, bool autoConnect, const Platform& platform) {
  auto url = URL::safeInit(path + subPath);
  if (!url) throw PlatformError(kMalformedURL, -3000);
  std::shared_ptr<SSEManager> manager(new SSEManager(platform));
  manager->serverURL = url->absoluteString();
  manager->eventSource = EventSource::make(url->absoluteString(), headers.value_or(Headers{}), platform.transport, platform.mainQueue);
  manager->wire(autoConnect);
  return manager;
}

std::shared_ptr<SSEManager> SSEManager::make(bool autoConnect, HttpRequest request, std::optional<Headers> headers,
                                             std::optional<AnyCodable> body,
                                             std::optional<std::map<std::string, EventHandler>> events,
                                             const Platform& platform) {
  if (!body) throw PlatformError(kMalformedJSON, -3001);
  try {
    request.body = body->dump();
  } catch (const JsonError&) {
    throw PlatformError(kMalformedJSON, -3001);
  }
  request.method = "POST";
  std::shared_ptr<SSEManager> manager(new SSEManager(platform));
  manager->eventSource = EventSource::make(std::move(request), headers.value_or(Headers{}), platform.transport, platform.mainQueue);
  if (events) manager->listeners_.insert(events->begin(), events->end());
  manager->wire(autoConnect);
  return manager;
}

void SSEManager::wire(bool autoConnect) {
  const ConsoleSink console = platform_.console;
  eventSource->onOpen([console] {
    if (console) console("SSEManager - CONNECTED");
  });
  eventSource->onComplete([console, weak = weak_from_this(), queue = platform_.mainQueue](
                              std::optional<int>, std::optional<bool> reconnect, std::optional<TransportError>) {
    if (console) console("SSEManager - DISCONNECTED");
    if (reconnect == false) return;
    // Absent advice means no HTTP response at all (no network): that is retried too.
    long long delay = EventSource::DefaultRetryTime;
    if (auto self = weak.lock(); self && self->eventSource) delay = self->eventSource->retryTime();
    queue->postAfter(std::chrono::milliseconds(delay), [weak] {
      if (auto self = weak.lock(); self && self->eventSource) self->eventSource->connect(std::nullopt);
    });
  });
  for (const auto& [name, handler] : listeners_) eventSource->addEventListener(name, handler);
  if (autoConnect) eventSource->connect(std::nullopt);
}

void SSEManager::addEventListener(const std::string& event, EventHandler handler) {
  listeners_[event] = handler;
  if (eventSource) eventSource->addEventListener(event, std::move(handler));
}

void SSEManager::removeEventListener(const std::string& event) {
  listeners_.erase(event);
  if (eventSource) eventSource->removeEventListener(event);
}

void SSEManager::removeAllListenersAndDisconnect() {
  if (eventSource) {
    for (const auto& name : eventSource->events()) eventSource->removeEventListener(name);
  }
  listeners_.clear();
  if (eventSource) eventSource->disconnect();
}

}  // namespace velora
