#pragma once
// The device configuration exchanged with "/api/v1/device/ios/conf".

#include <cstdint>
#include <optional>
#include <string>
#include <tuple>

#include <velora/core/Record.hpp>

namespace velora {

struct NetworkRequestConfiguration {
  std::string appId;
  std::string uuid;
  std::optional<std::string> tagid;

  static constexpr std::string_view typeName = "NetworkRequestConfiguration";
  static constexpr auto fields() {
    using T = NetworkRequestConfiguration;
    return std::tuple{field("appId", &T::appId), field("uuid", &T::uuid), field("tagid", &T::tagid)};
  }
  friend bool operator==(const NetworkRequestConfiguration&, const NetworkRequestConfiguration&) = default;
};

/// iBeacon identity for third-party sensors.
struct EnlightedConfig {
  std::string uuid;
  std::int64_t major = 0;
  std::int64_t minor = 0;
  std::int64_t measuredPower = 0;

  static constexpr std::string_view typeName = "EnlightedConfig";
  static constexpr auto fields() {
    using T = EnlightedConfig;
    return std::tuple{field("uuid", &T::uuid), field("major", &T::major), field("minor", &T::minor),
                      field("measuredPower", &T::measuredPower)};
  }
  friend bool operator==(const EnlightedConfig&, const EnlightedConfig&) = default;
};

/// The advertising configuration assigned to this installation.
struct NetworkResponseIOSConfiguration {
  std::string tagid;
  std::uint8_t byte1 = 0;
  std::uint8_t byte2 = 0;
  std::optional<double> tON;
  std::optional<double> tOFF;
  std::optional<EnlightedConfig> enlightedConfig;

  static constexpr std::string_view typeName = "NetworkResponseIOSConfiguration";
  static constexpr auto fields() {
    using T = NetworkResponseIOSConfiguration;
    return std::tuple{field("tagid", &T::tagid), field("byte1", &T::byte1), field("byte2", &T::byte2),
                      field("tON", &T::tON), field("tOFF", &T::tOFF), field("enlightedConfig", &T::enlightedConfig)};
  }
  friend bool operator==(const NetworkResponseIOSConfiguration&, const NetworkResponseIOSConfiguration&) = default;
};

struct NetworkResponseConfiguration {
  std::string appId;
  std::string uuid;
  std::optional<std::string> pushToken;
  NetworkResponseIOSConfiguration iosadvConf;

  static constexpr std::string_view typeName = "NetworkResponseConfiguration";
  static constexpr auto fields() {
    using T = NetworkResponseConfiguration;
    return std::tuple{field("appId", &T::appId), field("uuid", &T::uuid), field("pushToken", &T::pushToken),
                      field("iosadvConf", &T::iosadvConf)};
  }
  friend bool operator==(const NetworkResponseConfiguration&, const NetworkResponseConfiguration&) = default;
};

}  // namespace velora
