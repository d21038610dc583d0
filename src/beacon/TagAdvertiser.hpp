#pragma once
// The positioning tag's advertising state: the peripheral, what it advertises, and the duty cycle
// that switches it on and off on a thread of its own. The facade's startAdvertisingRegion and
// stopAdvertisingRegion drive it; the peripheral's callbacks arrive on the peripheral's thread.

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

#include <velora/beacon/BLEFrequency.hpp>
#include <velora/core/PlatformError.hpp>
#include <velora/platform/BlePeripheral.hpp>
#include <velora/platform/Platform.hpp>

namespace velora::detail {

class TagAdvertiser : public std::enable_shared_from_this<TagAdvertiser> {
 public:
  using Completion = std::function<void(std::shared_ptr<BlePeripheral>, std::optional<PlatformError>)>;

  explicit TagAdvertiser(Platform platform) : platform_(std::move(platform)) {}
  ~TagAdvertiser();

  /// Advertises `identity` with `cycle` once the peripheral is powered on; `completion` hears of
  /// the first start (on the main queue). Replaces whatever was advertised before.
  void start(BeaconIdentity identity, BLEDutyCycle cycle, Completion completion);
  /// Ends the duty cycle and takes the advertisement off air; returns once both are done.
  void stop();

  BlePowerState bluetoothState() const;
  std::optional<BeaconIdentity> advertisementData() const;

 private:
  void peripheralManagerDidUpdateState(BlePowerState state);
  void peripheralManagerDidStartAdvertising(const std::optional<std::string>& error);
  void startPausedAdvertisement();
  /// Ends the duty cycle's thread; the caller then owns the peripheral's state.
  void endDutyCycle();
  void complete(std::shared_ptr<BlePeripheral> peripheral, std::optional<PlatformError> error);

  const Platform platform_;  // a copy: peripheral callbacks may outlive the facade
  mutable std::mutex mutex_;
  std::shared_ptr<BlePeripheral> peripheralManager_;
  std::function<void()> startupBlock_;
  Completion completionBlock_;
  BlePowerState bluetoothState_ = BlePowerState::unknown;
  std::uint32_t tON_ = 0;   // microseconds
  std::uint32_t tOFF_ = 0;  // microseconds
  std::optional<BeaconIdentity> advertisementData_;
  std::jthread bleFreqQueue_;  // the duty cycle, when one runs
  std::mutex dutyMutex_;       // held while the duty cycle's thread is started or ended
};

}  // namespace velora::detail
