#pragma once
// The device configuration exchanged with "/api/v1/device/ios/conf".

#include <cstdint>
#include <optional>
#include <string>

#include <velora/core/Record.hpp>

namespace velora {

struct NetworkRequestConfiguration {
  std::string appId;
  std::string uuid;
  std::optional<std::string> tagid;

  VELORA_RECORD(NetworkRequestConfiguration, appId, uuid, tagid);
};

/// iBeacon identity for third-party sensors.
struct EnlightedConfig {
  std::string uuid;
  std::int64_t major = 0;
  std::int64_t minor = 0;
  std::int64_t measuredPower = 0;

  VELORA_RECORD(EnlightedConfig, uuid, major, minor, measuredPower);
};

/// The advertising configuration assigned to this installation.
struct NetworkResponseIOSConfiguration {
  std::string tagid;
  std::uint8_t byte1 = 0;
  std::uint8_t byte2 = 0;
  std::optional<double> tON;
  std::optional<double> tOFF;
  std::optional<EnlightedConfig> enlightedConfig;

  VELORA_RECORD(NetworkResponseIOSConfiguration, tagid, byte1, byte2, tON, tOFF, enlightedConfig);
};

struct NetworkResponseConfiguration {
  std::string appId;
  std::string uuid;
  std::optional<std::string> pushToken;
  NetworkResponseIOSConfiguration iosadvConf;

  VELORA_RECORD(NetworkResponseConfiguration, appId, uuid, pushToken, iosadvConf);
};

}  // namespace velora
