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
/// A guest or background login got no usable reply (transport failure or empty body).
inline constexpr std::int64_t kGuestUnknown = -23000;
/// The interactive login, code exchange, refresh or logout failed without a more specific cause,
/// e.g. no reply, or a browser session that ended without a code.
inline constexpr std::int64_t kUnknown = -23001;
/// performAuth, performGuestAuth or performBackgroundAuth lacks an endpoint, client id, redirect
/// URI or guest secret that its flow needs.
inline constexpr std::int64_t kMissingParameters = -23002;
/// The code exchange lacks the token endpoint, the client id or the redirect URI.
inline constexpr std::int64_t kExchangeMissingParameters = -23003;
/// A refresh lacks the token endpoint or the refresh token, or a GUEST refresh the guest secret.
inline constexpr std::int64_t kRefreshMissingParameters = -23004;
/// The token endpoint answered with an "error" (the message is its description); also a logout
/// whose end-session endpoint, client id or redirect URI is missing.
inline constexpr std::int64_t kServerError = -23005;
/// The token endpoint's body is not a token response, or a refresh was given no token to renew.
inline constexpr std::int64_t kInvalidResponse = -23006;
/// The discovery document could not be fetched or decoded; "reason" in the user information says why.
inline constexpr std::int64_t kDiscovery = -23010;
/// Background login found no stored credentials, or they have expired.
inline constexpr std::int64_t kCredentials = -23022;
}  // namespace keycloak_error

/// Arguments of makeKeyCloakParameters; absent ones come from configuration or defaults.
struct KeyCloakParameterArguments {
  /// @{
  /// Each one given replaces the value makeKeyCloakParameters would otherwise use for the
  /// KeyCloakParameters field of the same name: the configuration (redirect URI, client ids,
  /// guest secret, login mode, authentication method) or the default; the endpoints have no other
  /// source, so absent endpoints stay empty.
  std::optional<std::string> authorization_endpoint, token_endpoint, userinfo_endpoint, end_session_endpoint;
  std::optional<std::string> redirect_uri, clientId, guestClientId, guestSecretKey;
  std::optional<KeycloakLoginMode> loginMode;
  std::optional<KeycloakAuthenticationMethod> authMethod;
  std::optional<std::string> grant_type, response_type;
  std::optional<std::vector<std::string>> scope;
  std::optional<std::string> state;
  /// @}
};

/// Builds a parameter set: each absent argument takes the facade's configuration (environment
/// first, then the information dictionary's "KeycloakConfig"), else its default.
KeyCloakParameters makeKeyCloakParameters(const Orvane& facade, KeyCloakParameterArguments arguments = {});

/// Obtains, renews and ends the user's session at the identity server and keeps the current
/// token. One per facade; the flows' completions run once, on the main queue.
class KeycloakManager : public std::enable_shared_from_this<KeycloakManager> {
 public:
  /// Receives the token response in force after the flow, or the error (a keycloak_error code or
  /// the browser's error); exactly one of the two is set.
  using TokenCompletion = std::function<void(std::optional<KeyCloakAuthResponse>, std::optional<PlatformError>)>;
  /// Receives true once the session ended and the stored token was cleared; on failure false or
  /// nothing, with the error.
  using LogoutCompletion = std::function<void(std::optional<bool>, std::optional<PlatformError>)>;
  /// Receives the discovery document, or an error with code keycloak_error::kDiscovery.
  using DiscoveryCompletion = std::function<void(std::optional<KeyCloakRemoteConfiguration>, std::optional<PlatformError>)>;

  // ---- class level: the shared facade's manager and configuration ------------------------------
  /// Creates the shared facade's manager with these parameters (replacing an earlier one).
  static void setup(KeyCloakParameters with);
  /// The shared facade's manager; empty until setup.
  static std::shared_ptr<KeycloakManager> shared();
  /// Whether setup (or Orvane::setupKeycloak on the shared facade) has created the shared manager.
  static bool isConfigured();

  /// GETs the discovery document (`from`, else the configured discovery URL) without
  /// authentication. Stops the process when neither is a parsable URL. The completion runs on the
  /// platform's executor; a failure carries the cause under "reason" in its user information.
  static void discoverConfiguration(const Orvane& facade, std::optional<std::string> from, DiscoveryCompletion completion);

  /// @{
  /// Configuration: the facade's KeycloakEnvironment field when set, else the information
  /// dictionary's "KeycloakConfig" string under the same key ("discoverURL", "clientId",
  /// "guestClientId", "guestSecretKey", "redirectURI", "loginMode", "authMethod"); nullopt when
  /// neither has it. The two enumerations decode tolerantly: an unknown text gives their last
  /// case. Stops the process when the facade has no environment.
  static std::optional<std::string> getDiscoverURL(const Orvane& facade);
  static std::optional<std::string> getClientId(const Orvane& facade);
  static std::optional<std::string> getGuestClientId(const Orvane& facade);
  static std::optional<std::string> getGuestSecretKey(const Orvane& facade);
  static std::optional<std::string> getRedirectURI(const Orvane& facade);
  static std::optional<KeycloakLoginMode> getLoginMode(const Orvane& facade);
  static std::optional<KeycloakAuthenticationMethod> getAuthenticationMethod(const Orvane& facade);
  /// @}
  /// The redirect URI's scheme followed by "://".
  static std::optional<std::string> getRedirectSchema(const Orvane& facade);

  /// A manager for `facade` (prefer Orvane::setupKeycloak). Restores a stored token whose refresh
  /// token is still valid, without the store and session side effects.
  KeycloakManager(Orvane& facade, KeyCloakParameters with);

  // ---- state -----------------------------------------------------------------------------------
  /// The token response in force (its access token is the bearer token of the facade's requests);
  /// empty before the first login and after logout. May be called from any thread.
  std::optional<KeyCloakAuthResponse> currentTokenPayload() const;
  /// Saves the value (or JSON null) under "keycloak"/"access-token", then rebuilds the facade's session.
  void setCurrentTokenPayload(std::optional<KeyCloakAuthResponse> payload);
  /// The parameter set given at construction, used by every flow that is called without one.
  const std::optional<KeyCloakParameters>& parameters() const { return parameters_; }
  /// @{
  /// The login mode and authentication method of parameters(); USER and APPLE without parameters.
  KeycloakLoginMode loginMode() const;
  KeycloakAuthenticationMethod authMethod() const;
  /// @}
  /// The platform's web-view login screen, shown instead of the browser for the CUSTOM method.
  const std::shared_ptr<CustomAuthenticationHandler>& customAuthenticationHandler() const { return customHandler_; }

  // ---- flows -----------------------------------------------------------------------------------
  // A missing `parameters` falls back to the manager's own (the process stops when there is none
  // either). A token obtained by a flow is stored and put in force before its completion runs.

  /// Interactive (USER) login. A current token is reused while its access token is valid, and
  /// refreshed while its refresh token is; otherwise the authorisation endpoint is opened in the
  /// browser (or the CUSTOM web-view screen) and the code it returns is exchanged for a token.
  /// kMissingParameters without authorization endpoint, redirect URI or client id.
  void performAuth(std::optional<KeyCloakParameters> parameters, TokenCompletion completion);
  /// Guest login with the client-credentials grant (guest client id and secret), after the same
  /// reuse or refresh of a current token as performAuth. kMissingParameters without token
  /// endpoint, guest client id or guest secret; kGuestUnknown when no usable reply comes back.
  void performGuestAuth(std::optional<KeyCloakParameters> parameters, TokenCompletion completion);
  /// Login with the password grant and the credentials stored by BackgroundLoginParameters, after
  /// the same reuse or refresh of a current token as performAuth. kMissingParameters without token
  /// endpoint or client id; kCredentials when no credentials are stored or they have expired.
  void performBackgroundAuth(std::optional<KeyCloakParameters> parameters, TokenCompletion completion);
  /// Trades an authorisation code from the login redirect for a token at the token endpoint.
  /// kExchangeMissingParameters without token endpoint, client id or redirect URI.
  void exchangeAuthCodeForToken(std::string code, std::optional<KeyCloakParameters> parameters, TokenCompletion completion);
  /// @{
  /// Renews `payload` (normally currentTokenPayload()) with the refresh grant; a GUEST parameter
  /// set also sends the guest client's id and secret. kInvalidResponse without a payload;
  /// kRefreshMissingParameters without token endpoint, refresh token or (GUEST) guest secret. The
  /// awaitable form returns the new token and throws the PlatformError instead.
  void refreshToken(std::optional<KeyCloakAuthResponse> payload, std::optional<KeyCloakParameters> parameters,
                    TokenCompletion completion);
  Task<KeyCloakAuthResponse> refreshToken(std::optional<KeyCloakAuthResponse> payload, std::optional<KeyCloakParameters> parameters);
  /// @}
  /// Ends the session at the end-session endpoint: in the browser (or the CUSTOM screen), or for a
  /// BACKGROUND login with a plain GET whose redirect is not followed. On success the current token
  /// is cleared and the completion gets true. kServerError when the end-session endpoint, client id
  /// or redirect URI is missing.
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
