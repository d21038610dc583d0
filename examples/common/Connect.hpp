#pragma once
// What every example shares: which platform it talks to, what each login mode needs from the
// identity server, where the library keeps its state between runs, and how an error reads.
//
// The platform's base URL is the first argument when it is one, else VELORA_URL, else the address
// `velora-sandbox --port 8080` serves. With VELORA_STATE_DIR set, everything the library stores
// (settings, tokens, credentials, its log) goes below that folder instead of the XDG folders and
// the desktop's keyring. VELORA_VERBOSE=1 shows the library's own diagnostic lines on stderr.

#include <cstdint>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <velora/velora.hpp>

namespace example {

/// Takes the platform's base URL off the front of `args` when it is there. The result ends in
/// exactly one "/": the library appends a few paths without a leading one (the profile route).
inline std::string platformUrl(std::vector<std::string>& args) {
  const char* fromEnvironment = std::getenv("VELORA_URL");
  std::string url = fromEnvironment ? fromEnvironment : "http://127.0.0.1:8080";
  if (!args.empty() && (args.front().starts_with("http://") || args.front().starts_with("https://"))) {
    url = args.front();
    args.erase(args.begin());
  }
  while (url.ends_with('/')) url.pop_back();
  return url + "/";
}

/// The identity server's settings for the platform at `url`; these are the sandbox's realm and
/// clients (docs/sandbox.md), a real deployment gives its own.
/// - every mode: the realm's discovery document;
/// - password (and the QR code, which stands for a password): the application's client id;
/// - browser login: the client id and where the browser comes back to (the library's loopback
///   listener). Resuming a stored session asks for both as well, whatever its mode;
/// - guest: the guest client, and its secret (see applicationInfo).
inline velora::KeycloakEnvironment identity(const std::string& url) {
  velora::KeycloakEnvironment identity;
  identity.discoverURL = url + "realms/velora/.well-known/openid-configuration";
  identity.clientId = "velora-app";
  identity.redirectURI = "http://127.0.0.1:53682/callback";
  identity.guestClientId = "velora-guest";
  return identity;
}

/// The application's information dictionary, which the library reads identity settings from when
/// the environment has none. The guest secret goes here: the library stores the environment in
/// its settings file as plain text.
inline velora::AnyCodable applicationInfo() {
  return velora::AnyCodable::object(
      {{"VeloraSDK", velora::AnyCodable::object({{"KeycloakConfig", velora::AnyCodable::object({{"guestSecretKey", "velora-guest-secret"}})}})}});
}

/// The user the examples other than `login` sign in as: the sandbox's demo user, unless
/// VELORA_USER and VELORA_PASSWORD name another.
inline std::string user() {
  const char* name = std::getenv("VELORA_USER");
  return name ? name : "demo";
}
inline std::string password() {
  const char* secret = std::getenv("VELORA_PASSWORD");
  return secret ? secret : "demo-password";
}

/// The library's outside services for the application `name`, each example being one. Callback
/// examples pass the main queue they run themselves; the others keep the default, a queue with a
/// thread of its own.
inline velora::Platform platform(const std::string& name, std::shared_ptr<velora::MainQueue> mainQueue = nullptr) {
  velora::Platform platform = velora::Platform::linuxDefaults("velora-example-" + name, applicationInfo());
  if (mainQueue) platform.mainQueue = std::move(mainQueue);
  if (const char* folder = std::getenv("VELORA_STATE_DIR")) {
    const std::filesystem::path state = std::filesystem::path(folder) / name;
    platform.defaults = std::make_shared<velora::JsonFileStore>(state / "defaults.json");
    platform.secureStore = velora::makeFileSecureStore(state / "keychain");
    platform.documentsDirectory = state;
  }
  const char* verbose = std::getenv("VELORA_VERBOSE");
  const bool showDiagnostics = verbose && std::string_view(verbose) == "1";
  platform.console = [showDiagnostics](std::string_view line) {
    if (showDiagnostics) std::cerr << "  velora: " << line << '\n';
  };
  return platform;
}

/// Makes `platform` the library's, points it at `url` and returns the facade. The mode of the last
/// login is kept from the stored environment: the library renews an expired session in that mode.
inline velora::Orvane& connect(velora::Platform platform, const std::string& url) {
  constexpr std::int64_t kTimeoutSeconds = 20;
  velora::EnvironmentModel environment(url, kTimeoutSeconds, identity(url));
  const auto stored = velora::Orvane::storedEnvironment(platform);
  if (stored && stored->sdkEndpoint == url && stored->keycloakEnv) environment.keycloakEnv->loginMode = stored->keycloakEnv->loginMode;
  velora::Platform::setDefault(std::move(platform));
  velora::Orvane::setupSDK(environment);
  return velora::Orvane::shared();
}

/// Drops the session an earlier run stored. A login hands a stored session back instead of logging
/// in, whoever it belongs to, and a platform restarted since (a new sandbox) no longer knows it.
inline void forgetStoredSession(velora::Orvane& orvane) {
  if (auto manager = orvane.keycloakManager()) {
    manager->setCurrentTokenPayload(std::nullopt);
  } else {
    orvane.keychain().saveItem(std::optional<velora::KeyCloakAuthResponse>());
  }
}

// ---- what went wrong, in words ---------------------------------------------------------------

inline std::string describe(const velora::ResponseMessage& reply) {
  return reply.message.value_or("no message") + (reply.trace ? " (" + *reply.trace + ")" : "") + ", code " +
         std::to_string(reply.code);
}

inline std::string describe(const velora::PlatformError& error) {
  const auto reason = error.userInfo.find("reason");
  return error.domain + (reason != error.userInfo.end() ? ": " + reason->second : "") + ", code " + std::to_string(error.code);
}

/// Awaited operations throw APIError (the platform's answer or the library's refusal), logins and
/// devices PlatformError; anything else is a plain exception.
inline std::string describe(std::exception_ptr error) {
  try {
    std::rethrow_exception(error);
  } catch (const velora::APIError& e) {
    const auto& reply = e.responseMessage;
    return e.localizedDescription() + (reply.trace ? " (" + *reply.trace + ")" : "") + ", code " + std::to_string(reply.code);
  } catch (const velora::PlatformError& e) {
    return describe(e);
  } catch (const std::exception& e) {
    return e.what();
  } catch (...) {
    return "an unknown error";
  }
}

/// Says why the example stopped, on stderr; the exit status to return.
inline int fail(std::string_view example, const std::string& why) {
  std::cerr << example << " failed: " << why << '\n';
  return 1;
}

}  // namespace example
