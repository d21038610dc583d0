#pragma once
// Platform-login records: a login against the platform itself rather than the identity server.

#include <string>
#include <tuple>

#include <velora/core/Record.hpp>

namespace velora {

struct NetworkRequestGuestLogin {
  std::string sdkKey;
  std::string sdkSecret;

  static constexpr std::string_view typeName = "NetworkRequestGuestLogin";
  static constexpr auto fields() {
    return std::tuple{field("sdkKey", &NetworkRequestGuestLogin::sdkKey), field("sdkSecret", &NetworkRequestGuestLogin::sdkSecret)};
  }
  friend bool operator==(const NetworkRequestGuestLogin&, const NetworkRequestGuestLogin&) = default;
};

struct NetworkResponseLogin {
  /// Name of the header that carries the token, and the prefix put before the token.
  std::string headerParam;
  std::string headerValuePrefix;
  std::string token;
  /// Expiry in milliseconds since 1970-01-01T00:00:00Z.
  double expiryTsMs = 0;

  static constexpr std::string_view typeName = "NetworkResponseLogin";
  static constexpr auto fields() {
    using T = NetworkResponseLogin;
    return std::tuple{field("headerParam", &T::headerParam), field("headerValuePrefix", &T::headerValuePrefix),
                      field("token", &T::token), field("expiryTsMs", &T::expiryTsMs)};
  }
  friend bool operator==(const NetworkResponseLogin&, const NetworkResponseLogin&) = default;
};

}  // namespace velora
