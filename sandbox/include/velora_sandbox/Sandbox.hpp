#pragma once
// velora-sandbox: a local platform on loopback for the demo and the integration tests.
// Runs in-process (tests construct a Sandbox) or as the `velora-sandbox` program.

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace velora::sandbox {

struct SandboxOptions {
  std::string host = "127.0.0.1";
  int port = 0;  // 0 picks a free port
  /// Worker threads: open streams plus concurrent clients.
  int threads = 128;
  /// Keep-alive: requests per connection and idle seconds before the server closes it.
  int keepAliveMaxCount = 100000;
  int keepAliveTimeoutSeconds = 5;
  /// The /test/... routes that answer a chosen status, body and delay.
  bool testRoutes = true;
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

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace velora::sandbox
