// The realm's OpenID provider metadata, as complete as the identity server's own: clients
// decode the whole document, so it carries every list, including values newer than a client
// may know (EdDSA, RSA-OAEP-384, token exchange), to keep them honest about ignoring those.
// The sandbox serves only the auth, token and logout endpoints; the others are advertised for
// the shape and answer 404.

#include "Realm.hpp"

namespace velora::sandbox::detail {

nlohmann::json discoveryDocument(const std::string& issuer) {
  using nlohmann::json;
  const std::string oidc = issuer + "/protocol/openid-connect";
  const json signing = {"PS384", "RS384", "EdDSA", "ES384", "HS256", "HS512", "ES256",
                        "RS256", "HS384", "ES512", "PS256", "PS512", "RS512"};
  const json asymmetricSigning = {"PS384", "RS384", "EdDSA", "ES384", "ES256",
                                  "RS256", "ES512", "PS256", "PS512", "RS512"};
  json signingOrNone = signing;
  signingOrNone.push_back("none");
  const json keyEncryption = {"ECDH-ES+A256KW", "ECDH-ES+A192KW", "ECDH-ES+A128KW", "RSA-OAEP",
                              "RSA-OAEP-256",   "RSA-OAEP-384",   "RSA-OAEP-512",   "RSA1_5",
                              "ECDH-ES"};
  const json contentEncryption = {"A256GCM",       "A192GCM",       "A128GCM",
                                  "A128CBC-HS256", "A192CBC-HS384", "A256CBC-HS512"};
  const json clientAuthentication = {"private_key_jwt", "client_secret_basic", "client_secret_post",
                                     "tls_client_auth", "client_secret_jwt"};

  const json endpoints = {
      {"token_endpoint", oidc + "/token"},
      {"revocation_endpoint", oidc + "/revoke"},
      {"introspection_endpoint", oidc + "/token/introspect"},
      {"device_authorization_endpoint", oidc + "/auth/device"},
      {"registration_endpoint", issuer + "/clients-registrations/openid-connect"},
      {"userinfo_endpoint", oidc + "/userinfo"},
      {"pushed_authorization_request_endpoint", oidc + "/ext/par/request"},
      {"backchannel_authentication_endpoint", oidc + "/ext/ciba/auth"},
  };
  json document = endpoints;
  document.update({
      {"issuer", issuer},
      {"authorization_endpoint", oidc + "/auth"},
      {"end_session_endpoint", oidc + "/logout"},
      {"frontchannel_logout_session_supported", true},
      {"frontchannel_logout_supported", true},
      {"jwks_uri", oidc + "/certs"},
      {"check_session_iframe", oidc + "/login-status-iframe.html"},
      {"grant_types_supported",
       {"authorization_code", "implicit", "refresh_token", "password", "client_credentials",
        "urn:openid:params:grant-type:ciba", "urn:ietf:params:oauth:grant-type:device_code",
        "urn:ietf:params:oauth:grant-type:token-exchange"}},
      {"acr_values_supported", {"0", "1"}},
      {"response_types_supported",
       {"code", "none", "id_token", "token", "id_token token", "code id_token", "code token",
        "code id_token token"}},
      {"subject_types_supported", {"public", "pairwise"}},
      {"id_token_signing_alg_values_supported", signing},
      {"id_token_encryption_alg_values_supported", keyEncryption},
      {"id_token_encryption_enc_values_supported", contentEncryption},
      {"userinfo_signing_alg_values_supported", signingOrNone},
      {"userinfo_encryption_alg_values_supported", keyEncryption},
      {"userinfo_encryption_enc_values_supported", contentEncryption},
      {"request_object_signing_alg_values_supported", signingOrNone},
      {"request_object_encryption_alg_values_supported", keyEncryption},
      {"request_object_encryption_enc_values_supported", contentEncryption},
      {"response_modes_supported",
       {"query", "fragment", "form_post", "query.jwt", "fragment.jwt", "form_post.jwt", "jwt"}},
      {"token_endpoint_auth_methods_supported", clientAuthentication},
      {"token_endpoint_auth_signing_alg_values_supported", signing},
      {"introspection_endpoint_auth_methods_supported", clientAuthentication},
      {"introspection_endpoint_auth_signing_alg_values_supported", signing},
      {"authorization_signing_alg_values_supported", signing},
      {"authorization_encryption_alg_values_supported", keyEncryption},
      {"authorization_encryption_enc_values_supported", contentEncryption},
      {"claims_supported",
       {"aud", "sub", "iss", "auth_time", "name", "given_name", "family_name",
        "preferred_username", "email", "acr"}},
      {"claim_types_supported", {"normal"}},
      {"claims_parameter_supported", true},
      {"scopes_supported",
       {"openid", "offline_access", "email", "roles", "address", "acr", "web-origins",
        "microprofile-jwt", "profile", "phone", "basic", "organization"}},
      {"request_parameter_supported", true},
      {"request_uri_parameter_supported", true},
      {"require_request_uri_registration", true},
      {"code_challenge_methods_supported", {"plain", "S256"}},
      {"tls_client_certificate_bound_access_tokens", true},
      {"revocation_endpoint_auth_methods_supported", clientAuthentication},
      {"revocation_endpoint_auth_signing_alg_values_supported", signing},
      {"backchannel_logout_supported", true},
      {"backchannel_logout_session_supported", true},
      {"backchannel_token_delivery_modes_supported", {"poll", "ping"}},
      {"backchannel_authentication_request_signing_alg_values_supported", asymmetricSigning},
      {"require_pushed_authorization_requests", false},
      {"authorization_response_iss_parameter_supported", true},
      // The same endpoints for clients that authenticate with a TLS certificate.
      {"mtls_endpoint_aliases", endpoints},
  });
  return document;
}

}  // namespace velora::sandbox::detail
