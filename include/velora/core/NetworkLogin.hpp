#pragma once
// Platform-login records: a login against the platform itself rather than the identity server.

#include <string>

#include <velora/core/Record.hpp>

namespace velora {

struct NetworkRequestGuestLogin {
  std::string sdkKey;
  std::string sdkSecret;

  VELORA_RECORD(NetworkRequestGuestLogin, sdkKey, sdkSecret);
};

struct NetworkResponseLogin {
  /// Name of the header that carries the token, and the prefix put before the token.
  std::string headerParam;
  std::string headerValuePrefix;
  std::string token;
  /// Expiry in milliseconds since 1970-01-01T00:00:00Z.
  double expiryTsMs = 0;

  VELORA_RECORD(NetworkResponseLogin, headerParam, headerValuePrefix, token, expiryTsMs);
};

}  // namespace velora
