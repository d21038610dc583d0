// Routes that let integration tests of the HTTP pipeline choose the status, body, delay and
// redirects they need, over real sockets. Failures of the connection itself are fault rules
// (Faults.cpp).

#include <algorithm>
#include <chrono>
#include <thread>

#include "SandboxInternal.hpp"

namespace velora::sandbox::detail {
namespace {

using nlohmann::json;

constexpr long long kMaxDelayMs = 10LL * 60 * 1000;
constexpr long long kMaxBytes = 64LL * 1024 * 1024;
constexpr long long kMaxRedirectChain = 1000;
// How often a delayed answer checks whether the server is stopping.
constexpr auto kDelayStep = std::chrono::milliseconds(10);

// Stateless, unlike the fault switches: every request picks its own status, body and delay, so
// concurrent requests can each get a different answer.
void status(Exchange& x) {
  const httplib::Request& req = x.req;
  httplib::Response& res = x.res;
  const std::string codeText = x.match[1].str();
  long long code = 0;
  if (!parseInt(codeText, 200, 599, code)) {
    sendMessage(res, 400, "Status must be a number from 200 to 599, not " + codeText);
    return;
  }
  long long delayMs = 0;
  if (req.has_param("delay_ms") &&
      !parseInt(req.get_param_value("delay_ms"), 0, kMaxDelayMs, delayMs)) {
    sendMessage(res, 400, "delay_ms must be a number of milliseconds up to 600000");
    return;
  }
  const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(delayMs);
  while (std::chrono::steady_clock::now() < until) {
    if (x.services.stopping) {
      sendMessage(res, 503, "Velora sandbox is stopping");
      return;
    }
    std::this_thread::sleep_for(std::min<std::chrono::steady_clock::duration>(
        kDelayStep, until - std::chrono::steady_clock::now()));
  }
  res.status = static_cast<int>(code);
  const std::string type =
      req.has_param("type") ? req.get_param_value("type") : std::string("application/json");
  res.set_content(req.get_param_value("body"), type);
}

void echo(Exchange& x) {
  const httplib::Request& req = x.req;
  json headers = json::object();
  for (const auto& [name, value] : req.headers) {
    if (isConnectionPseudoHeader(name)) {
      continue;
    }
    auto& slot = headers[lowerCase(name)];
    slot = slot.is_null() ? value : slot.get<std::string>() + ", " + value;
  }
  sendJson(x.res, 200,
           {{"method", req.method},
            {"path", req.path},
            {"query", rawQuery(req)},
            {"headers", std::move(headers)},
            {"body", req.body}});
}

void redirect(httplib::Response& res, int code, const std::string& location) {
  res.status = code;
  res.set_header("Location", location);
}

void redirectTo(Exchange& x) {
  long long code = 302;
  if (x.req.has_param("code") && !parseInt(x.req.get_param_value("code"), 300, 399, code)) {
    sendMessage(x.res, 400, "code must be a redirect status from 300 to 399");
    return;
  }
  if (x.req.get_param_value("to").empty()) {
    sendMessage(x.res, 400, "Query parameter 'to' is required");
    return;
  }
  redirect(x.res, static_cast<int>(code), x.req.get_param_value("to"));
}

void redirectChain(Exchange& x) {
  long long remaining = 0;
  if (!parseInt(x.match[1].str(), 0, kMaxRedirectChain, remaining)) {
    sendMessage(x.res, 400, "Chain length must be a number from 0 to 1000");
    return;
  }
  redirect(x.res, 302,
           remaining == 0 ? std::string("/test/echo") : "/test/redirect-chain/" + std::to_string(remaining - 1));
}

// HTTP authentication as a browser meets it: the challenge the test names, until the request
// carries the Basic credentials of `user` and `password` (when both are given).
void challenge(Exchange& x) {
  const std::string header = x.req.get_param_value("www-authenticate");
  if (header.empty()) {
    sendMessage(x.res, 400, "Query parameter 'www-authenticate' is required");
    return;
  }
  if (x.req.has_param("user") && x.req.has_param("password")) {
    const auto expected =
        httplib::make_basic_authentication_header(x.req.get_param_value("user"), x.req.get_param_value("password"));
    if (x.req.get_header_value("Authorization") == expected.second) {
      x.res.status = 200;
      x.res.set_content("<title>Signed in</title>", "text/html; charset=utf-8");
      return;
    }
  }
  x.res.status = 401;
  x.res.set_header("WWW-Authenticate", header);
  x.res.set_content("<title>Unauthorized</title>", "text/html; charset=utf-8");
}

void bytes(Exchange& x) {
  long long count = 0;
  if (!parseInt(x.match[1].str(), 0, kMaxBytes, count)) {
    sendMessage(x.res, 400, "Byte count must be a number up to 67108864");
    return;
  }
  std::string bytes(static_cast<std::size_t>(count), '\0');
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    bytes[i] = static_cast<char>(i % 256);
  }
  x.res.status = 200;
  x.res.set_content(bytes, "application/octet-stream");
}

constexpr Route kTestRoutes[] = {
    {"",       "/test/status/([^/]*)",         status},
    {"",       "/test/echo",                   echo},
    {"",       "/test/redirect",               redirectTo},
    {"",       "/test/redirect-chain/([^/]*)", redirectChain},
    {"GET",    "/test/challenge",              challenge},
    {"GET",    "/test/bytes/([^/]*)",          bytes},
    {"GET",    "/test/stream",                 testStream},
    {"POST",   "/test/stream-faults",          setStreamFaultsRoute},
    {"GET",    "/test/faults",                 listFaultsRoute},
    {"POST",   "/test/faults",                 addFaultsRoute},
    {"DELETE", "/test/faults",                 clearFaultsRoute},
};

}  // namespace

RouteTable testRoutes() { return kTestRoutes; }

}  // namespace velora::sandbox::detail
