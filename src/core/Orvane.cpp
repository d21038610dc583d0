// The facade object itself: set-up, the installation identifier, the environment and the session.

#include <velora/core/Orvane.hpp>


#include <velora/auth/KeychainHelper.hpp>
#include <velora/auth/KeycloakManager.hpp>
#include <velora/core/Fatal.hpp>
#include <velora/core/NetworkLogin.hpp>
#include <velora/core/URL.hpp>

#include "core/Localizations.hpp"
#include "core/RenewalFlight.hpp"
#include "core/RenewalGate.hpp"

namespace velora {
namespace {

constexpr std::string_view kEnvironmentKey = "environment-model";
constexpr std::string_view kEnvUuidKey = "envUuid";

std::optional<AnyCodable> sdkConfigOf(const HostInfo& host) {
  const AnyCodable info = host.infoDictionary();
  if (const auto* config = info.find("VeloraSDK"); config && config->isObject()) return *config;
  return std::nullopt;
}

}  // namespace

void Orvane::setupSDK(std::optional<EnvironmentModel> environment) { setupSDK(std::move(environment), Platform::getDefault()); }

void Orvane::setupSDK(std::optional<EnvironmentModel> environment, const Platform& platform) {
  if (!environment) {
    // Without an environment, the host's information dictionary names the endpoint.
    if (auto config = sdkConfigOf(*platform.host)) {
      if (const auto* url = config->find("defaultURL"); url && url->as<std::string>()) {
        environment = EnvironmentModel(*url->as<std::string>(), 90, std::nullopt, QuuppaConfig{});
      }
    }
  }
  if (!environment) {
    debugAssertionFailure(platform, "Orvane-SDK: Wrong or missing environment-model");
    return;
  }
  std::string text;
  try {
    text = encodeJSON(*environment);
  } catch (const JsonError&) {
    debugAssertionFailure(platform, "Orvane-SDK: Wrong or missing environment-model");
    return;
  }
  platform.defaults->set(kEnvironmentKey, Bytes(text.begin(), text.end()));
  platform.defaults->synchronize();
}

Orvane& Orvane::shared() {
  static std::shared_ptr<Orvane> instance = make(Platform::getDefault());
  return *instance;
}

std::shared_ptr<Orvane> Orvane::make(Platform platform) {
  auto facade = std::shared_ptr<Orvane>(new Orvane(std::move(platform)));
  // Without an environment the instance still exists (its requests stop the process); only an
  // explicit setupSession insists on one.
  if (facade->environment) facade->setupSession();
  if (facade->languageEnabled()) {
    // Off the caller's thread: the stored languages are read from disk.
    facade->platform_.executor->post([weak = facade->weak_from_this()] {
      if (auto alive = weak.lock()) detail::Localizations::loadStored(*alive);
    });
  }
  return facade;
}

Orvane::Orvane(Platform platform)
    : platform_(std::move(platform)),
      keychain_(std::make_unique<KeychainHelper>(platform_.secureStore, platform_.console)),
      renewals_(std::make_shared<detail::RenewalGate>()),
      captiveRenewals_(std::make_shared<detail::RenewalGate>()),
      renewalFlight_(std::make_shared<detail::RenewalFlight>()),
      localizations_(std::make_shared<detail::Localizations>()) {
  if (!platform_.executor) platform_.executor = makeThreadPool();
  if (auto stored = platform_.defaults->string(kEnvUuidKey)) {
    envUUID = *stored;
  } else {
    envUUID = detail::makeUUID();
    platform_.defaults->set(kEnvUuidKey, envUUID);
    platform_.defaults->synchronize();
  }
  environment = storedEnvironment(platform_);
  if (!environment) debugAssertionFailure(platform_, "Orvane-SDK: Missing environment-model");
}

Orvane::~Orvane() = default;

std::optional<EnvironmentModel> Orvane::storedEnvironment(const Platform& platform) {
  auto bytes = platform.defaults->data(kEnvironmentKey);
  if (!bytes) return std::nullopt;
  try {
    return decodeJSON<EnvironmentModel>(std::string_view(reinterpret_cast<const char*>(bytes->data()), bytes->size()));
  } catch (const JsonError&) {
    return std::nullopt;
  }
}

std::shared_ptr<const HttpSession> Orvane::session() const {
  std::lock_guard lock(stateMutex_);
  return session_;
}

const std::string& Orvane::sdkEndpoint() const {
  if (!environment) fatal("Orvane: sdkEndpoint used without an environment (call Orvane::setupSDK first)");
  return environment->sdkEndpoint;
}

std::optional<AnyCodable> Orvane::sdkConfig() const { return sdkConfigOf(*platform_.host); }

std::optional<AnyCodable> Orvane::keycloakConfig() const {
  auto config = sdkConfig();
  if (!config) return std::nullopt;
  if (const auto* keycloak = config->find("KeycloakConfig"); keycloak && keycloak->isObject()) return *keycloak;
  return std::nullopt;
}

bool Orvane::languageEnabled() const {
  auto config = sdkConfig();
  if (!config) return false;
  const auto* enabled = config->find("languageEnabled");
  return enabled && enabled->as<bool>() && *enabled->as<bool>();
}

bool Orvane::hasConnectivity() const {
  try {
    return platform_.reachability && platform_.reachability->hasUsableConnection();
  } catch (const std::exception&) {
    return false;
  }
}

std::optional<std::string> Orvane::accessToken() const {
  std::shared_ptr<SessionRenewer> renewer;
  {
    std::lock_guard lock(stateMutex_);
    renewer = renewer_;
  }
  return renewer ? renewer->accessToken() : std::nullopt;
}

AuthenticationStatus Orvane::authStatus() const {
  auto manager = keycloakManager();
  if (!manager) return AuthenticationStatus::unknown;
  auto token = manager->currentTokenPayload();
  return token && token->accessTokenValid(platform_.clock->now()) ? AuthenticationStatus::authenticated
                                                                    : AuthenticationStatus::notAuthenticated;
}

void Orvane::setSessionRenewer(std::shared_ptr<SessionRenewer> renewer) {
  std::lock_guard lock(stateMutex_);
  renewer_ = std::move(renewer);
}

void Orvane::setupSession(const std::optional<NetworkResponseLogin>&) { setupSession(); }

void Orvane::setupSession() {
  if (!environment) fatal("Orvane: setupSession needs an environment (call Orvane::setupSDK first)");
  HttpHeaders headers{{"Content-Type", "application/json; charset=utf-8"}};
  if (auto token = accessToken()) headers.add("Authorization", "Bearer " + *token);
  headers.add("uuid", envUUID);
  {
    std::lock_guard lock(stateMutex_);
    session_ = std::make_shared<const HttpSession>(platform_.transport, std::move(headers));
  }
  // Unconditional: every rebuild adds one permit, so serialisation loosens after renewals.
  resumeAsyncSessionSemaphore.signal();
}

std::optional<HttpRequest> Orvane::makeRequest(std::string_view pathAndQuery, std::string method,
                                               std::optional<std::string> body) const {
  auto url = URL::safeInit(sdkEndpoint() + std::string(pathAndQuery));
  if (!url) return std::nullopt;
  HttpRequest request;
  request.method = std::move(method);
  request.url = url->absoluteString();
  request.timeout = std::chrono::seconds(environment->timeout);
  if (body) request.body = std::move(*body);
  return request;
}

}  // namespace velora
