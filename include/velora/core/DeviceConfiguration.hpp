#pragma once
// The device configuration exchanged with "/api/v1/device/ios/conf".

#include <cstdint>
#include <optional>
#include <string>

#include <velora/core/Record.hpp>

namespace velora {

/// Body of getConfiguration and getOrCreateConfiguration (POST "/api/v1/device/ios/conf"); JSON keys
/// are the member names.
struct NetworkRequestConfiguration {
  /// The host application's bundle identifier.
  std::string appId;
  /// This installation's identifier (the facade's `envUUID`).
  std::string uuid;
  /// The caller's tag identifier; the key is left out when absent.
  std::optional<std::string> tagid;

  VELORA_RECORD(NetworkRequestConfiguration, appId, uuid, tagid);
};

/// iBeacon identity for Enlighted (third-party) sensors; when present it replaces the identity made
/// from the tag identifier. JSON keys are the member names.
struct EnlightedConfig {
  /// The proximity UUID to advertise: 8-4-4-4-12 hexadecimal digits with dashes; any other text is
  /// refused as an invalid tag format.
  std::string uuid;
  /// @{
  /// iBeacon major and minor; advertised as their low 16 bits.
  std::int64_t major = 0;
  std::int64_t minor = 0;
  /// @}
  /// Received signal strength at one metre, in dBm (negative); advertised as a signed byte.
  std::int64_t measuredPower = 0;

  VELORA_RECORD(EnlightedConfig, uuid, major, minor, measuredPower);
};

/// The advertising configuration assigned to this installation; what startAdvertisingRegion takes.
/// JSON keys are the member names.
struct NetworkResponseIOSConfiguration {
  /// Tag identifier assigned to this installation: twelve hexadecimal digits that become the
  /// proximity UUID.
  std::string tagid;
  /// @{
  /// Identity bytes of the tag: `byte1` enters only the UUID's check byte, `byte2` opens the UUID.
  std::uint8_t byte1 = 0;
  std::uint8_t byte2 = 0;
  /// @}
  /// @{
  /// Seconds on air and off air per advertising cycle; absent counts as 0, and no time off means
  /// continuous advertising. A BLEFrequency passed to startAdvertisingRegion overrides both.
  std::optional<double> tON;
  std::optional<double> tOFF;
  /// @}
  /// The identity to advertise instead of the one made from `tagid`; usually absent.
  std::optional<EnlightedConfig> enlightedConfig;

  VELORA_RECORD(NetworkResponseIOSConfiguration, tagid, byte1, byte2, tON, tOFF, enlightedConfig);
};

/// The platform's reply to getConfiguration and getOrCreateConfiguration: the device as the platform
/// registered it. JSON keys are the member names.
struct NetworkResponseConfiguration {
  /// @{
  /// The bundle identifier and installation identifier the device is registered under.
  std::string appId;
  std::string uuid;
  /// @}
  /// The device's push token; absent when none is registered.
  std::optional<std::string> pushToken;
  /// The advertising configuration to pass to startAdvertisingRegion.
  NetworkResponseIOSConfiguration iosadvConf;

  VELORA_RECORD(NetworkResponseConfiguration, appId, uuid, pushToken, iosadvConf);
};

}  // namespace velora
