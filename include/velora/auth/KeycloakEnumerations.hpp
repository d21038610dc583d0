#pragma once
// The identity server's vocabularies as found in its discovery document. Each decodes tolerantly:
// an unknown text becomes `unknown`, the last case.

#include <velora/auth/KeycloakLoginModes.hpp>
#include <velora/core/Record.hpp>

namespace velora {

/// A grant the token endpoint accepts ("grant_types_supported"); the device-code and CIBA grants
/// decode from their URN texts.
VELORA_ENUM(KeycloakGrantType, authorization_code, implicit, refresh_token, password, client_credentials,
    (device_code, "urn:ietf:params:oauth:grant-type:device_code"), (ciba, "urn:openid:params:grant-type:ciba"),
    unknown);

/// A response type of the authorisation endpoint ("response_types_supported"); the combined types
/// are the space-separated texts, e.g. `code_idtoken` for "code id_token".
VELORA_ENUM(KeycloakResponseType, code, none, id_token, token, (idtoken_token, "id_token token"),
    (code_idtoken, "code id_token"), (code_token, "code token"), (code_idtoken_token, "code id_token token"), unknown);

/// How the server forms the subject identifier ("subject_types_supported"); `generic_public` is
/// "public", a reserved word in C++.
VELORA_ENUM(KeycloakSubjectType, (generic_public, "public"), pairwise, unknown);

/// A signing or encryption algorithm (every "..._alg_values_supported" and
/// "..._enc_values_supported" list); dashed texts such as "RSA-OAEP" use underscores.
VELORA_ENUM(KeycloakAlgorithm, none, PS384, ES384, RS384, HS256, HS512, ES256, RS256, HS384, ES512, PS256, PS512,
    RS512, (RSA_OAEP, "RSA-OAEP"), (RSA_OAEP_256, "RSA-OAEP-256"), (RSA15, "RSA1_5"), A256GCM, A192GCM, A128GCM,
    (A128CBC_HS256, "A128CBC-HS256"), (A192CBC_HS384, "A192CBC-HS384"), (A256CBC_HS512, "A256CBC-HS512"), unknown);

/// How the authorisation response is returned ("response_modes_supported"); the ".jwt" modes are
/// the JWT-secured variants. The spelling of this type's name is part of the public interface.
VELORA_ENUM(KeycloakReponseMode, query, fragment, form_post, (queryJwt, "query.jwt"), (fragmentJwt, "fragment.jwt"),
    (formPostJwt, "form_post.jwt"), jwt, unknown);

/// How a client authenticates at the token, introspection or revocation endpoint
/// ("..._endpoint_auth_methods_supported").
VELORA_ENUM(KeycloakAuthMethod, private_key_jwt, client_secret_basic, client_secret_post, tls_client_auth,
    client_secret_jwt, unknown);

/// A claim the server can put into its tokens and user information ("claims_supported").
VELORA_ENUM(KeycloakClaim, aud, sub, iss, auth_time, name, given_name, family_name, preferred_username, email, acr,
    unknown);

/// A claim type ("claim_types_supported"); only normal claims are known, the rest is `unknown`.
VELORA_ENUM(KeycloakClaimTypeSupported, normal, unknown);

/// A scope the server offers ("scopes_supported"). `microprofile_jwft` is spelled so on purpose;
/// its raw text is "microprofile-jwt".
VELORA_ENUM(KeycloakScope, openid, offline_access, email, roles, address, acr, (web_origins, "web-origins"), broker,
    (microprofile_jwft, "microprofile-jwt"), profile, phone, unknown);

/// A PKCE code challenge method ("code_challenge_methods_supported"); listed only, since the
/// login sends no challenge.
VELORA_ENUM(KeycloakChallengeMethod, plain, S256, unknown);

/// How back-channel (CIBA) tokens are delivered ("backchannel_token_delivery_modes_supported").
VELORA_ENUM(KeycloakDeliveryMode, poll, ping, unknown);

}  // namespace velora
