#pragma once
// The one object that talks to the identity server: discovery, the four ways of obtaining a token
// (interactive code, guest client credentials, background password, refresh), logout, and the
// current token. Every change of the current token is saved to the credential store and makes the
// facade rebuild its session, so the next request carries the new bearer token.
//
// There is one manager per facade: `KeycloakManager::setup` creates the shared facade's manager,
// `Orvane::setupKeycloak` that of any other facade. Completions run once, on the main queue. The
// identity server's replies are handled (decoded, stored in the keychain, put in force) on the
// platform's executor, never on the transport's I/O thread.

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <velora/auth/KeychainHelper.hpp>
#include <velora/auth/KeycloakRecords.hpp>
#include <velora/core/PlatformError.hpp>
#include <velora/core/Task.hpp>
#include <velora/platform/BrowserAuthSession.hpp>
#include <velora/platform/HttpTransport.hpp>

namespace velora {

class Orvane;
namespace detail {
class KeycloakRenewer;
}

/// Error codes of the identity layer.
namespace keycloak_error {
inline constexpr std::int64_t kGuestUnknown = -23000;
inline constexpr std::int64_t kUnknown = -23001;
inline constexpr std::int64_t kMissingParameters = -23002;
inline constexpr std::int64_t kExchangeMissingParameters = -23003;
inline constexpr std::int64_t kRefreshMissingParameters = -23004;
inline constexpr std::int64_t kServerError = -23005;
inline constexpr std::int64_t kInvalidResponse = -23006;
inline constexpr std::int64_t kDiscovery = -23010;
inline constexpr std::int64_t kCredentials = -23022;
}  // namespace keycloak_error

/// Arguments of KeyCloakParameters::make; absent ones come from configuration or defaults.
struct KeyCloakParameterArguments {
  std::optional<std::string> authorization_endpoint, token_endpoint, userinfo_endpoint, end_session_endpoint;
  std::optional<std::string> redirect_uri, clientId, guestClientId, guestSecretKey;
  std::optional<KeycloakLoginMode> loginMode;
  std::optional<KeycloakAuthenticationMethod> authMethod;
  std::optional<std::string> grant_type, response_type;
  std::optional<std::vector<std::string>> scope;
  std::optional<std::string> state;
};

/// Builds a parameter set: each absent argument takes the facade's configuration (environment
/// first, then the information dictionary's "KeycloakConfig"), else its default.
KeyCloakParameters makeKeyCloakParameters(const Orvane& facade, KeyCloakParameterArguments arguments = {});

class KeycloakManager : public std::enable_shared_from_this<KeycloakManager> {
 public:
  using TokenCompletion = std::function<void(std::optional<KeyCloakAuthResponse>, std::optional<PlatformError>)>;
  using LogoutCompletion = std::function<void(std::optional<bool>, std::optional<PlatformError>)>;
  using DiscoveryCompletion = std::function<void(std::optional<KeyCloakRemoteConfiguration>, std::optional<PlatformError>)>;

  // ---- class level: the shared facade's manager and configuration ------------------------------
  /// Creates the shared facade's manager with these parameters (replacing an earlier one).
  static void setup(KeyCloakParameters with);
  /// The shared facade's manager; empty until setup.
  static std::shared_ptr<KeycloakManager> shared();
  static bool isConfigured();

  /// GETs the discovery document (`from`, else the configured discovery URL) without
  /// authentication. Stops the process when neither is a parsable URL. The completion runs on the
  /// platform's executor; a failure carries the cause under "reason" in its user information.
  static void discoverConfiguration(const Orvane& facade, std::optional<std::string> from, DiscoveryCompletion completion);

  // Configuration: the facade's KeycloakEnvironment field when set, else the information
  // dictionary's "KeycloakConfig" string under the same key. Stops without an environment.
  static std::optional<std::string> getDiscoverURL(const Orvane& facade);
  static std::optional<std::string> getClientId(const Orvane& facade);
  static std::optional<std::string> getGuestClientId(const Orvane& facade);
  static std::optional<std::string> getGuestSecretKey(const Orvane& facade);
  static std::optional<std::string> getRedirectURI(const Orvane& facade);
  static std::optional<KeycloakLoginMode> getLoginMode(const Orvane& facade);
  static std::optional<KeycloakAuthenticationMethod> getAuthenticationMethod(const Orvane& facade);
  /// The redirect URI's scheme followed by "://".
  static std::optional<std::string> getRedirectSchema(const Orvane& facade);

  /// A manager for `facade` (prefer Orvane::setupKeycloak). Restores a stored token whose refresh
  /// token is still valid, without the store and session side effects.
  KeycloakManager(Orvane& facade, KeyCloakParameters with);

  // ---- state -----------------------------------------------------------------------------------
  std::optional<KeyCloakAuthResponse> currentTokenPayload() const;
  /// Saves the value (or JSON null) under "keycloak"/"access-token", then rebuilds the facade's session.
  void setCurrentTokenPayload(std::optional<KeyCloakAuthResponse> payload);
  const std::optional<KeyCloakParameters>& parameters() const { return parameters_; }
  KeycloakLoginMode loginMode() const;
  KeycloakAuthenticationMethod authMethod() const;
  const std::shared_ptr<CustomAuthenticationHandler>& customAuthenticationHandler() const { return customHandler_; }

  // ---- flows -----------------------------------------------------------------------------------
  // A missing `parameters` falls back to the manager's own.
  void performAuth(std::optional<KeyCloakParameters> parameters, TokenCompletion completion);
  void performGuestAuth(std::optional<KeyCloakParameters> parameters, TokenCompletion completion);
  void performBackgroundAuth(std::optional<KeyCloakParameters> parameters, TokenCompletion completion);
  void exchangeAuthCodeForToken(std::string code, std::optional<KeyCloakParameters> parameters, TokenCompletion completion);
  void refreshToken(std::optional<KeyCloakAuthResponse> payload, std::optional<KeyCloakParameters> parameters,
                    TokenCompletion completion);
  Task<KeyCloakAuthResponse> refreshToken(std::optional<KeyCloakAuthResponse> payload, std::optional<KeyCloakParameters> parameters);
  void logout(std::optional<KeyCloakParameters> parameters, LogoutCompletion completion);

  /// The form body of a token request: pairs in the given order, each side percent-encoded with
  /// the URL query-value character set.
  static std::string formBody(const std::vector<std::pair<std::string, std::string>>& pairs);
  /// The authorisation code in a callback URL: everything after the last "code=" of its last
  /// "/"-separated piece.
  static std::string codeFromCallbackURL(const std::string& url);

 private:
  friend class Orvane;
  friend class detail::KeycloakRenewer;
  // The flows themselves; their completions run where the flow ended (the executor, the main
  // queue or the browser's thread), never on the I/O thread. The facade chains them directly.
  void authorize(std::optional<KeyCloakParameters> parameters, TokenCompletion completion);
  void guestAuth(std::optional<KeyCloakParameters> parameters, TokenCompletion completion);
  void backgroundAuth(std::optional<KeyCloakParameters> parameters, TokenCompletion completion);
  void exchangeCode(std::string code, std::optional<KeyCloakParameters> parameters, TokenCompletion completion);
  void refresh(std::optional<KeyCloakAuthResponse> payload, std::optional<KeyCloakParameters> parameters,
               TokenCompletion completion);
  void endSession(std::optional<KeyCloakParameters> parameters, LogoutCompletion completion);
  TokenCompletion onMainQueue(TokenCompletion completion) const;
  void handleTokenReply(const DataResult& result, std::int64_t unknownCode, const std::string& unknownMessage,
                        const TokenCompletion& completion);

  const KeyCloakParameters& resolve(const std::optional<KeyCloakParameters>& given) const;
  bool reuseToken(const KeyCloakParameters& parameters, TokenCompletion& completion);
  void postForm(const KeyCloakParameters& parameters, const std::vector<std::pair<std::string, std::string>>& pairs,
                std::int64_t unknownCode, std::string unknownMessage, TokenCompletion completion);
  void openBrowser(const std::string& url, const KeyCloakParameters& parameters,
                   std::function<void(std::optional<std::string>, std::optional<PlatformError>)> done);
  Date now() const;

  std::weak_ptr<Orvane> facade_;
  Platform platform_;
  std::optional<KeyCloakParameters> parameters_;
  std::shared_ptr<CustomAuthenticationHandler> customHandler_;
  KeychainHelper keychain_;
  mutable std::mutex mutex_;
  std::optional<KeyCloakAuthResponse> current_;
};

}  // namespace velora
