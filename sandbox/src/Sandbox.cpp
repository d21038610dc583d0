// The server wrapper: binds, serves on a background thread, records requests and stops.
//
// The httplib build this links against comes with defaults meant for a toy server: five
// requests per keep-alive connection, a listen backlog of five and a pool of about eight
// threads, where every idle keep-alive connection holds a thread. The sandbox sizes all of
// these for tests that open many concurrent connections.

#include "velora_sandbox/Sandbox.hpp"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <deque>
#include <mutex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "Booking.hpp"
#include "DemoData.hpp"
#include "Notifications.hpp"
#include "Realm.hpp"
#include "SandboxInternal.hpp"
#include "Tickets.hpp"

namespace velora::sandbox {
namespace {

constexpr int kListenBacklog = 1024;
constexpr auto kStartupTimeout = std::chrono::seconds(5);
// The program may serve a benchmark for hours; older entries go first.
constexpr std::size_t kMaxRecordedRequests = 65536;
// Ticket photos come straight from phone cameras; httplib builds differ in their default cap.
constexpr std::size_t kMaxBodyBytes = std::size_t{256} << 20;
// Marks a multipart/form-data Content-Type that httplib must not see as such (see holdBack).
constexpr std::string_view kHeldBack = "held-back:";

// The methods httplib routes to handlers; it parses a few others (TRACE, CONNECT) but would
// answer those 400 without asking a handler.
bool httplibRoutes(const std::string& method) {
  return method == "GET" || method == "HEAD" || method == "POST" || method == "PUT" ||
         method == "PATCH" || method == "DELETE" || method == "OPTIONS";
}

std::string hostForUrl(const std::string& host) {
  if (host.empty() || host == "0.0.0.0") {
    return "127.0.0.1";
  }
  if (host == "::") {
    return "[::1]";
  }
  return host.find(':') != std::string::npos ? "[" + host + "]" : host;
}

void validate(const SandboxOptions& options) {
  if (options.port < 0 || options.port > 65535) {
    throw std::invalid_argument("velora-sandbox: port must be from 0 to 65535");
  }
  if (options.threads < 1 || options.keepAliveMaxCount < 1 || options.keepAliveTimeoutSeconds < 0) {
    throw std::invalid_argument(
        "velora-sandbox: threads and keepAliveMaxCount must be positive, "
        "keepAliveTimeoutSeconds not negative");
  }
  if (!detail::isValidRealmName(options.realm)) {
    throw std::invalid_argument("velora-sandbox: the realm name must be letters, digits, '.', '_' "
                                "and '-'");
  }
  if (options.accessTokenLifetimeSeconds < 1 || options.refreshTokenLifetimeSeconds < 1) {
    throw std::invalid_argument("velora-sandbox: token lifetimes must be at least one second");
  }
  if (options.positionIntervalMs < 1 || options.widgetIntervalMs < 1) {
    throw std::invalid_argument("velora-sandbox: stream intervals must be at least one millisecond");
  }
  if (options.cutRandomStreamEveryMs < 0) {
    throw std::invalid_argument("velora-sandbox: cutRandomStreamEveryMs must not be negative");
  }
}

// httplib reads a multipart/form-data body into parts of its own instead of the body, with a
// parser that takes neither the app's "Content-Type :" part headers nor the blank line the app
// puts before the closing delimiter. The ticket routes read such bodies themselves, so the type is
// disguised before httplib reads the body and restored before the request is recorded or routed.
// httplib hands its hooks a const reference to a request that is not itself const.
void holdBackMultipart(const httplib::Request& req) {
  if (req.is_multipart_form_data()) {
    auto& headers = const_cast<httplib::Request&>(req).headers;
    headers.find("Content-Type")->second.insert(0, kHeldBack);
  }
}

void restoreMultipart(const httplib::Request& req) {
  auto& headers = const_cast<httplib::Request&>(req).headers;
  const auto it = headers.find("Content-Type");
  if (it != headers.end() && it->second.starts_with(kHeldBack)) {
    it->second.erase(0, kHeldBack.size());
  }
}

detail::RealmSettings realmSettings(const SandboxOptions& options) {
  return {options.realm, std::chrono::seconds(options.accessTokenLifetimeSeconds),
          std::chrono::seconds(options.refreshTokenLifetimeSeconds), options.autoLoginUser};
}

}  // namespace

struct Sandbox::Impl {
  SandboxOptions options;
  httplib::Server server;
  std::atomic<bool> stopping{false};
  // Before the router, whose routes work on them.
  const detail::DemoData& data;
  detail::Realm realm;
  detail::Equipment equipment;
  detail::Bookings bookings{data};
  detail::Notifications notifications{data};
  detail::StreamHub hub{stopping};
  detail::FaultSwitches faults{stopping};
  detail::Tickets tickets{data};
  detail::Services services{options, stopping, data, realm, equipment, bookings, notifications, hub, faults, tickets};
  detail::Router router;
  std::atomic<bool> listenerDone{false};
  std::thread listener;
  std::thread streamCutter;  // runs while cutRandomStreamEveryMs is set
  std::mutex stopMutex;
  int port = 0;
  int listenSocket = -1;

  mutable std::mutex recordedMutex;
  std::deque<RecordedRequest> recorded;
  // Requests being handled right now, and the most seen at once since the last clear.
  std::atomic<std::size_t> inFlight{0};
  std::atomic<std::size_t> peakInFlight{0};

  explicit Impl(SandboxOptions opts)
      : options(std::move(opts)), data(detail::demoData()), realm(realmSettings(options)), equipment(data.items) {}

  std::string url() const;
  void configure();
  void bindAndListen();
  void record(const httplib::Request& req);
  void handle(const httplib::Request& req, httplib::Response& res);
  void stop();
};

std::string Sandbox::Impl::url() const {
  return "http://" + hostForUrl(options.host) + ":" + std::to_string(port);
}

void Sandbox::Impl::configure() {
  router.add(detail::realmRoutes(), nullptr, {{"realm", detail::regexEscape(realm.name())}});
  router.add(detail::platformRoutes(), detail::requireLiveToken);
  router.add(detail::bookingRoutes(), detail::requireLiveToken);
  router.add(detail::notificationRoutes(), detail::requireLiveToken);
  router.add(detail::ticketRoutes(), detail::requireLiveToken);
  router.add(detail::languageRoutes());
  router.add(detail::streamRoutes(), detail::requireLiveToken);
  router.add(detail::mapPageRoutes());
  router.add(detail::mapDataRoutes(), detail::requireLiveToken);
  if (options.testRoutes) {
    router.add(detail::testRoutes());
  }

  const auto threads = static_cast<std::size_t>(options.threads);
  server.new_task_queue = [threads] { return new httplib::ThreadPool(threads); };
  server.set_tcp_nodelay(true);
  server.set_keep_alive_max_count(static_cast<std::size_t>(options.keepAliveMaxCount));
  server.set_keep_alive_timeout(options.keepAliveTimeoutSeconds);
  server.set_payload_max_length(kMaxBodyBytes);
  // Replaces httplib's default, which sets SO_REUSEPORT: with it a second sandbox could bind
  // the same fixed port and silently share its connections. Called for every socket httplib
  // tries while binding; the last one is the socket it keeps.
  server.set_socket_options([this](int sock) {
    int yes = 1;
    ::setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    listenSocket = sock;
  });

  // One catch-all per method so that the body has been read before recording, and the
  // sandbox's own router decides what matches.
  const httplib::Server::Handler catchAll = [this](const httplib::Request& req,
                                                   httplib::Response& res) { handle(req, res); };
  server.Get(".*", catchAll);
  server.Post(".*", catchAll);
  server.Put(".*", catchAll);
  server.Patch(".*", catchAll);
  server.Delete(".*", catchAll);
  server.Options(".*", catchAll);
  // Other methods never reach those tables; httplib has not read their body at this point,
  // which is acceptable for methods (TRACE) that do not carry one.
  server.set_pre_routing_handler([this](const httplib::Request& req, httplib::Response& res) {
    if (httplibRoutes(req.method)) {
      holdBackMultipart(req);
      return httplib::Server::HandlerResponse::Unhandled;
    }
    handle(req, res);
    return httplib::Server::HandlerResponse::Handled;
  });
}

void Sandbox::Impl::bindAndListen() {
  const bool bound = options.port == 0 ? (port = server.bind_to_any_port(options.host)) > 0
                                       : server.bind_to_port(options.host, options.port);
  if (!bound || listenSocket < 0) {
    throw std::runtime_error("velora-sandbox: cannot bind " + options.host + ":" +
                             std::to_string(options.port));
  }
  if (options.port != 0) {
    port = options.port;
  }
  // httplib has already listened with its compiled-in backlog; listening again on a listening
  // socket only changes the backlog.
  if (::listen(listenSocket, kListenBacklog) != 0) {
    ::close(listenSocket);
    throw std::runtime_error("velora-sandbox: cannot listen on " + options.host + ":" +
                             std::to_string(port));
  }

  realm.setServerUrl(url());

  listener = std::thread([this] {
    server.listen_after_bind();
    listenerDone = true;
  });
  if (options.cutRandomStreamEveryMs > 0) {
    streamCutter = std::thread([this] {
      while (hub.pause(std::chrono::milliseconds(options.cutRandomStreamEveryMs))) {
        hub.cutRandomStream();
      }
    });
  }
  const auto deadline = std::chrono::steady_clock::now() + kStartupTimeout;
  while (!server.is_running()) {
    if (listenerDone || std::chrono::steady_clock::now() > deadline) {
      stop();
      throw std::runtime_error("velora-sandbox: server on port " + std::to_string(port) +
                               " did not start");
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

void Sandbox::Impl::record(const httplib::Request& req) {
  RecordedRequest entry{req.method, req.path, detail::rawQuery(req), {}, req.body};
  for (const auto& [name, value] : req.headers) {
    if (!detail::isConnectionPseudoHeader(name)) {
      entry.headers.emplace(detail::lowerCase(name), value);
    }
  }
  const std::lock_guard lock(recordedMutex);
  if (recorded.size() == kMaxRecordedRequests) {
    recorded.pop_front();
  }
  recorded.push_back(std::move(entry));
}

void Sandbox::Impl::handle(const httplib::Request& req, httplib::Response& res) {
  restoreMultipart(req);
  // Recorded before answering, so a test that has its response also sees the request here.
  record(req);
  const std::size_t now = ++inFlight;
  for (std::size_t seen = peakInFlight; now > seen && !peakInFlight.compare_exchange_weak(seen, now);) {
  }
  struct Leave {
    std::atomic<std::size_t>& count;
    ~Leave() { --count; }
  } leave{inFlight};
  // Before routing, so that a rule works for every route and for paths that have none.
  const std::optional<FaultRule> fault = faults.take(req.method, req.path);
  try {
    if (fault && fault->action == FaultAction::delay && !faults.pause(std::chrono::milliseconds(fault->delayMs))) {
      detail::sendMessage(res, 503, "Velora sandbox is stopping");
      return;
    }
    if (!fault || !detail::answerInstead(*fault, req, res)) {
      router.dispatch(req, res, services);
    }
  } catch (const detail::RequestError& e) {
    detail::sendMessage(res, e.status(), e.what());
  } catch (const std::exception& e) {
    detail::sendMessage(res, 500, std::string("Velora sandbox failed: ") + e.what());
  }
  if (fault) {
    detail::reworkAnswer(*fault, res);
  }
}

void Sandbox::Impl::stop() {
  const std::lock_guard lock(stopMutex);
  stopping = true;
  hub.wakeAll();
  faults.wakeAll();
  if (streamCutter.joinable()) {
    streamCutter.join();
  }
  if (!listener.joinable()) {
    return;
  }
  // httplib ignores stop() until its accept loop has started; keep asking until it has ended.
  while (!listenerDone) {
    server.stop();
    if (!listenerDone) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }
  listener.join();
}

Sandbox::Sandbox(SandboxOptions options) {
  validate(options);
  impl_ = std::make_unique<Impl>(std::move(options));
  impl_->configure();
  impl_->bindAndListen();
}

Sandbox::~Sandbox() { stop(); }

int Sandbox::port() const { return impl_->port; }

std::string Sandbox::baseUrl() const { return impl_->url(); }

void Sandbox::stop() {
  if (impl_) {
    impl_->stop();
  }
}

std::vector<RecordedRequest> Sandbox::requests(const std::string& path) const {
  const std::lock_guard lock(impl_->recordedMutex);
  std::vector<RecordedRequest> matching;
  for (const auto& entry : impl_->recorded) {
    if (entry.path == path) {
      matching.push_back(entry);
    }
  }
  return matching;
}

std::size_t Sandbox::requestCount(const std::string& path) const {
  const std::lock_guard lock(impl_->recordedMutex);
  return static_cast<std::size_t>(
      std::count_if(impl_->recorded.begin(), impl_->recorded.end(),
                    [&path](const RecordedRequest& entry) { return entry.path == path; }));
}

void Sandbox::clearRecordedRequests() {
  const std::lock_guard lock(impl_->recordedMutex);
  impl_->recorded.clear();
  impl_->peakInFlight = impl_->inFlight.load();
}

std::size_t Sandbox::peakConcurrency() const { return impl_->peakInFlight; }

std::string Sandbox::realmUrl() const { return impl_->realm.url(); }

void Sandbox::setAutoLogin(std::optional<std::string> username) {
  impl_->realm.setAutoLoginUser(std::move(username));
}

void Sandbox::revokeAllTokens() { impl_->realm.revokeAll(); }

std::size_t Sandbox::liveTokenCount() const { return impl_->realm.liveTokenCount(); }

std::string Sandbox::issueAccessToken(const std::string& username) {
  return impl_->realm.issueAccessToken(username);
}

// One clock for the whole sandbox: tokens expire and "today" moves on together.
void Sandbox::advanceClock(std::chrono::seconds by) {
  impl_->realm.advanceClock(by);
  impl_->bookings.advanceClock(by);
}

std::size_t Sandbox::itemSetCount(int valueId) const { return impl_->equipment.setCount(valueId); }

std::string Sandbox::itemValue(int valueId) const { return impl_->equipment.value(valueId).value_or(""); }

std::size_t Sandbox::openStreamCount() const { return impl_->hub.openStreams(); }

std::size_t Sandbox::streamsOpened() const { return impl_->hub.streamsOpened(); }

void Sandbox::setStreamFaults(StreamFaults faults) { impl_->hub.setFaults(faults); }

int Sandbox::addFault(FaultRule rule) {
  try {
    return impl_->faults.add({std::move(rule)}).front();
  } catch (const std::invalid_argument& e) {
    throw std::invalid_argument(std::string("velora-sandbox: fault rule: ") + e.what());
  }
}

void Sandbox::clearFaults() { impl_->faults.clear(); }

std::size_t Sandbox::faultHits(int id) const { return impl_->faults.hits(id); }

}  // namespace velora::sandbox
