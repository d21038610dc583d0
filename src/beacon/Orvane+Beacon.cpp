// The device as a positioning tag: its identity bytes, the proximity UUID made from its tag
// identifier, and advertising it on the platform's Bluetooth peripheral.

#include <cstdio>

#include <velora/beacon/Beacon.hpp>
#include <velora/core/DeviceConfiguration.hpp>
#include <velora/core/Fatal.hpp>
#include <velora/core/Orvane.hpp>

#include "beacon/TagAdvertiser.hpp"
#include "core/Resume.hpp"

namespace velora {

std::uint8_t CRC::u8(std::uint8_t message, std::uint8_t& remainder) {
  remainder ^= message;
  for (int bit = 0; bit < 8; ++bit) {
    remainder = (remainder & 0x80) ? static_cast<std::uint8_t>((remainder << 1) ^ 0x97) : static_cast<std::uint8_t>(remainder << 1);
  }
  return remainder;
}

std::uint8_t CRC::crc8(const std::uint8_t* data, std::size_t size) {
  std::uint8_t remainder = 0;
  for (std::size_t i = 0; i < size; ++i) u8(data[i], remainder);
  return remainder;
}

namespace {

const QuuppaConfig& quuppa(const std::optional<EnvironmentModel>& environment) {
  if (!environment) fatal("Orvane: the tag's identity needs an environment (call Orvane::setupSDK first)");
  return environment->quuppaEnv;
}

/// A pair of hexadecimal digits; 0 when either is not one.
std::uint8_t hexPair(char high, char low) {
  const auto digit = [](char c) -> int {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
  };
  const int h = digit(high), l = digit(low);
  return h < 0 || l < 0 ? 0 : static_cast<std::uint8_t>(h * 16 + l);
}

std::uint16_t beaconField(std::int64_t value) { return static_cast<std::uint16_t>(value); }

}  // namespace

std::uint8_t Orvane::byte0() const { return quuppa(environment).byte0; }
std::uint8_t Orvane::byte1() const { return quuppa(environment).byte1; }
BLEFrequency Orvane::quuppaBLEFreq() const { return quuppa(environment).bluetoothFreq; }
void Orvane::setQuuppaBLEFreq(BLEFrequency frequency) {
  quuppa(environment);
  environment->quuppaEnv.bluetoothFreq = frequency;
}

std::optional<std::string> Orvane::createUUID(const std::string& with, std::optional<std::uint8_t> crc1,
                                              std::optional<std::uint8_t> crc2) const {
  if (with.size() != 12) return std::nullopt;
  std::uint8_t bytes[8];
  bytes[0] = crc1 ? *crc1 : byte0();
  bytes[1] = crc2 ? *crc2 : byte1();
  for (int i = 0; i < 6; ++i) bytes[2 + i] = hexPair(with[2 * i], with[2 * i + 1]);
  const std::uint8_t check = CRC::crc8(bytes, sizeof bytes);
  // bytes[0] enters the check but is not printed.
  char text[40];
  std::snprintf(text, sizeof text, "%02X%02X%02X%02X-%02X%02X-%02X%02X-67F7-DB34C4038E5C", bytes[1], bytes[2], bytes[3],
                bytes[4], bytes[5], bytes[6], bytes[7], check);
  return text;
}

void Orvane::startAdvertisingRegion(NetworkResponseIOSConfiguration with, std::optional<BLEFrequency> frequency,
                                    AdvertisingCompletion completion) {
  BLEDutyCycle cycle{with.tON.value_or(0), with.tOFF.value_or(0)};
  if (frequency) cycle = dutyCycle(*frequency);

  BeaconIdentity identity;
  identity.major = kDefaultBeaconMajor;
  identity.minor = kDefaultBeaconMinor;
  identity.measuredPower = kDefaultMeasuredPower;
  std::optional<std::string> uuid = createUUID(with.tagid, with.byte1, with.byte2);
  if (const auto& enlighted = with.enlightedConfig) {
    identity.major = beaconField(enlighted->major);
    identity.minor = beaconField(enlighted->minor);
    identity.measuredPower = static_cast<std::int8_t>(enlighted->measuredPower);
    uuid = enlighted->uuid;
  }
  const auto proximity = uuid ? BeaconIdentity::parseUUID(*uuid) : std::nullopt;
  if (!proximity) {
    if (completion) {
      platform_.mainQueue->post([completion = std::move(completion)] {
        completion(nullptr, PlatformError(std::string(kInvalidTagFormat), kInvalidTagFormatCode));
      });
    }
    return;
  }
  identity.proximityUUID = *proximity;

  std::shared_ptr<detail::TagAdvertiser> advertiser;
  {
    std::lock_guard lock(stateMutex_);
    if (!advertiser_) advertiser_ = std::make_shared<detail::TagAdvertiser>(platform_);
    advertiser = advertiser_;
  }
  advertiser->start(identity, cycle, std::move(completion));
}

Task<std::shared_ptr<BlePeripheral>> Orvane::startAdvertisingRegion(NetworkResponseIOSConfiguration with,
                                                                     std::optional<BLEFrequency> frequency) {
  const auto keepAlive = shared_from_this();
  co_await detail::ResumeHere{platform_};
  std::function<void(detail::Completion<std::shared_ptr<BlePeripheral>>)> start =
      [this, with = std::move(with), frequency](detail::Completion<std::shared_ptr<BlePeripheral>> done) {
        startAdvertisingRegion(with, frequency, [done = std::move(done)](std::shared_ptr<BlePeripheral> p, std::optional<PlatformError> e) {
          done(p ? std::optional(std::move(p)) : std::nullopt, std::move(e));
        });
      };
  auto started = detail::awaitCompletion<std::shared_ptr<BlePeripheral>>(std::move(start));  // built before it is awaited
  auto [peripheral, error] = co_await std::move(started);
  if (error) throw *error;
  co_return *peripheral;
}

void Orvane::stopAdvertisingRegion() {
  std::shared_ptr<detail::TagAdvertiser> advertiser;
  {
    std::lock_guard lock(stateMutex_);
    advertiser = advertiser_;
  }
  if (advertiser) advertiser->stop();
}

BlePowerState Orvane::bluetoothState() const {
  std::lock_guard lock(stateMutex_);
  return advertiser_ ? advertiser_->bluetoothState() : BlePowerState::unknown;
}

std::optional<BeaconIdentity> Orvane::advertisementData() const {
  std::lock_guard lock(stateMutex_);
  return advertiser_ ? advertiser_->advertisementData() : std::nullopt;
}

}  // namespace velora
