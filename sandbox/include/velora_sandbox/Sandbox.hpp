#pragma once
// velora-sandbox: a local platform on loopback for the demo and the integration tests.
// Runs in-process (tests construct a Sandbox) or as the `velora-sandbox` program.
//
// Besides the platform it serves an OpenID-Connect identity realm at realmUrl(). The
// platform's private routes accept only access tokens that realm issued and that are still
// live, so a client has to log in the way it would against the real platform.

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace velora::sandbox {

/// The realm's built-in clients, users and QR login codes. Not secret: they exist only here.
/// The QR codes, the demo tag and the light's ids name entries of the demo data files
/// (sandbox/data: login-codes.json, building.json, equipment.json) and must agree with them.
namespace demo {
inline constexpr const char* kRealm = "velora";
/// Public client: authorization code, password and refresh grants. Accepts the redirect URIs
/// http://127.0.0.1:PORT/..., http://localhost:PORT/... and kAppRedirectUri.
inline constexpr const char* kPublicClient = "velora-app";
inline constexpr const char* kAppRedirectUri = "velora://callback";
/// Confidential client for guest sessions: client credentials and refresh grants.
inline constexpr const char* kGuestClient = "velora-guest";
inline constexpr const char* kGuestSecret = "velora-guest-secret";
inline constexpr const char* kUser = "demo";
inline constexpr const char* kPassword = "demo-password";
inline constexpr const char* kAliceUser = "alice";
inline constexpr const char* kAlicePassword = "alice-password";
/// Codes for GET /api/lgnm/v1/scan: the demo user's and alice's background-login
/// credentials, and the demo user's with an expiration already in the past.
inline constexpr const char* kLoginCode = "DEMO-QR-1";
inline constexpr const char* kAliceLoginCode = "DEMO-QR-ALICE";
inline constexpr const char* kExpiredLoginCode = "DEMO-QR-EXPIRED";
/// How long an authorization code can be exchanged after the login that produced it.
inline constexpr int kCodeLifetimeSeconds = 60;
/// Equipment item 1 is the "Meeting room light"; its power toggle starts "off".
inline constexpr int kDemoLightItemId = 1;
inline constexpr int kDemoLightPowerValueId = 101;
/// The tag the position and diagnostic streams follow when the request names none.
inline constexpr const char* kDemoTagId = "velora-demo-tag";
}  // namespace demo

struct SandboxOptions {
  std::string host = "127.0.0.1";
  int port = 0;  // 0 picks a free port
  /// Worker threads: open streams plus concurrent clients.
  int threads = 256;
  /// Keep-alive: requests per connection and idle seconds before the server closes it.
  int keepAliveMaxCount = 100000;
  int keepAliveTimeoutSeconds = 5;
  /// The /test/... routes that answer a chosen status, body and delay.
  bool testRoutes = true;

  /// The identity realm, served under /realms/NAME (letters, digits, '.', '_' and '-').
  std::string realm = demo::kRealm;
  int accessTokenLifetimeSeconds = 300;
  int refreshTokenLifetimeSeconds = 1800;
  /// A demo user whom the login page signs in at once, without showing the form.
  std::optional<std::string> autoLoginUser;

  /// How often the position and diagnostic streams report, and how often the widget streams
  /// take their next scripted step.
  int positionIntervalMs = 1000;
  int widgetIntervalMs = 2000;
  /// Every this many milliseconds one open event stream, chosen at random, is cut at its next
  /// event (half of it written, then the connection dropped); 0: never. For soak tests of
  /// reconnecting clients.
  int cutRandomStreamEveryMs = 0;
};

/// Misbehaviour of the next event streams, so that clients can be tested against it.
struct StreamFaults {
  /// After this many events (the connect event and checks included), end the stream cleanly.
  int closeAfterEvents = 0;
  /// Answer 401 instead of the stream, whatever the token.
  bool refuseUnauthorized = false;
  /// Wait this long before answering.
  int headerDelayMs = 0;
  /// Write the first event and half of the second, then abort the connection.
  bool cutMidEvent = false;
  /// How many stream connections these faults apply to; -1: every one until replaced.
  int remaining = -1;
};

/// What a fault rule does to a request it applies to.
enum class FaultAction {
  /// Answer `status` with `body` and `contentType` instead of the route; without a body, the
  /// platform's {"code": STATUS, "message": ...}.
  status,
  /// Hold the request `delayMs` before the route sees it, then answer normally; 503 if the
  /// sandbox stops meanwhile.
  delay,
  /// The route's status and headers with `body` (default: a cut-off JSON object) in place of
  /// its body; Content-Length matches what is sent.
  malformedBody,
  /// The route's status and headers, Content-Length promising its whole body, then only `bytes`
  /// of the body (default half, at most all but one) and the connection closes.
  truncatedBody,
  /// The route's answer sent chunked: `bytes` of its body (default half, at most all but one),
  /// then the connection closes without the last chunk.
  closeMidBody,
  /// Close the connection without answering at all.
  dropConnection,
  /// Answer 302 with the request's own path and query as Location: a client that follows
  /// redirects goes round until it gives up.
  redirectLoop,
};

/// A switch that makes matching requests misbehave, whatever route (or none) they reach.
struct FaultRule {
  /// An ECMAScript regular expression that the whole request path (no query) must match.
  std::string path;
  /// Only requests with this method; empty: any. A GET rule also applies to HEAD.
  std::string method;
  FaultAction action = FaultAction::status;
  /// How many requests the rule applies to; -1: every matching one until cleared.
  int remaining = -1;
  int status = 500;                                   // status
  std::optional<std::string> body;                    // status, malformedBody
  std::string contentType = "application/json";       // status
  int delayMs = 0;                                    // delay
  std::optional<std::size_t> bytes;                   // truncatedBody, closeMidBody

  /// 401 with the platform's unauthorized body for the next matching request only: a client
  /// renews its session once and then gets normal answers.
  static FaultRule unauthorizedOnce(std::string path, std::string method = {});
};

/// What the sandbox saw of one request (for tests).
struct RecordedRequest {
  std::string method;
  std::string path;  // without the query
  std::string query;
  std::multimap<std::string, std::string> headers;  // names lower-cased
  std::string body;
};

class Sandbox {
 public:
  /// Binds and starts serving; returns once the server accepts requests. Throws
  /// std::runtime_error when it cannot bind.
  explicit Sandbox(SandboxOptions options = {});
  ~Sandbox();
  Sandbox(const Sandbox&) = delete;
  Sandbox& operator=(const Sandbox&) = delete;

  int port() const;
  /// "http://127.0.0.1:PORT"
  std::string baseUrl() const;
  void stop();

  /// Requests received so far whose path equals `path`, oldest first.
  std::vector<RecordedRequest> requests(const std::string& path) const;
  std::size_t requestCount(const std::string& path) const;
  /// Also restarts peakConcurrency.
  void clearRecordedRequests();
  /// The most requests handled at the same time since start or the last clear.
  std::size_t peakConcurrency() const;

  /// "http://127.0.0.1:PORT/realms/NAME": the issuer; discovery is below it.
  std::string realmUrl() const;
  /// Sign `username` in without the login form from now on, or show the form again
  /// (std::nullopt). Throws std::invalid_argument for a user the realm does not know.
  void setAutoLogin(std::optional<std::string> username);
  /// Ends every session: access and refresh tokens and unused authorization codes.
  void revokeAllTokens();
  /// Access and refresh tokens that are neither expired nor revoked.
  std::size_t liveTokenCount() const;
  /// A live access token for a demo user, as if they had used the password grant with the
  /// public client. Throws std::invalid_argument for a user the realm does not know.
  std::string issueAccessToken(const std::string& username);
  /// Moves the realm's clock forward, so that tests see tokens and codes expire without
  /// waiting for them.
  void advanceClock(std::chrono::seconds by);

  /// Successful POST /api/v1/item/set requests for an equipment value id.
  std::size_t itemSetCount(int valueId) const;
  /// The stored value of an equipment value id; empty when it has none. Throws
  /// std::invalid_argument for an id no control has.
  std::string itemValue(int valueId) const;

  /// Event streams being served right now.
  std::size_t openStreamCount() const;
  /// Event streams accepted since start (refused and malformed requests not included).
  std::size_t streamsOpened() const;
  /// Applies `faults` to the next stream connections, replacing earlier ones; StreamFaults{}
  /// clears them. Throws std::invalid_argument for a negative count, a delay above 600000 ms or
  /// `remaining` below -1.
  void setStreamFaults(StreamFaults faults);

  /// Adds a fault rule after those set before; a request gets the first matching rule that has
  /// requests left. Returns the rule's id. Throws std::invalid_argument for a path that is not a
  /// regular expression, a method that is not letters, `remaining` 0 or below -1, a status
  /// outside 200-599, a delay outside 0-600000 ms, a content type with line breaks or an empty
  /// malformed body. Works with or without the test routes; /test/faults itself is never faulted.
  int addFault(FaultRule rule);
  /// Removes every fault rule; their ids are not used again.
  void clearFaults();
  /// How many requests rule `id` has applied to. Throws std::invalid_argument for an id that
  /// no current rule has.
  std::size_t faultHits(int id) const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace velora::sandbox
