#pragma once
// The HTTP session the library talks through: one method starts a request and reports its
// progress to a delegate. Data requests and streamed bodies share it; redirects are offered to the
// delegate, so the caller can re-apply its headers or refuse.

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace velora {

/// Header fields in order. Names compare case-insensitively.
class HttpHeaders {
 public:
  HttpHeaders() = default;
  HttpHeaders(std::initializer_list<std::pair<std::string, std::string>> fields) : fields_(fields) {}

  /// Replaces every field of that name (or appends one).
  void set(std::string_view name, std::string value);
  void add(std::string name, std::string value) { fields_.emplace_back(std::move(name), std::move(value)); }
  void remove(std::string_view name);
  std::optional<std::string> get(std::string_view name) const;
  bool contains(std::string_view name) const { return get(name).has_value(); }
  /// Sets each field of `other` that this one does not have.
  void mergeMissing(const HttpHeaders& other);

  const std::vector<std::pair<std::string, std::string>>& fields() const { return fields_; }
  std::size_t size() const { return fields_.size(); }
  bool empty() const { return fields_.empty(); }
  friend bool operator==(const HttpHeaders&, const HttpHeaders&) = default;

 private:
  std::vector<std::pair<std::string, std::string>> fields_;
};

/// A request body: byte ranges sent one after the other, each kept alive by the storage it points
/// into. A large upload (a photo) goes out from the caller's own bytes, never joined into one
/// buffer; copying a body (a redirect, a retry after renewal) shares the ranges.
class HttpBody {
 public:
  struct Segment {
    std::shared_ptr<const void> owner;
    std::string_view bytes;
  };

  HttpBody() = default;
  // Implicit: most bodies are one piece of text (JSON, a form).
  HttpBody(std::string text) { append(std::move(text)); }
  HttpBody(const char* text) : HttpBody(std::string(text)) {}

  void append(std::string text);
  /// Appends `bytes`, which stay valid while `owner` lives.
  void append(std::shared_ptr<const void> owner, std::string_view bytes);

  const std::vector<Segment>& segments() const { return segments_; }
  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  /// The bytes joined into one string (for logs and tests; uploads never need it).
  std::string text() const;
  /// Copies up to `length` bytes from `offset` into `out`; returns how many.
  std::size_t read(std::size_t offset, char* out, std::size_t length) const;

  friend bool operator==(const HttpBody& body, std::string_view text);

 private:
  std::vector<Segment> segments_;
  std::size_t size_ = 0;
};

/// Bytes of the body handed to the network so far, and the body's size. Called on the transport's
/// I/O thread, so it must return quickly.
using UploadProgress = std::function<void(std::uint64_t sent, std::uint64_t total)>;

struct HttpRequest {
  std::string method = "GET";
  std::string url;
  HttpHeaders headers;
  HttpBody body;
  /// Bound on the whole transfer; zero means none (streams).
  std::chrono::milliseconds timeout{0};
  /// Told as the body goes out; optional.
  UploadProgress uploadProgress;
};

struct HttpResponseHead {
  int status = 0;
  HttpHeaders headers;
  std::string url;  // the URL that answered, after redirects
};

/// A transfer that failed before a complete response arrived. `code` follows the platform's URL
/// loading error numbers (-1001 timed out, -1004 cannot connect, -999 cancelled ...).
struct TransportError {
  int code = 0;
  std::string message;
  friend bool operator==(const TransportError&, const TransportError&) = default;
};

namespace transport_error {
inline constexpr int kUnknown = -1;
inline constexpr int kCancelled = -999;
inline constexpr int kBadURL = -1000;
inline constexpr int kTimedOut = -1001;
inline constexpr int kUnsupportedURL = -1002;
inline constexpr int kCannotFindHost = -1003;
inline constexpr int kCannotConnectToHost = -1004;
inline constexpr int kNetworkConnectionLost = -1005;
inline constexpr int kHTTPTooManyRedirects = -1007;
inline constexpr int kBadServerResponse = -1011;
inline constexpr int kSecureConnectionFailed = -1200;
}  // namespace transport_error

/// Receives one request's progress on the transport's I/O thread. Implementations return quickly
/// and move application work to their own queue.
class HttpDelegate {
 public:
  virtual ~HttpDelegate() = default;
  /// A 3xx answer with a Location. `next` is the follow-up request (same headers, method and body
  /// adjusted as browsers do); edit it or return false to stop and complete with the 3xx itself.
  virtual bool willRedirect(HttpRequest& next, const HttpResponseHead& redirect) {
    (void)next;
    (void)redirect;
    return true;
  }
  virtual void didReceiveResponse(const HttpResponseHead& head) = 0;
  virtual void didReceiveData(std::string_view chunk) = 0;
  /// Called exactly once, last. nullopt: the body is complete.
  virtual void didComplete(std::optional<TransportError> error) = 0;
};

/// A started request; cancelling it completes the delegate with kCancelled (if not yet complete).
class HttpCall {
 public:
  virtual ~HttpCall() = default;
  virtual void cancel() = 0;
};

class HttpTransport {
 public:
  virtual ~HttpTransport() = default;
  virtual std::shared_ptr<HttpCall> start(HttpRequest request, std::shared_ptr<HttpDelegate> delegate) = 0;
};

/// A complete answer to a data request.
struct HttpResponse {
  HttpResponseHead head;
  std::string body;
};

/// The outcome of a data request: a complete response, or the transport error that ended it.
struct DataResult {
  std::optional<HttpResponse> response;
  std::optional<TransportError> error;
};

enum class Redirects { follow, stop };

/// Starts a request whose body is collected in memory. `completion` runs once, on the transport's
/// I/O thread. With Redirects::stop a 3xx answer is the result instead of being followed.
std::shared_ptr<HttpCall> startDataRequest(HttpTransport& transport, HttpRequest request,
                                           std::function<void(DataResult)> completion,
                                           Redirects redirects = Redirects::follow);

struct CurlTransportOptions {
  /// Requests that may run at once besides the open streams; sizes the connection cache.
  int maxConcurrentRequests = 64;
  int maxOpenStreams = 1024;
};

/// The real adapter: libcurl's multi interface on one I/O thread owned by the transport.
std::shared_ptr<HttpTransport> makeCurlTransport(CurlTransportOptions options = {});

}  // namespace velora
