#pragma once
// How a user logs in. Unknown texts decode to the LAST case of each enumeration (`BACKGROUND`,
// `APPLE`), unlike the other Keycloak vocabularies whose last case is `unknown`; that asymmetry
// is intended.

#include <velora/core/Record.hpp>

namespace velora {

/// GUEST: client credentials of the application; USER: interactive browser login;
/// BACKGROUND: stored user name and password.
VELORA_ENUM(KeycloakLoginMode, GUEST, USER, BACKGROUND);

/// How the interactive login shows the server's page: APPLE, the system's web-authentication
/// session; CUSTOM, the library's own web-view screen.
VELORA_ENUM(KeycloakAuthenticationMethod, CUSTOM, APPLE);

}  // namespace velora
