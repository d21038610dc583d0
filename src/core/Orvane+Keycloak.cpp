// The facade's login operations: one call per login mode, the authentication status, and the
// captive renewal the request pipeline uses when a session has expired.

#include <velora/core/Orvane.hpp>

#include <velora/core/URL.hpp>

#include "core/CallbackAwaiter.hpp"

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

/// Lets the request pipeline renew sessions through the facade's Keycloak manager.
class KeycloakRenewer : public detail::SessionRenewer {
 public:
  explicit KeycloakRenewer(std::weak_ptr<Orvane> facade) : facade_(std::move(facade)) {}

  detail::TokenState tokenState() const override {
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
  void refresh(std::function<void(detail::RenewalResult)> completion) override {
    auto facade = facade_.lock();
    auto manager = facade ? facade->keycloakManager() : nullptr;
    if (!manager) return completion({false, nullptr});
    manager->refreshToken(manager->currentTokenPayload(), std::nullopt, adapt(std::move(completion)));
  }
  void captiveReauth(std::function<void(detail::RenewalResult)> completion) override {
    auto facade = facade_.lock();
    if (!facade) return completion({false, nullptr});
    facade->captiveReauth(adapt(std::move(completion)));
  }
  Task<void> refreshAsync() override {
    auto facade = facade_.lock();
    auto manager = facade ? facade->keycloakManager() : nullptr;
    if (!manager) co_return;
    auto refresh = manager->refreshToken(manager->currentTokenPayload(), std::nullopt);
    co_await std::move(refresh);
  }
  Task<void> captiveReauthAsync() override {
    auto facade = facade_.lock();
    if (!facade) co_return;
    auto renewal = facade->captiveReauth();
    co_await std::move(renewal);
  }

 private:
  static KeycloakManager::TokenCompletion adapt(std::function<void(detail::RenewalResult)> completion) {
    return [completion = std::move(completion)](std::optional<KeyCloakAuthResponse> token, std::optional<PlatformError> error) {
      completion({token.has_value(), error ? std::make_exception_ptr(*error) : nullptr});
    };
  }
  std::weak_ptr<Orvane> facade_;
};

}  // namespace

void Orvane::setupKeycloak(KeyCloakParameters with) {
  auto manager = std::make_shared<KeycloakManager>(*this, std::move(with));
  {
    std::lock_guard lock(stateMutex_);
    keycloak_ = std::move(manager);
  }
  setSessionRenewer(std::make_shared<KeycloakRenewer>(weak_from_this()));
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
  auto setup = detail::awaitCompletion<KeyCloakAuthResponse>(
      [self = shared_from_this()](TokenCompletion done) { self->runLogin(std::nullopt, true, nullptr, std::move(done)); });
  unwrap(co_await setup);
  co_return true;
}

Task<KeyCloakAuthResponse> Orvane::keycloakLogin() {
  auto login = detail::awaitCompletion<KeyCloakAuthResponse>([self = shared_from_this()](TokenCompletion done) {
    self->runLogin(KeycloakLoginMode::USER, true, [self](KeycloakManager& manager, TokenCompletion completion) {
      // The browser belongs to the application's main thread.
      self->platform().mainQueue->post([manager = manager.shared_from_this(), completion] { manager->performAuth(std::nullopt, completion); });
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
           [](KeycloakManager& manager, TokenCompletion done) { manager.performGuestAuth(std::nullopt, std::move(done)); },
           std::move(completion));
}

Task<KeyCloakAuthResponse> Orvane::keycloakGuestLogin() {
  auto login = detail::awaitCompletion<KeyCloakAuthResponse>(
      [self = shared_from_this()](TokenCompletion done) { self->keycloakGuestLogin(std::move(done)); });
  co_return unwrap(co_await login);
}

void Orvane::backgroundLogin(std::optional<std::string> username, std::optional<std::string> password, std::int64_t expiration,
                             TokenCompletion completion) {
  auto& keychain = keychain_;
  if (username && password) {
    if (!BackgroundLoginParameters{*username, *password, expiration, std::nullopt}.storeToKeychain(keychain)) {
      return completion(std::nullopt, facadeError("Unable to save credentials to keychain"));
    }
  } else if (!BackgroundLoginParameters::readFromKeychain(keychain)) {
    return completion(std::nullopt, facadeError("keycloakLogin - Missing credentials."));
  }
  runLogin(KeycloakLoginMode::BACKGROUND, false,
           [](KeycloakManager& manager, TokenCompletion done) { manager.performBackgroundAuth(std::nullopt, std::move(done)); },
           std::move(completion));
}

Task<KeyCloakAuthResponse> Orvane::backgroundLogin(std::optional<std::string> username, std::optional<std::string> password,
                                                   std::int64_t expiration) {
  auto login = detail::awaitCompletion<KeyCloakAuthResponse>(
      [self = shared_from_this(), username, password, expiration](TokenCompletion done) {
        self->backgroundLogin(username, password, expiration, std::move(done));
      });
  co_return unwrap(co_await login);
}

void Orvane::logout(std::optional<KeyCloakParameters> parameters, std::function<void(std::optional<PlatformError>)> completion) {
  auto manager = keycloakManager();
  if (!manager) return completion(facadeError("Keycloak not configured"));
  manager->logout(std::move(parameters), [completion](std::optional<bool>, std::optional<PlatformError> error) { completion(error); });
}

Task<void> Orvane::logout(std::optional<KeyCloakParameters> parameters) {
  auto ending = detail::awaitCompletion<KeyCloakAuthResponse>(
      [self = shared_from_this(), parameters](TokenCompletion done) {
        self->logout(parameters, [done](std::optional<PlatformError> error) {
          done(error ? std::nullopt : std::optional(KeyCloakAuthResponse{}), error);
        });
      });
  unwrap(co_await ending);
}

void Orvane::captiveReauth(TokenCompletion completion) {
  auto manager = keycloakManager();
  if (!manager) return completion(std::nullopt, std::nullopt);
  const KeycloakLoginMode mode = KeycloakManager::getLoginMode(*this).value_or(manager->loginMode());
  captiveReauthLock.acquire();
  auto release = [self = shared_from_this(), completion](std::optional<KeyCloakAuthResponse> token, std::optional<PlatformError> error) {
    self->captiveReauthLock.release();
    completion(std::move(token), std::move(error));
  };
  switch (mode) {
    case KeycloakLoginMode::USER:
      // performAuth hands back a still-valid token or refreshes before it shows a browser.
      platform_.mainQueue->post([manager, release] { manager->performAuth(std::nullopt, release); });
      break;
    case KeycloakLoginMode::GUEST:
      manager->performGuestAuth(std::nullopt, release);
      break;
    case KeycloakLoginMode::BACKGROUND:
      manager->performBackgroundAuth(std::nullopt, release);
      break;
  }
}

Task<KeyCloakAuthResponse> Orvane::captiveReauth() {
  co_await resumeAsyncCaptiveReauthSemaphore.waitUnlessCancelled();
  detail::SignalOnExit release{resumeAsyncCaptiveReauthSemaphore};
  if (!keycloakManager()) throw APIError::requestFailed("Keycloak not configured");
  auto renewal = detail::awaitCompletion<KeyCloakAuthResponse>(
      [self = shared_from_this()](TokenCompletion done) { self->captiveReauth(std::move(done)); });
  co_return unwrap(co_await renewal);
}

}  // namespace velora
