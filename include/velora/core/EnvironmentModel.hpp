#pragma once
// The persisted environment: which platform to talk to and how to log in.

#include <cstdint>
#include <optional>
#include <string>

#include <velora/auth/KeycloakLoginModes.hpp>
#include <velora/beacon/BLEFrequency.hpp>
#include <velora/core/Record.hpp>

namespace velora {

struct KeycloakEnvironment {
  std::optional<KeycloakAuthenticationMethod> authMethod;
  std::optional<KeycloakLoginMode> loginMode;
  std::optional<std::string> clientId;
  std::optional<std::string> guestClientId;
  /// The application's guest client secret; supplied by the host, never built into the library.
  std::optional<std::string> guestSecretKey;
  std::optional<std::string> redirectURI;
  /// OpenID Connect discovery document URL.
  std::optional<std::string> discoverURL;

  VELORA_RECORD(KeycloakEnvironment, authMethod, loginMode, clientId, guestClientId, guestSecretKey, redirectURI,
      discoverURL);
};

/// Tag-advertising settings: duty cycle and the two identity bytes of the tag.
struct QuuppaConfig {
  BLEFrequency bluetoothFreq = BLEFrequency::middle;
  std::uint8_t byte0 = 0;
  std::uint8_t byte1 = 0;

  VELORA_RECORD(QuuppaConfig, bluetoothFreq, byte0, byte1);
};

struct EnvironmentModel {
  /// Base URL of the REST server; request paths are appended to it verbatim.
  std::string sdkEndpoint;
  /// Request time-out in seconds.
  std::int64_t timeout = 90;
  std::optional<KeycloakEnvironment> keycloakEnv;
  QuuppaConfig quuppaEnv;

  EnvironmentModel() = default;
  EnvironmentModel(std::string endpoint, std::int64_t timeout = 90, std::optional<KeycloakEnvironment> keycloakEnv = std::nullopt,
                   QuuppaConfig quuppaEnv = {})
      : sdkEndpoint(std::move(endpoint)), timeout(timeout), keycloakEnv(std::move(keycloakEnv)), quuppaEnv(quuppaEnv) {}

  VELORA_RECORD(EnvironmentModel, sdkEndpoint, timeout, keycloakEnv, quuppaEnv);
  /// The constructors keep the record layer from counting the members of this class.
  static constexpr bool uncountedMembers = true;
};

struct SDKCredentialsModel {
  std::optional<std::string> token;

  VELORA_RECORD(SDKCredentialsModel, token);
};

}  // namespace velora
