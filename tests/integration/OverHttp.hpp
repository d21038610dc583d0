#pragma once
// What the integration tests of the library share: the real adapters against a sandbox on
// loopback, built one way.

#include <memory>
#include <optional>
#include <string>

#include <velora/velora.hpp>
#include <velora_sandbox/Sandbox.hpp>

#include "Fakes.hpp"

namespace velora::testing {

/// The platform of an integration test: curl transport, a main queue, the library's pool, and
/// fakes only for what must not touch the machine (keychain) or must be moved by the test (clock).
struct HttpPlatform {
  std::shared_ptr<HttpTransport> transport = makeCurlTransport();
  std::shared_ptr<MainQueue> queue = std::make_shared<ThreadQueue>();
  std::shared_ptr<Executor> executor = makeThreadPool();
  std::shared_ptr<Clock> clock = std::make_shared<SystemClock>();
  std::shared_ptr<SecureStore> secureStore = std::make_shared<MemorySecureStore>();
  std::shared_ptr<BrowserAuthSession> browser;
  ConsoleSink console = [](std::string_view) {};

  Platform platform(const std::string& bundleIdentifier = "it.app") const {
    Platform p;
    p.transport = transport;
    p.mainQueue = queue;
    p.executor = executor;
    p.defaults = std::make_shared<MemoryStore>();
    p.secureStore = secureStore;
    p.host = std::make_shared<StaticHostInfo>(bundleIdentifier);
    p.clock = clock;
    p.browser = browser;
    p.customAuthentication = makeUnavailableCustomAuthenticationHandler();
    p.documentsDirectory = std::filesystem::temp_directory_path();
    p.console = console;
    return p;
  }
};

/// The sandbox realm's identity settings for password-grant logins with the public client.
inline KeycloakEnvironment passwordLoginIdentity(sandbox::Sandbox& sandbox) {
  return KeycloakEnvironment{KeycloakAuthenticationMethod::APPLE, KeycloakLoginMode::BACKGROUND, sandbox::demo::kPublicClient,
                             sandbox::demo::kGuestClient, sandbox::demo::kGuestSecret, "http://127.0.0.1:1/callback",
                             sandbox.realmUrl() + "/.well-known/openid-configuration"};
}

/// A facade for the sandbox's platform (or `endpoint`). `loggedIn` installs a session holding a
/// live access token of the sandbox's demo user (no identity flow involved).
inline std::shared_ptr<Orvane> sandboxFacade(sandbox::Sandbox& sandbox, const Platform& platform, bool loggedIn,
                                             std::optional<KeycloakEnvironment> keycloak = std::nullopt,
                                             std::int64_t timeout = 10, std::optional<std::string> endpoint = std::nullopt) {
  Orvane::setupSDK(EnvironmentModel(endpoint.value_or(sandbox.baseUrl()), timeout, std::move(keycloak)), platform);
  auto facade = Orvane::make(platform);
  if (loggedIn) {
    auto renewer = std::make_shared<FakeRenewer>();
    renewer->state = {true, true, true};
    renewer->token = sandbox.issueAccessToken(sandbox::demo::kUser);
    facade->setSessionRenewer(renewer);
    facade->setupSession();
  }
  return facade;
}

}  // namespace velora::testing
