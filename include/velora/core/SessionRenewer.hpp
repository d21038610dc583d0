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
  bool accessTokenValid = false;
  bool refreshTokenValid = false;
  /// A login is set up that can re-authenticate without being asked (captive renewal).
  bool configured = false;
};

/// How a renewal ended: a new token, an error, or (a faulty renewer) neither.
struct RenewalResult {
  bool gotToken = false;
  std::exception_ptr error;
};

class SessionRenewer {
 public:
  using Completion = std::function<void(RenewalResult)>;
  virtual ~SessionRenewer() = default;
  virtual TokenState tokenState() const = 0;
  virtual std::optional<std::string> accessToken() const = 0;
  /// Each renewal calls `completion` once, on any thread but the transport's I/O thread.
  virtual void refresh(Completion completion) = 0;
  virtual void captiveReauth(Completion completion) = 0;
};

}  // namespace velora
