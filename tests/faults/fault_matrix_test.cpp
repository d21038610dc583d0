// The fault matrix: every REST operation of the registry, in both forms, against the sandbox
// misbehaving in each way a server or network can, and every stream of the facade against the
// stream faults. A cell checks that the answer comes exactly once (callbacks on the main queue),
// within a bound, with the error the pipeline defines for that failure, and that the same request
// afterwards behaves as it did before any fault. The observed matrix is rendered as
// docs/reliability.md and compared with the committed file; VELORA_UPDATE_RELIABILITY=1 rewrites it.

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <condition_variable>
#include <cstdlib>
#include <fstream>
#include <future>
#include <map>
#include <sstream>
#include <thread>

#include <velora/core/OperationRegistry.hpp>
#include <velora/sse/SSEManager.hpp>

#include "OperationRows.hpp"
#include "OverHttp.hpp"

namespace velora {
namespace {

using namespace std::chrono_literals;
using sandbox::FaultAction;
using sandbox::FaultRule;
using sandbox::StreamFaults;
namespace demo = sandbox::demo;
namespace te = transport_error;

/// How long the cells of one phase, all running at once, may take before a silent one is a hang.
constexpr auto kPhaseLimit = 20s;
/// Every path but the identity realm's, so that renewals still reach the token endpoint.
const std::string kPlatformPaths = "(?!/realms/).*";
const std::string kTokenPath = std::string("/realms/") + demo::kRealm + "/protocol/openid-connect/token";
/// A session's access token lives 300 s; this takes the client's clock past its end and leaves the
/// refresh token (1800 s, renewed with each refresh) valid. The sandbox's clock stays, as its
/// bookings depend on it.
constexpr auto kPastAccessToken = 400s;

// ---- one answer -------------------------------------------------------------------------------

enum class Form { callback, awaitable };
constexpr Form kForms[] = {Form::callback, Form::awaitable};

struct Answer {
  int count = 0;
  bool offMainQueue = false;
  bool ok = false;
  /// The ResponseMessage code (callback), or the code of the APIError / PlatformError thrown.
  std::int64_t code = 0;
  /// The awaitable threw something that is neither.
  bool foreign = false;

  bool sameOutcome(const Answer& other) const { return ok == other.ok && (ok || code == other.code); }
  std::string outcome() const {
    if (count == 0) return "hang";
    return ok ? "ok" : foreign ? "foreign exception" : std::to_string(code);
  }
  /// The outcome, and what went wrong besides it.
  std::string text() const {
    std::string t = outcome();
    if (count > 1) t += " ×" + std::to_string(count);
    if (offMainQueue) t += " off-main";
    return t;
  }
};

/// Where one form of one call leaves its answers; shared with the callback or the task.
class Probe {
 public:
  void answer(bool ok, std::int64_t code, bool onMainQueue, bool foreign = false) {
    {
      std::lock_guard lock(mutex_);
      if (answer_.count++ == 0) {
        answer_.ok = ok;
        answer_.code = code;
        answer_.foreign = foreign;
      }
      answer_.offMainQueue |= !onMainQueue;
    }
    changed_.notify_all();
  }
  void waitUntil(std::chrono::steady_clock::time_point deadline) {
    std::unique_lock lock(mutex_);
    changed_.wait_until(lock, deadline, [this] { return answer_.count > 0; });
  }
  Answer get() const {
    std::lock_guard lock(mutex_);
    return answer_;
  }

 private:
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  Answer answer_;
};

Task<void> awaitOperation(const OperationEntry* entry, std::shared_ptr<Orvane> facade, AnyCodable arguments,
                          std::shared_ptr<Probe> probe) {
  bool ok = false, foreign = false;
  std::int64_t code = 0;
  try {
    auto call = entry->call(*facade, arguments);
    (void)co_await std::move(call);
    ok = true;
    code = 200;
  } catch (const APIError& e) {
    code = e.responseMessage.code;
  } catch (const PlatformError& e) {
    code = e.code;
  } catch (...) {
    foreign = true;
  }
  probe->answer(ok, code, true, foreign);
}

/// An operation with the arguments of its first row that stays below the endpoint.
struct Subject {
  const OperationEntry* entry;
  AnyCodable arguments;
};

std::shared_ptr<Probe> start(Form form, const Subject& subject, const std::shared_ptr<Orvane>& facade,
                             const std::shared_ptr<MainQueue>& queue) {
  auto probe = std::make_shared<Probe>();
  if (form == Form::callback) {
    subject.entry->callWithCallback(*facade, subject.arguments, [probe, queue](const ResponseMessage& m) {
      probe->answer(m.code == 200, m.code, queue->isCurrent());
    });
  } else {
    detachTask(awaitOperation(subject.entry, facade, subject.arguments, probe));
  }
  return probe;
}

/// Waits for every probe (one deadline for all), then lets the main queue run what was posted
/// before, so that a second answer already on its way is counted too.
void settle(const std::vector<std::shared_ptr<Probe>>& probes, MainQueue& queue) {
  const auto deadline = std::chrono::steady_clock::now() + kPhaseLimit;
  for (const auto& probe : probes) probe->waitUntil(deadline);
  std::promise<void> drained;
  queue.post([&drained] { drained.set_value(); });
  EXPECT_EQ(drained.get_future().wait_for(kPhaseLimit), std::future_status::ready) << "the main queue is stuck";
}

// ---- the columns --------------------------------------------------------------------------------

enum class Fault {
  refused,
  resetMidBody,
  status500Message,
  status500Bare,
  status503Message,
  status503Bare,
  malformedJson,
  truncatedBody,
  wrongShape,
  unauthorizedOnce,
  unauthorizedAlways,
  tokenEndpointDown,
  slowHeaders,
  redirectLoop,
};

struct Column {
  Fault fault;
  const char* title;
  const char* meaning;
};

const Column kColumns[] = {
    {Fault::refused, "refused", "the endpoint's port is closed; afterwards the sandbox listens on it"},
    {Fault::resetMidBody, "reset mid-body", "`closeMidBody`: the answer's head, half of its body, then the connection closes"},
    {Fault::status500Message, "500 + message", "500 with the body `{\"code\":5500,\"message\":\"engine down\"}`"},
    {Fault::status500Bare, "500 bare", "500 with an empty body"},
    {Fault::status503Message, "503 + message", "503 with the body `{\"code\":5503,\"message\":\"maintenance\"}`"},
    {Fault::status503Bare, "503 bare", "503 with an empty body"},
    {Fault::malformedJson, "malformed JSON", "`malformedBody`: the route's status with a JSON text cut off inside a string"},
    {Fault::truncatedBody, "truncated", "`truncatedBody`: `Content-Length` of the whole body, half of it sent"},
    {Fault::wrongShape, "wrong shape", "200 with valid JSON of the other shape: an object where the reply is a list, a list otherwise"},
    {Fault::unauthorizedOnce, "401 once",
     "the client's clock has moved past the access token's lifetime: the pipeline renews once at the token "
     "endpoint before sending, and the request behaves as the baseline (`downloadSdkImage` never renews: its "
     "request goes out on the session as it is, which the sandbox, its clock unmoved, still accepts)"},
    {Fault::unauthorizedAlways, "401 always",
     "as `401 once`, and every platform path answers the platform's 401: after its one renewal the request's 401 "
     "is reported, not renewed again"},
    {Fault::tokenEndpointDown, "token endpoint down",
     "the access token has expired and the token endpoint answers 503 with the OAuth error "
     "`temporarily_unavailable`: the renewal fails with -23005, which the callback form reports as -28001 and the "
     "awaitable form as -27003; the session is kept, so the request afterwards renews and behaves as the baseline"},
    {Fault::slowHeaders, "slow headers",
     "every platform request is held without an answer; the environment's time-out is 1 s. `downloadSdkImage` "
     "sends with the platform's default time-out (60 s) instead, so its request is held 1.5 s only and must then "
     "answer as the baseline"},
    {Fault::redirectLoop, "redirect loop", "`redirectLoop`: 302 back to the same path and query, for ever"},
};

bool renews(Fault fault) {
  return fault == Fault::unauthorizedOnce || fault == Fault::unauthorizedAlways || fault == Fault::tokenEndpointDown;
}

std::vector<FaultRule> rulesFor(Fault fault, const std::string& replyType) {
  const auto every = [](FaultRule rule) {
    rule.path = kPlatformPaths;
    return std::vector{rule};
  };
  const auto status = [&](int code, std::optional<std::string> body) {
    return every({.action = FaultAction::status, .status = code, .body = std::move(body)});
  };
  switch (fault) {
    case Fault::resetMidBody: return every({.action = FaultAction::closeMidBody});
    case Fault::status500Message: return status(500, R"({"code":5500,"message":"engine down"})");
    case Fault::status500Bare: return status(500, "");
    case Fault::status503Message: return status(503, R"({"code":5503,"message":"maintenance"})");
    case Fault::status503Bare: return status(503, "");
    case Fault::malformedJson: return every({.action = FaultAction::malformedBody});
    case Fault::truncatedBody: return every({.action = FaultAction::truncatedBody});
    case Fault::wrongShape:
      return status(200, replyType.starts_with("[") ? R"({"code":200,"message":"an object"})" : R"([{"code":200}])");
    case Fault::unauthorizedAlways: {
      FaultRule rule = FaultRule::unauthorizedOnce(kPlatformPaths);
      rule.remaining = -1;
      return {rule};
    }
    case Fault::tokenEndpointDown:
      return {{.path = kTokenPath,
               .action = FaultAction::status,
               .status = 503,
               .body = R"({"error":"temporarily_unavailable","error_description":"The token endpoint is down"})"}};
    // Held until the sandbox stops, so that no route runs behind the cells that follow.
    case Fault::slowHeaders: return every({.action = FaultAction::delay, .delayMs = 1500});
    case Fault::redirectLoop: return every({.action = FaultAction::redirectLoop});
    case Fault::refused:
    case Fault::unauthorizedOnce: break;
  }
  return {};
}

// ---- what each cell must answer -------------------------------------------------------------------

/// Reply types delivered as the bytes received, whatever they hold.
bool rawReply(const OperationEntry& entry) { return entry.replyType == "Data"; }
/// downloadSdkImage takes any bytes that are an image, whatever the status, and reports -27000 for
/// bytes that are not one.
bool imageReply(const OperationEntry& entry) { return entry.replyType == "SdkImage"; }
/// downloadSdkImage sends on the session as it is, without the pipeline's token decision.
bool renewsBeforeSending(const OperationEntry& entry) { return !imageReply(entry); }

struct Expected {
  bool ok;
  std::int64_t code = 0;
};

/// The answer the pipeline defines for `fault`, given what the request answers without it.
Expected expectedAnswer(Fault fault, Form form, const OperationEntry& entry, const Answer& baseline) {
  const bool callback = form == Form::callback;
  // A transfer that fails: its code in the callback form, -27003 when awaited.
  const auto transport = [&](std::int64_t code) { return Expected{false, callback ? code : -27003}; };
  // A complete answer the reply rules turn into an error: its status, or the code of its body.
  const auto refusal = [&](std::int64_t code) { return Expected{false, imageReply(entry) ? -27000 : code}; };
  // A 200 whose body is not the reply record.
  const auto undecodable = [&] {
    if (rawReply(entry)) return Expected{true};
    if (imageReply(entry)) return Expected{false, -27000};
    return Expected{false, callback ? -27004 : -27003};
  };
  switch (fault) {
    case Fault::refused: return transport(te::kCannotConnectToHost);
    case Fault::resetMidBody: return transport(te::kNetworkConnectionLost);
    case Fault::truncatedBody: return transport(te::kNetworkConnectionLost);
    case Fault::status500Message: return refusal(5500);
    case Fault::status500Bare: return refusal(500);
    case Fault::status503Message: return refusal(5503);
    case Fault::status503Bare: return refusal(503);
    case Fault::malformedJson: return baseline.ok ? undecodable() : refusal(baseline.code);
    case Fault::wrongShape: return undecodable();
    case Fault::unauthorizedOnce: return Expected{baseline.ok, baseline.code};
    case Fault::unauthorizedAlways: return refusal(401);
    case Fault::tokenEndpointDown:
      if (!renewsBeforeSending(entry)) return Expected{baseline.ok, baseline.code};
      return Expected{false, callback ? -28001 : -27003};
    case Fault::slowHeaders:
      if (imageReply(entry)) return Expected{baseline.ok, baseline.code};
      return transport(te::kTimedOut);
    case Fault::redirectLoop: return transport(te::kHTTPTooManyRedirects);
  }
  return Expected{false};
}

// ---- facades ------------------------------------------------------------------------------------

/// A facade with a session the test holds the token of (no identity flow).
struct Client {
  std::shared_ptr<Orvane> facade;
  std::shared_ptr<testing::FakeRenewer> renewer;

  void useToken(std::string token) {
    renewer->token = std::move(token);
    facade->setupSession();
  }
};

Client makeClient(const Platform& platform, const std::string& endpoint, std::int64_t timeout, std::string token) {
  Orvane::setupSDK(EnvironmentModel(endpoint, timeout), platform);
  Client client{Orvane::make(platform), std::make_shared<testing::FakeRenewer>()};
  client.renewer->state = {true, true, true};
  client.renewer->token = std::move(token);
  client.facade->setSessionRenewer(client.renewer);
  client.facade->setupSession();
  return client;
}

/// A port nothing listens on (bound once by the kernel's choice, then released).
int closedPort() {
  const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  if (fd < 0 || ::bind(fd, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
      ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    throw std::runtime_error("no free port");
  }
  ::close(fd);
  return ntohs(address.sin_port);
}

std::string endpointOf(int port) { return "http://127.0.0.1:" + std::to_string(port) + "/"; }

// ---- the operation matrix ----------------------------------------------------------------------

struct Cell {
  std::shared_ptr<Probe> during[2], after[2];
  /// Requests the token endpoint got during the faulted call, for the columns that renew.
  std::size_t renewals[2] = {0, 0};
};

class OperationMatrix {
 public:
  OperationMatrix() {
    for (const auto& entry : operationRegistry()) {
      const auto rows = testing::operationRows();
      const auto row = std::find_if(rows.begin(), rows.end(), [&](const auto& r) {
        return r.name == entry.name && std::string_view(r.target).find("://") == std::string_view::npos;
      });
      if (row == rows.end()) {
        ADD_FAILURE() << entry.name << " has no row below the endpoint";
        continue;
      }
      subjects_.push_back({&entry, AnyCodable::parse(row->arguments)});
    }
  }

  void run() {
    // Refused first: the sandbox comes up afterwards on the port that was closed.
    const int port = closedPort();
    for (std::size_t i = 0; i < subjects_.size(); ++i) {
      clients_.push_back(makeClient(http_.platform("faults.it"), endpointOf(port), 10, "no-server-yet"));
    }
    auto& refused = cells_[Fault::refused];
    refused.resize(subjects_.size());
    runPhase([&](std::size_t i, Form f) -> auto& { return refused[i].during[int(f)]; });

    sandbox::SandboxOptions options;
    options.port = port;
    sandbox_.emplace(options);
    for (auto& client : clients_) client.useToken(sandbox_->issueAccessToken(demo::kUser));
    // Twice: the first run may change what the second answers (a ticket deleted, a locker
    // booked); the second shows the steady state every later run must match.
    baseline_.resize(subjects_.size());
    runPhase([&](std::size_t i, Form f) -> auto& { return baseline_[i].during[int(f)]; });
    runPhase([&](std::size_t i, Form f) -> auto& { return baseline_[i].after[int(f)]; });
    runPhase([&](std::size_t i, Form f) -> auto& { return refused[i].after[int(f)]; });

    for (const Column& column : kColumns) {
      if (column.fault == Fault::refused || renews(column.fault)) continue;
      runConcurrentColumn(column.fault);
    }
    runRenewalColumns();
  }

  /// Checks every cell and renders the table.
  std::string report() const;
  /// Whether a call never answered: its transfer may still hold the facade and the sandbox.
  bool anyUnanswered() const {
    const auto silent = [](const std::shared_ptr<Probe>& p) { return p && p->get().count == 0; };
    for (const auto& [fault, cells] : cells_) {
      for (const Cell& cell : cells) {
        for (int f : {0, 1}) {
          if (silent(cell.during[f]) || silent(cell.after[f])) return true;
        }
      }
    }
    return false;
  }
  std::size_t cellCount() const { return subjects_.size() * std::size(kColumns) * std::size(kForms); }

 private:
  using Slot = std::function<std::shared_ptr<Probe>&(std::size_t, Form)>;

  /// Every operation in both forms at once on the clients, into `slot`.
  void runPhase(const Slot& slot) {
    std::vector<std::shared_ptr<Probe>> probes;
    for (std::size_t i = 0; i < subjects_.size(); ++i) {
      for (Form form : kForms) probes.push_back(slot(i, form) = start(form, subjects_[i], clients_[i].facade, http_.queue));
    }
    settle(probes, *http_.queue);
  }

  /// A column whose cells are independent: the fault on every platform path, all cells at once,
  /// then the fault cleared and all again.
  void runConcurrentColumn(Fault fault) {
    // Slow headers need a facade per operation with a short time-out: awaited requests of one
    // facade run one at a time, so a shared one would spend a whole time-out per operation.
    const bool ownClients = fault == Fault::slowHeaders;
    std::vector<Client> clients;
    if (ownClients) {
      for (std::size_t i = 0; i < subjects_.size(); ++i) {
        clients.push_back(makeClient(http_.platform("faults.it"), endpointOf(sandbox_->port()), 1,
                                     sandbox_->issueAccessToken(demo::kUser)));
      }
      std::swap(clients, clients_);
    }
    auto& cells = cells_[fault];
    cells.resize(subjects_.size());
    for (std::size_t i = 0; i < subjects_.size(); ++i) {
      // The wrong shape depends on the reply, so each operation gets a rule for its own path.
      if (fault == Fault::wrongShape) {
        auto rule = rulesFor(fault, subjects_[i].entry->replyType).front();
        rule.path = requestPath(i);
        rule.method = subjects_[i].entry->method;
        sandbox_->addFault(rule);
      }
      if (fault == Fault::slowHeaders && imageReply(*subjects_[i].entry)) {
        sandbox_->addFault({.path = requestPath(i), .action = FaultAction::delay, .delayMs = 1500});
      }
    }
    if (fault != Fault::wrongShape) {
      for (auto& rule : rulesFor(fault, "")) sandbox_->addFault(rule);
    }
    runPhase([&](std::size_t i, Form f) -> auto& { return cells[i].during[int(f)]; });
    sandbox_->clearFaults();
    runPhase([&](std::size_t i, Form f) -> auto& { return cells[i].after[int(f)]; });
    if (ownClients) {
      std::swap(clients, clients_);
      retired_.insert(retired_.end(), clients.begin(), clients.end());
    }
  }

  /// The columns that renew count the token endpoint's requests per cell, so their cells run one
  /// after another on a facade logged in through the realm.
  void runRenewalColumns() {
    auto clock = std::make_shared<testing::ManualClock>();
    clock->now_ = std::chrono::system_clock::now();
    testing::HttpPlatform http = http_;
    http.clock = clock;
    http.secureStore = std::make_shared<testing::MemorySecureStore>();
    auto facade = testing::sandboxFacade(*sandbox_, http.platform("faults.it"), false, testing::passwordLoginIdentity(*sandbox_),
                                         10, endpointOf(sandbox_->port()));
    facade->backgroundLogin(demo::kUser, demo::kPassword, -1).get();
    retired_.push_back({facade, nullptr});
    for (const Column& column : kColumns) {
      if (!renews(column.fault)) continue;
      auto& cells = cells_[column.fault];
      cells.resize(subjects_.size());
      for (std::size_t i = 0; i < subjects_.size(); ++i) {
        for (Form form : kForms) {
          clock->now_ += kPastAccessToken;
          for (auto& rule : rulesFor(column.fault, "")) sandbox_->addFault(rule);
          const std::size_t before = sandbox_->requestCount(kTokenPath);
          auto& during = cells[i].during[int(form)] = start(form, subjects_[i], facade, http_.queue);
          settle({during}, *http_.queue);
          cells[i].renewals[int(form)] = sandbox_->requestCount(kTokenPath) - before;
          sandbox_->clearFaults();
          auto& after = cells[i].after[int(form)] = start(form, subjects_[i], facade, http_.queue);
          settle({after}, *http_.queue);
        }
      }
    }
  }

  /// The path (no query) the operation's request goes to, as a rule's pattern.
  std::string requestPath(std::size_t i) const {
    const HttpRequest request = subjects_[i].entry->request(*clients_[i].facade, subjects_[i].arguments);
    std::string path = request.url.substr(request.url.find('/', request.url.find("://") + 3));
    path = path.substr(0, path.find('?'));
    std::string pattern;
    for (char c : path) {
      if (std::string_view(".[]{}()*+?^$|\\").find(c) != std::string_view::npos) pattern += '\\';
      pattern += c;
    }
    return pattern;
  }

  testing::HttpPlatform http_;
  std::optional<sandbox::Sandbox> sandbox_;
  std::vector<Subject> subjects_;
  std::vector<Client> clients_;
  /// Facades kept to the end: a cell that hangs may still use its own.
  std::vector<Client> retired_;
  std::vector<Cell> baseline_;
  std::map<Fault, std::vector<Cell>> cells_;
};

std::string OperationMatrix::report() const {
  std::ostringstream out;
  out << "| Operation | baseline |";
  for (const Column& c : kColumns) out << ' ' << c.title << " |";
  out << "\n|---|---|";
  for (std::size_t i = 0; i < std::size(kColumns); ++i) out << "---|";
  out << '\n';
  for (std::size_t i = 0; i < subjects_.size(); ++i) {
    const OperationEntry& entry = *subjects_[i].entry;
    SCOPED_TRACE(entry.name);
    Answer base[2];
    for (Form form : kForms) {
      base[int(form)] = baseline_[i].after[int(form)]->get();
      EXPECT_EQ(base[int(form)].count, 1) << "baseline";
    }
    out << "| `" << entry.name << "` | " << base[0].text() << " / " << base[1].text() << " |";
    for (const Column& column : kColumns) {
      SCOPED_TRACE(column.title);
      const Cell& cell = cells_.at(column.fault)[i];
      std::string text[2];
      for (Form form : kForms) {
        const int f = int(form);
        SCOPED_TRACE(form == Form::callback ? "callback" : "awaitable");
        const Answer during = cell.during[f]->get();
        const Answer after = cell.after[f]->get();
        const Expected expected = expectedAnswer(column.fault, form, entry, base[f]);
        text[f] = during.text();
        EXPECT_EQ(during.count, 1) << "answers under the fault";
        EXPECT_FALSE(during.offMainQueue);
        EXPECT_FALSE(during.foreign);
        EXPECT_EQ(during.ok, expected.ok) << during.outcome();
        if (!expected.ok) {
          EXPECT_EQ(during.code, expected.code) << during.outcome();
        }
        EXPECT_EQ(after.count, 1) << "answers afterwards";
        EXPECT_FALSE(after.offMainQueue);
        EXPECT_TRUE(after.sameOutcome(base[f])) << "afterwards " << after.outcome() << ", baseline " << base[f].outcome();
        if (!after.sameOutcome(base[f]) || after.count != 1) text[f] += ", after: " + after.text();
        if (renews(column.fault)) {
          const std::size_t renewals = renewsBeforeSending(entry) ? 1 : 0;
          EXPECT_EQ(cell.renewals[f], renewals) << "requests to the token endpoint";
          if (cell.renewals[f] != renewals) text[f] += ", renewed " + std::to_string(cell.renewals[f]) + "×";
        }
      }
      out << ' ' << text[0] << " / " << text[1] << " |";
    }
    out << '\n';
  }
  return out.str();
}

// ---- the stream matrix -------------------------------------------------------------------------

enum class StreamFault { refused, unauthorized, cutMidEvent, closedAfterEvents, silent };

struct StreamColumn {
  StreamFault fault;
  const char* title;
  const char* meaning;
  StreamFaults switches;
  /// Completions ("SSEManager - DISCONNECTED") the manager reports within the retry time and a
  /// margin: only a stream that never got a response is opened again after the retry time.
  int completions;
};

const StreamColumn kStreamColumns[] = {
    {StreamFault::refused, "refused", "the endpoint's port is closed: no response, so the manager retries after the retry time",
     {}, 2},
    {StreamFault::unauthorized, "401",
     "every stream is answered 401: the manager schedules a reconnect, which finds the source open (a response "
     "came) and does nothing",
     {.refuseUnauthorized = true}, 1},
    {StreamFault::cutMidEvent, "cut mid-event",
     "the first event and half of the second, then the connection aborts: a transfer error, not retried",
     {.cutMidEvent = true}, 1},
    {StreamFault::closedAfterEvents, "closed after 2 events", "the server ends the stream cleanly (200) after two events: not retried",
     {.closeAfterEvents = 2}, 1},
    {StreamFault::silent, "silent server", "the server accepts the connection and sends nothing: the stream stays open",
     {.headerDelayMs = 60000}, 0},
};

struct StreamKind {
  const char* name;
  std::function<std::shared_ptr<SSEManager>(Orvane&)> start;
};

// Check intervals of 100 ms make every stream send its second event at once.
const StreamKind kStreams[] = {
    {"startNotifyEventChanges",
     [](Orvane& o) { return o.startNotifyEventChanges(SSEStreamTypeEvent::generic, {"ITEM_VALUE_CHANGED"}, 100); }},
    {"startNotifyRegionChanges", [](Orvane& o) { return o.startNotifyRegionChanges({"tag-a"}, {}, 100); }},
    {"startControllableItems", [](Orvane& o) { return o.startControllableItems(std::nullopt, std::nullopt, 100); }},
    {"startDiagnostic", [](Orvane& o) { return o.startDiagnostic({"tag-a"}, 60000); }},
    {"startNotifyGroupEvents", [](Orvane& o) { return o.startNotifyGroupEvents("12", 100); }},
    {"startNotifyHomeEvents", [](Orvane& o) { return o.startNotifyHomeEvents(demo::kDemoTagId, std::nullopt, 100); }},
    {"startNotifyWidgetEvents", [](Orvane& o) { return o.startNotifyWidgetEvents("w-temp-1", 100); }},
};

/// What the manager of one stream reported on its platform's console.
struct StreamLog {
  std::mutex mutex;
  int disconnected = 0;
  int disconnectedAtStop = -1;
};

/// Runs `work` on the main queue and waits for it.
bool onMainQueue(MainQueue& queue, const std::function<void()>& work) {
  std::promise<void> done;
  queue.post([&] {
    work();
    done.set_value();
  });
  return done.get_future().wait_for(kPhaseLimit) == std::future_status::ready;
}

/// A stream is retried after this long (no "retry" field from the sandbox); observations wait it
/// out with a margin.
constexpr auto kRetryWindow = std::chrono::milliseconds(EventSource::DefaultRetryTime) + 1s;

/// Every stream under every stream fault at once: a sandbox of its own per fault, since the
/// switches apply to all of a sandbox's streams.
class StreamMatrix {
 public:
  void run() {
    const int closed = closedPort();
    std::map<StreamFault, std::unique_ptr<sandbox::Sandbox>> sandboxes;
    for (const StreamColumn& column : kStreamColumns) {
      if (column.fault == StreamFault::refused) continue;
      sandbox::SandboxOptions options;
      options.threads = 32;
      options.positionIntervalMs = 50;
      options.widgetIntervalMs = 50;
      auto& sandbox = sandboxes[column.fault] = std::make_unique<sandbox::Sandbox>(options);
      sandbox->setStreamFaults(column.switches);
    }
    std::vector<std::shared_ptr<SSEManager>> managers;
    for (const StreamColumn& column : kStreamColumns) {
      sandbox::Sandbox* sandbox = column.fault == StreamFault::refused ? nullptr : sandboxes.at(column.fault).get();
      for (const StreamKind& stream : kStreams) {
        auto log = logs_[{column.fault, stream.name}] = std::make_shared<StreamLog>();
        testing::HttpPlatform http = http_;
        http.console = [log](std::string_view line) {
          std::lock_guard lock(log->mutex);
          if (line == "SSEManager - DISCONNECTED") ++log->disconnected;
        };
        auto client = makeClient(http.platform("faults.it"), endpointOf(sandbox ? sandbox->port() : closed), 10,
                                 sandbox ? sandbox->issueAccessToken(demo::kUser) : "no-server");
        clients_.push_back(client);
        std::shared_ptr<SSEManager> manager;
        EXPECT_TRUE(onMainQueue(*http_.queue, [&] { manager = stream.start(*client.facade); }));
        EXPECT_TRUE(manager) << stream.name;
        managers.push_back(manager);
      }
    }
    std::this_thread::sleep_for(kRetryWindow);
    // Stop every manager and let it go, as an owner does.
    EXPECT_TRUE(onMainQueue(*http_.queue, [&] {
      for (auto& [key, log] : logs_) {
        std::lock_guard lock(log->mutex);
        log->disconnectedAtStop = log->disconnected;
      }
      for (auto& manager : managers) {
        if (manager) manager->removeAllListenersAndDisconnect();
      }
      managers.clear();
    }));
    // A reconnect scheduled before the stop would come within the retry time; with the manager
    // released nothing may come of it.
    std::map<StreamFault, std::size_t> opened;
    for (auto& [fault, sandbox] : sandboxes) opened[fault] = sandbox->streamsOpened();
    std::this_thread::sleep_for(kRetryWindow);
    for (auto& [fault, sandbox] : sandboxes) {
      EXPECT_EQ(sandbox->streamsOpened(), opened[fault]) << "a stopped stream was opened again";
      EXPECT_TRUE(testing::eventually([&] { return sandbox->openStreamCount() == 0; })) << "a stopped stream is still served";
    }
  }

  std::size_t cellCount() const { return std::size(kStreams) * std::size(kStreamColumns); }

  std::string report() {
    std::ostringstream out;
    out << "| Stream |";
    for (const StreamColumn& c : kStreamColumns) out << ' ' << c.title << " |";
    out << "\n|---|";
    for (std::size_t i = 0; i < std::size(kStreamColumns); ++i) out << "---|";
    out << '\n';
    for (const StreamKind& stream : kStreams) {
      out << "| `" << stream.name << "` |";
      for (const StreamColumn& column : kStreamColumns) {
        SCOPED_TRACE(std::string(stream.name) + ": " + column.title);
        auto& log = *logs_.at({column.fault, stream.name});
        std::lock_guard lock(log.mutex);
        EXPECT_EQ(log.disconnectedAtStop, column.completions) << "completions before the stop";
        EXPECT_EQ(log.disconnected, log.disconnectedAtStop) << "completions after the stop";
        out << " ended ×" << log.disconnectedAtStop;
        if (log.disconnected != log.disconnectedAtStop) out << ", " << log.disconnected - log.disconnectedAtStop << "× after the stop";
        out << " |";
      }
      out << '\n';
    }
    return out.str();
  }

 private:
  testing::HttpPlatform http_;
  std::vector<Client> clients_;
  std::map<std::pair<StreamFault, std::string>, std::shared_ptr<StreamLog>> logs_;
};

// ---- the document ------------------------------------------------------------------------------

std::string document(const std::string& operations, const std::string& streams, std::size_t cells) {
  std::ostringstream out;
  out << "# Reliability matrix\n\n"
         "Generated by `tests/faults/fault_matrix_test.cpp` (CTest label `faults`); do not edit by hand. Run\n"
         "`VELORA_UPDATE_RELIABILITY=1 build/bin/velora_fault_tests` to write it again after a change of\n"
         "behaviour. The test fails when what it observes differs from this file.\n\n"
         "## Operations\n\n"
         "Every operation of the registry runs against the in-process sandbox over the curl transport, in\n"
         "its callback form and its awaitable form, once under each fault and once more after the fault\n"
         "is cleared. A cell reads `callback / awaitable`: `ok`, or the code delivered (the callback's\n"
         "`ResponseMessage.code`, the code of the `APIError` or `PlatformError` thrown). Anything else is\n"
         "added to the cell and fails the test: `hang` (no answer within "
      << std::chrono::duration_cast<std::chrono::seconds>(kPhaseLimit).count()
      << " s), `×N` (N answers),\n"
         "`off-main` (a callback on another thread), `after: ...` (the request after the fault did not\n"
         "behave as the baseline), `renewed N×` (N requests to the token endpoint where the column\n"
         "expects one, or none for `downloadSdkImage`).\n\n"
         "The cells of a column run at once, each operation on a facade of its own with a session the test\n"
         "holds the token of; the three renewal columns run one cell at a time on one facade logged in\n"
         "through the sandbox's realm, so that the token endpoint's requests can be counted per cell.\n\n"
         "The **baseline** is the operation without any fault: many answer 404 or 400 for the sample\n"
         "arguments, and that is what they must answer again once a fault is gone (\"behaves as without the\n"
         "fault\", not \"succeeds\"). It is taken from a second fault-free run, since a first run may change\n"
         "what later ones answer. Arguments are each operation's first row in\n"
         "`tests/support/OperationRows.cpp` whose path lies below the endpoint: `downloadSdkImage` and\n"
         "`fetchResource` also take whole URLs of other hosts, which no sandbox fault can reach; that form\n"
         "sends through the same transport and reply rules and is not in the matrix. No operation of the\n"
         "registry is local-only: each sends its request to the endpoint. `downloadSdkImage` takes any\n"
         "bytes that are an image whatever the status (-27000 otherwise), never renews, and sends with the\n"
         "platform's default time-out; its awaitable form follows the awaitable rules (-27003 for a failed\n"
         "transfer) like every other operation.\n\n"
         "A renewal happens before sending, when the access token is no longer valid, never in answer to\n"
         "a 401 reply: so `401 once` lets the token expire, and the 401 of `401 always` is reported as it\n"
         "is. A token endpoint's reply counts as a token unless its body names an OAuth `error`, whatever\n"
         "its status; a token endpoint that is down is therefore modelled by a 503 with such a body. The\n"
         "columns:\n\n";
  for (const Column& c : kColumns) out << "- **" << c.title << "**: " << c.meaning << ".\n";
  out << "\n" << operations << "\n## Streams\n\n"
         "Each stream the facade offers, opened under the stream fault switches of a sandbox of its own\n"
         "per fault (or against a closed port), all at once. A cell counts the completions its manager\n"
         "reported (`SSEManager - DISCONNECTED`) within the retry time (3 s) and a second; then the\n"
         "manager is stopped with `removeAllListenersAndDisconnect()` and released, after which no\n"
         "completion may follow and no stream may be opened again within the same time.\n\n";
  for (const StreamColumn& c : kStreamColumns) out << "- **" << c.title << "**: " << c.meaning << ".\n";
  out << "\n" << streams << "\n" << cells << " cells.\n";
  return out.str();
}

/// The first line where two texts differ, for the failure message.
std::string firstDifference(const std::string& a, const std::string& b) {
  std::istringstream x(a), y(b);
  std::string l, r;
  for (int line = 1;; ++line) {
    const bool more = static_cast<bool>(std::getline(x, l)), moreToo = static_cast<bool>(std::getline(y, r));
    if (!more && !moreToo) return "none";
    if (l != r || more != moreToo) return "line " + std::to_string(line) + ":\n  committed: " + r + "\n  observed:  " + l;
  }
}

TEST(FaultMatrix, EveryOperationAndStreamUnderEveryFault) {
  const auto started = std::chrono::steady_clock::now();
  auto operations = std::make_unique<OperationMatrix>();
  operations->run();
  StreamMatrix streams;
  streams.run();
  const std::size_t cells = operations->cellCount() + streams.cellCount();
  const std::string observed = document(operations->report(), streams.report(), cells);
  // A call that never answered has already failed its cell; tearing its facade and sandbox down
  // under it could hang the binary instead, so they are left to the process's end.
  if (operations->anyUnanswered()) (void)operations.release();
  const auto seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
  std::printf("fault matrix: %zu cells in %.1f s\n", cells, seconds);

  const char* update = std::getenv("VELORA_UPDATE_RELIABILITY");
  if (update && std::string(update) == "1") {
    std::ofstream(VELORA_RELIABILITY_DOC) << observed;
    return;
  }
  std::ifstream file(VELORA_RELIABILITY_DOC);
  const std::string committed((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  EXPECT_TRUE(observed == committed) << "docs/reliability.md differs from what was observed at "
                                     << firstDifference(observed, committed)
                                     << "\n(VELORA_UPDATE_RELIABILITY=1 writes it again)";
}

}  // namespace
}  // namespace velora
