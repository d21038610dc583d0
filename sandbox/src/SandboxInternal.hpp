#pragma once
// Pieces shared by the sandbox's server wrapper and its route sets. Not installed.

#include <httplib.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <string>
#include <string_view>
#include <vector>

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

/// httplib adds the connection's addresses to every request as pseudo-headers
/// (REMOTE_ADDR, ...); the client never sent them.
bool isConnectionPseudoHeader(const std::string& name);
std::string lowerCase(std::string text);

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

/// The platform's private routes accept only live access tokens from `realm`.
void addPlatformRoutes(Router& router, const Realm& realm);
/// Discovery, login, token and logout endpoints under /realms/NAME.
void addRealmRoutes(Router& router, Realm& realm);
/// `stopping` lets delayed answers give up early so that stopping the server is not held up.
void addTestRoutes(Router& router, const std::atomic<bool>& stopping);

}  // namespace velora::sandbox::detail
