#pragma once
// The device as a positioning tag: the iBeacon identity it advertises and how the facade's
// startAdvertisingRegion reports on it. See docs/beacon.md.

#include <cstdint>
#include <string_view>

#include <velora/beacon/BLEFrequency.hpp>
#include <velora/beacon/CRC.hpp>
#include <velora/platform/BlePeripheral.hpp>

namespace velora {

/// @{
/// Major and minor of the platform's own locators; an Enlighted configuration brings its own.
inline constexpr std::uint16_t kDefaultBeaconMajor = 2986;
inline constexpr std::uint16_t kDefaultBeaconMinor = 38704;
/// @}
/// The measured power (dBm at one metre) advertised without an Enlighted configuration: the usual
/// calibration of a phone-class transmitter.
inline constexpr std::int8_t kDefaultMeasuredPower = -59;

// The PlatformError of a start that did not go on air: its domain is the message.
/// @{
/// Domain and code of the error for a tag identifier that gives no valid proximity UUID (not twelve
/// hexadecimal digits, no Enlighted UUID to stand in); nothing goes on air.
inline constexpr std::string_view kInvalidTagFormat = "Invalid tag format. Please contact support.";
inline constexpr std::int64_t kInvalidTagFormatCode = -50001;
/// @}
/// @{
/// Domain and code of the error for a peripheral that refused the first start of the advertisement;
/// userInfo["reason"] says what the peripheral answered.
inline constexpr std::string_view kAdvertisingFailed = "couldn't start advertising region";
inline constexpr std::int64_t kAdvertisingFailedCode = -50002;
/// @}
/// @{
/// Domain and code of the error when the platform has no Bluetooth peripheral to advertise with.
inline constexpr std::string_view kBluetoothUnavailable = "No Bluetooth peripheral on this platform";
inline constexpr std::int64_t kBluetoothUnavailableCode = -50003;
/// @}

/// Posted on the platform's notification centre with the new BlePowerState as "payload" whenever
/// the peripheral reports its state.
inline constexpr std::string_view kPeripheralManagerStateChanged = "peripheralManagerState";

}  // namespace velora
