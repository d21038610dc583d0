#pragma once
// How the interactive login shows the identity server's page and hands back the redirect.

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <velora/core/PlatformError.hpp>

namespace velora {

/// The system browser session for login and logout: opens `url` and completes once with the
/// callback URL the server redirected to (the one starting with `callbackURLScheme`), or an error.
class BrowserAuthSession {
 public:
  /// The full callback URL (the authorisation code is in its query), or the error; one is set.
  using Completion = std::function<void(std::optional<std::string> callbackURL, std::optional<PlatformError> error)>;
  virtual ~BrowserAuthSession() = default;
  /// Opens `url` and waits for the redirect to a URL starting with `callbackURLScheme`, which
  /// ends the session; `completion` runs once, on a thread of the session's choosing.
  virtual void start(const std::string& url, const std::string& callbackURLScheme, Completion completion) = 0;
};

/// Prints the URL on `prompt` and reads the callback URL the user pastes on standard input.
std::shared_ptr<BrowserAuthSession> makeConsoleBrowserAuthSession(std::function<void(const std::string&)> prompt);

/// For redirect URIs of the form http://127.0.0.1:PORT/...: listens on that port, opens the
/// system browser when there is one (otherwise prints the URL through `prompt`) and completes with
/// the first request's URL. Other redirect URIs (custom schemes) fall back to the console session.
std::shared_ptr<BrowserAuthSession> makeLoopbackBrowserAuthSession(std::function<void(const std::string&)> prompt);

/// The library's own web-view login screen.
class CustomAuthenticationHandler {
 public:
  /// A login's outcome: the authorisation code, or the error; one is set.
  using OnCompletion = std::function<void(std::optional<std::string> code, std::optional<PlatformError> error)>;
  /// A logout's outcome: nullopt once the session has ended, else the error.
  using OnLogout = std::function<void(std::optional<PlatformError> error)>;
  virtual ~CustomAuthenticationHandler() = default;
  /// Shows the identity server's page at `url`: a logout when its query has
  /// "post_logout_redirect_uri", a login otherwise. Exactly one callback runs, once: onCompletion
  /// for a login, onLogout for a logout that ends or fails, and onCompletion with the error for a
  /// cancellation or a screen that cannot be shown, logout or not.
  virtual void presentAuthentication(const std::string& url, OnCompletion onCompletion, OnLogout onLogout) = 0;
  /// Cancels the presentation as the screen's Cancel button does: its onCompletion gets an error
  /// with code transport_error::kCancelled. Nothing happens when nothing is shown.
  virtual void cancelDidPress() = 0;
};

/// Until the web-view screen is available on this platform, every presentation fails at once with
/// "CustomAuthenticationHandler: the web-view login screen is not available in this build".
std::shared_ptr<CustomAuthenticationHandler> makeUnavailableCustomAuthenticationHandler();

}  // namespace velora
