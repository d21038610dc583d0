#pragma once
// How a user logs in. Unknown texts decode to the LAST case of each enumeration (`BACKGROUND`,
// `APPLE`), unlike the other Keycloak vocabularies whose last case is `unknown`; that asymmetry
// is intended.

#include <array>

#include <velora/core/Record.hpp>

namespace velora {

/// GUEST: client credentials of the application; USER: interactive browser login;
/// BACKGROUND: stored user name and password.
enum class KeycloakLoginMode { GUEST, USER, BACKGROUND };

constexpr auto enumCases(KeycloakLoginMode) {
  using E = KeycloakLoginMode;
  return std::array{EnumCase<E>{E::GUEST, "GUEST"}, EnumCase<E>{E::USER, "USER"}, EnumCase<E>{E::BACKGROUND, "BACKGROUND"}};
}

/// How the interactive login shows the server's page: APPLE, the system's web-authentication
/// session; CUSTOM, the library's own web-view screen.
enum class KeycloakAuthenticationMethod { CUSTOM, APPLE };

constexpr auto enumCases(KeycloakAuthenticationMethod) {
  using E = KeycloakAuthenticationMethod;
  return std::array{EnumCase<E>{E::CUSTOM, "CUSTOM"}, EnumCase<E>{E::APPLE, "APPLE"}};
}

}  // namespace velora
