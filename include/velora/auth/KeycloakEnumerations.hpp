#pragma once
// The identity server's vocabularies as found in its discovery document. Each decodes tolerantly:
// an unknown text becomes `unknown`, the last case.

#include <array>

#include <velora/auth/KeycloakLoginModes.hpp>
#include <velora/core/Record.hpp>

namespace velora {

#define VELORA_CASE(E, name, raw) EnumCase<E>{E::name, raw}

enum class KeycloakGrantType { authorization_code, implicit, refresh_token, password, client_credentials, device_code, ciba, unknown };
constexpr auto enumCases(KeycloakGrantType) {
  using E = KeycloakGrantType;
  return std::array{VELORA_CASE(E, authorization_code, "authorization_code"), VELORA_CASE(E, implicit, "implicit"),
                    VELORA_CASE(E, refresh_token, "refresh_token"), VELORA_CASE(E, password, "password"),
                    VELORA_CASE(E, client_credentials, "client_credentials"),
                    VELORA_CASE(E, device_code, "urn:ietf:params:oauth:grant-type:device_code"),
                    VELORA_CASE(E, ciba, "urn:openid:params:grant-type:ciba"), VELORA_CASE(E, unknown, "unknown")};
}

enum class KeycloakResponseType { code, none, id_token, token, idtoken_token, code_idtoken, code_token, code_idtoken_token, unknown };
constexpr auto enumCases(KeycloakResponseType) {
  using E = KeycloakResponseType;
  return std::array{VELORA_CASE(E, code, "code"), VELORA_CASE(E, none, "none"), VELORA_CASE(E, id_token, "id_token"),
                    VELORA_CASE(E, token, "token"), VELORA_CASE(E, idtoken_token, "id_token token"),
                    VELORA_CASE(E, code_idtoken, "code id_token"), VELORA_CASE(E, code_token, "code token"),
                    VELORA_CASE(E, code_idtoken_token, "code id_token token"), VELORA_CASE(E, unknown, "unknown")};
}

enum class KeycloakSubjectType { generic_public, pairwise, unknown };
constexpr auto enumCases(KeycloakSubjectType) {
  using E = KeycloakSubjectType;
  return std::array{VELORA_CASE(E, generic_public, "public"), VELORA_CASE(E, pairwise, "pairwise"), VELORA_CASE(E, unknown, "unknown")};
}

enum class KeycloakAlgorithm {
  none, PS384, ES384, RS384, HS256, HS512, ES256, RS256, HS384, ES512, PS256, PS512, RS512, RSA_OAEP, RSA_OAEP_256, RSA15,
  A256GCM, A192GCM, A128GCM, A128CBC_HS256, A192CBC_HS384, A256CBC_HS512, unknown
};
constexpr auto enumCases(KeycloakAlgorithm) {
  using E = KeycloakAlgorithm;
  return std::array{VELORA_CASE(E, none, "none"), VELORA_CASE(E, PS384, "PS384"), VELORA_CASE(E, ES384, "ES384"),
                    VELORA_CASE(E, RS384, "RS384"), VELORA_CASE(E, HS256, "HS256"), VELORA_CASE(E, HS512, "HS512"),
                    VELORA_CASE(E, ES256, "ES256"), VELORA_CASE(E, RS256, "RS256"), VELORA_CASE(E, HS384, "HS384"),
                    VELORA_CASE(E, ES512, "ES512"), VELORA_CASE(E, PS256, "PS256"), VELORA_CASE(E, PS512, "PS512"),
                    VELORA_CASE(E, RS512, "RS512"), VELORA_CASE(E, RSA_OAEP, "RSA-OAEP"), VELORA_CASE(E, RSA_OAEP_256, "RSA-OAEP-256"),
                    VELORA_CASE(E, RSA15, "RSA1_5"), VELORA_CASE(E, A256GCM, "A256GCM"), VELORA_CASE(E, A192GCM, "A192GCM"),
                    VELORA_CASE(E, A128GCM, "A128GCM"), VELORA_CASE(E, A128CBC_HS256, "A128CBC-HS256"),
                    VELORA_CASE(E, A192CBC_HS384, "A192CBC-HS384"), VELORA_CASE(E, A256CBC_HS512, "A256CBC-HS512"),
                    VELORA_CASE(E, unknown, "unknown")};
}

// The spelling of this type's name is part of the public interface.
enum class KeycloakReponseMode { query, fragment, form_post, queryJwt, fragmentJwt, formPostJwt, jwt, unknown };
constexpr auto enumCases(KeycloakReponseMode) {
  using E = KeycloakReponseMode;
  return std::array{VELORA_CASE(E, query, "query"), VELORA_CASE(E, fragment, "fragment"), VELORA_CASE(E, form_post, "form_post"),
                    VELORA_CASE(E, queryJwt, "query.jwt"), VELORA_CASE(E, fragmentJwt, "fragment.jwt"),
                    VELORA_CASE(E, formPostJwt, "form_post.jwt"), VELORA_CASE(E, jwt, "jwt"), VELORA_CASE(E, unknown, "unknown")};
}

enum class KeycloakAuthMethod { private_key_jwt, client_secret_basic, client_secret_post, tls_client_auth, client_secret_jwt, unknown };
constexpr auto enumCases(KeycloakAuthMethod) {
  using E = KeycloakAuthMethod;
  return std::array{VELORA_CASE(E, private_key_jwt, "private_key_jwt"), VELORA_CASE(E, client_secret_basic, "client_secret_basic"),
                    VELORA_CASE(E, client_secret_post, "client_secret_post"), VELORA_CASE(E, tls_client_auth, "tls_client_auth"),
                    VELORA_CASE(E, client_secret_jwt, "client_secret_jwt"), VELORA_CASE(E, unknown, "unknown")};
}

enum class KeycloakClaim { aud, sub, iss, auth_time, name, given_name, family_name, preferred_username, email, acr, unknown };
constexpr auto enumCases(KeycloakClaim) {
  using E = KeycloakClaim;
  return std::array{VELORA_CASE(E, aud, "aud"), VELORA_CASE(E, sub, "sub"), VELORA_CASE(E, iss, "iss"),
                    VELORA_CASE(E, auth_time, "auth_time"), VELORA_CASE(E, name, "name"), VELORA_CASE(E, given_name, "given_name"),
                    VELORA_CASE(E, family_name, "family_name"), VELORA_CASE(E, preferred_username, "preferred_username"),
                    VELORA_CASE(E, email, "email"), VELORA_CASE(E, acr, "acr"), VELORA_CASE(E, unknown, "unknown")};
}

enum class KeycloakClaimTypeSupported { normal, unknown };
constexpr auto enumCases(KeycloakClaimTypeSupported) {
  using E = KeycloakClaimTypeSupported;
  return std::array{VELORA_CASE(E, normal, "normal"), VELORA_CASE(E, unknown, "unknown")};
}

// `microprofile_jwft` is spelled so on purpose; its raw text is "microprofile-jwt".
enum class KeycloakScope { openid, offline_access, email, roles, address, acr, web_origins, broker, microprofile_jwft, profile, phone, unknown };
constexpr auto enumCases(KeycloakScope) {
  using E = KeycloakScope;
  return std::array{VELORA_CASE(E, openid, "openid"), VELORA_CASE(E, offline_access, "offline_access"), VELORA_CASE(E, email, "email"),
                    VELORA_CASE(E, roles, "roles"), VELORA_CASE(E, address, "address"), VELORA_CASE(E, acr, "acr"),
                    VELORA_CASE(E, web_origins, "web-origins"), VELORA_CASE(E, broker, "broker"),
                    VELORA_CASE(E, microprofile_jwft, "microprofile-jwt"), VELORA_CASE(E, profile, "profile"),
                    VELORA_CASE(E, phone, "phone"), VELORA_CASE(E, unknown, "unknown")};
}

enum class KeycloakChallengeMethod { plain, S256, unknown };
constexpr auto enumCases(KeycloakChallengeMethod) {
  using E = KeycloakChallengeMethod;
  return std::array{VELORA_CASE(E, plain, "plain"), VELORA_CASE(E, S256, "S256"), VELORA_CASE(E, unknown, "unknown")};
}

enum class KeycloakDeliveryMode { poll, ping, unknown };
constexpr auto enumCases(KeycloakDeliveryMode) {
  using E = KeycloakDeliveryMode;
  return std::array{VELORA_CASE(E, poll, "poll"), VELORA_CASE(E, ping, "ping"), VELORA_CASE(E, unknown, "unknown")};
}

#undef VELORA_CASE

}  // namespace velora
