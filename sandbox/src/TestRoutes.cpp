// Routes that let integration tests of the HTTP pipeline choose the status, body, delay,
// redirects and failures they need, over real sockets.

#include <sys/socket.h>

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

// Shutting the socket down makes the client see the connection end with no response at all;
// httplib's own attempt to write the answer afterwards then fails (EPIPE: httplib::Server
// ignores SIGPIPE) and it closes the socket.
// If the socket cannot be found, the fallback still fails the exchange: the status line and
// headers promise a body that never comes.
void drop(const httplib::Request& req, httplib::Response& res) {
  const int sock = connectionSocket(req);
  if (sock >= 0 && ::shutdown(sock, SHUT_RDWR) == 0) {
    res.status = 500;
    return;
  }
  res.status = 200;
  res.set_content_provider(1, "application/octet-stream",
                           [](std::size_t, std::size_t, httplib::DataSink&) { return false; });
}

void status(const httplib::Request& req, httplib::Response& res, const std::string& codeText,
            const std::atomic<bool>& stopping) {
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
    if (stopping) {
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

void echo(const httplib::Request& req, httplib::Response& res) {
  json headers = json::object();
  for (const auto& [name, value] : req.headers) {
    if (isConnectionPseudoHeader(name)) {
      continue;
    }
    auto& slot = headers[lowerCase(name)];
    slot = slot.is_null() ? value : slot.get<std::string>() + ", " + value;
  }
  sendJson(res, 200,
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

}  // namespace

void addTestRoutes(Router& router, const std::atomic<bool>& stopping) {
  router.add("", "/test/status/([^/]*)",
             [&stopping](const httplib::Request& req, httplib::Response& res,
                         const std::smatch& m) { status(req, res, m[1].str(), stopping); });
  router.add("", "/test/echo",
             [](const httplib::Request& req, httplib::Response& res, const std::smatch&) {
               echo(req, res);
             });
  router.add(
      "", "/test/redirect",
      [](const httplib::Request& req, httplib::Response& res, const std::smatch&) {
        long long code = 302;
        if (req.has_param("code") && !parseInt(req.get_param_value("code"), 300, 399, code)) {
          sendMessage(res, 400, "code must be a redirect status from 300 to 399");
          return;
        }
        if (req.get_param_value("to").empty()) {
          sendMessage(res, 400, "Query parameter 'to' is required");
          return;
        }
        redirect(res, static_cast<int>(code), req.get_param_value("to"));
      });
  router.add("", "/test/redirect-chain/([^/]*)",
             [](const httplib::Request&, httplib::Response& res, const std::smatch& m) {
               long long remaining = 0;
               if (!parseInt(m[1].str(), 0, kMaxRedirectChain, remaining)) {
                 sendMessage(res, 400, "Chain length must be a number from 0 to 1000");
                 return;
               }
               redirect(res, 302,
                        remaining == 0 ? std::string("/test/echo")
                                       : "/test/redirect-chain/" + std::to_string(remaining - 1));
             });
  router.add("GET", "/test/bytes/([^/]*)",
             [](const httplib::Request&, httplib::Response& res, const std::smatch& m) {
               long long count = 0;
               if (!parseInt(m[1].str(), 0, kMaxBytes, count)) {
                 sendMessage(res, 400, "Byte count must be a number up to 67108864");
                 return;
               }
               std::string bytes(static_cast<std::size_t>(count), '\0');
               for (std::size_t i = 0; i < bytes.size(); ++i) {
                 bytes[i] = static_cast<char>(i % 256);
               }
               res.status = 200;
               res.set_content(bytes, "application/octet-stream");
             });
  router.add("GET", "/test/drop",
             [](const httplib::Request& req, httplib::Response& res, const std::smatch&) {
               drop(req, res);
             });
}

}  // namespace velora::sandbox::detail
