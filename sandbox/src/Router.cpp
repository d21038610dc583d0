#include <algorithm>
#include <cctype>
#include <charconv>
#include <utility>

#include "SandboxInternal.hpp"

namespace velora::sandbox::detail {

void Router::add(std::string method, const std::string& pathPattern, RouteHandler handler) {
  routes_.push_back(Route{std::move(method), std::regex(pathPattern), std::move(handler)});
}

void Router::dispatch(const httplib::Request& req, httplib::Response& res) const {
  for (const auto& route : routes_) {
    const bool methodMatches = route.method.empty() || route.method == req.method ||
                               (route.method == "GET" && req.method == "HEAD");
    if (!methodMatches) {
      continue;
    }
    std::smatch match;
    if (std::regex_match(req.path, match, route.pattern)) {
      route.handler(req, res, match);
      return;
    }
  }
  sendMessage(res, 404, "No route for " + req.method + " " + req.path);
}

void sendJson(httplib::Response& res, int status, const nlohmann::json& body) {
  res.status = status;
  res.set_content(body.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace),
                  "application/json");
}

void sendMessage(httplib::Response& res, int status, const std::string& message) {
  sendJson(res, status, {{"code", status}, {"message", message}});
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
