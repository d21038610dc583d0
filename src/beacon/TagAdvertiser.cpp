#include "beacon/TagAdvertiser.hpp"

#include <cmath>
#include <limits>
#include <string>

#include <velora/beacon/Beacon.hpp>
#include <velora/core/Fatal.hpp>
#include <velora/platform/MainQueue.hpp>
#include <velora/platform/NotificationCenter.hpp>

namespace velora::detail {
namespace {

/// Whole microseconds as the duty cycle keeps them; a time that does not fit is a setup mistake.
std::uint32_t microseconds(double seconds) {
  const double us = seconds * 1'000'000.0;
  if (!std::isfinite(us) || us < 0 || us > std::numeric_limits<std::uint32_t>::max()) {
    fatal("BLEFreqOperation: an advertising time of " + std::to_string(seconds) + " s cannot be kept in microseconds");
  }
  return static_cast<std::uint32_t>(us);
}

}  // namespace

TagAdvertiser::~TagAdvertiser() { endDutyCycle(); }

void TagAdvertiser::start(BeaconIdentity identity, BLEDutyCycle cycle, Completion completion) {
  stop();
  auto peripheral = platform_.bluetooth;
  if (!peripheral) {
    return complete(nullptr, PlatformError(std::string(kBluetoothUnavailable), kBluetoothUnavailableCode));
  }
  {
    std::lock_guard lock(mutex_);
    tON_ = microseconds(cycle.tON);
    tOFF_ = microseconds(cycle.tOFF);
    advertisementData_ = identity;
    completionBlock_ = std::move(completion);
    peripheralManager_ = peripheral;
    startupBlock_ = [weak = weak_from_this()] {
      if (auto self = weak.lock()) self->startPausedAdvertisement();
    };
  }
  // Told the current state at once: a powered-on peripheral starts advertising from here.
  peripheral->setStateHandler([weak = weak_from_this()](BlePowerState state) {
    if (auto self = weak.lock()) self->peripheralManagerDidUpdateState(state);
  });
}

void TagAdvertiser::stop() {
  std::shared_ptr<BlePeripheral> peripheral;
  {
    std::lock_guard lock(mutex_);
    peripheral = std::exchange(peripheralManager_, nullptr);
    startupBlock_ = nullptr;
  }
  // Once the handler is gone (a running one is waited for), no duty cycle can start behind us.
  if (peripheral) peripheral->setStateHandler(nullptr);
  endDutyCycle();
  if (peripheral) peripheral->stopAdvertising();
}

BlePowerState TagAdvertiser::bluetoothState() const {
  std::lock_guard lock(mutex_);
  return bluetoothState_;
}

std::optional<BeaconIdentity> TagAdvertiser::advertisementData() const {
  std::lock_guard lock(mutex_);
  return advertisementData_;
}

void TagAdvertiser::peripheralManagerDidUpdateState(BlePowerState state) {
  std::function<void()> startup;
  {
    std::lock_guard lock(mutex_);
    bluetoothState_ = state;
    if (state == BlePowerState::poweredOn) startup = startupBlock_;
  }
  platform_.notifications->post({std::string(kPeripheralManagerStateChanged), {{"payload", state}}});
  if (startup) {
    startup();
  } else if (state != BlePowerState::poweredOn) {
    // Nothing can go on air until the controller is back; the start-up block runs again then.
    endDutyCycle();
  }
}

void TagAdvertiser::peripheralManagerDidStartAdvertising(const std::optional<std::string>& error) {
  std::shared_ptr<BlePeripheral> peripheral;
  {
    std::lock_guard lock(mutex_);
    peripheral = peripheralManager_;
  }
  if (error) {
    platform_.print("ERROR: " + *error);
    return complete(nullptr, PlatformError(std::string(kAdvertisingFailed), kAdvertisingFailedCode, {{"reason", *error}}));
  }
  complete(std::move(peripheral), std::nullopt);
}

void TagAdvertiser::startPausedAdvertisement() {
  endDutyCycle();
  std::shared_ptr<BlePeripheral> peripheral;
  BeaconIdentity identity;
  std::uint32_t on = 0, off = 0;
  {
    std::lock_guard lock(mutex_);
    if (!peripheralManager_ || !advertisementData_) return;
    peripheral = peripheralManager_;
    identity = *advertisementData_;
    on = tON_;
    off = tOFF_;
  }
  auto started = [weak = weak_from_this()](std::optional<std::string> error) {
    if (auto self = weak.lock()) self->peripheralManagerDidStartAdvertising(error);
  };
  if (off == 0) {
    platform_.print("BLEFreqOperation - Always ON enabled");
    peripheral->startAdvertising(identity, std::move(started));
    return;
  }
  std::lock_guard duty(dutyMutex_);
  bleFreqQueue_ = std::jthread([peripheral, identity, on, off, started, platform = platform_](std::stop_token stop) {
    const auto& clock = *platform.clock;
    while (!stop.stop_requested()) {
      peripheral->startAdvertising(identity, started);
      platform.print("BLEFreqOperation - tON: " + std::to_string(on));
      if (clock.waitUntil(clock.now() + std::chrono::microseconds(on), stop)) break;
      peripheral->stopAdvertising();
      platform.print("BLEFreqOperation - tOFF: " + std::to_string(off));
      if (clock.waitUntil(clock.now() + std::chrono::microseconds(off), stop)) break;
    }
  });
}

void TagAdvertiser::endDutyCycle() {
  std::lock_guard duty(dutyMutex_);
  if (!bleFreqQueue_.joinable()) return;
  bleFreqQueue_.request_stop();
  // Its waits end at once; joining means no on-period can start after what the caller does next.
  bleFreqQueue_.join();
}

void TagAdvertiser::complete(std::shared_ptr<BlePeripheral> peripheral, std::optional<PlatformError> error) {
  Completion completion;
  {
    std::lock_guard lock(mutex_);
    completion = std::exchange(completionBlock_, nullptr);
  }
  if (!completion) return;  // only the first start after startAdvertisingRegion is reported
  platform_.mainQueue->post([completion = std::move(completion), peripheral = std::move(peripheral), error = std::move(error)] {
    completion(peripheral, error);
  });
}

}  // namespace velora::detail
