// The positioning tag: its check byte and proximity UUID, the duty cycle on a clock the test moves,
// and what a start reports, on a simulated peripheral.

#include <gtest/gtest.h>

#include <condition_variable>

#include <velora/velora.hpp>

#include "Fakes.hpp"

namespace velora {
namespace {

using testing::FakePlatform;

/// A clock whose waits last until the test moves it; `waits()` counts the waits begun.
class StepClock : public Clock {
 public:
  Date now() const override {
    std::lock_guard lock(mutex_);
    return now_;
  }
  bool waitUntil(Date deadline, std::stop_token stop) const override {
    std::unique_lock lock(mutex_);
    ++waits_;
    changed_.notify_all();
    return !changed_.wait(lock, stop, [&] { return now_ >= deadline; });
  }
  void advance(std::chrono::milliseconds by) {
    std::lock_guard lock(mutex_);
    now_ += by;
    changed_.notify_all();
  }
  /// Until `count` waits have begun: the duty cycle is then idle in its period.
  bool awaitWaits(int count) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, std::chrono::seconds(10), [&] { return waits_ >= count; });
  }

 private:
  mutable std::mutex mutex_;
  mutable std::condition_variable_any changed_;
  mutable int waits_ = 0;
  Date now_ = dateFromReferenceSeconds(700000000);
};

struct Tag {
  FakePlatform fakes;
  std::shared_ptr<StepClock> clock = std::make_shared<StepClock>();
  std::shared_ptr<SimulatedBlePeripheral> peripheral = SimulatedBlePeripheral::make();
  std::shared_ptr<Orvane> facade;
  std::mutex mutex;
  std::vector<std::string> switches;  // "on" / "off", in order

  explicit Tag(QuuppaConfig quuppa = {}) {
    Platform p = fakes.platform();
    p.clock = clock;
    p.bluetooth = peripheral;
    Orvane::setupSDK(EnvironmentModel("http://platform.test/", 30, {}, quuppa), p);
    facade = Orvane::make(p);
    peripheral->observeSwitches([this](const SimulatedBlePeripheral::Switch& s) {
      std::lock_guard lock(mutex);
      switches.push_back(s.on ? "on" : "off");
    });
  }
  std::vector<std::string> seen() {
    std::lock_guard lock(mutex);
    return switches;
  }
  using Report = std::pair<std::shared_ptr<BlePeripheral>, std::optional<PlatformError>>;
  std::optional<Report> reported;  // main queue only

  void start(NetworkResponseIOSConfiguration configuration, std::optional<BLEFrequency> frequency = {}) {
    facade->startAdvertisingRegion(configuration, frequency, [this](std::shared_ptr<BlePeripheral> p, std::optional<PlatformError> e) {
      EXPECT_FALSE(reported) << "reported twice";
      reported.emplace(std::move(p), std::move(e));
    });
  }
  /// What the completion said once the main queue ran; fails the test when it said nothing.
  Report report() {
    fakes.queue->drain();
    EXPECT_TRUE(reported) << "no completion";
    return reported.value_or(Report{});
  }
};

NetworkResponseIOSConfiguration tagConfiguration(std::string tagid = "0123456789AB") {
  NetworkResponseIOSConfiguration c;
  c.tagid = std::move(tagid);
  c.byte1 = 0x01;
  c.byte2 = 0x02;
  return c;
}

TEST(Beacon, CheckByteAndProximityUUID) {
  const std::uint8_t example[] = {0x01, 0x02, 0x01, 0x23, 0x45, 0x67, 0x89, 0xAB};
  EXPECT_EQ(CRC::crc8(example, sizeof example), 0x2E);
  EXPECT_EQ(CRC::crc8(example, 0), 0x00);

  Tag tag(QuuppaConfig{BLEFrequency::middle, 0x0A, 0x0B});
  const struct {
    const char* name;
    std::string tagid;
    std::optional<std::uint8_t> crc1, crc2;
    std::optional<std::string> uuid;
  } cases[] = {
      {"the worked example", "0123456789AB", 0x01, 0x02, "02012345-6789-AB2E-67F7-DB34C4038E5C"},
      {"lower-case digits read the same", "0123456789ab", 0x01, 0x02, "02012345-6789-AB2E-67F7-DB34C4038E5C"},
      {"the first identity byte is checked, not printed", "0123456789AB", 0x00, 0x02, "02012345-6789-AB"},
      {"identity bytes from the environment", "0123456789AB", std::nullopt, std::nullopt, "0B012345-6789-AB"},
      {"unreadable pairs count as 0", "ZZ23456789QQ", 0x01, 0x02, "02002345-6789-00"},
      {"eleven characters", "0123456789A", 0x01, 0x02, std::nullopt},
      {"thirteen characters", "0123456789ABC", 0x01, 0x02, std::nullopt},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const auto uuid = tag.facade->createUUID(c.tagid, c.crc1, c.crc2);
    ASSERT_EQ(uuid.has_value(), c.uuid.has_value());
    if (uuid) {
      EXPECT_TRUE(uuid->starts_with(*c.uuid)) << *uuid;
      EXPECT_TRUE(uuid->ends_with("-67F7-DB34C4038E5C")) << *uuid;
    }
  }
  // Checked, not printed: two first bytes give the same text but for the check byte.
  EXPECT_NE(tag.facade->createUUID("0123456789AB", 0x00, 0x02), tag.facade->createUUID("0123456789AB", 0x01, 0x02));
}

TEST(Beacon, FrequenciesAndTheirDutyCycles) {
  EXPECT_EQ(dutyCycle(BLEFrequency::low), (BLEDutyCycle{0.5, 1.0}));
  EXPECT_EQ(dutyCycle(BLEFrequency::middle), (BLEDutyCycle{1.0, 1.0}));
  EXPECT_EQ(dutyCycle(BLEFrequency::high), (BLEDutyCycle{0.0, 0.0}));
  EXPECT_EQ(dutyCycle(BLEFrequency::alwaysOn), dutyCycle(BLEFrequency::high));
}

TEST(Beacon, WhatGoesOnAir) {
  EnlightedConfig enlighted{"5A4BCFCE-174E-4BAC-A814-092E77F6B7E5", 100, 7, -62};
  const struct {
    const char* name;
    std::optional<EnlightedConfig> enlighted;
    std::string tagid;
    std::string uuid;
    std::uint16_t major, minor;
    std::int8_t power;
  } cases[] = {
      {"the tag's own identity", std::nullopt, "0123456789AB", "02012345-6789-AB2E-67F7-DB34C4038E5C", 2986, 38704, -59},
      {"an Enlighted block wins, even over a malformed tag", enlighted, "bad", "5A4BCFCE-174E-4BAC-A814-092E77F6B7E5", 100, 7, -62},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Tag tag;
    auto configuration = tagConfiguration(c.tagid);
    configuration.enlightedConfig = c.enlighted;
    tag.start(configuration, BLEFrequency::alwaysOn);
    const auto [peripheral, error] = tag.report();
    ASSERT_FALSE(error) << error->domain;
    EXPECT_EQ(peripheral, tag.peripheral);
    const auto onAir = tag.peripheral->advertised();
    ASSERT_TRUE(onAir);
    EXPECT_EQ(onAir->proximityUUID, *BeaconIdentity::parseUUID(c.uuid));
    EXPECT_EQ(onAir->major, c.major);
    EXPECT_EQ(onAir->minor, c.minor);
    EXPECT_EQ(onAir->measuredPower, c.power);
    EXPECT_EQ(tag.facade->advertisementData(), onAir);
    tag.facade->stopAdvertisingRegion();
    EXPECT_FALSE(tag.peripheral->isAdvertising());
  }
}

TEST(Beacon, StartsThatPutNothingOnAir) {
  const struct {
    const char* name;
    std::string tagid;
    std::optional<std::string> peripheralFailure;
    std::string_view error;
    std::vector<std::string> console;
  } cases[] = {
      {"eleven characters", "0123456789A", std::nullopt, kInvalidTagFormat, {}},
      {"thirteen characters", "0123456789ABC", std::nullopt, kInvalidTagFormat, {}},
      {"the peripheral refuses", "0123456789AB", "not permitted",
       kAdvertisingFailed, {"BLEFreqOperation - Always ON enabled", "ERROR: not permitted"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Tag tag;
    tag.peripheral->failStartsWith(c.peripheralFailure);
    tag.start(tagConfiguration(c.tagid), BLEFrequency::high);
    const auto [peripheral, error] = tag.report();
    EXPECT_EQ(peripheral, nullptr);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain, c.error);
    EXPECT_TRUE(tag.seen().empty());
    EXPECT_EQ(tag.fakes.consoleLines, c.console);
  }
}

TEST(Beacon, TheDutyCycleFollowsTheClockAndStopsAtOnce) {
  Tag tag;
  auto configuration = tagConfiguration();
  configuration.tON = 9.0;  // the argument's frequency wins over the server's times
  configuration.tOFF = 9.0;
  tag.start(configuration, BLEFrequency::low);
  ASSERT_TRUE(tag.clock->awaitWaits(1));
  EXPECT_EQ(tag.report().first, tag.peripheral);
  EXPECT_EQ(tag.seen(), (std::vector<std::string>{"on"}));
  tag.clock->advance(std::chrono::milliseconds(499));
  tag.clock->advance(std::chrono::milliseconds(1));
  ASSERT_TRUE(tag.clock->awaitWaits(2));
  EXPECT_EQ(tag.seen(), (std::vector<std::string>{"on", "off"}));
  tag.clock->advance(std::chrono::milliseconds(1000));
  ASSERT_TRUE(tag.clock->awaitWaits(3));
  EXPECT_EQ(tag.seen(), (std::vector<std::string>{"on", "off", "on"}));

  tag.facade->stopAdvertisingRegion();  // in the middle of an on-period, the clock standing still
  EXPECT_EQ(tag.seen(), (std::vector<std::string>{"on", "off", "on", "off"}));
  EXPECT_FALSE(tag.peripheral->isAdvertising());
  EXPECT_EQ(tag.fakes.consoleLines, (std::vector<std::string>{"BLEFreqOperation - tON: 500000", "BLEFreqOperation - tOFF: 1000000",
                                                             "BLEFreqOperation - tON: 500000"}));
}

TEST(Beacon, PowerStatesArePublishedAndPoweringOnStartsAgain) {
  Tag tag;
  std::vector<BlePowerState> published;
  auto observation = tag.fakes.notifications->addObserver(std::string(kPeripheralManagerStateChanged), nullptr, [&](const Notification& n) {
    published.push_back(*n.value<BlePowerState>("payload"));
  });
  tag.peripheral->setPowerState(BlePowerState::poweredOff);
  tag.start(tagConfiguration(), BLEFrequency::low);
  tag.fakes.queue->drain();
  EXPECT_FALSE(tag.reported);  // nothing to report until the controller is on
  EXPECT_TRUE(tag.seen().empty());
  EXPECT_EQ(tag.facade->bluetoothState(), BlePowerState::poweredOff);

  tag.peripheral->setPowerState(BlePowerState::poweredOn);
  ASSERT_TRUE(tag.clock->awaitWaits(1));
  tag.peripheral->setPowerState(BlePowerState::poweredOff);  // the duty cycle ends with it
  tag.peripheral->setPowerState(BlePowerState::poweredOn);   // and starts again
  ASSERT_TRUE(tag.clock->awaitWaits(2));
  tag.facade->stopAdvertisingRegion();
  EXPECT_TRUE(tag.report().first);
  EXPECT_EQ(tag.seen(), (std::vector<std::string>{"on", "off", "on", "off"}));
  EXPECT_EQ(published, (std::vector<BlePowerState>{BlePowerState::poweredOff, BlePowerState::poweredOn, BlePowerState::poweredOff,
                                                   BlePowerState::poweredOn}));
}

}  // namespace
}  // namespace velora
