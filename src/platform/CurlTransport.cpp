// The production HttpTransport: one libcurl multi handle driven by one I/O thread.
//
// Threads other than the I/O thread only ever touch the Mailbox (a locked command queue) and a
// call's atomic flags; everything else — the multi handle's transfers, each call's parsing state,
// every delegate callback — lives on the I/O thread, so none of it needs a lock.

#include <velora/platform/HttpTransport.hpp>

#include <curl/curl.h>
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <condition_variable>
#include <cstdio>
#include <exception>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>

namespace velora {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr int kMaxRedirects = 16;
constexpr std::chrono::milliseconds kMaxConnectTimeout = 30s;
// curl_multi_poll returns early for curl's own timers and for wakeups, so this only bounds an idle
// wait; there is nothing to do when it expires.
constexpr int kIdlePollMs = 60'000;
// Compression is not asked for: for the platform's small JSON bodies, setting up a compressor per
// reply costs the server far more than the bytes saved (measured 4x slower on loopback).
constexpr const char* kAcceptEncoding = nullptr;
constexpr std::chrono::milliseconds kProgressInterval = 40ms;
// The upload buffer for bodies read piece by piece (curl allows 16 KB to 2 MB).
constexpr long kUploadBufferBytes = 1L << 20;

// ---------------------------------------------------------------------------------------------
// Errors

struct CurlErrorMapping {
  CURLcode curl;
  int code;
  const char* text;
};

constexpr const char* kConnectionLostText = "The network connection was lost.";
constexpr const char* kSecureConnectionText =
    "An SSL error has occurred and a secure connection to the server cannot be made.";

constexpr CurlErrorMapping kErrorTable[] = {
    {CURLE_OPERATION_TIMEDOUT, transport_error::kTimedOut, "The request timed out."},
    {CURLE_COULDNT_CONNECT, transport_error::kCannotConnectToHost, "Could not connect to the server."},
    {CURLE_COULDNT_RESOLVE_HOST, transport_error::kCannotFindHost,
     "A server with the specified hostname could not be found."},
    {CURLE_COULDNT_RESOLVE_PROXY, transport_error::kCannotFindHost,
     "A server with the specified hostname could not be found."},
    {CURLE_UNSUPPORTED_PROTOCOL, transport_error::kUnsupportedURL, "unsupported URL"},
    {CURLE_URL_MALFORMAT, transport_error::kBadURL, "bad URL"},
    {CURLE_SEND_ERROR, transport_error::kNetworkConnectionLost, kConnectionLostText},
    {CURLE_RECV_ERROR, transport_error::kNetworkConnectionLost, kConnectionLostText},
    {CURLE_GOT_NOTHING, transport_error::kNetworkConnectionLost, kConnectionLostText},
    {CURLE_PARTIAL_FILE, transport_error::kNetworkConnectionLost, kConnectionLostText},
    {CURLE_HTTP2, transport_error::kNetworkConnectionLost, kConnectionLostText},
    {CURLE_HTTP2_STREAM, transport_error::kNetworkConnectionLost, kConnectionLostText},
    {CURLE_TOO_MANY_REDIRECTS, transport_error::kHTTPTooManyRedirects, "too many HTTP redirects"},
    {CURLE_WEIRD_SERVER_REPLY, transport_error::kBadServerResponse, "bad server response"},
    {CURLE_SSL_CONNECT_ERROR, transport_error::kSecureConnectionFailed, kSecureConnectionText},
    {CURLE_PEER_FAILED_VERIFICATION, transport_error::kSecureConnectionFailed, kSecureConnectionText},
    {CURLE_SSL_CERTPROBLEM, transport_error::kSecureConnectionFailed, kSecureConnectionText},
    {CURLE_SSL_CACERT_BADFILE, transport_error::kSecureConnectionFailed, kSecureConnectionText},
    {CURLE_SSL_CIPHER, transport_error::kSecureConnectionFailed, kSecureConnectionText},
    {CURLE_SSL_ENGINE_NOTFOUND, transport_error::kSecureConnectionFailed, kSecureConnectionText},
    {CURLE_SSL_ENGINE_SETFAILED, transport_error::kSecureConnectionFailed, kSecureConnectionText},
    {CURLE_SSL_ENGINE_INITFAILED, transport_error::kSecureConnectionFailed, kSecureConnectionText},
    {CURLE_SSL_CRL_BADFILE, transport_error::kSecureConnectionFailed, kSecureConnectionText},
    {CURLE_SSL_ISSUER_ERROR, transport_error::kSecureConnectionFailed, kSecureConnectionText},
    {CURLE_SSL_PINNEDPUBKEYNOTMATCH, transport_error::kSecureConnectionFailed, kSecureConnectionText},
    {CURLE_SSL_INVALIDCERTSTATUS, transport_error::kSecureConnectionFailed, kSecureConnectionText},
    {CURLE_SSL_SHUTDOWN_FAILED, transport_error::kSecureConnectionFailed, kSecureConnectionText},
    {CURLE_SSL_CLIENTCERT, transport_error::kSecureConnectionFailed, kSecureConnectionText},
    {CURLE_USE_SSL_FAILED, transport_error::kSecureConnectionFailed, kSecureConnectionText},
};

TransportError toTransportError(CURLcode result, std::string_view detail) {
  TransportError error{transport_error::kUnknown, curl_easy_strerror(result)};
  for (const auto& entry : kErrorTable) {
    if (entry.curl == result) {
      error = {entry.code, entry.text};
      break;
    }
  }
  while (!detail.empty() && (detail.back() == '\n' || detail.back() == '\r' || detail.back() == ' ')) {
    detail.remove_suffix(1);
  }
  if (!detail.empty()) {
    error.message.append(" (").append(detail).append(")");
  }
  return error;
}

TransportError cancelledError() { return {transport_error::kCancelled, "cancelled"}; }

// ---------------------------------------------------------------------------------------------
// Delegates are application code; nothing they throw may unwind into libcurl or the loop.

template <class F>
void shielded(const char* callback, F&& body) noexcept {
  try {
    body();
  } catch (const std::exception& e) {
    std::fprintf(stderr, "velora: HttpDelegate::%s threw (ignored): %s\n", callback, e.what());
  } catch (...) {
    std::fprintf(stderr, "velora: HttpDelegate::%s threw (ignored)\n", callback);
  }
}

// ---------------------------------------------------------------------------------------------
// Small helpers

std::string_view trimmed(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r' || s.back() == '\n')) {
    s.remove_suffix(1);
  }
  return s;
}

/// "HTTP/1.1 204 No Content" -> 204; 0 when there is no status code.
int parseStatus(std::string_view line) {
  const auto space = line.find(' ');
  if (space == std::string_view::npos) return 0;
  line = trimmed(line.substr(space + 1));
  int status = 0;
  std::from_chars(line.data(), line.data() + std::min<std::size_t>(line.size(), 3), status);
  return status;
}

bool isRedirectStatus(int status) {
  return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

struct UrlDeleter {
  void operator()(CURLU* url) const { curl_url_cleanup(url); }
};

std::optional<std::string> resolveUrl(const std::string& base, const std::string& location) {
  std::unique_ptr<CURLU, UrlDeleter> url(curl_url());
  if (!url) return std::nullopt;
  if (curl_url_set(url.get(), CURLUPART_URL, base.c_str(), 0) != CURLUE_OK) return std::nullopt;
  // Setting a URL on a handle that already holds one resolves it relative to that one.
  if (curl_url_set(url.get(), CURLUPART_URL, location.c_str(), 0) != CURLUE_OK) return std::nullopt;
  char* resolved = nullptr;
  if (curl_url_get(url.get(), CURLUPART_URL, &resolved, 0) != CURLUE_OK || !resolved) return std::nullopt;
  std::string out(resolved);
  curl_free(resolved);
  return out;
}

void ensureCurlInitialised() {
  static const bool initialised = [] { return curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK; }();
  if (!initialised) throw std::runtime_error("libcurl could not be initialised");
}

// ---------------------------------------------------------------------------------------------
// The handoff between application threads and the I/O thread. Calls keep it alive (not the
// engine), so a call may outlive its transport without keeping connections open.

class CurlCall;

struct Command {
  std::shared_ptr<CurlCall> call;
  bool cancel = false;
};

struct Mailbox {
  std::mutex mutex;
  std::vector<Command> queue;  // guarded by mutex
  bool wakePending = false;    // guarded: a wakeup is already on its way, later posts need none
  bool closed = false;         // guarded
  int wakersInFlight = 0;      // guarded: threads inside curl_multi_wakeup
  std::condition_variable wakersDone;

  CURLM* multi = nullptr;   // fixed before the transport is handed out
  std::thread::id ioThread;  // likewise

  // I/O thread only: commands issued from delegate callbacks, picked up before the next poll, so
  // the loop never has to wake itself.
  std::vector<Command> local;
  bool stopping = false;

  /// False once the transport is shutting down; the command was not taken.
  bool post(Command command) {
    if (std::this_thread::get_id() == ioThread) {
      if (stopping) return false;
      local.push_back(std::move(command));
      return true;
    }
    {
      std::lock_guard lock(mutex);
      if (closed) return false;
      queue.push_back(std::move(command));
      if (wakePending) return true;
      wakePending = true;
      ++wakersInFlight;
    }
    // Outside the lock; the engine keeps the multi handle until every waker has left.
    curl_multi_wakeup(multi);
    std::lock_guard lock(mutex);
    if (--wakersInFlight == 0 && closed) wakersDone.notify_all();
    return true;
  }
};

// ---------------------------------------------------------------------------------------------
// One request, across its redirects. Apart from the two atomics, members are I/O-thread state.

class CurlCall final : public HttpCall, public std::enable_shared_from_this<CurlCall> {
 public:
  enum class State { idle, active, done };

  CurlCall(std::shared_ptr<Mailbox> mailbox, HttpRequest request, std::shared_ptr<HttpDelegate> delegate)
      : mailbox_(std::move(mailbox)), request_(std::move(request)), delegate_(std::move(delegate)) {
    if (request_.timeout > 0ms) deadline_ = Clock::now() + request_.timeout;
  }
  ~CurlCall() override { releaseHeaderList(); }

  void cancel() override {
    if (done_.load(std::memory_order_acquire)) return;
    if (cancelRequested_.exchange(true, std::memory_order_acq_rel)) return;
    if (auto self = weak_from_this().lock()) mailbox_->post({std::move(self), true});
  }

  bool cancelRequested() const { return cancelRequested_.load(std::memory_order_acquire); }

  /// Prepares `easy` (fresh or reset) for the current hop. False when out of memory.
  bool configure(CURL* easy) {
    easy_ = easy;
    head_ = {};
    pendingName_.clear();
    pendingValue_.clear();
    headerBlockDone_ = false;
    headDelivered_ = false;
    redirect_.reset();
    errorBuffer_[0] = '\0';

    curl_easy_setopt(easy, CURLOPT_PRIVATE, this);
    curl_easy_setopt(easy, CURLOPT_URL, request_.url.c_str());
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
#if LIBCURL_VERSION_NUM >= 0x075700
    curl_easy_setopt(easy, CURLOPT_QUICK_EXIT, 1L);
#endif
    curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, errorBuffer_);
    // Redirects are followed here, so headers such as Authorization survive a change of host.
    curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, 0L);
#if LIBCURL_VERSION_NUM >= 0x075500
    curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https");
#else
    curl_easy_setopt(easy, CURLOPT_PROTOCOLS, static_cast<long>(CURLPROTO_HTTP | CURLPROTO_HTTPS));
#endif
    curl_easy_setopt(easy, CURLOPT_ACCEPT_ENCODING, kAcceptEncoding);
    curl_easy_setopt(easy, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
    curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, &CurlCall::onHeader);
    curl_easy_setopt(easy, CURLOPT_HEADERDATA, this);
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &CurlCall::onBody);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, this);

    const std::string& method = request_.method;
    const bool sendsBody =
        method != "HEAD" && (!request_.body.empty() || method == "POST" || method == "PUT" || method == "PATCH");
    if (method == "HEAD") {
      curl_easy_setopt(easy, CURLOPT_NOBODY, 1L);
    } else if (sendsBody) {
      const auto& segments = request_.body.segments();
      if (segments.size() <= 1) {
        // The body lives in request_ until this hop ends, so curl need not copy it.
        curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request_.body.size()));
        curl_easy_setopt(easy, CURLOPT_POSTFIELDS, segments.empty() ? "" : segments.front().bytes.data());
      } else {
        // Pieces (an upload's parts) are read from their own storage as the socket takes them.
        readOffset_ = 0;
        curl_easy_setopt(easy, CURLOPT_POST, 1L);
        curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request_.body.size()));
        curl_easy_setopt(easy, CURLOPT_READFUNCTION, &CurlCall::onRead);
        curl_easy_setopt(easy, CURLOPT_READDATA, this);
        curl_easy_setopt(easy, CURLOPT_SEEKFUNCTION, &CurlCall::onSeek);
        curl_easy_setopt(easy, CURLOPT_SEEKDATA, this);
        // Fewer, larger reads and writes: the default 64 KB buffer costs a large upload a quarter of its speed.
        curl_easy_setopt(easy, CURLOPT_UPLOAD_BUFFERSIZE, kUploadBufferBytes);
      }
      if (request_.uploadProgress) {
        reportedUpload_ = 0;
        reportedAt_ = {};
        curl_easy_setopt(easy, CURLOPT_XFERINFOFUNCTION, &CurlCall::onProgress);
        curl_easy_setopt(easy, CURLOPT_XFERINFODATA, this);
        curl_easy_setopt(easy, CURLOPT_NOPROGRESS, 0L);
      }
      if (method != "POST") curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, method.c_str());
    } else if (!method.empty() && method != "GET") {
      curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, method.c_str());
    }

    releaseHeaderList();
    static thread_local std::string line;  // only the I/O thread gets here; keeps its capacity
    for (const auto& [name, value] : request_.headers.fields()) {
      line.assign(name);
      // "Name:" would tell curl to drop the header; "Name;" sends it with an empty value.
      if (value.empty()) {
        line += ';';
      } else {
        line.append(": ").append(value);
      }
      if (!appendHeader(line.c_str())) return false;
    }
    if (sendsBody) {
      // Without these curl would stall on "Expect: 100-continue" and label the body as a form.
      if (!request_.headers.contains("Expect") && !appendHeader("Expect:")) return false;
      if (!request_.headers.contains("Content-Type") && !appendHeader("Content-Type:")) return false;
    }
    if (headerList_) curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headerList_);

    if (deadline_) {
      auto budget = std::chrono::duration_cast<std::chrono::milliseconds>(*deadline_ - Clock::now());
      if (request_.timeout > 0ms) budget = std::min(budget, request_.timeout);
      budget = std::max(budget, 1ms);
      curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS, static_cast<long>(budget.count()));
      curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(std::min(budget, kMaxConnectTimeout).count()));
    }
    return true;
  }

  bool pastDeadline() const { return deadline_ && Clock::now() >= *deadline_; }

  /// The transfer of the current hop ended (the easy handle is already detached).
  enum class Next { finished, followRedirect };
  Next hopEnded(CURLcode result) {
    if (cancelRequested()) {
      finish(cancelledError());
    } else if (tooManyRedirects_) {
      finish(TransportError{transport_error::kHTTPTooManyRedirects, "too many HTTP redirects"});
    } else if (redirect_) {
      // The redirect's head is complete; a hitch while draining its unused body does not matter.
      request_ = std::move(*redirect_);
      redirect_.reset();
      ++redirectCount_;
      return Next::followRedirect;
    } else if (result == CURLE_OK) {
      if (!headDelivered_) {
        // A reply that ended without a complete header block; the delegate still sees a head first.
        head_.url = request_.url;
        deliverHead();
      }
      finish(std::nullopt);
    } else {
      finish(toTransportError(result, errorBuffer_));
    }
    return Next::finished;
  }

  /// Completes the delegate; at most once.
  void finish(std::optional<TransportError> error) {
    if (state_ == State::done) return;
    state_ = State::done;
    done_.store(true, std::memory_order_release);
    // Dropping the delegate breaks the usual delegate -> call -> delegate cycle.
    auto delegate = std::move(delegate_);
    request_.body = {};
    request_.uploadProgress = nullptr;
    if (delegate) shielded("didComplete", [&] { delegate->didComplete(std::move(error)); });
  }

  void releaseHeaderList() {
    if (headerList_) curl_slist_free_all(headerList_);
    headerList_ = nullptr;
  }

  State state_ = State::idle;
  std::size_t activeIndex_ = 0;
  CURL* easy_ = nullptr;

 private:
  bool appendHeader(const char* line) {
    curl_slist* grown = curl_slist_append(headerList_, line);
    if (!grown) return false;
    headerList_ = grown;
    return true;
  }

  static std::size_t onHeader(char* data, std::size_t size, std::size_t count, void* self) {
    const std::size_t length = size * count;
    return static_cast<CurlCall*>(self)->headerLine({data, length}) ? length : 0;
  }

  static std::size_t onBody(char* data, std::size_t size, std::size_t count, void* self) {
    const std::size_t length = size * count;
    return static_cast<CurlCall*>(self)->bodyChunk({data, length}) ? length : 0;
  }

  static std::size_t onRead(char* out, std::size_t size, std::size_t count, void* self) {
    auto* call = static_cast<CurlCall*>(self);
    if (call->cancelRequested()) return CURL_READFUNC_ABORT;
    const std::size_t n = call->request_.body.read(call->readOffset_, out, size * count);
    call->readOffset_ += n;
    return n;
  }

  // curl rewinds when it must send the body again on a new connection.
  static int onSeek(void* self, curl_off_t offset, int origin) {
    auto* call = static_cast<CurlCall*>(self);
    if (origin != SEEK_SET || offset < 0 || static_cast<std::size_t>(offset) > call->request_.body.size()) {
      return CURL_SEEKFUNC_CANTSEEK;
    }
    call->readOffset_ = static_cast<std::size_t>(offset);
    return CURL_SEEKFUNC_OK;
  }

  static int onProgress(void* self, curl_off_t, curl_off_t, curl_off_t, curl_off_t sent) {
    auto* call = static_cast<CurlCall*>(self);
    if (call->cancelRequested()) return 1;
    // curl asks after every turn of its loop; a report every few dozen milliseconds, and the last
    // one, are all a progress bar needs, and each costs the application's queue a wakeup.
    const auto now = static_cast<std::uint64_t>(sent);
    const std::uint64_t total = call->request_.body.size();
    const auto at = Clock::now();
    if (now > call->reportedUpload_ && (now == total || at - call->reportedAt_ >= kProgressInterval)) {
      call->reportedUpload_ = now;
      call->reportedAt_ = at;
      shielded("uploadProgress", [&] { call->request_.uploadProgress(now, total); });
    }
    return 0;
  }

  /// False aborts the transfer.
  bool headerLine(std::string_view line) {
    if (cancelRequested()) return false;
    if (headerBlockDone_) return true;  // trailers
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.remove_suffix(1);

    if (line.starts_with("HTTP/")) {
      // Each status line (an interim 1xx, then the final one) starts a fresh header block.
      head_.status = parseStatus(line);
      head_.headers = {};
      pendingName_.clear();
      return true;
    }
    if (line.empty()) {
      flushPendingHeader();
      if (head_.status >= 100 && head_.status < 200) return true;  // interim; the real reply follows
      headerBlockDone_ = true;
      return headerBlockComplete();
    }
    if ((line.front() == ' ' || line.front() == '\t') && !pendingName_.empty()) {
      pendingValue_.append(" ").append(trimmed(line));  // obsolete line folding
      return true;
    }
    flushPendingHeader();
    const auto colon = line.find(':');
    if (colon == std::string_view::npos || colon == 0) return true;
    pendingName_.assign(line.substr(0, colon));
    pendingValue_.assign(trimmed(line.substr(colon + 1)));
    return true;
  }

  void flushPendingHeader() {
    if (pendingName_.empty()) return;
    head_.headers.add(std::move(pendingName_), std::move(pendingValue_));
    pendingName_.clear();
    pendingValue_.clear();
  }

  bool headerBlockComplete() {
    head_.url = request_.url;
    if (isRedirectStatus(head_.status)) {
      if (auto location = head_.headers.get("Location")) {
        if (redirectCount_ >= kMaxRedirects) {
          tooManyRedirects_ = true;
          return false;  // nothing more to read from this one
        }
        if (auto next = redirectRequest(*location)) {
          bool follow = false;
          shielded("willRedirect", [&] { follow = delegate_->willRedirect(*next, head_); });
          if (cancelRequested()) return false;
          if (follow) {
            redirect_ = std::move(next);
            return true;  // its body is read and dropped, which keeps the connection reusable
          }
        }
      }
    }
    deliverHead();
    return !cancelRequested();
  }

  void deliverHead() {
    headDelivered_ = true;
    shielded("didReceiveResponse", [&] { delegate_->didReceiveResponse(head_); });
  }

  bool bodyChunk(std::string_view chunk) {
    if (cancelRequested()) return false;
    if (!headDelivered_) return true;  // body of a redirect being followed
    shielded("didReceiveData", [&] { delegate_->didReceiveData(chunk); });
    return !cancelRequested();
  }

  std::optional<HttpRequest> redirectRequest(const std::string& location) const {
    auto url = resolveUrl(request_.url, location);
    if (!url) return std::nullopt;
    HttpRequest next;
    next.url = std::move(*url);
    next.headers = request_.headers;
    next.timeout = request_.timeout;
    const int status = head_.status;
    const bool toGet = (status == 303 && request_.method != "HEAD") ||
                       ((status == 301 || status == 302) && request_.method == "POST");
    if (toGet) {
      next.method = "GET";
      next.headers.remove("Content-Type");
      next.headers.remove("Content-Length");
    } else {
      next.method = request_.method;
      next.body = request_.body;  // 307/308 (and 301/302 other than POST) repeat the request
      next.uploadProgress = request_.uploadProgress;
    }
    return next;
  }

  std::shared_ptr<Mailbox> mailbox_;
  std::atomic<bool> cancelRequested_{false};
  std::atomic<bool> done_{false};

  HttpRequest request_;
  std::shared_ptr<HttpDelegate> delegate_;
  std::optional<Clock::time_point> deadline_;
  curl_slist* headerList_ = nullptr;
  char errorBuffer_[CURL_ERROR_SIZE];

  HttpResponseHead head_;
  std::string pendingName_;
  std::string pendingValue_;
  std::optional<HttpRequest> redirect_;
  int redirectCount_ = 0;
  bool headerBlockDone_ = false;
  bool headDelivered_ = false;
  bool tooManyRedirects_ = false;
  std::size_t readOffset_ = 0;
  std::uint64_t reportedUpload_ = 0;
  Clock::time_point reportedAt_;
};

// ---------------------------------------------------------------------------------------------
// The I/O loop. Shared with the thread that runs it, so the transport may even be released from
// inside a delegate callback.

class Engine {
 public:
  explicit Engine(const CurlTransportOptions& options)
      : mailbox_(std::make_shared<Mailbox>()), easyPoolLimit_(std::max(0, options.maxConcurrentRequests)) {
    multi_ = curl_multi_init();
    if (!multi_) throw std::runtime_error("libcurl could not create a multi handle");
    // Enough idle connections to keep every stream's and request's connection for reuse.
    const long maxConnects = std::max(1L, static_cast<long>(options.maxOpenStreams) + options.maxConcurrentRequests);
    curl_multi_setopt(multi_, CURLMOPT_MAXCONNECTS, maxConnects);
    mailbox_->multi = multi_;
  }

  ~Engine() {
    {
      std::unique_lock lock(mailbox_->mutex);
      mailbox_->wakersDone.wait(lock, [&] { return mailbox_->wakersInFlight == 0; });
    }
    for (CURL* easy : easyPool_) curl_easy_cleanup(easy);
    curl_multi_cleanup(multi_);
  }

  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;

  const std::shared_ptr<Mailbox>& mailbox() const { return mailbox_; }

  void setIoThread(std::thread::id id) {
    std::lock_guard lock(mailbox_->mutex);
    mailbox_->ioThread = id;
  }

  void close() {
    {
      std::lock_guard lock(mailbox_->mutex);
      if (mailbox_->closed) return;
      mailbox_->closed = true;
    }
    curl_multi_wakeup(multi_);
  }

  void run() {
    while (drain()) {
      int running = 0;
      curl_multi_perform(multi_, &running);
      reapFinished();
      if (mailbox_->local.empty()) curl_multi_poll(multi_, nullptr, 0, kIdlePollMs, nullptr);
    }
    shutdown();
  }

 private:
  /// Runs the posted commands; false once the transport is closing.
  bool drain() {
    Mailbox& mb = *mailbox_;
    bool open = true;
    {
      std::lock_guard lock(mb.mutex);
      work_.swap(mb.queue);
      mb.wakePending = false;
      open = !mb.closed;
    }
    if (!open) mb.stopping = true;
    for (auto& command : work_) execute(command);
    work_.clear();
    // Delegates may post more while these run; they land in the emptied `local`.
    while (!mb.local.empty()) {
      localWork_.swap(mb.local);
      for (auto& command : localWork_) execute(command);
      localWork_.clear();
    }
    return open;
  }

  void execute(Command& command) {
    CurlCall& call = *command.call;
    if (command.cancel) {
      if (call.state_ == CurlCall::State::active) {
        detach(call);
        call.finish(cancelledError());
      }
      // Not started yet: the start command sees the flag. Already done: nothing to do.
      return;
    }
    if (mailbox_->stopping || call.cancelRequested()) {
      call.finish(cancelledError());
      return;
    }
    launch(std::move(command.call));
  }

  void launch(std::shared_ptr<CurlCall> call) {
    if (call->pastDeadline()) {
      call->finish(toTransportError(CURLE_OPERATION_TIMEDOUT, {}));
      return;
    }
    CURL* easy = acquireEasy();
    if (!easy) {
      call->finish(TransportError{transport_error::kUnknown, "could not create a transfer"});
      return;
    }
    if (!call->configure(easy)) {
      call->releaseHeaderList();
      recycleEasy(easy);
      call->easy_ = nullptr;
      call->finish(toTransportError(CURLE_OUT_OF_MEMORY, {}));
      return;
    }
    if (const CURLMcode added = curl_multi_add_handle(multi_, easy); added != CURLM_OK) {
      call->releaseHeaderList();
      recycleEasy(easy);
      call->easy_ = nullptr;
      call->finish(TransportError{transport_error::kUnknown, curl_multi_strerror(added)});
      return;
    }
    call->state_ = CurlCall::State::active;
    call->activeIndex_ = active_.size();
    active_.push_back(std::move(call));
  }

  void reapFinished() {
    int queued = 0;
    while (CURLMsg* message = curl_multi_info_read(multi_, &queued)) {
      if (message->msg != CURLMSG_DONE) continue;
      // Read everything needed before detaching: the message dies with the handle's removal.
      const CURLcode result = message->data.result;
      CurlCall* raw = nullptr;
      curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &raw);
      if (!raw) continue;
      auto call = detach(*raw);
      if (call->hopEnded(result) == CurlCall::Next::followRedirect) launch(std::move(call));
    }
  }

  /// Takes the call's transfer out of the multi handle and returns the loop's reference to it.
  std::shared_ptr<CurlCall> detach(CurlCall& call) {
    curl_multi_remove_handle(multi_, call.easy_);
    call.releaseHeaderList();
    const std::size_t index = call.activeIndex_;
    auto self = std::move(active_[index]);
    if (index + 1 != active_.size()) {
      active_[index] = std::move(active_.back());
      active_[index]->activeIndex_ = index;
    }
    active_.pop_back();
    call.state_ = CurlCall::State::idle;
    recycleEasy(call.easy_);
    call.easy_ = nullptr;
    return self;
  }

  void shutdown() {
    Mailbox& mb = *mailbox_;
    mb.stopping = true;
    while (!active_.empty()) {
      auto& call = *active_.back();
      auto self = detach(call);
      self->finish(cancelledError());
    }
    // The last drain() ran every command posted before close(); later posts are refused, and
    // starts made from the callbacks above complete on the spot.
  }

  CURL* acquireEasy() {
    if (easyPool_.empty()) return curl_easy_init();
    CURL* easy = easyPool_.back();
    easyPool_.pop_back();
    return easy;
  }

  void recycleEasy(CURL* easy) {
    if (!easy) return;
    if (easyPool_.size() < static_cast<std::size_t>(easyPoolLimit_)) {
      curl_easy_reset(easy);
      easyPool_.push_back(easy);
    } else {
      curl_easy_cleanup(easy);
    }
  }

  std::shared_ptr<Mailbox> mailbox_;
  CURLM* multi_ = nullptr;
  int easyPoolLimit_;
  std::vector<std::shared_ptr<CurlCall>> active_;
  std::vector<CURL*> easyPool_;
  std::vector<Command> work_;
  std::vector<Command> localWork_;
};

class CurlTransport final : public HttpTransport {
 public:
  explicit CurlTransport(const CurlTransportOptions& options) : engine_(std::make_shared<Engine>(options)) {
    thread_ = std::thread([engine = engine_] {
#ifdef __linux__
      pthread_setname_np(pthread_self(), "velora-http");
#endif
      engine->run();
    });
    engine_->setIoThread(thread_.get_id());
  }

  ~CurlTransport() override {
    engine_->close();
    if (thread_.get_id() == std::this_thread::get_id()) {
      // Released from a delegate callback: the loop finishes the shutdown once the callback returns.
      thread_.detach();
    } else {
      thread_.join();
    }
  }

  CurlTransport(const CurlTransport&) = delete;
  CurlTransport& operator=(const CurlTransport&) = delete;

  std::shared_ptr<HttpCall> start(HttpRequest request, std::shared_ptr<HttpDelegate> delegate) override {
    if (!delegate) throw std::invalid_argument("HttpTransport::start needs a delegate");
    auto call = std::make_shared<CurlCall>(engine_->mailbox(), std::move(request), std::move(delegate));
    // Refused only while shutting down (a delegate starting work from its final callback).
    if (!engine_->mailbox()->post({call, false})) call->finish(cancelledError());
    return call;
  }

 private:
  std::shared_ptr<Engine> engine_;
  std::thread thread_;
};

}  // namespace

std::shared_ptr<HttpTransport> makeCurlTransport(CurlTransportOptions options) {
  ensureCurlInitialised();
  return std::make_shared<CurlTransport>(options);
}

}  // namespace velora
