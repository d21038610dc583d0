#pragma once
// The identity server's discovery document, its token response (which is also the stored
// session), and the parameter set of one login, refresh or logout.

#include <optional>
#include <string>
#include <vector>

#include <velora/auth/KeycloakEnumerations.hpp>
#include <velora/core/Date.hpp>
#include <velora/core/Record.hpp>

namespace velora {

/// The discovery document's "mtls_endpoint_aliases": the endpoints that a client authenticating
/// with a TLS client certificate uses instead of the ordinary ones. Kept, never used by the library.
struct KeyCloakMTLSAliases {
  /// @{
  /// Endpoint URLs under the same keys as in the main document; empty when the server has no alias.
  std::optional<std::string> token_endpoint, revocation_endpoint, introspection_endpoint, device_authorization_endpoint,
      registration_endpoint, userinfo_endpoint, pushed_authorization_request_endpoint, backchannel_authentication_endpoint;
  /// @}

  VELORA_RECORD(KeyCloakMTLSAliases, token_endpoint, revocation_endpoint, introspection_endpoint,
      device_authorization_endpoint, registration_endpoint, userinfo_endpoint, pushed_authorization_request_endpoint,
      backchannel_authentication_endpoint);
};

/// The discovery document. Every field is optional and kept as the server sent it; the login flows
/// read only the four endpoints they need.
struct KeyCloakRemoteConfiguration {
  /// @{
  /// Shorthands for the member types: a text (URL or identifier), a flag, and lists of algorithms
  /// and client authentication methods, each empty when the key is absent or null.
  using Text = std::optional<std::string>;
  using Flag = std::optional<bool>;
  using Algorithms = std::optional<std::vector<KeycloakAlgorithm>>;
  using AuthMethods = std::optional<std::vector<KeycloakAuthMethod>>;
  /// @}

  /// @{
  /// The server's issuer identifier and its main endpoint URLs. The facade's logins pass the
  /// authorization, token, userinfo and end-session endpoints on to makeKeyCloakParameters.
  Text issuer, authorization_endpoint, token_endpoint, introspection_endpoint, userinfo_endpoint, end_session_endpoint;
  /// @}
  /// @{
  /// The rest of the server's metadata under the standard discovery keys: what it supports
  /// (logout variants, grants, response types and modes, algorithms, client authentication
  /// methods, claims, scopes, PKCE methods, back-channel options) and its further endpoint and
  /// key-set URLs. Kept for the application to inspect; no login flow reads them. Unknown entries
  /// of the lists decode as `unknown`.
  Flag frontchannel_logout_session_supported, frontchannel_logout_supported;
  Text jwks_uri, check_session_iframe;
  std::optional<std::vector<KeycloakGrantType>> grant_types_supported;
  std::optional<std::vector<std::string>> acr_values_supported;
  std::optional<std::vector<KeycloakResponseType>> response_types_supported;
  std::optional<std::vector<KeycloakSubjectType>> subject_types_supported;
  Algorithms id_token_signing_alg_values_supported, id_token_encryption_alg_values_supported,
      id_token_encryption_enc_values_supported, userinfo_signing_alg_values_supported,
      userinfo_encryption_alg_values_supported, userinfo_encryption_enc_values_supported,
      request_object_signing_alg_values_supported, request_object_encryption_alg_values_supported,
      request_object_encryption_enc_values_supported;
  std::optional<std::vector<KeycloakReponseMode>> response_modes_supported;
  Text registration_endpoint;
  AuthMethods token_endpoint_auth_methods_supported;
  Algorithms token_endpoint_auth_signing_alg_values_supported;
  AuthMethods introspection_endpoint_auth_methods_supported;
  Algorithms introspection_endpoint_auth_signing_alg_values_supported, authorization_signing_alg_values_supported,
      authorization_encryption_alg_values_supported, authorization_encryption_enc_values_supported;
  std::optional<std::vector<KeycloakClaim>> claims_supported;
  std::optional<std::vector<KeycloakClaimTypeSupported>> claim_types_supported;
  Flag claims_parameter_supported;
  std::optional<std::vector<KeycloakScope>> scopes_supported;
  Flag request_parameter_supported, request_uri_parameter_supported, require_request_uri_registration;
  std::optional<std::vector<KeycloakChallengeMethod>> code_challenge_methods_supported;
  Flag tls_client_certificate_bound_access_tokens;
  Text revocation_endpoint;
  AuthMethods revocation_endpoint_auth_methods_supported;
  Algorithms revocation_endpoint_auth_signing_alg_values_supported;
  Flag backchannel_logout_supported, backchannel_logout_session_supported;
  Text device_authorization_endpoint;
  std::optional<std::vector<KeycloakDeliveryMode>> backchannel_token_delivery_modes_supported;
  Text backchannel_authentication_endpoint;
  Algorithms backchannel_authentication_request_signing_alg_values_supported;
  Flag require_pushed_authorization_requests;
  Text pushed_authorization_request_endpoint;
  /// @}
  /// Endpoints for clients that authenticate with a TLS client certificate; empty when not sent.
  std::optional<KeyCloakMTLSAliases> mtls_endpoint_aliases;

  VELORA_RECORD(KeyCloakRemoteConfiguration, issuer, authorization_endpoint, token_endpoint, introspection_endpoint,
      userinfo_endpoint, end_session_endpoint, frontchannel_logout_session_supported, frontchannel_logout_supported,
      jwks_uri, check_session_iframe, grant_types_supported, acr_values_supported, response_types_supported,
      subject_types_supported, id_token_signing_alg_values_supported, id_token_encryption_alg_values_supported,
      id_token_encryption_enc_values_supported, userinfo_signing_alg_values_supported,
      userinfo_encryption_alg_values_supported, userinfo_encryption_enc_values_supported,
      request_object_signing_alg_values_supported, request_object_encryption_alg_values_supported,
      request_object_encryption_enc_values_supported, response_modes_supported, registration_endpoint,
      token_endpoint_auth_methods_supported, token_endpoint_auth_signing_alg_values_supported,
      introspection_endpoint_auth_methods_supported, introspection_endpoint_auth_signing_alg_values_supported,
      authorization_signing_alg_values_supported, authorization_encryption_alg_values_supported,
      authorization_encryption_enc_values_supported, claims_supported, claim_types_supported,
      claims_parameter_supported, scopes_supported, request_parameter_supported, request_uri_parameter_supported,
      require_request_uri_registration, code_challenge_methods_supported, tls_client_certificate_bound_access_tokens,
      revocation_endpoint, revocation_endpoint_auth_methods_supported,
      revocation_endpoint_auth_signing_alg_values_supported, backchannel_logout_supported,
      backchannel_logout_session_supported, device_authorization_endpoint, backchannel_token_delivery_modes_supported,
      backchannel_authentication_endpoint, backchannel_authentication_request_signing_alg_values_supported,
      require_pushed_authorization_requests, pushed_authorization_request_endpoint, mtls_endpoint_aliases);
};

/// The token endpoint's reply and, at the same time, the stored session.
struct KeyCloakAuthResponse {
  /// @{
  /// As the server sent them: "error" (an OAuth error code) and "error_description" when it refused
  /// the request, which fails the flow with the description (else the code) as message; otherwise
  /// "access_token", the bearer token sent with every platform request.
  std::optional<std::string> error, error_description, access_token;
  /// @}
  /// @{
  /// Lifetimes in seconds of the access and the refresh token, counted from storingDate.
  std::optional<double> expires_in, refresh_expires_in;
  /// @}
  /// @{
  /// "refresh_token" is what the refresh grant sends to renew the session; "token_type",
  /// "id_token", "session_state" and "scope" (the granted scopes) are kept as sent, never parsed.
  std::optional<std::string> refresh_token, token_type, id_token, session_state, scope;
  /// @}
  /// When the reply was received: set at decoding time when the JSON has none, then kept.
  std::optional<Date> storingDate;

  /// @{
  /// Whether the access (respectively refresh) token is usable at `now`: true until 60 seconds
  /// before storingDate + expires_in (refresh_expires_in); false when either is absent, so a
  /// lifetime of 60 seconds or less is never valid.
  bool accessTokenValid(Date now) const { return valid(expires_in, now); }
  bool refreshTokenValid(Date now) const { return valid(refresh_expires_in, now); }
  /// @}

  /// Runs after decoding: stamps storingDate with the decoding time when the JSON had none, so a
  /// fresh reply gets its receipt time and a stored session keeps its first one.
  void didDecode();

  VELORA_RECORD(KeyCloakAuthResponse, error, error_description, access_token, expires_in, refresh_expires_in,
      refresh_token, token_type, id_token, session_state, scope, storingDate);

 private:
  bool valid(const std::optional<double>& lifetime, Date now) const;
};

/// Everything one login, refresh or logout needs. Build it with makeKeyCloakParameters, which
/// fills what is not given from the configuration and the defaults.
struct KeyCloakParameters {
  /// @{
  /// The identity server's endpoint URLs, which the facade's logins copy from the discovery
  /// document; makeKeyCloakParameters has no fall-back for them. A flow that needs a missing one
  /// fails with a missing-parameters error.
  std::optional<std::string> authorization_endpoint, token_endpoint, userinfo_endpoint, end_session_endpoint;
  /// @}
  /// @{
  /// The application's registered redirect URI, its client id (user and background logins), and
  /// the guest client's id and secret (client-credentials grant). makeKeyCloakParameters takes
  /// each from its argument, else from the configuration; empty when neither has it.
  std::optional<std::string> redirect_uri, clientId, guestClientId, guestSecretKey;
  /// @}
  /// Which login this set is for (default USER). Beyond choosing the flow, a GUEST session is
  /// refreshed with the guest client's credentials and a BACKGROUND one logs out by a plain GET.
  KeycloakLoginMode loginMode = KeycloakLoginMode::USER;
  /// How the browser part of login and logout is shown (default APPLE, the system's session).
  KeycloakAuthenticationMethod authMethod = KeycloakAuthenticationMethod::APPLE;
  /// Sent by the authorisation-code exchange (default "authorization_code"); the guest,
  /// background and refresh requests send their own grant.
  std::string grant_type = "authorization_code";
  /// Sent as the authorisation request's "response_type" (default "code").
  std::string response_type = "code";
  /// Requested scopes, joined with "+" in the authorisation request; only the interactive login
  /// sends them.
  std::vector<std::string> scope{"email", "openid", "phone", "profile"};
  /// Fixed unless the caller passes another: no generated state is ever sent or checked.
  std::string state = "STATE";

  VELORA_RECORD(KeyCloakParameters, authorization_endpoint, token_endpoint, userinfo_endpoint, end_session_endpoint,
      redirect_uri, clientId, guestClientId, guestSecretKey, loginMode, authMethod, grant_type, response_type, scope,
      state);
};

namespace detail {
/// The time `KeyCloakAuthResponse::didDecode` stamps; the system clock unless a scope overrides
/// it (the Keycloak manager decodes with its platform's clock).
Date decodingNow();
class ScopedDecodingTime {
 public:
  explicit ScopedDecodingTime(Date now);
  ~ScopedDecodingTime();
  ScopedDecodingTime(const ScopedDecodingTime&) = delete;
  ScopedDecodingTime& operator=(const ScopedDecodingTime&) = delete;

 private:
  std::optional<Date> previous_;
};
}  // namespace detail

}  // namespace velora
