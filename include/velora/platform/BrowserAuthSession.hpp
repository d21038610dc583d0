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
  using Completion = std::function<void(std::optional<std::string> callbackURL, std::optional<PlatformError> error)>;
  virtual ~BrowserAuthSession() = default;
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
  using OnCompletion = std::function<void(std::optional<std::string> code, std::optional<PlatformError> error)>;
  using OnLogout = std::function<void(std::optional<PlatformError> error)>;
  virtual ~CustomAuthenticationHandler() = default;
  virtual void presentAuthentication(const std::string& url, OnCompletion onCompletion, OnLogout onLogout) = 0;
  virtual void cancelDidPress() = 0;
};

/// Until the web-view screen is available on this platform, every presentation fails at once with
/// "CustomAuthenticationHandler: the web-view login screen is not available in this build".
std::shared_ptr<CustomAuthenticationHandler> makeUnavailableCustomAuthenticationHandler();

}  // namespace velora
