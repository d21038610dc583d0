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
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <regex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "velora_sandbox/Sandbox.hpp"

namespace velora::sandbox::detail {

class Realm;

/// A handler gets the captures of its path pattern; [1] is the first group.
using RouteHandler =
    std::function<void(const httplib::Request&, httplib::Response&, const std::smatch&)>;

/// The sandbox routes every request itself rather than through httplib's per-method tables:
/// that way one route can answer any method and unknown paths get the platform's 404 body.
class Router {
 public:
  /// `method` empty: any method. GET routes also answer HEAD.
  void add(std::string method, const std::string& pathPattern, RouteHandler handler);
  void dispatch(const httplib::Request& req, httplib::Response& res) const;

 private:
  struct Route {
    std::string method;
    std::regex pattern;
    RouteHandler handler;
  };
  std::vector<Route> routes_;
};

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
  Equipment();
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

  void streamStarted();
  void streamEnded();
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
};

/// Adds a platform route: outside /api/v1/public/ it answers 401 unless the request carries a
/// live access token from `realm`.
void addPlatformRoute(Router& router, const Realm& realm, std::string method, const std::string& path,
                      RouteHandler handler);
/// The platform's private routes accept only live access tokens from `realm`.
void addPlatformRoutes(Router& router, const Realm& realm);
/// POST /api/v1/item/list and /api/v1/item/set.
void addEquipmentRoutes(Router& router, const Realm& realm, Equipment& equipment, StreamHub& hub);
/// The platform's event streams.
void addStreamRoutes(Router& router, const Realm& realm, const Equipment& equipment, StreamHub& hub,
                     const SandboxOptions& options);
/// GET /test/stream and POST /test/stream-faults.
void addTestStreamRoutes(Router& router, StreamHub& hub);
/// Discovery, login, token and logout endpoints under /realms/NAME.
void addRealmRoutes(Router& router, Realm& realm);
/// `stopping` lets delayed answers give up early so that stopping the server is not held up.
void addTestRoutes(Router& router, const std::atomic<bool>& stopping);

}  // namespace velora::sandbox::detail
