#pragma once
// How the request pipeline learns the session's token state and renews it. The login layer
// (Orvane's Keycloak set-up) installs one; tests and tools install their own.

#include <exception>
#include <functional>
#include <optional>
#include <string>

namespace velora {

/// What is known of the session's tokens when a request starts.
struct TokenState {
  /// There is an access token that is not yet expired; the request is sent with it.
  bool accessTokenValid = false;
  /// There is a refresh token that is not yet expired; an expired access token is refreshed with it.
  bool refreshTokenValid = false;
  /// A login is set up that can re-authenticate without being asked (captive renewal).
  bool configured = false;
};

/// How a renewal ended: a new token, an error, or (a faulty renewer) neither.
struct RenewalResult {
  /// A new token is in force; the request is sent on the rebuilt session.
  bool gotToken = false;
  /// Why the renewal failed; null on success. An APIError reaches the caller as it is, any other
  /// error as its description with the pipeline's own code.
  std::exception_ptr error;
};

/// What the request pipeline asks about the session before each request, and how it renews it.
/// The facade's Keycloak set-up installs one (Orvane::setSessionRenewer); tests and tools install
/// their own. Called from any thread, so implementations must be thread-safe.
class SessionRenewer {
 public:
  /// Receives the outcome of one renewal.
  using Completion = std::function<void(RenewalResult)>;
  virtual ~SessionRenewer() = default;
  /// The state of the tokens now, asked afresh before each request.
  virtual TokenState tokenState() const = 0;
  /// The access token the session sends as its bearer; empty when there is none.
  virtual std::optional<std::string> accessToken() const = 0;
  /// Renews the access token with the refresh token. Each renewal calls `completion` once, on any
  /// thread but the transport's I/O thread.
  virtual void refresh(Completion completion) = 0;
  /// Logs in again with the configured login, without asking the application, when the refresh
  /// token has expired too; `completion` is called as for refresh.
  virtual void captiveReauth(Completion completion) = 0;
};

}  // namespace velora
