#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <climits>
#include <filesystem>
#include <utility>

#include "SandboxInternal.hpp"

namespace velora::sandbox::detail {
namespace {

bool sameEndpoint(const sockaddr_storage& addr, const std::string& host, int port) {
  char text[NI_MAXHOST];
  const auto len = addr.ss_family == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
  if (getnameinfo(reinterpret_cast<const sockaddr*>(&addr), static_cast<socklen_t>(len), text,
                  sizeof text, nullptr, 0, NI_NUMERICHOST) != 0) {
    return false;
  }
  const int actualPort = addr.ss_family == AF_INET6
                             ? ntohs(reinterpret_cast<const sockaddr_in6*>(&addr)->sin6_port)
                             : ntohs(reinterpret_cast<const sockaddr_in*>(&addr)->sin_port);
  return actualPort == port && host == text;
}

bool isKind(const nlohmann::json& value, JsonKind kind) {
  switch (kind) {
    case JsonKind::object:
      return value.is_object();
    case JsonKind::array:
      return value.is_array();
    case JsonKind::string:
      return value.is_string();
    case JsonKind::number:
      return value.is_number();
    case JsonKind::integer:
      if (value.is_number_unsigned()) {
        return value.get<std::uint64_t>() <= INT_MAX;
      }
      return value.is_number_integer() && value.get<std::int64_t>() >= INT_MIN &&
             value.get<std::int64_t>() <= INT_MAX;
    case JsonKind::boolean:
      return value.is_boolean();
  }
  return false;
}

// Plural, for "an array of ...".
std::string kindName(JsonKind kind) {
  switch (kind) {
    case JsonKind::object:
      return "objects";
    case JsonKind::array:
      return "arrays";
    case JsonKind::string:
      return "strings";
    case JsonKind::number:
      return "numbers";
    case JsonKind::integer:
      return "integers";
    case JsonKind::boolean:
      return "booleans";
  }
  return "values";
}

std::string withArticle(JsonKind kind) {
  std::string name = kindName(kind);
  name.pop_back();
  return (kind == JsonKind::object || kind == JsonKind::array || kind == JsonKind::integer ? "an " : "a ") +
         name;
}

}  // namespace

void Router::add(RouteTable table, RouteGuard guard, const Placeholders& placeholders) {
  for (const Route& route : table) {
    std::string pattern(route.pattern);
    for (const auto& [name, value] : placeholders) {
      const std::string marker = "{" + name + "}";
      for (auto at = pattern.find(marker); at != std::string::npos; at = pattern.find(marker, at + value.size())) {
        pattern.replace(at, marker.size(), value);
      }
    }
    routes_.push_back(Entry{std::string(route.method), std::regex(pattern), route.handler, guard});
  }
}

void Router::dispatch(const httplib::Request& req, httplib::Response& res, Services& services) const {
  for (const auto& route : routes_) {
    const bool methodMatches = route.method.empty() || route.method == req.method ||
                               (route.method == "GET" && req.method == "HEAD");
    if (!methodMatches) {
      continue;
    }
    std::smatch match;
    if (std::regex_match(req.path, match, route.pattern)) {
      Exchange exchange{req, res, match, services};
      if (route.guard == nullptr || route.guard(exchange)) {
        route.handler(exchange);
      }
      return;
    }
  }
  sendMessage(res, 404, "No route for " + req.method + " " + req.path);
}

std::string regexEscape(std::string_view text) {
  std::string escaped;
  for (const char c : text) {
    if (std::string_view("\\^$.|?*+()[]{}").find(c) != std::string_view::npos) {
      escaped += '\\';
    }
    escaped += c;
  }
  return escaped;
}

void sendJson(httplib::Response& res, int status, const nlohmann::json& body) {
  res.status = status;
  res.set_content(body.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace),
                  "application/json");
}

void sendMessage(httplib::Response& res, int status, const std::string& message) {
  sendJson(res, status, {{"code", status}, {"message", message}});
}

nlohmann::json parseObjectBody(const std::string& body) {
  nlohmann::json parsed = nlohmann::json::parse(body, nullptr, /*allow_exceptions=*/false);
  if (parsed.is_discarded()) {
    throw RequestError(400, "Request body is not valid JSON");
  }
  if (!parsed.is_object()) {
    throw RequestError(400, "Request body must be a JSON object");
  }
  return parsed;
}

const nlohmann::json* optionalMember(const nlohmann::json& object, const std::string& key, JsonKind kind,
                                     const std::string& name) {
  const auto it = object.find(key);
  if (it == object.end() || it->is_null()) {
    return nullptr;
  }
  if (!isKind(*it, kind)) {
    throw RequestError(400, name + " must be " + withArticle(kind));
  }
  return &*it;
}

const nlohmann::json* optionalList(const nlohmann::json& object, const std::string& key, JsonKind elementKind,
                                   const std::string& name) {
  const nlohmann::json* list = optionalMember(object, key, JsonKind::array, name);
  if (list != nullptr) {
    for (const auto& element : *list) {
      if (!isKind(element, elementKind)) {
        throw RequestError(400, name + " must be an array of " + kindName(elementKind));
      }
    }
  }
  return list;
}

bool isConnectionPseudoHeader(const std::string& name) {
  return name == "REMOTE_ADDR" || name == "REMOTE_PORT" || name == "LOCAL_ADDR" ||
         name == "LOCAL_PORT";
}

std::string lowerCase(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

// The socket is found by its address pair among this process's descriptors. The match cannot be a stale descriptor: the
// connection stays open while its handler runs, and a TCP address pair is unique among open
// connections (the in-process client's end has the pair reversed).
int connectionSocket(const httplib::Request& req) {
  std::error_code ec;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd", ec)) {
    long long fd = -1;
    if (!parseInt(entry.path().filename().string(), 0, 1 << 30, fd)) {
      continue;
    }
    // No fstat to pick out the sockets: the descriptors belong to other threads (the in-process
    // client's among them), and a thread checker rightly sees inspecting them as a race.
    // getsockname fails on anything that is not a socket.
    const int sock = static_cast<int>(fd);
    sockaddr_storage local{};
    sockaddr_storage peer{};
    socklen_t localLen = sizeof local;
    socklen_t peerLen = sizeof peer;
    if (getsockname(sock, reinterpret_cast<sockaddr*>(&local), &localLen) == 0 &&
        getpeername(sock, reinterpret_cast<sockaddr*>(&peer), &peerLen) == 0 &&
        sameEndpoint(local, req.local_addr, req.local_port) &&
        sameEndpoint(peer, req.remote_addr, req.remote_port)) {
      return sock;
    }
  }
  return -1;
}


std::string rawQuery(const httplib::Request& req) {
  const auto mark = req.target.find('?');
  return mark == std::string::npos ? std::string() : req.target.substr(mark + 1);
}

bool parseInt(std::string_view text, long long min, long long max, long long& out) {
  long long value = 0;
  const auto* end = text.data() + text.size();
  const auto [ptr, ec] = std::from_chars(text.data(), end, value);
  if (text.empty() || ec != std::errc() || ptr != end || value < min || value > max) {
    return false;
  }
  out = value;
  return true;
}

std::uint64_t fnv1a64(std::string_view data) {
  std::uint64_t hash = 0xcbf29ce484222325ULL;
  for (const char c : data) {
    hash ^= static_cast<unsigned char>(c);
    hash *= 0x100000001b3ULL;
  }
  return hash;
}

}  // namespace velora::sandbox::detail
