#pragma once
// Platform-login records: a login against the platform itself rather than the identity server.

#include <string>

#include <velora/core/Record.hpp>

namespace velora {

/// Body of a guest login against the platform: the application's key and secret from the
/// environment's credentials. JSON keys are the member names.
struct NetworkRequestGuestLogin {
  /// @{
  /// The application's SDK key and secret, as the platform issued them.
  std::string sdkKey;
  std::string sdkSecret;
  /// @}

  VELORA_RECORD(NetworkRequestGuestLogin, sdkKey, sdkSecret);
};

/// The platform's answer to a login: which header to send the token in, and until when it holds.
/// JSON keys are the member names. The facade's setupSession accepts one but builds the session
/// from the current Keycloak token instead.
struct NetworkResponseLogin {
  /// @{
  /// Name of the header that carries the token, and the prefix put before the token in it.
  std::string headerParam;
  std::string headerValuePrefix;
  /// @}
  /// The token to send, after `headerValuePrefix`, in the `headerParam` header.
  std::string token;
  /// Expiry in milliseconds since 1970-01-01T00:00:00Z.
  double expiryTsMs = 0;

  VELORA_RECORD(NetworkResponseLogin, headerParam, headerValuePrefix, token, expiryTsMs);
};

}  // namespace velora
