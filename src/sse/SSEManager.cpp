#include <velora/core/URL.hpp>
#include <velora/sse/SSEManager.hpp>

#include <algorithm>
#include <cmath>

namespace velora {
namespace {
constexpr const char* kMalformedURL =
    "An unexpected error occurred with SSE Manager. Please contact support. Missing or malformed URL";
constexpr const char* kMalformedJSON =
    "An unexpected error occurred with SSE Manager. Please contact support. Missing or malformed JSON";

/// The idle watchdog looks this many times per idle time, so silence is noticed within a
/// quarter of it.
constexpr int kWatchesPerIdleTime = 4;

std::chrono::milliseconds watchStep(std::chrono::milliseconds idleTimeout) {
  return std::max(std::chrono::milliseconds(1), idleTimeout / kWatchesPerIdleTime);
}
}  // namespace

std::chrono::milliseconds StreamReconnectPolicy::delay(int attempt, double draw) const {
  const double base = static_cast<double>(std::max<long long>(0, initialDelay.count())) *
                      std::pow(std::max(1.0, multiplier), std::max(0, attempt));
  const double capped = std::min(base, static_cast<double>(std::max<long long>(0, maxDelay.count())));
  const double spread = std::clamp(jitter, 0.0, 1.0);
  return std::chrono::milliseconds(std::llround(capped * (1.0 - spread + 2.0 * spread * std::clamp(draw, 0.0, 1.0))));
}

std::shared_ptr<SSEManager> SSEManager::make(const std::string& path, const std::string& subPath,
                                             std::optional<Headers> headers, bool autoConnect, const Platform& platform) {
  auto url = URL::safeInit(path + subPath);
  if (!url) throw PlatformError(kMalformedURL, -3000);
  std::shared_ptr<SSEManager> manager(new SSEManager(platform));
  manager->serverURL = url->absoluteString();
  manager->request_.url = url->absoluteString();
  manager->headers_ = headers.value_or(Headers{});
  manager->eventSource = EventSource::make(url->absoluteString(), manager->headers_, platform.transport, platform.mainQueue);
  manager->live_ = manager->eventSource.get();
  manager->wire(*manager->eventSource);
  if (autoConnect) manager->eventSource->connect(std::nullopt);
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
  manager->request_ = request;
  manager->headers_ = headers.value_or(Headers{});
  manager->eventSource = EventSource::make(std::move(request), manager->headers_, platform.transport, platform.mainQueue);
  manager->live_ = manager->eventSource.get();
  if (events) manager->listeners_.insert(events->begin(), events->end());
  manager->wire(*manager->eventSource);
  if (autoConnect) manager->eventSource->connect(std::nullopt);
  return manager;
}

void SSEManager::wire(EventSource& source) {
  const ConsoleSink console = platform_.console;
  const EventSource* wired = &source;
  source.onOpen([console, weak = weak_from_this(), wired] {
    if (console) console("SSEManager - CONNECTED");
    if (auto self = weak.lock()) self->connected(wired);
  });
  source.onComplete([console, weak = weak_from_this(), queue = platform_.mainQueue, wired](
                        std::optional<int> status, std::optional<bool> reconnect, std::optional<TransportError> error) {
    if (console) console("SSEManager - DISCONNECTED");
    long long delay = EventSource::DefaultRetryTime;
    if (auto self = weak.lock()) {
      if (self->reconnectPolicy().enabled) return self->ended(wired, status, std::move(error));
      if (self->eventSource) delay = self->eventSource->retryTime();
    }
    if (reconnect == false) return;
    // Absent advice means no HTTP response at all (no network): that is retried too.
    queue->postAfter(std::chrono::milliseconds(delay), [weak] {
      if (auto self = weak.lock(); self && self->eventSource) self->eventSource->connect(std::nullopt);
    });
  });
  for (const auto& [name, handler] : listeners_) source.addEventListener(name, handler);
}

void SSEManager::setReconnectPolicy(StreamReconnectPolicy policy) {
  std::lock_guard lock(mutex_);
  policy_ = std::move(policy);
}

StreamReconnectPolicy SSEManager::reconnectPolicy() const {
  std::lock_guard lock(mutex_);
  return policy_;
}

void SSEManager::connected(const EventSource* source) {
  std::unique_lock lock(mutex_);
  if (!policy_.enabled || stopped_ || source != live_) return;
  const std::uint64_t generation = generation_;
  const auto resetAfter = policy_.resetAfter;
  const auto idleTimeout = policy_.idleTimeout;
  watchedBytes_ = source->bytesReceived();
  quietChecks_ = 0;
  lock.unlock();
  const auto queue = platform_.mainQueue;
  queue->postAfter(resetAfter, [weak = weak_from_this(), generation] {
    auto self = weak.lock();
    if (!self) return;
    std::lock_guard lock(self->mutex_);
    // Still the same connection, still open: it was stable, so the backoff starts over.
    if (!self->stopped_ && self->generation_ == generation) self->attempt_ = 0;
  });
  if (idleTimeout.count() > 0) {
    queue->postAfter(watchStep(idleTimeout), [weak = weak_from_this(), generation] {
      if (auto self = weak.lock()) self->watch(generation);
    });
  }
}

void SSEManager::ended(const EventSource* source, std::optional<int> status, std::optional<TransportError> error) {
  std::unique_lock lock(mutex_);
  if (stopped_ || source != live_) return;
  if (!error && status == 200) {
    // The server closed the subscription: not reopened, as without the policy, and its timers
    // (the watchdog among them) stop.
    live_ = nullptr;
    ++generation_;
    return;
  }
  scheduleReconnect(lock);
}

void SSEManager::watch(std::uint64_t generation) {
  std::unique_lock lock(mutex_);
  if (stopped_ || generation_ != generation || live_ == nullptr) return;
  const std::uint64_t bytes = eventSource->bytesReceived();
  if (bytes != watchedBytes_) {
    watchedBytes_ = bytes;
    quietChecks_ = 0;
  } else if (++quietChecks_ >= kWatchesPerIdleTime) {
    return scheduleReconnect(lock);  // silent for the idle time: the connection is presumed dead
  }
  const auto step = watchStep(policy_.idleTimeout);
  lock.unlock();
  platform_.mainQueue->postAfter(step, [weak = weak_from_this(), generation] {
    if (auto self = weak.lock()) self->watch(generation);
  });
}

void SSEManager::scheduleReconnect(std::unique_lock<std::mutex>& lock) {
  const std::shared_ptr<EventSource> source = eventSource;
  // An attempt that received no event keeps the id it was sent with.
  if (auto id = source->lastEventId()) resumeId_ = std::move(id);
  const auto delay = policy_.delay(attempt_++, draw());
  const std::uint64_t generation = ++generation_;
  live_ = nullptr;
  lock.unlock();
  source->disconnect();
  platform_.mainQueue->postAfter(delay, [weak = weak_from_this(), generation] {
    if (auto self = weak.lock()) self->reopen(generation);
  });
}

void SSEManager::reopen(std::uint64_t generation) {
  std::shared_ptr<EventSource> previous;
  std::shared_ptr<EventSource> source;
  std::optional<std::string> resumeId;
  {
    std::lock_guard lock(mutex_);
    if (stopped_ || generation_ != generation) return;
    // A new source per attempt: whatever the old connection still reports goes nowhere.
    source = EventSource::make(request_, headers_, platform_.transport, platform_.mainQueue);
    wire(*source);
    previous = std::exchange(eventSource, source);
    live_ = source.get();
    resumeId = resumeId_;
  }
  source->connect(resumeId);
}

double SSEManager::draw() {
  if (policy_.random) return policy_.random();
  return std::uniform_real_distribution<double>(0.0, 1.0)(random_);
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
  {
    // With the reconnect policy this is final: a pending reconnect and the timers do nothing.
    std::lock_guard lock(mutex_);
    stopped_ = true;
    ++generation_;
    live_ = nullptr;
  }
  if (eventSource) {
    for (const auto& name : eventSource->events()) eventSource->removeEventListener(name);
  }
  listeners_.clear();
  if (eventSource) eventSource->disconnect();
}

}  // namespace velora
