// advertise: advertises this device as the platform's positioning tag, in the low duty cycle, for a
// few seconds.
//
//   advertise [URL] [--simulate] [--seconds N]
//
// Without --simulate it uses the machine's BlueZ adapter; --simulate uses a peripheral that puts
// nothing on air and only records what would be (machines without Bluetooth, CI).
// Form: coroutines. main() blocks on one velora::Task with get(); inside it, co_await. Each
// operation's task is made on one line and awaited on the next: g++ 12 can destroy temporaries
// built inside a co_await expression twice.

#include <atomic>
#include <chrono>
#include <cstdio>
#include <iostream>
#include <thread>

#include "Connect.hpp"

namespace {

std::string uuidText(const std::array<std::uint8_t, 16>& bytes) {
  std::string text;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    char hex[3];
    std::snprintf(hex, sizeof hex, "%02X", bytes[i]);
    text += (i == 4 || i == 6 || i == 8 || i == 10 ? "-" : "") + std::string(hex);
  }
  return text;
}

velora::Task<int> run(velora::Orvane& orvane, std::chrono::seconds duration) {
  auto login = orvane.backgroundLogin(example::user(), example::password(), -1);
  co_await login;

  // The platform assigns this installation its tag and the identity bytes it advertises with.
  auto configure = orvane.getConfiguration(std::nullopt);
  const velora::NetworkResponseConfiguration config = co_await configure;
  auto start = orvane.startAdvertisingRegion(config.iosadvConf, velora::BLEFrequency::low);
  const std::shared_ptr<velora::BlePeripheral> peripheral = co_await start;

  const velora::BeaconIdentity identity = *orvane.advertisementData();
  std::cout << "tag " << config.iosadvConf.tagid << " on " << peripheral->description() << ": uuid "
            << uuidText(identity.proximityUUID) << ", major " << identity.major << ", minor " << identity.minor << '\n';
  // The duty cycle runs on a thread of its own; this one only waits.
  std::this_thread::sleep_for(duration);
  orvane.stopAdvertisingRegion();
  co_return 0;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  try {
    const std::string url = example::platformUrl(args);
    bool simulate = false;
    std::chrono::seconds duration(3);
    for (std::size_t i = 0; i < args.size(); ++i) {
      if (args[i] == "--simulate") simulate = true;
      else if (args[i] == "--seconds" && i + 1 < args.size()) duration = std::chrono::seconds(std::atoi(args[++i].c_str()));
      else return example::fail("advertise", "usage: advertise [URL] [--simulate] [--seconds N]");
    }

    // The peripheral belongs to the platform, which the facade takes when it is made.
    velora::Platform platform = example::platform("advertise");
    std::atomic<int> switches{0};
    if (simulate) {
      auto simulated = velora::SimulatedBlePeripheral::make();
      simulated->observeSwitches([&switches](const velora::SimulatedBlePeripheral::Switch& s) {
        std::cout << "  " << (s.on ? "on air" : "off air") << '\n';
        ++switches;
      });
      platform.bluetooth = simulated;
    } else {
      std::string why;
      platform.bluetooth = velora::makeBlueZPeripheral(&why);
      if (!platform.bluetooth) return example::fail("advertise", why + " (--simulate advertises without Bluetooth)");
    }
    velora::Orvane& orvane = example::connect(std::move(platform), url);
    example::forgetStoredSession(orvane);
    if (const int status = run(orvane, duration).get(); status != 0) return status;
    if (simulate && switches == 0) return example::fail("advertise", "the simulated peripheral never went on air");
    std::cout << "advertise ok: advertised for " << duration.count() << " s"
              << (simulate ? ", " + std::to_string(switches) + " switches on the simulated peripheral" : std::string()) << '\n';
    return 0;
  } catch (...) {
    return example::fail("advertise", example::describe(std::current_exception()));
  }
}
