#include <velora/auth/KeycloakManager.hpp>

#include <velora/core/Fatal.hpp>
#include <velora/core/Orvane.hpp>
#include <velora/core/URL.hpp>

#include "core/Resume.hpp"

namespace velora {
namespace {

using namespace keycloak_error;

const std::string kTokenService = "keycloak";
const std::string kTokenAccount = "access-token";
constexpr const char* kNoParameters = "You should call setup or pass a valid KeyCloakParameters object";

/// Percent-encodes every byte outside `allowed` (and outside the unreserved letters and digits).
std::string percentEncode(std::string_view text, std::string_view allowed) {
  static constexpr char hex[] = "0123456789ABCDEF";
  std::string out;
  out.reserve(text.size());
  for (unsigned char c : text) {
    if (std::isalnum(c) || allowed.find(static_cast<char>(c)) != std::string_view::npos) {
      out.push_back(static_cast<char>(c));
    } else {
      out.push_back('%');
      out.push_back(hex[c >> 4]);
      out.push_back(hex[c & 15]);
    }
  }
  return out;
}

// The query set without the delimiters ":#[]@" and "!$&'()*+,;=".
constexpr std::string_view kQueryValueAllowed = "-._~/?";
// The host set: unreserved, sub-delimiters, ':' and brackets.
constexpr std::string_view kHostAllowed = "-._~!$&'()*+,;=:[]";

bool empty(const std::optional<std::string>& value) { return !value || value->empty(); }

std::optional<std::string> configuredText(const Orvane& facade, std::optional<std::string> KeycloakEnvironment::*member,
                                          const char* key) {
  if (!facade.environment) fatal("KeycloakManager: the facade has no environment (call Orvane::setupSDK first)");
  if (const auto& env = facade.environment->keycloakEnv; env && (*env).*member) return (*env).*member;
  if (auto config = facade.keycloakConfig()) {
    if (const auto* value = config->find(key); value && value->as<std::string>()) return *value->as<std::string>();
  }
  return std::nullopt;
}

template <class E>
std::optional<E> configuredEnum(const Orvane& facade, std::optional<E> KeycloakEnvironment::*member, const char* key) {
  if (!facade.environment) fatal("KeycloakManager: the facade has no environment (call Orvane::setupSDK first)");
  if (const auto& env = facade.environment->keycloakEnv; env && (*env).*member) return (*env).*member;
  if (auto config = facade.keycloakConfig()) {
    if (const auto* value = config->find(key); value && value->as<std::string>()) return enumFromRaw<E>(*value->as<std::string>());
  }
  return std::nullopt;
}

/// Why discovery failed, for the error's user information: the transport's reason or the reply.
std::map<std::string, std::string> discoveryCause(const DataResult& result) {
  if (result.error) return {{"reason", result.error->message}};
  if (!result.response) return {};
  const std::string status = "HTTP " + std::to_string(result.response->head.status);
  if (result.response->body.empty()) return {{"reason", status + " with an empty body"}};
  return {{"reason", status + ", but the body is not a discovery document"}};
}

}  // namespace

KeyCloakParameters makeKeyCloakParameters(const Orvane& facade, KeyCloakParameterArguments a) {
  KeyCloakParameters p;
  p.authorization_endpoint = std::move(a.authorization_endpoint);
  p.token_endpoint = std::move(a.token_endpoint);
  p.userinfo_endpoint = std::move(a.userinfo_endpoint);
  p.end_session_endpoint = std::move(a.end_session_endpoint);
  p.redirect_uri = a.redirect_uri ? a.redirect_uri : KeycloakManager::getRedirectURI(facade);
  p.clientId = a.clientId ? a.clientId : KeycloakManager::getClientId(facade);
  p.guestClientId = a.guestClientId ? a.guestClientId : KeycloakManager::getGuestClientId(facade);
  p.guestSecretKey = a.guestSecretKey ? a.guestSecretKey : KeycloakManager::getGuestSecretKey(facade);
  p.loginMode = a.loginMode.value_or(KeycloakManager::getLoginMode(facade).value_or(KeycloakLoginMode::USER));
  p.authMethod = a.authMethod.value_or(KeycloakManager::getAuthenticationMethod(facade).value_or(KeycloakAuthenticationMethod::APPLE));
  if (a.grant_type) p.grant_type = *a.grant_type;
  if (a.response_type) p.response_type = *a.response_type;
  if (a.scope) p.scope = *a.scope;
  if (a.state) p.state = *a.state;
  return p;
}

// ---- configuration ---------------------------------------------------------------------------

std::optional<std::string> KeycloakManager::getDiscoverURL(const Orvane& f) { return configuredText(f, &KeycloakEnvironment::discoverURL, "discoverURL"); }
std::optional<std::string> KeycloakManager::getClientId(const Orvane& f) { return configuredText(f, &KeycloakEnvironment::clientId, "clientId"); }
std::optional<std::string> KeycloakManager::getGuestClientId(const Orvane& f) { return configuredText(f, &KeycloakEnvironment::guestClientId, "guestClientId"); }
std::optional<std::string> KeycloakManager::getGuestSecretKey(const Orvane& f) { return configuredText(f, &KeycloakEnvironment::guestSecretKey, "guestSecretKey"); }
std::optional<std::string> KeycloakManager::getRedirectURI(const Orvane& f) { return configuredText(f, &KeycloakEnvironment::redirectURI, "redirectURI"); }
std::optional<KeycloakLoginMode> KeycloakManager::getLoginMode(const Orvane& f) { return configuredEnum(f, &KeycloakEnvironment::loginMode, "loginMode"); }
std::optional<KeycloakAuthenticationMethod> KeycloakManager::getAuthenticationMethod(const Orvane& f) {
  return configuredEnum(f, &KeycloakEnvironment::authMethod, "authMethod");
}

std::optional<std::string> KeycloakManager::getRedirectSchema(const Orvane& f) {
  auto uri = getRedirectURI(f);
  if (!uri) return std::nullopt;
  auto url = URL::parse(*uri);
  if (!url || url->scheme().empty()) return std::nullopt;
  return url->scheme() + "://";
}

// ---- shared instance -------------------------------------------------------------------------

void KeycloakManager::setup(KeyCloakParameters with) { Orvane::shared().setupKeycloak(std::move(with)); }
std::shared_ptr<KeycloakManager> KeycloakManager::shared() { return Orvane::shared().keycloakManager(); }
bool KeycloakManager::isConfigured() { return shared() != nullptr; }

void KeycloakManager::discoverConfiguration(const Orvane& facade, std::optional<std::string> from, DiscoveryCompletion completion) {
  auto text = from ? from : getDiscoverURL(facade);
  auto url = text ? URL::safeInit(*text) : std::nullopt;
  if (!url) fatal("A valid URL is required, either from PLIST config or from method parameter.");
  HttpRequest request;
  request.url = url->absoluteString();
  request.timeout = std::chrono::seconds(60);
  auto executor = facade.platform().executor;
  HttpSession(facade.platform().transport).data(std::move(request), [executor, completion = std::move(completion)](DataResult result) {
    // Off the I/O thread: decoding and whatever the completion does next are not its job.
    executor->post([result = std::move(result), completion] {
      if (result.response && !result.response->body.empty()) {
        try {
          return completion(decodeJSON<KeyCloakRemoteConfiguration>(result.response->body), std::nullopt);
        } catch (const JsonError&) {
        }
      }
      completion(std::nullopt, PlatformError("Unknown Error Occurred (discoverConfiguration)", kDiscovery, discoveryCause(result)));
    });
  });
}

// ---- construction and state ------------------------------------------------------------------

KeycloakManager::KeycloakManager(Orvane& facade, KeyCloakParameters with)
    : facade_(facade.weak_from_this()),
      platform_(facade.platform()),
      parameters_(std::move(with)),
      customHandler_(platform_.customAuthentication),
      keychain_(platform_.secureStore, platform_.console) {
  // A stored session is resumed while its refresh token can still renew it.
  if (auto stored = keychain_.readItem<KeyCloakAuthResponse>(kTokenService, kTokenAccount); stored && stored->refreshTokenValid(now())) {
    current_ = std::move(stored);
  }
  // A new browser login must not reuse a login page cached by an earlier one.
  if (auto websiteData = platform_.websiteData) {
    platform_.mainQueue->post([websiteData] { websiteData->removeCaches(); });
  }
}

Date KeycloakManager::now() const { return platform_.clock->now(); }

std::optional<KeyCloakAuthResponse> KeycloakManager::currentTokenPayload() const {
  std::lock_guard lock(mutex_);
  return current_;
}

void KeycloakManager::setCurrentTokenPayload(std::optional<KeyCloakAuthResponse> payload) {
  {
    std::lock_guard lock(mutex_);
    current_ = payload;
  }
  keychain_.saveItem(payload, kTokenService, kTokenAccount);
  if (auto facade = facade_.lock()) facade->setupSession();
}

KeycloakLoginMode KeycloakManager::loginMode() const { return parameters_ ? parameters_->loginMode : KeycloakLoginMode::USER; }
KeycloakAuthenticationMethod KeycloakManager::authMethod() const {
  return parameters_ ? parameters_->authMethod : KeycloakAuthenticationMethod::APPLE;
}

const KeyCloakParameters& KeycloakManager::resolve(const std::optional<KeyCloakParameters>& given) const {
  if (given) return *given;
  if (parameters_) return *parameters_;
  fatal(kNoParameters);
}

// ---- helpers ---------------------------------------------------------------------------------

std::string KeycloakManager::formBody(const std::vector<std::pair<std::string, std::string>>& pairs) {
  std::string body;
  for (const auto& [key, value] : pairs) {
    if (!body.empty()) body.push_back('&');
    body += percentEncode(key, kQueryValueAllowed) + "=" + percentEncode(value, kQueryValueAllowed);
  }
  return body;
}

std::string KeycloakManager::codeFromCallbackURL(const std::string& url) {
  const std::string lastPiece = url.substr(url.rfind('/') == std::string::npos ? 0 : url.rfind('/') + 1);
  const auto at = lastPiece.rfind("code=");
  return at == std::string::npos ? lastPiece : lastPiece.substr(at + 5);
}

bool KeycloakManager::reuseToken(const KeyCloakParameters& parameters, TokenCompletion& completion) {
  auto current = currentTokenPayload();
  if (!current) return false;
  if (current->accessTokenValid(now())) {
    completion(current, std::nullopt);
    return true;
  }
  if (current->refreshTokenValid(now())) {
    refresh(current, parameters, std::move(completion));
    return true;
  }
  return false;
}

void KeycloakManager::postForm(const KeyCloakParameters& parameters, const std::vector<std::pair<std::string, std::string>>& pairs,
                               std::int64_t unknownCode, std::string unknownMessage, TokenCompletion completion) {
  HttpRequest request;
  request.method = "POST";
  request.url = *parameters.token_endpoint;
  request.headers.set("Content-Type", "application/x-www-form-urlencoded;charset=utf-8");
  request.body = formBody(pairs);
  request.timeout = std::chrono::seconds(60);
  auto self = shared_from_this();
  HttpSession(platform_.transport)
      .data(std::move(request), [self, unknownCode, unknownMessage = std::move(unknownMessage), completion = std::move(completion)](DataResult result) mutable {
        // The token is decoded, written to the keychain and put in force off the I/O thread.
        self->platform_.executor->post([self, unknownCode, unknownMessage = std::move(unknownMessage),
                                        completion = std::move(completion), result = std::move(result)] {
          self->handleTokenReply(result, unknownCode, unknownMessage, completion);
        });
      });
}

void KeycloakManager::handleTokenReply(const DataResult& result, std::int64_t unknownCode, const std::string& unknownMessage,
                                       const TokenCompletion& completion) {
  if (!result.response || result.response->body.empty()) return completion(std::nullopt, PlatformError(unknownMessage, unknownCode));
  KeyCloakAuthResponse response;
  try {
    detail::ScopedDecodingTime stamp(now());
    response = decodeJSON<KeyCloakAuthResponse>(result.response->body);
  } catch (const JsonError&) {
    return completion(std::nullopt, PlatformError("Invalid auth response", kInvalidResponse));
  }
  if (response.error) return completion(std::nullopt, PlatformError(response.error_description.value_or(*response.error), kServerError));
  setCurrentTokenPayload(response);
  completion(response, std::nullopt);
}

void KeycloakManager::openBrowser(const std::string& url, const KeyCloakParameters& parameters,
                                  std::function<void(std::optional<std::string>, std::optional<PlatformError>)> done) {
  if (parameters.authMethod == KeycloakAuthenticationMethod::CUSTOM) {
    return customHandler_->presentAuthentication(
        url, [done](std::optional<std::string> code, std::optional<PlatformError> error) { done(std::move(code), std::move(error)); },
        [](std::optional<PlatformError>) {});
  }
  const std::string scheme = percentEncode(parameters.redirect_uri.value_or(""), kHostAllowed);
  platform_.browser->start(url, scheme, [done](std::optional<std::string> callbackURL, std::optional<PlatformError> error) {
    if (error || !callbackURL) return done(std::nullopt, error ? error : PlatformError("Unknown Error Occurred (performAuth)", kUnknown));
    done(codeFromCallbackURL(*callbackURL), std::nullopt);
  });
}

// ---- flows -----------------------------------------------------------------------------------

void KeycloakManager::authorize(std::optional<KeyCloakParameters> given, TokenCompletion completion) {
  const KeyCloakParameters p = resolve(given);
  if (reuseToken(p, completion)) return;
  if (empty(p.authorization_endpoint) || empty(p.redirect_uri) || empty(p.clientId)) {
    return completion(std::nullopt, PlatformError("KeycloakManager (performAuth) Missing parameters.", kMissingParameters));
  }
  std::string scopes;
  for (const auto& s : p.scope) scopes += (scopes.empty() ? "" : "+") + s;
  // No PKCE challenge and no nonce; the state is the fixed parameter value.
  const std::string url = *p.authorization_endpoint + "?client_id=" + *p.clientId + "&response_type=" + p.response_type +
                          "&scope=" + scopes + "&state=" + p.state + "&redirect_uri=" + percentEncode(*p.redirect_uri, kHostAllowed);
  auto self = shared_from_this();
  openBrowser(url, p, [self, p, completion](std::optional<std::string> code, std::optional<PlatformError> error) {
    if (error || !code) return completion(std::nullopt, error ? error : PlatformError("Unknown Error Occurred (performAuth)", kUnknown));
    self->exchangeCode(*code, p, completion);
  });
}

void KeycloakManager::exchangeCode(std::string code, std::optional<KeyCloakParameters> given, TokenCompletion completion) {
  const KeyCloakParameters& p = resolve(given);
  if (empty(p.token_endpoint) || empty(p.clientId) || empty(p.redirect_uri)) {
    return completion(std::nullopt, PlatformError("KeycloakManager (exchangeAuthCodeForToken) Missing parameters.", kExchangeMissingParameters));
  }
  postForm(p, {{"grant_type", p.grant_type}, {"client_id", *p.clientId}, {"code", code}, {"redirect_uri", *p.redirect_uri}}, kUnknown,
           "Unknown Error Occurred (exchangeAuthCodeForToken)", std::move(completion));
}

void KeycloakManager::guestAuth(std::optional<KeyCloakParameters> given, TokenCompletion completion) {
  const KeyCloakParameters p = resolve(given);
  if (reuseToken(p, completion)) return;
  if (empty(p.token_endpoint) || empty(p.guestClientId) || empty(p.guestSecretKey)) {
    return completion(std::nullopt, PlatformError("KeycloakManager (performGuestAuth) Missing parameters.", kMissingParameters));
  }
  postForm(p, {{"client_id", *p.guestClientId}, {"grant_type", "client_credentials"}, {"client_secret", *p.guestSecretKey}},
           kGuestUnknown, "Unknown Error Occurred (performGuestAuth)", std::move(completion));
}

void KeycloakManager::backgroundAuth(std::optional<KeyCloakParameters> given, TokenCompletion completion) {
  const KeyCloakParameters p = resolve(given);
  if (reuseToken(p, completion)) return;
  if (empty(p.token_endpoint) || empty(p.clientId)) {
    return completion(std::nullopt, PlatformError("KeycloakManager (performBackgroundAuth) Missing parameters.", kMissingParameters));
  }
  auto credentials = BackgroundLoginParameters::readFromKeychain(keychain_);
  if (!credentials || credentials->isExpired(now())) {
    return completion(std::nullopt, PlatformError("Credentials expired or invalid.", kCredentials));
  }
  // The background flow reports transport failures with the guest flow's text.
  postForm(p, {{"username", credentials->username}, {"grant_type", "password"}, {"password", credentials->password}, {"client_id", *p.clientId}},
           kGuestUnknown, "Unknown Error Occurred (performGuestAuth)", std::move(completion));
}

void KeycloakManager::refresh(std::optional<KeyCloakAuthResponse> payload, std::optional<KeyCloakParameters> given,
                                   TokenCompletion completion) {
  if (!payload) {
    return completion(std::nullopt, PlatformError("KeycloakManager (refreshToken) Missing payload KeyCloakAuthResponse.", kInvalidResponse));
  }
  const KeyCloakParameters& p = resolve(given);
  if (empty(p.token_endpoint) || empty(payload->refresh_token)) {
    return completion(std::nullopt, PlatformError("KeycloakManager (refreshToken) Missing parameters.", kRefreshMissingParameters));
  }
  std::vector<std::pair<std::string, std::string>> pairs{{"grant_type", "refresh_token"}, {"refresh_token", *payload->refresh_token}};
  if (p.loginMode == KeycloakLoginMode::GUEST) {
    if (empty(p.guestSecretKey)) {
      return completion(std::nullopt, PlatformError("KeycloakManager (refreshToken) Guest refresh specified, but missing secretKey parameters.",
                                                    kRefreshMissingParameters));
    }
    pairs.emplace_back("client_id", p.guestClientId.value_or(""));
    pairs.emplace_back("client_secret", *p.guestSecretKey);
  } else {
    pairs.emplace_back("client_id", p.clientId.value_or(""));
  }
  postForm(p, pairs, kUnknown, "Unknown Error Occurred (refreshToken)", std::move(completion));
}

Task<KeyCloakAuthResponse> KeycloakManager::refreshToken(std::optional<KeyCloakAuthResponse> payload,
                                                         std::optional<KeyCloakParameters> parameters) {
  co_await detail::ResumeHere{platform_};
  auto refreshing = detail::awaitCompletion<KeyCloakAuthResponse>(
      [self = shared_from_this(), payload = std::move(payload), parameters = std::move(parameters)](TokenCompletion done) {
        self->refresh(payload, parameters, std::move(done));
      });
  auto [token, error] = co_await refreshing;
  if (error) throw *error;
  if (!token) throw PlatformError("Unknown error occurred - RefreshToken", kUnknown);
  co_return std::move(*token);
}

// ---- the public flows: the same, answered on the main queue ----------------------------------

KeycloakManager::TokenCompletion KeycloakManager::onMainQueue(TokenCompletion completion) const {
  return [queue = platform_.mainQueue, completion = std::move(completion)](std::optional<KeyCloakAuthResponse> token,
                                                                           std::optional<PlatformError> error) {
    queue->post([completion, token = std::move(token), error = std::move(error)] {
      if (completion) completion(token, error);
    });
  };
}

void KeycloakManager::performAuth(std::optional<KeyCloakParameters> parameters, TokenCompletion completion) {
  authorize(std::move(parameters), onMainQueue(std::move(completion)));
}
void KeycloakManager::performGuestAuth(std::optional<KeyCloakParameters> parameters, TokenCompletion completion) {
  guestAuth(std::move(parameters), onMainQueue(std::move(completion)));
}
void KeycloakManager::performBackgroundAuth(std::optional<KeyCloakParameters> parameters, TokenCompletion completion) {
  backgroundAuth(std::move(parameters), onMainQueue(std::move(completion)));
}
void KeycloakManager::exchangeAuthCodeForToken(std::string code, std::optional<KeyCloakParameters> parameters,
                                               TokenCompletion completion) {
  exchangeCode(std::move(code), std::move(parameters), onMainQueue(std::move(completion)));
}
void KeycloakManager::refreshToken(std::optional<KeyCloakAuthResponse> payload, std::optional<KeyCloakParameters> parameters,
                                   TokenCompletion completion) {
  refresh(std::move(payload), std::move(parameters), onMainQueue(std::move(completion)));
}
void KeycloakManager::logout(std::optional<KeyCloakParameters> parameters, LogoutCompletion completion) {
  endSession(std::move(parameters), [queue = platform_.mainQueue, completion = std::move(completion)](
                                        std::optional<bool> done, std::optional<PlatformError> error) {
    queue->post([completion, done, error = std::move(error)] {
      if (completion) completion(done, error);
    });
  });
}

void KeycloakManager::endSession(std::optional<KeyCloakParameters> given, LogoutCompletion completion) {
  const KeyCloakParameters p = resolve(given);
  if (empty(p.end_session_endpoint) || empty(p.clientId) || empty(p.redirect_uri)) {
    return completion(std::nullopt, PlatformError("KeycloakManager (logout) Missing parameters.", kServerError));
  }
  const std::string url = *p.end_session_endpoint + "?client_id=" + *p.clientId + "&post_logout_redirect_uri=" + *p.redirect_uri;
  auto self = shared_from_this();
  // Clearing the token writes the keychain: never on the I/O thread.
  auto finish = [self, completion](std::optional<PlatformError> error) {
    self->platform_.executor->post([self, completion, error = std::move(error)] {
      if (error) return completion(false, error);
      self->setCurrentTokenPayload(std::nullopt);
      completion(true, std::nullopt);
    });
  };
  if (p.loginMode == KeycloakLoginMode::BACKGROUND) {
    HttpRequest request;
    request.url = url;
    request.timeout = std::chrono::seconds(60);
    // A redirect here hands control back to the application's redirect URI, which nothing serves
    // outside a browser: the session has ended, so it is not followed.
    HttpSession(platform_.transport).data(std::move(request), [finish](DataResult result) {
      // The transport's own error says more than the generic text, which is kept for a failure
      // that carries none.
      if (result.error) return finish(PlatformError(result.error->message, result.error->code));
      finish(result.response ? std::nullopt : std::optional(PlatformError("Unknown Error Occurred (logout)", kUnknown)));
    }, Redirects::stop);
    return;
  }
  if (p.authMethod == KeycloakAuthenticationMethod::CUSTOM) {
    return customHandler_->presentAuthentication(
        url, [finish](std::optional<std::string>, std::optional<PlatformError> error) { finish(std::move(error)); }, finish);
  }
  platform_.browser->start(url, percentEncode(*p.redirect_uri, kHostAllowed),
                           [finish](std::optional<std::string>, std::optional<PlatformError> error) { finish(std::move(error)); });
}

}  // namespace velora
