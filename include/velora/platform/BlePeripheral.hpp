#pragma once
// The device's Bluetooth LE peripheral role, as far as a positioning tag needs it: advertising one
// iBeacon identity, stopping it, and the controller's power state. Calls may come from any thread;
// the peripheral calls back on a thread of its own, one callback at a time.

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace velora {

/// What goes on air: Apple's iBeacon layout (company 0x004C, type 0x02, length 0x15, the proximity
/// UUID, major and minor big-endian, the measured power at one metre as a signed byte).
struct BeaconIdentity {
  /// The proximity UUID's 16 bytes in the order of its text form (see parseUUID).
  std::array<std::uint8_t, 16> proximityUUID{};
  /// @{
  /// Tell tags with the same proximity UUID apart; sent big-endian.
  std::uint16_t major = 0;
  std::uint16_t minor = 0;
  /// @}
  /// The signal strength, in dBm, that a receiver one metre away should see; its distance estimate
  /// starts from it (typically a negative number around -59).
  std::int8_t measuredPower = 0;

  /// The manufacturer data after the company identifier: 0x02 0x15, UUID, major, minor, power.
  std::array<std::uint8_t, 23> manufacturerData() const;
  /// From "XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX"; nullopt for any other text.
  static std::optional<std::array<std::uint8_t, 16>> parseUUID(const std::string& text);
  friend bool operator==(const BeaconIdentity&, const BeaconIdentity&) = default;
};

/// The Bluetooth company identifier that precedes manufacturerData() on air, as iBeacon requires.
inline constexpr std::uint16_t kAppleCompanyIdentifier = 0x004C;

/// The controller's state, named as the platform's Bluetooth states are.
enum class BlePowerState { unknown, resetting, unsupported, unauthorized, poweredOff, poweredOn };

/// The Bluetooth LE peripheral a positioning tag advertises with: makeBlueZPeripheral on a real
/// controller, SimulatedBlePeripheral elsewhere.
class BlePeripheral {
 public:
  /// Told the controller's power state, on the peripheral's thread.
  using StateHandler = std::function<void(BlePowerState)>;
  /// nullopt: the advertisement is on air; otherwise why it is not.
  using StartHandler = std::function<void(std::optional<std::string> error)>;

  virtual ~BlePeripheral() = default;

  /// Follows the power state: `handler` is told the current state at once and then every change,
  /// on the peripheral's thread. A later call replaces the handler; an empty one stops it. When the
  /// call returns the old handler is not running (a running one is waited for, unless the call
  /// comes from inside it) and never runs again.
  virtual void setStateHandler(StateHandler handler) = 0;
  /// The power state now; advertising needs poweredOn.
  virtual BlePowerState state() const = 0;

  /// Puts `identity` on air (replacing what was advertised); `done` runs once with the outcome.
  virtual void startAdvertising(const BeaconIdentity& identity, StartHandler done) = 0;
  /// Takes the advertisement off air; nothing happens when none is.
  virtual void stopAdvertising() = 0;
  /// Whether an advertisement is on air now.
  virtual bool isAdvertising() const = 0;

  /// Which adapter this is, for messages ("BlueZ adapter hci0", "simulated peripheral").
  virtual std::string description() const = 0;
};

/// A peripheral that puts nothing on air and records what would be: for machines without a
/// controller and for tests. Powered on unless told otherwise. It has no thread: it calls back on
/// the thread that called it (or that changed its power state).
class SimulatedBlePeripheral : public BlePeripheral {
 public:
  /// One switch of the advertisement, on or off.
  struct Switch {
    bool on = false;  ///< True when the advertisement went on air, false when it was taken off.
    std::optional<BeaconIdentity> identity;  ///< What went on air, for an "on" switch; else empty.
  };
  /// Told of each Switch; replaced by the next observeSwitches.
  using SwitchObserver = std::function<void(const Switch&)>;

  /// A new simulated peripheral: powered on, not advertising, starts succeed.
  static std::shared_ptr<SimulatedBlePeripheral> make();

  /// Changes the power state as a controller would, telling the state handler.
  virtual void setPowerState(BlePowerState state) = 0;
  /// Makes the next starts fail with `error` (nullopt: succeed again).
  virtual void failStartsWith(std::optional<std::string> error) = 0;
  /// Told of every switch on or off, on the peripheral's thread.
  virtual void observeSwitches(SwitchObserver observer) = 0;
  /// The identity on air now; nullopt when nothing is advertised.
  virtual std::optional<BeaconIdentity> advertised() const = 0;
};

/// The BlueZ adapter over the system D-Bus (or the bus at `busAddress`): an LEAdvertisement1
/// object registered with the adapter's LEAdvertisingManager1 while on air. `adapter` names it
/// ("hci0"); empty takes the first adapter that can advertise. Returns nullptr and sets `why`
/// when no usable BlueZ adapter answers.
std::shared_ptr<BlePeripheral> makeBlueZPeripheral(std::string* why, const std::string& adapter = {},
                                                   const std::string& busAddress = {});

}  // namespace velora
