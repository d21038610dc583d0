#pragma once
// The identity server's vocabularies as found in its discovery document. Each decodes tolerantly:
// an unknown text becomes `unknown`, the last case.

#include <velora/auth/KeycloakLoginModes.hpp>
#include <velora/core/Record.hpp>

namespace velora {

VELORA_ENUM(KeycloakGrantType, authorization_code, implicit, refresh_token, password, client_credentials,
    (device_code, "urn:ietf:params:oauth:grant-type:device_code"), (ciba, "urn:openid:params:grant-type:ciba"),
    unknown);

VELORA_ENUM(KeycloakResponseType, code, none, id_token, token, (idtoken_token, "id_token token"),
    (code_idtoken, "code id_token"), (code_token, "code token"), (code_idtoken_token, "code id_token token"), unknown);

VELORA_ENUM(KeycloakSubjectType, (generic_public, "public"), pairwise, unknown);

VELORA_ENUM(KeycloakAlgorithm, none, PS384, ES384, RS384, HS256, HS512, ES256, RS256, HS384, ES512, PS256, PS512,
    RS512, (RSA_OAEP, "RSA-OAEP"), (RSA_OAEP_256, "RSA-OAEP-256"), (RSA15, "RSA1_5"), A256GCM, A192GCM, A128GCM,
    (A128CBC_HS256, "A128CBC-HS256"), (A192CBC_HS384, "A192CBC-HS384"), (A256CBC_HS512, "A256CBC-HS512"), unknown);

// The spelling of this type's name is part of the public interface.
VELORA_ENUM(KeycloakReponseMode, query, fragment, form_post, (queryJwt, "query.jwt"), (fragmentJwt, "fragment.jwt"),
    (formPostJwt, "form_post.jwt"), jwt, unknown);

VELORA_ENUM(KeycloakAuthMethod, private_key_jwt, client_secret_basic, client_secret_post, tls_client_auth,
    client_secret_jwt, unknown);

VELORA_ENUM(KeycloakClaim, aud, sub, iss, auth_time, name, given_name, family_name, preferred_username, email, acr,
    unknown);

VELORA_ENUM(KeycloakClaimTypeSupported, normal, unknown);

// `microprofile_jwft` is spelled so on purpose; its raw text is "microprofile-jwt".
VELORA_ENUM(KeycloakScope, openid, offline_access, email, roles, address, acr, (web_origins, "web-origins"), broker,
    (microprofile_jwft, "microprofile-jwt"), profile, phone, unknown);

VELORA_ENUM(KeycloakChallengeMethod, plain, S256, unknown);

VELORA_ENUM(KeycloakDeliveryMode, poll, ping, unknown);

}  // namespace velora
