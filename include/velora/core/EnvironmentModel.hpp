#pragma once
// The persisted environment: which platform to talk to and how to log in.

#include <cstdint>
#include <optional>
#include <string>
#include <tuple>

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

  static constexpr std::string_view typeName = "KeycloakEnvironment";
  static constexpr auto fields() {
    using T = KeycloakEnvironment;
    return std::tuple{field("authMethod", &T::authMethod), field("loginMode", &T::loginMode),
                      field("clientId", &T::clientId), field("guestClientId", &T::guestClientId),
                      field("guestSecretKey", &T::guestSecretKey), field("redirectURI", &T::redirectURI),
                      field("discoverURL", &T::discoverURL)};
  }
  friend bool operator==(const KeycloakEnvironment&, const KeycloakEnvironment&) = default;
};

/// Tag-advertising settings: duty cycle and the two identity bytes of the tag.
struct QuuppaConfig {
  BLEFrequency bluetoothFreq = BLEFrequency::middle;
  std::uint8_t byte0 = 0;
  std::uint8_t byte1 = 0;

  static constexpr std::string_view typeName = "QuuppaConfig";
  static constexpr auto fields() {
    using T = QuuppaConfig;
    return std::tuple{field("bluetoothFreq", &T::bluetoothFreq), field("byte0", &T::byte0), field("byte1", &T::byte1)};
  }
  friend bool operator==(const QuuppaConfig&, const QuuppaConfig&) = default;
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

  static constexpr std::string_view typeName = "EnvironmentModel";
  static constexpr auto fields() {
    using T = EnvironmentModel;
    return std::tuple{field("sdkEndpoint", &T::sdkEndpoint), field("timeout", &T::timeout),
                      field("keycloakEnv", &T::keycloakEnv), field("quuppaEnv", &T::quuppaEnv)};
  }
  friend bool operator==(const EnvironmentModel&, const EnvironmentModel&) = default;
};

struct SDKCredentialsModel {
  std::optional<std::string> token;

  static constexpr std::string_view typeName = "SDKCredentialsModel";
  static constexpr auto fields() { return std::tuple{field("token", &SDKCredentialsModel::token)}; }
  friend bool operator==(const SDKCredentialsModel&, const SDKCredentialsModel&) = default;
};

}  // namespace velora
