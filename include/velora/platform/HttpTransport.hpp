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
  /// The fields in the given order, repeated names kept.
  HttpHeaders(std::initializer_list<std::pair<std::string, std::string>> fields) : fields_(fields) {}

  /// Replaces every field of that name (or appends one).
  void set(std::string_view name, std::string value);
  /// Appends a field, keeping any of the same name (for headers that may repeat).
  void add(std::string name, std::string value) { fields_.emplace_back(std::move(name), std::move(value)); }
  /// Drops every field of that name.
  void remove(std::string_view name);
  /// The value of the first field of that name; nullopt when there is none.
  std::optional<std::string> get(std::string_view name) const;
  /// Whether a field of that name exists.
  bool contains(std::string_view name) const { return get(name).has_value(); }
  /// Sets each field of `other` that this one does not have.
  void mergeMissing(const HttpHeaders& other);

  /// Every field as (name, value), in order, with the names as they were given.
  const std::vector<std::pair<std::string, std::string>>& fields() const { return fields_; }
  /// @{
  /// The number of fields, a repeated name counting once per field; empty() when there are none.
  std::size_t size() const { return fields_.size(); }
  bool empty() const { return fields_.empty(); }
  /// @}
  /// Equal when the same fields come in the same order (names compared exactly here).
  friend bool operator==(const HttpHeaders&, const HttpHeaders&) = default;

 private:
  std::vector<std::pair<std::string, std::string>> fields_;
};

/// A request body: byte ranges sent one after the other, each kept alive by the storage it points
/// into. A large upload (a photo) goes out from the caller's own bytes, never joined into one
/// buffer; copying a body (a redirect, a retry after renewal) shares the ranges.
class HttpBody {
 public:
  /// One byte range of the body and what keeps it alive.
  struct Segment {
    std::shared_ptr<const void> owner;  ///< Holds the storage `bytes` points into.
    std::string_view bytes;             ///< The range; never empty.
  };

  HttpBody() = default;
  /// @{
  /// A body of one piece of text; implicit, since most bodies are one (JSON, a form).
  HttpBody(std::string text) { append(std::move(text)); }
  HttpBody(const char* text) : HttpBody(std::string(text)) {}
  /// @}

  /// Appends `text`, which the body then owns; empty text adds nothing.
  void append(std::string text);
  /// Appends `bytes`, which stay valid while `owner` lives.
  void append(std::shared_ptr<const void> owner, std::string_view bytes);

  /// The ranges in sending order; what a transport writes out.
  const std::vector<Segment>& segments() const { return segments_; }
  /// @{
  /// The body's length in bytes, over all segments; empty() when it is zero.
  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  /// @}
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

/// One HTTP request as the transports take it.
struct HttpRequest {
  /// The HTTP method, in upper case as sent (default "GET").
  std::string method = "GET";
  /// The absolute URL, query included.
  std::string url;
  /// Request header fields, sent in this order.
  HttpHeaders headers;
  /// The bytes sent after the headers; empty for none.
  HttpBody body;
  /// Bound on the whole transfer; zero means none (streams).
  std::chrono::milliseconds timeout{0};
  /// Told as the body goes out; optional.
  UploadProgress uploadProgress;
};

/// The final status line and header block of a response (interim 1xx answers are skipped).
struct HttpResponseHead {
  int status = 0;       ///< The HTTP status code; 0 when the server sent none.
  HttpHeaders headers;  ///< The response header fields, in the order received.
  std::string url;  ///< The URL that answered, after redirects.
};

/// A transfer that failed before a complete response arrived. `code` follows the platform's URL
/// loading error numbers (-1001 timed out, -1004 cannot connect, -999 cancelled ...).
struct TransportError {
  int code = 0;  ///< One of the transport_error codes.
  std::string message;  ///< A readable reason, e.g. the HTTP library's own text.
  friend bool operator==(const TransportError&, const TransportError&) = default;
};

/// The codes of TransportError, numbered as the platform's URL loading errors are.
namespace transport_error {
inline constexpr int kUnknown = -1;                  ///< Any failure without a closer match.
inline constexpr int kCancelled = -999;               ///< HttpCall::cancel stopped the transfer.
inline constexpr int kBadURL = -1000;                 ///< The URL cannot be parsed.
inline constexpr int kTimedOut = -1001;               ///< HttpRequest::timeout ran out.
inline constexpr int kUnsupportedURL = -1002;         ///< A scheme the transport cannot speak.
inline constexpr int kCannotFindHost = -1003;         ///< The host (or the proxy) name did not resolve.
inline constexpr int kCannotConnectToHost = -1004;    ///< The server refused or did not answer the connection.
inline constexpr int kNetworkConnectionLost = -1005;  ///< The connection broke while sending or receiving.
inline constexpr int kHTTPTooManyRedirects = -1007;   ///< The redirect chain was too long.
inline constexpr int kBadServerResponse = -1011;      ///< The server's reply is not valid HTTP.
inline constexpr int kSecureConnectionFailed = -1200; ///< The TLS handshake or certificate check failed.
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
  /// The final response head arrived (any status, a refused redirect included); before any data.
  virtual void didReceiveResponse(const HttpResponseHead& head) = 0;
  /// The next piece of the body, in order; the chunking is the network's, so a consumer must not
  /// assume that a chunk ends at any boundary. The bytes are valid only during the call.
  virtual void didReceiveData(std::string_view chunk) = 0;
  /// Called exactly once, last. nullopt: the body is complete.
  virtual void didComplete(std::optional<TransportError> error) = 0;
};

/// A started request; cancelling it completes the delegate with kCancelled (if not yet complete).
class HttpCall {
 public:
  virtual ~HttpCall() = default;
  /// Stops the transfer; safe to call more than once, from any thread, and after completion.
  virtual void cancel() = 0;
};

/// Sends requests: the one seam between the library and the network, replaced by fakes in tests.
class HttpTransport {
 public:
  virtual ~HttpTransport() = default;
  /// Starts `request` at once and reports its progress to `delegate`, which the transport keeps
  /// until didComplete. Releasing the returned call does not cancel the request.
  virtual std::shared_ptr<HttpCall> start(HttpRequest request, std::shared_ptr<HttpDelegate> delegate) = 0;
};

/// A complete answer to a data request.
struct HttpResponse {
  HttpResponseHead head;  ///< Status, header fields and the answering URL.
  std::string body;       ///< The whole body; empty when the server sent none.
};

/// The outcome of a data request: a complete response, or the transport error that ended it.
struct DataResult {
  std::optional<HttpResponse> response;  ///< Set when the body arrived complete, whatever the status.
  std::optional<TransportError> error;   ///< Set when it did not; then response is empty.
};

/// Whether a data request follows 3xx answers to their Location (`follow`) or ends with the
/// 3xx answer itself (`stop`).
enum class Redirects { follow, stop };

/// Starts a request whose body is collected in memory. `completion` runs once, on the transport's
/// I/O thread. With Redirects::stop a 3xx answer is the result instead of being followed.
std::shared_ptr<HttpCall> startDataRequest(HttpTransport& transport, HttpRequest request,
                                           std::function<void(DataResult)> completion,
                                           Redirects redirects = Redirects::follow);

/// Sizing of the real transport. Neither value is a limit: they only decide how many idle
/// connections and transfer handles are kept for reuse.
struct CurlTransportOptions {
  /// Requests that may run at once besides the open streams; sizes the connection cache.
  int maxConcurrentRequests = 64;
  /// Streams expected to be open at the same time; added to maxConcurrentRequests to size the
  /// idle-connection cache, so that every stream's connection can be reused.
  int maxOpenStreams = 1024;
};

/// The real adapter: libcurl's multi interface on one I/O thread owned by the transport.
std::shared_ptr<HttpTransport> makeCurlTransport(CurlTransportOptions options = {});

}  // namespace velora
