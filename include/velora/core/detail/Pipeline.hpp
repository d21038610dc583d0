#pragma once
// Pieces of the request pipeline that the facade's templates need. Not for direct use.

#include <exception>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include <velora/core/APIError.hpp>
#include <velora/core/Record.hpp>
#include <velora/core/ResponseMessage.hpp>
#include <velora/core/Task.hpp>
#include <velora/platform/HttpTransport.hpp>
#include <velora/platform/Platform.hpp>
#include <velora/semaphore/AsyncSemaphore.hpp>

namespace velora::detail {

/// What the pipeline knows of the session's tokens when a request starts.
struct TokenState {
  bool accessTokenValid = false;
  bool refreshTokenValid = false;
  /// A login layer is set up and can re-authenticate without the user (captive renewal).
  bool configured = false;
};

enum class TokenAction { send, refresh, captive, refuse };

/// The token decision taken before every request, in this order: a valid access token is used;
/// else a valid refresh token renews it; else a configured login re-authenticates; else refuse.
constexpr TokenAction decideToken(const TokenState& s) {
  if (s.accessTokenValid) return TokenAction::send;
  if (s.refreshTokenValid) return TokenAction::refresh;
  if (s.configured) return TokenAction::captive;
  return TokenAction::refuse;
}

/// How a renewal ended: a new token, an error, or (wrongly) neither.
struct RenewalResult {
  bool gotToken = false;
  std::exception_ptr error;
};

/// The session renewal the login layer provides to the pipeline.
class SessionRenewer {
 public:
  virtual ~SessionRenewer() = default;
  virtual TokenState tokenState() const = 0;
  virtual std::optional<std::string> accessToken() const = 0;
  virtual void refresh(std::function<void(RenewalResult)> completion) = 0;
  virtual void captiveReauth(std::function<void(RenewalResult)> completion) = 0;
  /// Awaitable forms; they throw what the renewal failed with.
  virtual Task<void> refreshAsync() = 0;
  virtual Task<void> captiveReauthAsync() = 0;
};

/// The codes a renewal failure is reported with: refresh -28001/-28002, captive -28003/-28004.
struct RenewalCodes {
  std::int64_t error;
  std::int64_t nothing;
};
inline constexpr RenewalCodes kRefreshCodes{-28001, -28002};
inline constexpr RenewalCodes kCaptiveCodes{-28003, -28004};
inline constexpr std::int64_t kUnauthorizedCode = -28005;
inline constexpr std::string_view kResumeSessionName = "resumeSession(with:payload:callback:)";

/// Turns a 200 body into the callback's ResponseMessage.
using ReplyDecoder = ResponseMessage (*)(const std::string& body, const Platform& platform);

/// The platform's text for an HTTP status ("not found", "internal server error" ...).
std::string reasonPhrase(int status);
/// Callback form, status other than 200: the body's ResponseMessage, else status and its text.
ResponseMessage statusMessage(const HttpResponse& response);
/// Awaitable form, status other than 200: the body's ResponseMessage, else "Invalid status code".
APIError statusError(const HttpResponse& response);
/// {"data": bytes}
AnyCodable dataPayload(std::string_view body);

template <class T>
ResponseMessage decodeReply(const std::string& body, const Platform& platform) {
  if constexpr (std::same_as<T, Bytes>) {
    return ResponseMessage(200, std::nullopt, std::nullopt, std::nullopt, dataPayload(body));
  } else {
    try {
      T value = decodeJSON<T>(body);
      return ResponseMessage(200, typeName<T>() + " completed successfully", std::nullopt, std::nullopt, encode(value));
    } catch (const JsonError& e) {
      platform.print(std::string(kResumeSessionName) + " - " + e.what());
      return APIError::jsonParsingFailure().responseMessage;
    }
  }
}

template <class T>
T decodeAsyncReply(const HttpResponse& response, const Platform& platform) {
  if (response.head.status != 200) throw statusError(response);
  if constexpr (std::same_as<T, Bytes>) {
    return Bytes(response.body.begin(), response.body.end());
  } else {
    try {
      return decodeJSON<T>(response.body);
    } catch (const JsonError& e) {
      platform.print(std::string("resumeAsyncSession(with:payload:) - ") + e.what());
      throw APIError::responseUnsuccessful("Invalid JSON decoded");
    }
  }
}

/// Gives the semaphore's permit back when the awaited request ends, by any path.
struct SignalOnExit {
  explicit SignalOnExit(AsyncSemaphore& semaphore) : semaphore(semaphore) {}
  SignalOnExit(const SignalOnExit&) = delete;
  AsyncSemaphore& semaphore;
  ~SignalOnExit() { semaphore.signal(); }
};

}  // namespace velora::detail
