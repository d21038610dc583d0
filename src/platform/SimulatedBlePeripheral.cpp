#include <mutex>

#include <velora/platform/BlePeripheral.hpp>

namespace velora {
namespace {

class Simulated final : public SimulatedBlePeripheral {
 public:
  void setStateHandler(StateHandler handler) override {
    std::lock_guard telling(handlerMutex_);
    stateHandler_ = std::move(handler);
    if (auto told = stateHandler_) told(state());  // a copy: the handler may replace itself
  }

  BlePowerState state() const override {
    std::lock_guard lock(mutex_);
    return state_;
  }

  void startAdvertising(const BeaconIdentity& identity, StartHandler done) override {
    std::optional<std::string> error;
    SwitchObserver observer;
    {
      std::lock_guard lock(mutex_);
      if (state_ != BlePowerState::poweredOn) {
        error = "the simulated controller is not powered on";
      } else {
        error = failure_;
      }
      if (!error) {
        advertised_ = identity;
        observer = observer_;
      }
    }
    if (observer) observer({true, identity});
    if (done) done(error);
  }

  void stopAdvertising() override {
    SwitchObserver observer;
    {
      std::lock_guard lock(mutex_);
      if (!advertised_) return;
      advertised_.reset();
      observer = observer_;
    }
    if (observer) observer({false, std::nullopt});
  }

  bool isAdvertising() const override {
    std::lock_guard lock(mutex_);
    return advertised_.has_value();
  }

  std::string description() const override { return "simulated peripheral"; }

  void setPowerState(BlePowerState state) override {
    std::lock_guard telling(handlerMutex_);
    SwitchObserver observer;
    {
      std::lock_guard lock(mutex_);
      state_ = state;
      // A controller that goes down takes its advertisement with it.
      if (state != BlePowerState::poweredOn && advertised_) {
        advertised_.reset();
        observer = observer_;
      }
    }
    if (observer) observer({false, std::nullopt});
    if (auto told = stateHandler_) told(state);
  }

  void failStartsWith(std::optional<std::string> error) override {
    std::lock_guard lock(mutex_);
    failure_ = std::move(error);
  }

  void observeSwitches(SwitchObserver observer) override {
    std::lock_guard lock(mutex_);
    observer_ = std::move(observer);
  }

  std::optional<BeaconIdentity> advertised() const override {
    std::lock_guard lock(mutex_);
    return advertised_;
  }

 private:
  mutable std::mutex mutex_;
  // Held while the state handler is replaced or told something; recursive, since a handler may
  // replace itself.
  std::recursive_mutex handlerMutex_;
  StateHandler stateHandler_;  // guarded by handlerMutex_
  BlePowerState state_ = BlePowerState::poweredOn;
  SwitchObserver observer_;
  std::optional<std::string> failure_;
  std::optional<BeaconIdentity> advertised_;
};

}  // namespace

std::shared_ptr<SimulatedBlePeripheral> SimulatedBlePeripheral::make() { return std::make_shared<Simulated>(); }

}  // namespace velora
