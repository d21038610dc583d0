#pragma once
// The persisted environment: which platform to talk to and how to log in.

#include <cstdint>
#include <optional>
#include <string>

#include <velora/auth/KeycloakLoginModes.hpp>
#include <velora/beacon/BLEFrequency.hpp>
#include <velora/core/Record.hpp>

namespace velora {

/// Identity-server settings of an environment. JSON keys are the member names. Each member that is
/// set wins over the entry of the same key in the application's "KeycloakConfig" information
/// dictionary; an absent one falls back to it.
struct KeycloakEnvironment {
  /// How the interactive login shows the server's page.
  std::optional<KeycloakAuthenticationMethod> authMethod;
  /// Which login the application uses: guest, interactive user, or background.
  std::optional<KeycloakLoginMode> loginMode;
  /// @{
  /// Client identifiers registered on the identity server for user and guest logins.
  std::optional<std::string> clientId;
  std::optional<std::string> guestClientId;
  /// @}
  /// The application's guest client secret; supplied by the host, never built into the library.
  std::optional<std::string> guestSecretKey;
  /// Where the identity server sends the browser back after an interactive login or logout.
  std::optional<std::string> redirectURI;
  /// OpenID Connect discovery document URL.
  std::optional<std::string> discoverURL;

  VELORA_RECORD(KeycloakEnvironment, authMethod, loginMode, clientId, guestClientId, guestSecretKey, redirectURI,
      discoverURL);
};

/// Tag-advertising settings: duty cycle and the two identity bytes of the tag.
/// JSON keys are the member names.
struct QuuppaConfig {
  /// The advertising frequency, `middle` unless set; read and written through the facade's
  /// quuppaBLEFreq.
  BLEFrequency bluetoothFreq = BLEFrequency::middle;
  /// @{
  /// Identity bytes used for the tag's UUID when createUUID is given none: `byte0` enters only the
  /// check byte, `byte1` opens the UUID text.
  std::uint8_t byte0 = 0;
  std::uint8_t byte1 = 0;
  /// @}

  VELORA_RECORD(QuuppaConfig, bluetoothFreq, byte0, byte1);
};

/// Which platform the library talks to and how it logs in; persisted as JSON by Orvane::setupSDK
/// and read when the shared instance is created. JSON keys are the member names.
struct EnvironmentModel {
  /// Base URL of the REST server; request paths are appended to it verbatim.
  std::string sdkEndpoint;
  /// Request time-out in seconds, bounding the whole transfer from connecting to the last byte.
  std::int64_t timeout = 90;
  /// Identity-server settings; absent means the "KeycloakConfig" information dictionary alone.
  std::optional<KeycloakEnvironment> keycloakEnv;
  /// Tag-advertising settings.
  QuuppaConfig quuppaEnv;

  /// @{
  /// An environment for the server at `endpoint` (empty by default), with a 90-second time-out unless
  /// given.
  EnvironmentModel() = default;
  EnvironmentModel(std::string endpoint, std::int64_t timeout = 90, std::optional<KeycloakEnvironment> keycloakEnv = std::nullopt,
                   QuuppaConfig quuppaEnv = {})
      : sdkEndpoint(std::move(endpoint)), timeout(timeout), keycloakEnv(std::move(keycloakEnv)), quuppaEnv(quuppaEnv) {}
  /// @}

  VELORA_RECORD(EnvironmentModel, sdkEndpoint, timeout, keycloakEnv, quuppaEnv);
  /// The constructors keep the record layer from counting the members of this class.
  static constexpr bool uncountedMembers = true;
};

/// The credentials handed to the map's web page (`initAuth`), JSON `{"token"?}`.
struct SDKCredentialsModel {
  /// The current access token; absent when there is no session.
  std::optional<std::string> token;

  VELORA_RECORD(SDKCredentialsModel, token);
};

}  // namespace velora
