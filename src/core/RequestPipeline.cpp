// The request pipeline: the token decision, renewal before sending, and the reply rules of every
// REST operation. One core serves both forms; they differ only in the codes they report, in what
// happens to a request with no way to a token (refused, or sent as it is), and in the semaphore
// that runs awaited requests one at a time.
//
// Threads: the transport's I/O thread only hands a finished transfer over. Callback replies are
// decoded and delivered on the main queue; awaited replies where the awaiting task resumes.
// Renewals run on the thread their step completes on (never the I/O thread) and one at a time:
// a request that needs a renewal while another runs waits in a queue, no thread blocks.

#include <velora/core/Orvane.hpp>

#include <atomic>

#include <velora/core/Fatal.hpp>

#include "core/RenewalFlight.hpp"
#include "core/RenewalGate.hpp"
#include "core/Resume.hpp"

namespace velora {
namespace {

constexpr std::string_view kResumeSessionName = "resumeSession(with:payload:callback:)";
constexpr std::string_view kResumeAsyncName = "resumeAsyncSession(with:payload:)";

/// The platform's text for an HTTP status ("not found", "internal server error" ...).
std::string reasonPhrase(int status) {
  switch (status) {
    case 100: return "continue";
    case 101: return "switching protocols";
    case 200: return "no error";
    case 201: return "created";
    case 202: return "accepted";
    case 203: return "non-authoritative information";
    case 204: return "no content";
    case 205: return "reset content";
    case 206: return "partial content";
    case 300: return "multiple choices";
    case 301: return "moved permanently";
    case 302: return "found";
    case 303: return "see other";
    case 304: return "not modified";
    case 305: return "use proxy";
    case 307: return "temporarily redirected";
    case 308: return "permanent redirect";
    case 400: return "bad request";
    case 401: return "unauthorized";
    case 402: return "payment required";
    case 403: return "forbidden";
    case 404: return "not found";
    case 405: return "method not allowed";
    case 406: return "unacceptable";
    case 407: return "proxy authentication required";
    case 408: return "request timed out";
    case 409: return "conflict";
    case 410: return "no longer exists";
    case 411: return "length required";
    case 412: return "precondition failed";
    case 413: return "request too large";
    case 414: return "requested URL too long";
    case 415: return "unsupported media type";
    case 416: return "requested range not satisfiable";
    case 417: return "expectation failed";
    case 422: return "unprocessable entity";
    case 429: return "too many requests";
    case 500: return "internal server error";
    case 501: return "unimplemented";
    case 502: return "bad gateway";
    case 503: return "service unavailable";
    case 504: return "gateway timed out";
    case 505: return "unsupported version";
    default: break;
  }
  if (status >= 100 && status < 200) return "informational";
  if (status >= 200 && status < 300) return "success";
  if (status >= 300 && status < 400) return "redirected";
  if (status >= 400 && status < 500) return "client error";
  return "server error";
}


std::optional<ResponseMessage> bodyMessage(const std::string& body) {
  try {
    return decodeJSON<ResponseMessage>(body);
  } catch (const JsonError&) {
    return std::nullopt;
  }
}

std::string describe(const std::exception_ptr& error) {
  try {
    std::rethrow_exception(error);
  } catch (const std::exception& e) {
    return e.what();
  } catch (...) {
    return "Unknown error occurred";
  }
}

enum class Form { callback, awaitable };
enum class TokenAction { send, refresh, captive, refuse };

/// The token decision taken before every request, in this order: a valid access token is used;
/// else a valid refresh token renews it; else a configured login re-authenticates; else refuse.
TokenAction decideToken(const TokenState& s) {
  if (s.accessTokenValid) return TokenAction::send;
  if (s.refreshTokenValid) return TokenAction::refresh;
  if (s.configured) return TokenAction::captive;
  return TokenAction::refuse;
}

/// What one exchange produced: the complete response, the transport's failure, or a failure of
/// the pipeline itself already in the words of the form that asked.
struct Outcome {
  std::optional<HttpResponse> response;
  std::optional<TransportError> transportError;
  std::optional<ResponseMessage> failure;
};
using Done = std::function<void(Outcome)>;

/// Lets an awaited exchange be cancelled, also while it waits for a renewal.
class Cancellation {
 public:
  void cancel() {
    std::shared_ptr<HttpCall> call;
    {
      std::lock_guard lock(mutex_);
      cancelled_ = true;
      call = call_;
    }
    if (call) call->cancel();
  }
  /// False when the exchange was cancelled before its transfer started.
  bool cancelled() {
    std::lock_guard lock(mutex_);
    return cancelled_;
  }
  void attach(std::shared_ptr<HttpCall> call) {
    {
      std::lock_guard lock(mutex_);
      if (!cancelled_) {
        call_ = std::move(call);
        return;
      }
    }
    call->cancel();
  }

 private:
  std::mutex mutex_;
  bool cancelled_ = false;
  std::shared_ptr<HttpCall> call_;
};

/// How a failed renewal is reported: refresh -28001/-28002, captive -28003/-28004 in the callback
/// form; the awaitable form reports every failure as -27003 "Unknown error occurred".
ResponseMessage renewalFailure(Form form, TokenAction action, const RenewalResult& result) {
  if (form == Form::awaitable) {
    auto error = APIError::responseUnsuccessful("Unknown error occurred");
    error.responseMessage.trace = result.error ? describe(result.error) : "the renewal gave no token";
    return error.responseMessage;
  }
  const bool refresh = action == TokenAction::refresh;
  if (!result.error) {
    return ResponseMessage(refresh ? -28002 : -28004, std::string(kResumeSessionName) + " - Unknown error occurred");
  }
  try {
    std::rethrow_exception(result.error);
  } catch (const APIError& e) {
    return e.responseMessage;
  } catch (...) {
    return ResponseMessage(refresh ? -28001 : -28003, describe(result.error));
  }
}

}  // namespace

namespace detail {

/// The pipeline core, reached by the two entries below.
class PipelineCore {
 public:
  using Access = RequestAccess;

  static std::shared_ptr<SessionRenewer> renewer(const Orvane& facade) {
    std::lock_guard lock(facade.stateMutex_);
    return facade.renewer_;
  }

  static TokenAction decide(const Orvane& facade) {
    auto current = renewer(facade);
    return decideToken(current ? current->tokenState() : TokenState{});
  }

  static void exchange(const std::shared_ptr<Orvane>& facade, HttpRequest request, Access access, Form form, Done done,
                       std::shared_ptr<Cancellation> cancellation) {
    if (access != Access::pipeline) return transfer(*facade, std::move(request), access, std::move(done), cancellation);
    const TokenAction action = decide(*facade);
    if (action == TokenAction::send) return transfer(*facade, std::move(request), access, std::move(done), cancellation);
    if (action == TokenAction::refuse) return refuse(*facade, std::move(request), form, std::move(done), cancellation);
    if (facade->singleFlightRenewal()) return renewShared(facade, std::move(request), form, std::move(done), std::move(cancellation));
    renew(facade, std::move(request), form, std::move(done), std::move(cancellation));
  }

  /// No valid token and no way to one: the callback form refuses, the awaitable form sends as it is.
  static void refuse(Orvane& facade, HttpRequest request, Form form, Done done, std::shared_ptr<Cancellation> cancellation) {
    if (form == Form::awaitable) return transfer(facade, std::move(request), Access::pipeline, std::move(done), cancellation);
    done(Outcome{std::nullopt, std::nullopt,
                 ResponseMessage(-28005, std::string(kResumeSessionName) + " - Unauthorized token exception occurred")});
  }

  static void renew(const std::shared_ptr<Orvane>& facade, HttpRequest request, Form form, Done done,
                    std::shared_ptr<Cancellation> cancellation) {
    std::weak_ptr<Orvane> weak = facade;
    facade->renewals_->enter([weak, request = std::move(request), form, done = std::move(done),
                              cancellation = std::move(cancellation)](RenewalGate::Release release) mutable {
      auto self = weak.lock();
      if (!self) {
        release();
        return done(Outcome{std::nullopt, std::nullopt,
                            APIError::requestFailed("The facade was released before the request was sent").responseMessage});
      }
      // The renewal this request waited for may have brought a valid token already.
      const TokenAction action = decide(*self);
      if (action == TokenAction::send || action == TokenAction::refuse) {
        release();
        if (action == TokenAction::send) return transfer(*self, std::move(request), Access::pipeline, std::move(done), cancellation);
        return refuse(*self, std::move(request), form, std::move(done), cancellation);
      }
      auto current = renewer(*self);
      if (!current) {  // the renewer was taken away after the decision
        release();
        return refuse(*self, std::move(request), form, std::move(done), cancellation);
      }
      // A renewer that answers twice must not make the request answer twice.
      auto finish = [weak, request = std::move(request), form, action, done = std::move(done), cancellation, release,
                     answered = std::make_shared<std::atomic<bool>>(false)](RenewalResult result) mutable {
        if (answered->exchange(true)) return;
        auto self = weak.lock();
        if (!self || result.error || !result.gotToken) {
          release();
          if (!self && !result.error && result.gotToken) {
            result.error = std::make_exception_ptr(APIError::requestFailed("The facade was released before the request was sent"));
          }
          return done(Outcome{std::nullopt, std::nullopt, renewalFailure(form, action, result)});
        }
        // The new token reaches the request through the rebuilt session; it is sent once, not
        // renewed again. Requests queued behind this renewal find the new session in force.
        self->setupSession();
        release();
        transfer(*self, std::move(request), Access::pipeline, std::move(done), cancellation);
      };
      if (action == TokenAction::refresh) {
        current->refresh(std::move(finish));
      } else {
        current->captiveReauth(std::move(finish));
      }
    });
  }

  /// Single-flight renewal: the request joins the renewal in flight (or starts it) and goes on
  /// with its outcome, which every request that joined it shares.
  static void renewShared(const std::shared_ptr<Orvane>& facade, HttpRequest request, Form form, Done done,
                          std::shared_ptr<Cancellation> cancellation) {
    std::weak_ptr<Orvane> weak = facade;
    joinFlight(facade, [weak, request = std::move(request), form, done = std::move(done),
                        cancellation = std::move(cancellation)](const FlightLanding& landing) mutable {
      auto self = weak.lock();
      if (auto failure = landingFailure(form, landing)) return done(Outcome{std::nullopt, std::nullopt, std::move(failure)});
      if (!self) {
        return done(Outcome{std::nullopt, std::nullopt,
                            APIError::requestFailed("The facade was released before the request was sent").responseMessage});
      }
      if (landing.next == FlightLanding::Next::refuse) return refuse(*self, std::move(request), form, std::move(done), cancellation);
      transfer(*self, std::move(request), Access::pipeline, std::move(done), cancellation);
    });
  }

  /// What a request that joined a failed flight reports, in the words of its form.
  static std::optional<ResponseMessage> landingFailure(Form form, const FlightLanding& landing) {
    if (landing.next != FlightLanding::Next::failed) return std::nullopt;
    return renewalFailure(form, landing.captive ? TokenAction::captive : TokenAction::refresh, landing.result);
  }

  static void joinFlight(const std::shared_ptr<Orvane>& facade, RenewalFlight::Waiter waiter) {
    std::weak_ptr<Orvane> weak = facade;
    facade->renewalFlight_->join(std::move(waiter), [weak](RenewalFlight::Land land) {
      auto self = weak.lock();
      if (!self) {
        return land({FlightLanding::Next::failed, false,
                     {false, std::make_exception_ptr(APIError::requestFailed("The facade was released before the request was sent"))}});
      }
      // A flight that has just landed may have brought a valid token since this request decided.
      const TokenAction action = decide(*self);
      auto current = renewer(*self);
      if (action == TokenAction::send) return land({FlightLanding::Next::send, false, {}});
      if (action == TokenAction::refuse || !current) return land({FlightLanding::Next::refuse, false, {}});
      auto finish = [weak, captive = action == TokenAction::captive, land](RenewalResult result) {
        auto self = weak.lock();
        if (self && !result.error && result.gotToken) {
          // Once for the whole flight; every request that joined it sends on the new session.
          self->setupSession();
          return land({FlightLanding::Next::send, false, {}});
        }
        if (!self && !result.error && result.gotToken) {
          result.error = std::make_exception_ptr(APIError::requestFailed("The facade was released before the request was sent"));
        }
        land({.next = FlightLanding::Next::failed, .captive = captive, .result = std::move(result)});
      };
      if (action == TokenAction::refresh) {
        current->refresh(std::move(finish));
      } else {
        current->captiveReauth(std::move(finish));
      }
    });
  }

  static void transfer(Orvane& facade, HttpRequest request, Access access, Done done,
                       const std::shared_ptr<Cancellation>& cancellation) {
    if (cancellation && cancellation->cancelled()) {
      return done(Outcome{std::nullopt, TransportError{transport_error::kCancelled, "cancelled"}, std::nullopt});
    }
    std::shared_ptr<const HttpSession> session;
    if (access == Access::none) {
      session = std::make_shared<const HttpSession>(facade.platform_.transport);
    } else {
      session = facade.session();
      if (!session) fatal("Orvane: a request was sent before the session was set up (call Orvane::setupSDK first)");
    }
    // On the I/O thread: only hand the result over.
    auto call = session->data(std::move(request), [done = std::move(done)](DataResult result) {
      if (result.error) return done(Outcome{std::nullopt, std::move(result.error), std::nullopt});
      done(Outcome{std::move(result.response), std::nullopt, std::nullopt});
    });
    if (cancellation) cancellation->attach(std::move(call));
  }
};

/// One awaited exchange, cancelled when the task's stop is requested.
CallbackAwaiter<Outcome> awaitExchange(std::shared_ptr<Orvane> facade, HttpRequest request, RequestAccess access) {
  return awaitCallback<Outcome>([facade = std::move(facade), request = std::move(request), access](
                                    std::function<void(Outcome)> done, std::stop_token stop) mutable {
    struct OnStop {
      std::shared_ptr<Cancellation> cancellation;
      void operator()() const noexcept { cancellation->cancel(); }
    };
    auto cancellation = std::make_shared<Cancellation>();
    auto onStop = std::make_shared<std::stop_callback<OnStop>>(std::move(stop), OnStop{cancellation});
    PipelineCore::exchange(facade, std::move(request), access, Form::awaitable,
                           [done = std::move(done), onStop](Outcome outcome) { done(std::move(outcome)); }, cancellation);
  });
}

/// The single-flight renewal ahead of an awaited request's turn: nullopt to go on, else the
/// failure it reports.
CallbackAwaiter<std::optional<ResponseMessage>> awaitSharedRenewal(std::shared_ptr<Orvane> facade) {
  return awaitCallback<std::optional<ResponseMessage>>(
      [facade = std::move(facade)](std::function<void(std::optional<ResponseMessage>)> done, std::stop_token) {
        const TokenAction action = PipelineCore::decide(*facade);
        if (action == TokenAction::send || action == TokenAction::refuse) return done(std::nullopt);
        PipelineCore::joinFlight(facade, [done](const FlightLanding& landing) {
          done(PipelineCore::landingFailure(Form::awaitable, landing));
        });
      });
}

}  // namespace detail

void Orvane::setSingleFlightRenewal(bool enabled) { singleFlightRenewal_ = enabled; }

bool Orvane::singleFlightRenewal() const { return singleFlightRenewal_; }

void Orvane::deliver(ResponseCallback callback, ResponseMessage message) const {
  if (!callback) return;
  auto console = platform_.console;
  platform_.mainQueue->post([callback = std::move(callback), message = std::move(message), console] {
    try {
      callback(message);
    } catch (const std::exception& e) {
      // An application exception must not unwind the main queue.
      if (console) console(std::string("VeloraSDK: a response callback threw: ") + e.what());
    }
  });
}

void Orvane::resumeSessionWith(HttpRequest request, Access access, CallbackReply reply, ResponseCallback callback) {
  auto self = shared_from_this();
  std::weak_ptr<Orvane> weak = self;
  detail::PipelineCore::exchange(self, std::move(request), access, Form::callback,
                                 [weak, queue = platform_.mainQueue, reply = std::move(reply),
                                  callback = std::move(callback)](Outcome outcome) mutable {
    // Decoding happens on the main queue, like the rest of the reply, so that the I/O thread
    // only moves bytes.
    queue->post([weak, outcome = std::move(outcome), reply = std::move(reply), callback = std::move(callback)]() mutable {
      auto self = weak.lock();
      ResponseMessage message;
      if (outcome.failure) {
        message = std::move(*outcome.failure);
      } else if (outcome.transportError) {
        message = ResponseMessage(outcome.transportError->code, outcome.transportError->message);
      } else if (self) {
        message = reply(*outcome.response);
      } else {
        message = APIError::requestFailed("The facade was released before the reply arrived").responseMessage;
      }
      try {
        if (callback) callback(message);
      } catch (const std::exception& e) {
        if (self) self->platform_.print(std::string("VeloraSDK: a response callback threw: ") + e.what());
      }
    });
  }, nullptr);
}

Task<void> Orvane::resumeAsyncSessionWith(HttpRequest request, Access access, AwaitedReply reply) {
  const auto keepAlive = shared_from_this();  // the permit and the reply rules outlive the transfer
  co_await detail::ResumeHere{platform_};
  // The permit covers the whole request, decoding included; an awaited request without the
  // pipeline (a public resource) does not take one.
  struct Permit {
    AsyncSemaphore* semaphore = nullptr;
    ~Permit() {
      if (semaphore) semaphore->signal();
    }
  } permit;
  if (access == Access::pipeline && singleFlightRenewal()) {
    // Awaited requests take their turns one at a time, so the shared renewal comes before the
    // turn: every request that meets the expired session joins it, not only the first.
    auto renewal = detail::awaitSharedRenewal(shared_from_this());
    if (auto failure = co_await renewal) throw APIError(std::move(*failure));
  }
  if (access == Access::pipeline) {
    co_await resumeAsyncSessionSemaphore.waitUnlessCancelled();
    permit.semaphore = &resumeAsyncSessionSemaphore;
  }
  auto exchange = detail::awaitExchange(shared_from_this(), std::move(request), access);
  Outcome outcome = co_await exchange;
  if (outcome.failure) throw APIError(std::move(*outcome.failure));
  if (outcome.transportError) {
    const std::string cause = outcome.transportError->message;
    platform_.print(std::string(kResumeAsyncName) + " - " + cause);
    // Code and message stay as documented; the cause travels in the trace for diagnostics.
    auto error = APIError::responseUnsuccessful("Unknown error occurred");
    error.responseMessage.trace = cause;
    throw error;
  }
  reply(*outcome.response);
}

ResponseMessage Orvane::statusMessage(const HttpResponse& response) {
  if (auto message = bodyMessage(response.body)) return *message;
  return ResponseMessage(response.head.status, reasonPhrase(response.head.status));
}

APIError Orvane::statusError(const HttpResponse& response) {
  if (auto message = bodyMessage(response.body)) return APIError(*message);
  return APIError::responseUnsuccessful("Invalid status code", response.head.status);
}

AnyCodable Orvane::dataPayload(std::string_view body) {
  return AnyCodable::object({{"data", Bytes(body.begin(), body.end())}});
}

namespace {
/// The decoding error with what the parser found, for the console only.
std::string diagnostic(const JsonError& error) {
  return error.detail().empty() ? error.what() : std::string(error.what()) + " (" + error.detail() + ")";
}
}  // namespace

ResponseMessage Orvane::jsonParsingFailure(const JsonError& error) const {
  platform_.print(std::string(kResumeSessionName) + " - " + diagnostic(error));
  return APIError::jsonParsingFailure().responseMessage;
}

APIError Orvane::invalidJSONDecoded(const JsonError& error) const {
  platform_.print(std::string(kResumeAsyncName) + " - " + diagnostic(error));
  return APIError::responseUnsuccessful("Invalid JSON decoded");
}

}  // namespace velora
