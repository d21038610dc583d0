// The facade's login operations: one call per login mode, the authentication status, and the
// captive renewal the request pipeline uses when a session has expired.

#include <velora/auth/KeychainHelper.hpp>
#include <velora/auth/KeycloakManager.hpp>
#include <velora/core/Orvane.hpp>
#include <velora/core/URL.hpp>

#include "core/RenewalGate.hpp"
#include "core/Resume.hpp"

namespace velora {
namespace {

/// Failures of the facade's own checks; the awaitable forms throw them as request-failed APIErrors.
constexpr std::int64_t kFacadeError = -27000;
PlatformError facadeError(const std::string& message) { return PlatformError(message, kFacadeError); }

/// Turns a callback result into the awaitable form's return value or exception.
KeyCloakAuthResponse unwrap(std::pair<std::optional<KeyCloakAuthResponse>, std::optional<PlatformError>> result) {
  auto& [token, error] = result;
  if (error) {
    if (error->code == kFacadeError) throw APIError::requestFailed(error->domain);
    throw *error;
  }
  if (!token) throw APIError::requestFailed("Unknown error occurred");
  return std::move(*token);
}

}  // namespace

/// Lets the request pipeline renew sessions through the facade's Keycloak manager.
class detail::KeycloakRenewer : public SessionRenewer {
 public:
  explicit KeycloakRenewer(std::weak_ptr<Orvane> facade) : facade_(std::move(facade)) {}

  TokenState tokenState() const override {
    auto facade = facade_.lock();
    auto manager = facade ? facade->keycloakManager() : nullptr;
    if (!manager) return {};
    const auto token = manager->currentTokenPayload();
    const Date now = facade->platform().clock->now();
    return {token && token->accessTokenValid(now), token && token->refreshTokenValid(now), true};
  }
  std::optional<std::string> accessToken() const override {
    auto facade = facade_.lock();
    auto manager = facade ? facade->keycloakManager() : nullptr;
    auto token = manager ? manager->currentTokenPayload() : std::nullopt;
    return token ? token->access_token : std::nullopt;
  }
  void refresh(Completion completion) override;
  void captiveReauth(Completion completion) override;

 private:
  static Orvane::TokenCompletion adapt(Completion completion) {
    return [completion = std::move(completion)](std::optional<KeyCloakAuthResponse> token, std::optional<PlatformError> error) {
      completion({token.has_value(), error ? std::make_exception_ptr(*error) : nullptr});
    };
  }
  std::weak_ptr<Orvane> facade_;
};

// The renewer reaches the manager's own flows, whose completions do not wait for the main queue.
void detail::KeycloakRenewer::refresh(Completion completion) {
  auto facade = facade_.lock();
  auto manager = facade ? facade->keycloakManager() : nullptr;
  if (!manager) return completion({false, nullptr});
  manager->refresh(manager->currentTokenPayload(), std::nullopt, adapt(std::move(completion)));
}

void detail::KeycloakRenewer::captiveReauth(Completion completion) {
  auto facade = facade_.lock();
  if (!facade) return completion({false, nullptr});
  facade->renewCaptive(adapt(std::move(completion)));
}

Orvane::TokenCompletion Orvane::onMainQueue(TokenCompletion completion) const {
  return [queue = platform_.mainQueue, completion = std::move(completion)](std::optional<KeyCloakAuthResponse> token,
                                                                           std::optional<PlatformError> error) {
    queue->post([completion, token = std::move(token), error = std::move(error)] {
      if (completion) completion(token, error);
    });
  };
}

void Orvane::setupKeycloak(KeyCloakParameters with) {
  auto manager = std::make_shared<KeycloakManager>(*this, std::move(with));
  {
    std::lock_guard lock(stateMutex_);
    keycloak_ = std::move(manager);
  }
  setSessionRenewer(std::make_shared<detail::KeycloakRenewer>(weak_from_this()));
  // A session the new manager restored from the keychain is put in force at once; otherwise the
  // next request would go out without it although the token is valid.
  if (environment && keycloakManager()->currentTokenPayload()) setupSession();
}

std::shared_ptr<KeycloakManager> Orvane::keycloakManager() const {
  std::lock_guard lock(stateMutex_);
  return keycloak_;
}

void Orvane::runLogin(std::optional<KeycloakLoginMode> mode, bool requireClient,
                      std::function<void(KeycloakManager&, TokenCompletion)> login, TokenCompletion completion) {
  const auto discoverURL = KeycloakManager::getDiscoverURL(*this);
  if (!discoverURL || (requireClient && (!KeycloakManager::getClientId(*this) || !KeycloakManager::getRedirectURI(*this)))) {
    return completion(std::nullopt, facadeError("keycloakLogin - Missing parameters of Info.plist config"));
  }
  if (!URL::safeInit(*discoverURL)) return completion(std::nullopt, facadeError("keycloakLogin - discoverURL couldn't be parsed."));
  auto self = shared_from_this();
  KeycloakManager::discoverConfiguration(
      *this, discoverURL, [self, mode, login = std::move(login), completion](std::optional<KeyCloakRemoteConfiguration> document,
                                                                             std::optional<PlatformError> error) {
        if (error || !document) return completion(std::nullopt, error);
        KeyCloakParameterArguments arguments;
        arguments.authorization_endpoint = document->authorization_endpoint;
        arguments.token_endpoint = document->token_endpoint;
        arguments.userinfo_endpoint = document->userinfo_endpoint;
        arguments.end_session_endpoint = document->end_session_endpoint;
        arguments.loginMode = mode;
        self->setupKeycloak(makeKeyCloakParameters(*self, std::move(arguments)));
        if (login) login(*self->keycloakManager(), completion);
        else completion(self->keycloakManager()->currentTokenPayload().value_or(KeyCloakAuthResponse{}), std::nullopt);
      });
}

Task<bool> Orvane::networkSetup() {
  co_await detail::ResumeHere{platform_};
  auto setup = detail::awaitCompletion<KeyCloakAuthResponse>(
      [self = shared_from_this()](TokenCompletion done) { self->runLogin(std::nullopt, true, nullptr, std::move(done)); });
  unwrap(co_await setup);
  co_return true;
}

Task<KeyCloakAuthResponse> Orvane::keycloakLogin() {
  co_await detail::ResumeHere{platform_};
  auto login = detail::awaitCompletion<KeyCloakAuthResponse>([self = shared_from_this()](TokenCompletion done) {
    self->runLogin(KeycloakLoginMode::USER, true, [self](KeycloakManager& manager, TokenCompletion completion) {
      // The browser belongs to the application's main thread.
      self->platform().mainQueue->post([manager = manager.shared_from_this(), completion] { manager->authorize(std::nullopt, completion); });
    }, std::move(done));
  });
  auto result = co_await login;
  try {
    auto token = unwrap(std::move(result));
    if (token.accessTokenValid(platform_.clock->now())) keycloakManager()->setCurrentTokenPayload(token);
    co_return token;
  } catch (...) {
    platform_.print("keycloakLogin(contextProvider) - Error");
    throw;
  }
}

void Orvane::keycloakGuestLogin(TokenCompletion completion) {
  runLogin(KeycloakLoginMode::GUEST, false,
           [](KeycloakManager& manager, TokenCompletion done) { manager.guestAuth(std::nullopt, std::move(done)); },
           onMainQueue(std::move(completion)));
}

Task<KeyCloakAuthResponse> Orvane::keycloakGuestLogin() {
  co_await detail::ResumeHere{platform_};
  auto login = detail::awaitCompletion<KeyCloakAuthResponse>([self = shared_from_this()](TokenCompletion done) {
    self->runLogin(KeycloakLoginMode::GUEST, false,
                   [](KeycloakManager& manager, TokenCompletion next) { manager.guestAuth(std::nullopt, std::move(next)); },
                   std::move(done));
  });
  co_return unwrap(co_await login);
}

namespace {
/// Stores given credentials, or checks that some are stored; the failure's text otherwise.
std::optional<std::string> prepareBackgroundCredentials(KeychainHelper& keychain, const std::optional<std::string>& username,
                                                        const std::optional<std::string>& password, std::int64_t expiration) {
  if (username && password) {
    if (!BackgroundLoginParameters{*username, *password, expiration, std::nullopt}.storeToKeychain(keychain)) {
      return "Unable to save credentials to keychain";
    }
  } else if (!BackgroundLoginParameters::readFromKeychain(keychain)) {
    return "keycloakLogin - Missing credentials.";
  }
  return std::nullopt;
}
}  // namespace

void Orvane::backgroundLogin(std::optional<std::string> username, std::optional<std::string> password, std::int64_t expiration,
                             TokenCompletion completion) {
  // The keychain is written off the caller's thread and the answer comes on the main queue.
  platform_.executor->post([self = shared_from_this(), username, password, expiration,
                            completion = onMainQueue(std::move(completion))] {
    if (auto failure = prepareBackgroundCredentials(self->keychain(), username, password, expiration)) {
      return completion(std::nullopt, facadeError(*failure));
    }
    self->runLogin(KeycloakLoginMode::BACKGROUND, false,
                   [](KeycloakManager& manager, TokenCompletion done) { manager.backgroundAuth(std::nullopt, std::move(done)); },
                   completion);
  });
}

Task<KeyCloakAuthResponse> Orvane::backgroundLogin(std::optional<std::string> username, std::optional<std::string> password,
                                                   std::int64_t expiration) {
  co_await detail::ResumeHere{platform_};
  if (auto failure = prepareBackgroundCredentials(keychain(), username, password, expiration)) throw APIError::requestFailed(*failure);
  auto login = detail::awaitCompletion<KeyCloakAuthResponse>([self = shared_from_this()](TokenCompletion done) {
    self->runLogin(KeycloakLoginMode::BACKGROUND, false,
                   [](KeycloakManager& manager, TokenCompletion next) { manager.backgroundAuth(std::nullopt, std::move(next)); },
                   std::move(done));
  });
  co_return unwrap(co_await login);
}

void Orvane::logout(std::optional<KeyCloakParameters> parameters, std::function<void(std::optional<PlatformError>)> completion) {
  auto manager = keycloakManager();
  auto answer = [queue = platform_.mainQueue, completion = std::move(completion)](std::optional<PlatformError> error) {
    queue->post([completion, error = std::move(error)] {
      if (completion) completion(error);
    });
  };
  if (!manager) return answer(facadeError("Keycloak not configured"));
  manager->endSession(std::move(parameters), [answer](std::optional<bool>, std::optional<PlatformError> error) { answer(std::move(error)); });
}

Task<void> Orvane::logout() { return logout(std::nullopt); }

Task<void> Orvane::logout(std::optional<KeyCloakParameters> parameters) {
  co_await detail::ResumeHere{platform_};
  auto manager = keycloakManager();
  if (!manager) throw APIError::requestFailed("Keycloak not configured");
  auto ending = detail::awaitCompletion<KeyCloakAuthResponse>([manager, parameters](TokenCompletion done) {
    manager->endSession(parameters, [done](std::optional<bool>, std::optional<PlatformError> error) {
      done(error ? std::nullopt : std::optional(KeyCloakAuthResponse{}), error);
    });
  });
  unwrap(co_await ending);
}

void Orvane::renewCaptive(TokenCompletion completion) {
  auto manager = keycloakManager();
  if (!manager) return completion(std::nullopt, std::nullopt);
  const KeycloakLoginMode mode = KeycloakManager::getLoginMode(*this).value_or(manager->loginMode());
  // One renewal at a time, in every mode; the next one starts when this one has answered.
  captiveRenewals_->enter([self = shared_from_this(), manager, mode, completion](detail::RenewalGate::Release release) {
    auto done = [release, completion](std::optional<KeyCloakAuthResponse> token, std::optional<PlatformError> error) {
      release();
      completion(std::move(token), std::move(error));
    };
    switch (mode) {
      case KeycloakLoginMode::USER:
        // authorize hands back a still-valid token or refreshes before it shows a browser, which
        // belongs to the main thread.
        self->platform_.mainQueue->post([manager, done] { manager->authorize(std::nullopt, done); });
        break;
      case KeycloakLoginMode::GUEST:
        manager->guestAuth(std::nullopt, done);
        break;
      case KeycloakLoginMode::BACKGROUND:
        manager->backgroundAuth(std::nullopt, done);
        break;
    }
  });
}

void Orvane::captiveReauth(TokenCompletion completion) { renewCaptive(onMainQueue(std::move(completion))); }

Task<KeyCloakAuthResponse> Orvane::captiveReauth() {
  co_await detail::ResumeHere{platform_};
  co_await resumeAsyncCaptiveReauthSemaphore.waitUnlessCancelled();
  struct Release {
    AsyncSemaphore& semaphore;
    ~Release() { semaphore.signal(); }
  } release{resumeAsyncCaptiveReauthSemaphore};
  if (!keycloakManager()) throw APIError::requestFailed("Keycloak not configured");
  auto renewal = detail::awaitCompletion<KeyCloakAuthResponse>(
      [self = shared_from_this()](TokenCompletion done) { self->renewCaptive(std::move(done)); });
  co_return unwrap(co_await renewal);
}

}  // namespace velora
