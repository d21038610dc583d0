#pragma once
// Pieces shared by the sandbox's server wrapper and its route sets. Not installed.

#include <httplib.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <nlohmann/json.hpp>
#include <optional>
#include <regex>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "velora_sandbox/Sandbox.hpp"

namespace velora::sandbox::detail {

class Realm;
class Equipment;
class Bookings;
class Notifications;
class Tickets;
class StreamHub;
class FaultSwitches;
struct DemoData;

/// The sandbox's state that route handlers work on, shared by every request.
struct Services {
  const SandboxOptions& options;
  const std::atomic<bool>& stopping;
  const DemoData& data;
  Realm& realm;
  Equipment& equipment;
  Bookings& bookings;
  Notifications& notifications;
  StreamHub& hub;
  FaultSwitches& faults;
  Tickets& tickets;
};

/// One request as a handler sees it; match[1] is the first group of the route's pattern.
struct Exchange {
  const httplib::Request& req;
  httplib::Response& res;
  const std::smatch& match;
  Services& services;
};

using RouteHandler = void (*)(Exchange&);
/// Runs before every handler of a route set; false when it has answered the request itself.
using RouteGuard = bool (*)(Exchange&);

/// One line of a routing table. `method` empty: any method; GET routes also answer HEAD.
/// `pattern` is a regex that the whole path must match.
struct Route {
  std::string_view method;
  std::string_view pattern;
  RouteHandler handler;
};
using RouteTable = std::span<const Route>;

/// The sandbox routes every request itself rather than through httplib's per-method tables:
/// that way one route can answer any method and unknown paths get the platform's 404 body.
class Router {
 public:
  /// Text put into patterns in place of a "{name}" placeholder, already a regex.
  using Placeholders = std::vector<std::pair<std::string, std::string>>;

  /// Appends a route set; the first route that matches a request answers it.
  void add(RouteTable table, RouteGuard guard = nullptr, const Placeholders& placeholders = {});
  void dispatch(const httplib::Request& req, httplib::Response& res, Services& services) const;

 private:
  struct Entry {
    std::string method;
    std::regex pattern;
    RouteHandler handler;
    RouteGuard guard;
  };
  std::vector<Entry> routes_;
};

/// `text` with every regex metacharacter escaped, for a literal inside a pattern.
std::string regexEscape(std::string_view text);

/// Serialises as UTF-8; bytes that are not valid UTF-8 (an echoed binary body) become U+FFFD
/// instead of throwing from a worker thread.
void sendJson(httplib::Response& res, int status, const nlohmann::json& body);
/// The platform's error and status shape: {"code": status, "message": message}.
void sendMessage(httplib::Response& res, int status, const std::string& message);

/// Thrown by a handler to answer `status` with the platform's message body.
class RequestError : public std::runtime_error {
 public:
  RequestError(int status, const std::string& message) : std::runtime_error(message), status_(status) {}
  int status() const { return status_; }

 private:
  int status_;
};

/// The request body as a JSON object; RequestError 400 for anything else.
nlohmann::json parseObjectBody(const std::string& body);
enum class JsonKind { object, array, string, number, integer, boolean };
/// `object[key]`, or nullptr when it is absent or null. RequestError 400 naming `name` when it
/// holds another kind of value (an integer must fit an int).
const nlohmann::json* optionalMember(const nlohmann::json& object, const std::string& key, JsonKind kind,
                                     const std::string& name);
/// Like optionalMember for an array whose every element must be of `elementKind`.
const nlohmann::json* optionalList(const nlohmann::json& object, const std::string& key, JsonKind elementKind,
                                   const std::string& name);

/// httplib adds the connection's addresses to every request as pseudo-headers
/// (REMOTE_ADDR, ...); the client never sent them.
bool isConnectionPseudoHeader(const std::string& name);
std::string lowerCase(std::string text);
/// The socket `req` arrived on, or -1 when it cannot be found. httplib hands handlers neither
/// the connection nor its socket.
int connectionSocket(const httplib::Request& req);

/// The raw query string (without '?'); httplib keeps only the decoded parameters.
std::string rawQuery(const httplib::Request& req);
/// Parses the whole of `text` as a decimal integer in [min, max].
bool parseInt(std::string_view text, long long min, long long max, long long& out);
std::uint64_t fnv1a64(std::string_view data);

/// Decodes %XX escapes, and '+' as a space when `plusIsSpace`. A '%' that is not followed by
/// two hex digits is kept as it is rather than failing the whole request.
std::string percentDecode(std::string_view text, bool plusIsSpace);
/// Encodes every byte but letters, digits and "-._~", for a query value.
std::string percentEncode(std::string_view text);
using FormFields = std::map<std::string, std::string>;
/// An application/x-www-form-urlencoded body. A name given twice keeps its first value.
FormFields parseForm(std::string_view body);
/// The request's body as a form; empty when the body is declared as anything else.
FormFields formBody(const httplib::Request& req);
std::string htmlEscape(std::string_view text);

struct DemoImage {
  std::string_view name;
  std::string_view contentType;
  std::string_view bytes;
};
/// nullptr when there is no demo image of that name.
const DemoImage* findDemoImage(std::string_view name);

/// One change of a control's value, as the streams report it.
struct ValueChange {
  int itemId = 0;
  int valueId = 0;
  std::optional<std::string> value;
  std::string itemName;
  std::string controlName;
};

/// Which equipment items a list or stream request selects. Empty lists constrain nothing.
struct ItemFilter {
  std::vector<int> itemIds;
  std::optional<std::string> logicName;
  std::optional<int> areaId;
  std::optional<int> roomId;
  std::optional<int> mapId;
  std::vector<std::string> types;
  std::vector<std::string> widgetNames;
  bool hasPosition = false;
  std::optional<std::pair<double, double>> referencePoint;
  double radius = 0;  // with referencePoint: only items at most this far from it, if positive
};
/// Reads the filter object of a request; RequestError 400 naming a key of the wrong kind
/// (`prefix` goes in front of the key's name).
ItemFilter parseItemFilter(const nlohmann::json& filter, const std::string& prefix);

/// The demo building's controllable items and their current values. Every method may be
/// called from any handler thread.
class Equipment {
 public:
  /// `items`: the platform's item objects, checked when the demo data was loaded.
  explicit Equipment(const nlohmann::json& items);
  /// The matching items as the platform's item JSON, in id order.
  nlohmann::json list(const ItemFilter& filter) const;
  /// Validates and stores a control's value, then hands the change to `publish` before another
  /// set can follow, so that streams see changes in the order they were stored. RequestError
  /// 404 for an unknown value id, 400 for a value the control does not take.
  ValueChange set(int valueId, std::optional<std::string> value,
                  const std::function<void(const ValueChange&)>& publish);
  std::size_t setCount(int valueId) const;
  /// std::invalid_argument for an unknown value id.
  std::optional<std::string> value(int valueId) const;

 private:
  struct ControlRef {
    std::size_t item;
    std::size_t control;
  };
  mutable std::mutex mutex_;
  std::vector<nlohmann::json> items_;
  std::map<int, ControlRef> controls_;  // by value id
  std::map<int, std::size_t> setCounts_;
};

/// What the event streams share: the value changes they relay, the fault switches for the next
/// connections and the counts tests read.
class StreamHub {
 public:
  using Clock = std::chrono::steady_clock;

  explicit StreamHub(const std::atomic<bool>& stopping) : stopping_(stopping) {}

  bool stopping() const { return stopping_; }
  /// Wakes every waiting stream, for stopping the server.
  void wakeAll();

  void publish(ValueChange change);
  /// The sequence number of the latest change; a stream starts from it.
  std::uint64_t sequence() const;
  /// The changes after `seen`, which moves to the latest.
  std::vector<ValueChange> changesSince(std::uint64_t& seen) const;
  /// Returns at `until`, on a change after `seen` or when the server stops, and after a short
  /// while in any case so that the caller can look at its connection again.
  void wait(std::uint64_t seen, Clock::time_point until) const;
  /// Waits `delay` unless the server stops first; false when it does.
  bool pause(std::chrono::milliseconds delay) const;

  /// std::invalid_argument for a negative count, a delay above 600000 ms or `remaining` below -1.
  void setFaults(StreamFaults faults);
  /// The faults for one new connection, counting it against `remaining`.
  StreamFaults takeFaults();

  /// Counts an open stream; the returned flag turns true when cutRandomStream picks it.
  std::shared_ptr<std::atomic<bool>> streamStarted();
  void streamEnded(const std::shared_ptr<std::atomic<bool>>& cut);
  /// Marks one open stream, chosen at random, to be cut at its next event.
  void cutRandomStream();
  std::size_t openStreams() const { return open_; }
  std::size_t streamsOpened() const { return opened_; }

 private:
  const std::atomic<bool>& stopping_;
  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  std::deque<ValueChange> recent_;  // the latest changes; recent_.back() has number sequence_
  std::uint64_t sequence_ = 0;
  StreamFaults faults_;
  std::atomic<std::size_t> open_{0};
  std::atomic<std::size_t> opened_{0};
  std::mutex liveMutex_;
  std::vector<std::shared_ptr<std::atomic<bool>>> live_;  // the cut flags of the open streams
  std::minstd_rand pick_{std::random_device{}()};
};

/// The platform's answer to a request without a live access token.
inline constexpr const char* kUnauthorizedMessage = "Unauthorized: a valid bearer token is required";
/// The platform's gateway check: outside /api/v1/public/ a request needs a live access token
/// from the realm, or it gets 401.
bool requireLiveToken(Exchange& x);
/// The token of an "Authorization: Bearer TOKEN" header (the scheme in any case); empty for no
/// header or another scheme.
std::string bearerToken(const httplib::Request& req);
/// The user whose live access token the request carries; for routes behind requireLiveToken.
std::string requestUser(const Exchange& x);

// The route sets, each a table read top to bottom.
/// Discovery, login, token and logout under /realms/{realm}.
RouteTable realmRoutes();
/// The platform's REST routes; installed behind requireLiveToken.
RouteTable platformRoutes();
/// The platform's event streams; installed behind requireLiveToken.
RouteTable streamRoutes();
/// Bookings, lockers, filters and the home screen; installed behind requireLiveToken.
RouteTable bookingRoutes();
/// Device registration, notifications and do-not-disturb; installed behind requireLiveToken.
RouteTable notificationRoutes();
/// Ticket managers, their forms, and the tickets with their files; installed behind
/// requireLiveToken.
RouteTable ticketRoutes();
/// The public languages list and the language change (which checks the token itself).
RouteTable languageRoutes();
/// The map page's files under /map/; public.
RouteTable mapPageRoutes();
/// The building data the map page draws; installed behind requireLiveToken.
RouteTable mapDataRoutes();
/// The /test/... routes.
RouteTable testRoutes();

// Handlers that live beside the state they work on but are listed in the test route table.
void testStream(Exchange& x);
void setStreamFaultsRoute(Exchange& x);
void listFaultsRoute(Exchange& x);
void addFaultsRoute(Exchange& x);
void clearFaultsRoute(Exchange& x);

/// The fault rules and their hit counts. Every method may be called from any handler thread.
class FaultSwitches {
 public:
  /// The route that sets the rules; never faulted, so that a rule matching every path can still
  /// be cleared over HTTP.
  static constexpr std::string_view kControlPath = "/test/faults";

  explicit FaultSwitches(const std::atomic<bool>& stopping) : stopping_(stopping) {}

  /// Checks every rule first and adds all or none; returns their ids. std::invalid_argument
  /// naming what is wrong (with the rule's index when there are several).
  std::vector<int> add(std::vector<FaultRule> rules);
  void clear();
  /// std::invalid_argument for an id no current rule has.
  std::size_t hits(int id) const;
  /// The rules as GET /test/faults lists them.
  nlohmann::json list() const;
  /// The first rule with requests left that matches, counted as applied; nullopt for none.
  std::optional<FaultRule> take(const std::string& method, const std::string& path);
  /// Waits `delay` unless the server stops first; false when it does. Holds no lock meanwhile.
  bool pause(std::chrono::milliseconds delay) const;
  /// Wakes delayed requests, for stopping the server.
  void wakeAll();

 private:
  struct Stored {
    int id;
    FaultRule rule;
    std::regex pattern;
    std::size_t hits = 0;
  };
  const std::atomic<bool>& stopping_;
  mutable std::mutex mutex_;
  std::vector<Stored> rules_;
  // Apart from mutex_, so that delayed requests never hold up the rule checks of others.
  mutable std::mutex waitMutex_;
  mutable std::condition_variable wake_;
  int nextId_ = 1;
};

/// Answers for a rule that replaces the whole exchange (status, dropConnection); false for
/// the others, which let the route answer first.
bool answerInstead(const FaultRule& rule, const httplib::Request& req, httplib::Response& res);
/// Reworks the route's answer for the body actions (malformedBody, truncatedBody, closeMidBody).
void reworkAnswer(const FaultRule& rule, httplib::Response& res);

}  // namespace velora::sandbox::detail
