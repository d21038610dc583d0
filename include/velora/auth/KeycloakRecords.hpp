#pragma once
// The identity server's discovery document, its token response (which is also the stored
// session), and the parameter set of one login, refresh or logout.

#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include <velora/auth/KeycloakEnumerations.hpp>
#include <velora/core/Date.hpp>
#include <velora/core/Record.hpp>

namespace velora {

struct KeyCloakMTLSAliases {
  std::optional<std::string> token_endpoint, revocation_endpoint, introspection_endpoint, device_authorization_endpoint,
      registration_endpoint, userinfo_endpoint, pushed_authorization_request_endpoint, backchannel_authentication_endpoint;

  static constexpr std::string_view typeName = "KeyCloakMTLSAliases";
  static constexpr auto fields() {
    using T = KeyCloakMTLSAliases;
    return std::tuple{field("token_endpoint", &T::token_endpoint), field("revocation_endpoint", &T::revocation_endpoint),
                      field("introspection_endpoint", &T::introspection_endpoint),
                      field("device_authorization_endpoint", &T::device_authorization_endpoint),
                      field("registration_endpoint", &T::registration_endpoint), field("userinfo_endpoint", &T::userinfo_endpoint),
                      field("pushed_authorization_request_endpoint", &T::pushed_authorization_request_endpoint),
                      field("backchannel_authentication_endpoint", &T::backchannel_authentication_endpoint)};
  }
  friend bool operator==(const KeyCloakMTLSAliases&, const KeyCloakMTLSAliases&) = default;
};

/// The discovery document. Every field is optional and kept as the server sent it; the login flows
/// read only the four endpoints they need.
struct KeyCloakRemoteConfiguration {
  using Text = std::optional<std::string>;
  using Flag = std::optional<bool>;
  using Algorithms = std::optional<std::vector<KeycloakAlgorithm>>;
  using AuthMethods = std::optional<std::vector<KeycloakAuthMethod>>;

  Text issuer, authorization_endpoint, token_endpoint, introspection_endpoint, userinfo_endpoint, end_session_endpoint;
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
  std::optional<KeyCloakMTLSAliases> mtls_endpoint_aliases;

  static constexpr std::string_view typeName = "KeyCloakRemoteConfiguration";
  static constexpr auto fields();
  friend bool operator==(const KeyCloakRemoteConfiguration&, const KeyCloakRemoteConfiguration&) = default;
};

// Every key equals its member's name.
#define VELORA_FIELD(name) field(#name, &KeyCloakRemoteConfiguration::name)
constexpr auto KeyCloakRemoteConfiguration::fields() {
  return std::tuple{
      VELORA_FIELD(issuer), VELORA_FIELD(authorization_endpoint), VELORA_FIELD(token_endpoint), VELORA_FIELD(introspection_endpoint),
      VELORA_FIELD(userinfo_endpoint), VELORA_FIELD(end_session_endpoint), VELORA_FIELD(frontchannel_logout_session_supported),
      VELORA_FIELD(frontchannel_logout_supported), VELORA_FIELD(jwks_uri), VELORA_FIELD(check_session_iframe),
      VELORA_FIELD(grant_types_supported), VELORA_FIELD(acr_values_supported), VELORA_FIELD(response_types_supported),
      VELORA_FIELD(subject_types_supported), VELORA_FIELD(id_token_signing_alg_values_supported),
      VELORA_FIELD(id_token_encryption_alg_values_supported), VELORA_FIELD(id_token_encryption_enc_values_supported),
      VELORA_FIELD(userinfo_signing_alg_values_supported), VELORA_FIELD(userinfo_encryption_alg_values_supported),
      VELORA_FIELD(userinfo_encryption_enc_values_supported), VELORA_FIELD(request_object_signing_alg_values_supported),
      VELORA_FIELD(request_object_encryption_alg_values_supported), VELORA_FIELD(request_object_encryption_enc_values_supported),
      VELORA_FIELD(response_modes_supported), VELORA_FIELD(registration_endpoint), VELORA_FIELD(token_endpoint_auth_methods_supported),
      VELORA_FIELD(token_endpoint_auth_signing_alg_values_supported), VELORA_FIELD(introspection_endpoint_auth_methods_supported),
      VELORA_FIELD(introspection_endpoint_auth_signing_alg_values_supported), VELORA_FIELD(authorization_signing_alg_values_supported),
      VELORA_FIELD(authorization_encryption_alg_values_supported), VELORA_FIELD(authorization_encryption_enc_values_supported),
      VELORA_FIELD(claims_supported), VELORA_FIELD(claim_types_supported), VELORA_FIELD(claims_parameter_supported),
      VELORA_FIELD(scopes_supported), VELORA_FIELD(request_parameter_supported), VELORA_FIELD(request_uri_parameter_supported),
      VELORA_FIELD(require_request_uri_registration), VELORA_FIELD(code_challenge_methods_supported),
      VELORA_FIELD(tls_client_certificate_bound_access_tokens), VELORA_FIELD(revocation_endpoint),
      VELORA_FIELD(revocation_endpoint_auth_methods_supported), VELORA_FIELD(revocation_endpoint_auth_signing_alg_values_supported),
      VELORA_FIELD(backchannel_logout_supported), VELORA_FIELD(backchannel_logout_session_supported),
      VELORA_FIELD(device_authorization_endpoint), VELORA_FIELD(backchannel_token_delivery_modes_supported),
      VELORA_FIELD(backchannel_authentication_endpoint), VELORA_FIELD(backchannel_authentication_request_signing_alg_values_supported),
      VELORA_FIELD(require_pushed_authorization_requests), VELORA_FIELD(pushed_authorization_request_endpoint),
      VELORA_FIELD(mtls_endpoint_aliases)};
}
#undef VELORA_FIELD

/// The token endpoint's reply and, at the same time, the stored session.
struct KeyCloakAuthResponse {
  std::optional<std::string> error, error_description, access_token;
  /// Lifetimes in seconds, counted from storingDate.
  std::optional<double> expires_in, refresh_expires_in;
  std::optional<std::string> refresh_token, token_type, id_token, session_state, scope;
  /// When the reply was received: set at decoding time when the JSON has none, then kept.
  std::optional<Date> storingDate;

  /// Valid until 60 seconds before storingDate + expires_in, by the given clock time.
  bool accessTokenValid(Date now) const { return valid(expires_in, now); }
  bool refreshTokenValid(Date now) const { return valid(refresh_expires_in, now); }

  void didDecode();

  static constexpr std::string_view typeName = "KeyCloakAuthResponse";
  static constexpr auto fields() {
    using T = KeyCloakAuthResponse;
    return std::tuple{field("error", &T::error), field("error_description", &T::error_description),
                      field("access_token", &T::access_token), field("expires_in", &T::expires_in),
                      field("refresh_expires_in", &T::refresh_expires_in), field("refresh_token", &T::refresh_token),
                      field("token_type", &T::token_type), field("id_token", &T::id_token),
                      field("session_state", &T::session_state), field("scope", &T::scope), field("storingDate", &T::storingDate)};
  }
  friend bool operator==(const KeyCloakAuthResponse&, const KeyCloakAuthResponse&) = default;

 private:
  bool valid(const std::optional<double>& lifetime, Date now) const;
};

/// Everything one login, refresh or logout needs. Build it with `make`, which fills what is not
/// given from the configuration and the defaults.
struct KeyCloakParameters {
  std::optional<std::string> authorization_endpoint, token_endpoint, userinfo_endpoint, end_session_endpoint;
  std::optional<std::string> redirect_uri, clientId, guestClientId, guestSecretKey;
  KeycloakLoginMode loginMode = KeycloakLoginMode::USER;
  KeycloakAuthenticationMethod authMethod = KeycloakAuthenticationMethod::APPLE;
  std::string grant_type = "authorization_code";
  std::string response_type = "code";
  std::vector<std::string> scope{"email", "openid", "phone", "profile"};
  /// Fixed unless the caller passes another: no generated state is ever sent or checked.
  std::string state = "STATE";

  static constexpr std::string_view typeName = "KeyCloakParameters";
  static constexpr auto fields() {
    using T = KeyCloakParameters;
    return std::tuple{field("authorization_endpoint", &T::authorization_endpoint), field("token_endpoint", &T::token_endpoint),
                      field("userinfo_endpoint", &T::userinfo_endpoint), field("end_session_endpoint", &T::end_session_endpoint),
                      field("redirect_uri", &T::redirect_uri), field("clientId", &T::clientId),
                      field("guestClientId", &T::guestClientId), field("guestSecretKey", &T::guestSecretKey),
                      field("loginMode", &T::loginMode), field("authMethod", &T::authMethod), field("grant_type", &T::grant_type),
                      field("response_type", &T::response_type), field("scope", &T::scope), field("state", &T::state)};
  }
  friend bool operator==(const KeyCloakParameters&, const KeyCloakParameters&) = default;
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
