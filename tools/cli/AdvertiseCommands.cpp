// advertise: this machine as the platform's positioning tag, on its BlueZ adapter or, without one,
// on a simulated peripheral that says what would be on air.

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <memory>
#include <mutex>

#include <velora/beacon/Beacon.hpp>
#include <velora/core/DeviceConfiguration.hpp>

#include "Command.hpp"
#include "Session.hpp"

namespace velora::cli {
namespace {

struct AdvertiseOptions {
  std::string frequency, tagid, adapter;
  double seconds = 0;
  bool simulate = false;
};

// Ctrl-C and SIGTERM reach the waiting command through a pipe, so the wait is a poll that costs
// nothing until a signal or the deadline comes.
int interruptPipe[2] = {-1, -1};
extern "C" void onAdvertiseInterrupt(int) {
  const char byte = 1;
  [[maybe_unused]] const auto written = ::write(interruptPipe[1], &byte, 1);
}

/// Until Ctrl-C or SIGTERM, or `seconds` when positive.
void waitForInterrupt(double seconds) {
  if (interruptPipe[0] < 0 && ::pipe2(interruptPipe, O_CLOEXEC | O_NONBLOCK) != 0) throw std::runtime_error("pipe2 failed");
  std::signal(SIGINT, onAdvertiseInterrupt);
  std::signal(SIGTERM, onAdvertiseInterrupt);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  for (;;) {
    int timeout = -1;
    if (seconds > 0) {
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()).count();
      if (left <= 0) break;
      timeout = static_cast<int>(left);
    }
    pollfd fd{interruptPipe[0], POLLIN, 0};
    if (::poll(&fd, 1, timeout) > 0) break;
  }
  std::signal(SIGINT, SIG_DFL);
  std::signal(SIGTERM, SIG_DFL);
}

std::string clockText() {
  const auto now = std::chrono::system_clock::now();
  const std::time_t t = std::chrono::system_clock::to_time_t(now);
  const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
  std::tm local{};
  localtime_r(&t, &local);
  char text[32];
  std::snprintf(text, sizeof text, "%02d:%02d:%02d.%03d", local.tm_hour, local.tm_min, local.tm_sec, static_cast<int>(ms));
  return text;
}

/// The chosen peripheral, with a line on standard output for every switch on or off air.
class ReportingPeripheral final : public BlePeripheral {
 public:
  ReportingPeripheral(std::shared_ptr<BlePeripheral> inner, Output& out) : inner_(std::move(inner)), out_(out) {}

  void setStateHandler(StateHandler handler) override { inner_->setStateHandler(std::move(handler)); }
  BlePowerState state() const override { return inner_->state(); }
  void startAdvertising(const BeaconIdentity& identity, StartHandler done) override {
    inner_->startAdvertising(identity, [this, done = std::move(done)](std::optional<std::string> error) {
      report(error ? "not on air: " + *error : "on air");
      if (done) done(std::move(error));
    });
  }
  void stopAdvertising() override {
    const bool was = inner_->isAdvertising();
    inner_->stopAdvertising();
    if (was) report("off air");
  }
  bool isAdvertising() const override { return inner_->isAdvertising(); }
  std::string description() const override { return inner_->description(); }

  /// Lines so far are printed, and later ones as they come: the identity is printed first.
  void startReporting() {
    std::lock_guard lock(mutex_);
    for (const auto& [at, what] : pending_) print(at, what);
    pending_.clear();
    reporting_ = true;
  }
  int switches() const {
    std::lock_guard lock(mutex_);
    return switches_;
  }

 private:
  void report(const std::string& what) {
    std::lock_guard lock(mutex_);
    ++switches_;
    if (reporting_) {
      print(clockText(), what);
    } else {
      pending_.emplace_back(clockText(), what);
    }
  }
  void print(const std::string& at, const std::string& what) {
    if (out_.json()) {
      out_.printJson(AnyCodable::object({{"at", at}, {"event", what}}));
    } else {
      out_.printText(at + "  " + what);
    }
  }

  std::shared_ptr<BlePeripheral> inner_;
  Output& out_;
  mutable std::mutex mutex_;  // also keeps the peripheral's lines whole on standard output
  std::vector<std::pair<std::string, std::string>> pending_;
  bool reporting_ = false;
  int switches_ = 0;
};

std::optional<BLEFrequency> frequencyOption(const std::string& text) {
  if (text.empty()) return std::nullopt;
  for (const auto f : {BLEFrequency::low, BLEFrequency::middle, BLEFrequency::high, BLEFrequency::alwaysOn}) {
    if (text == rawValue(f)) return f;
  }
  throw UsageError("--frequency must be low, middle, high or alwaysOn, not '" + text + "'");
}

std::string uuidText(const std::array<std::uint8_t, 16>& bytes) {
  std::string text;
  char hex[3];
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text.push_back('-');
    std::snprintf(hex, sizeof hex, "%02X", bytes[i]);
    text += hex;
  }
  return text;
}

std::shared_ptr<BlePeripheral> choosePeripheral(const AdvertiseOptions& o) {
  if (o.simulate) return SimulatedBlePeripheral::make();
  std::string why;
  if (auto bluez = makeBlueZPeripheral(&why, o.adapter)) return bluez;
  writeDiagnostic("velora: looked for " + (o.adapter.empty() ? std::string("a BlueZ adapter") : "BlueZ adapter " + o.adapter) +
                  " on the system bus: " + why + "; advertising on a simulated peripheral, nothing goes on air");
  return SimulatedBlePeripheral::make();
}

void advertise(Context& ctx, const AdvertiseOptions& o) {
  const auto frequency = frequencyOption(o.frequency);
  auto peripheral = std::make_shared<ReportingPeripheral>(choosePeripheral(o), ctx.out);
  // The facade takes the platform's peripheral when it is made, which is just below.
  Platform::getDefault().bluetooth = peripheral;
  Orvane& orvane = connectWithSession(ctx);
  std::optional<std::string> tagid;
  if (!o.tagid.empty()) tagid = o.tagid;
  const auto config = ctx.await("Fetching the device configuration", orvane.getConfiguration(tagid));
  const auto& tag = config.iosadvConf;

  const auto cycle = frequency ? dutyCycle(*frequency) : BLEDutyCycle{tag.tON.value_or(0), tag.tOFF.value_or(0)};
  ctx.await("Starting to advertise", orvane.startAdvertisingRegion(tag, frequency));
  const auto identity = orvane.advertisementData();
  const std::string cycleText =
      cycle.tOFF == 0 ? "continuous" : formatNumber(cycle.tON) + " s on, " + formatNumber(cycle.tOFF) + " s off";
  if (ctx.out.json()) {
    ctx.out.printJson(AnyCodable::object({{"adapter", peripheral->description()},
                                          {"tagid", tag.tagid},
                                          {"uuid", uuidText(identity->proximityUUID)},
                                          {"major", static_cast<std::int64_t>(identity->major)},
                                          {"minor", static_cast<std::int64_t>(identity->minor)},
                                          {"measuredPower", static_cast<std::int64_t>(identity->measuredPower)},
                                          {"cycle", cycleText}}));
  } else {
    ctx.out.printText(fieldLines({{"adapter", peripheral->description()},
                                  {"tag id", tag.tagid},
                                  {"uuid", uuidText(identity->proximityUUID)},
                                  {"major", std::to_string(identity->major)},
                                  {"minor", std::to_string(identity->minor)},
                                  {"power", std::to_string(identity->measuredPower) + " dBm at 1 m"},
                                  {"cycle", cycleText}}));
  }
  peripheral->startReporting();
  waitForInterrupt(o.seconds);
  orvane.stopAdvertisingRegion();
  writeDiagnostic("velora: stopped advertising after " + std::to_string(peripheral->switches()) + " switches");
}

}  // namespace

void addAdvertiseCommands(CommandSet& commands) {
  auto o = std::make_shared<AdvertiseOptions>();
  CLI::App* command = commands.add("advertise", "Advertise this machine as the platform's positioning tag until Ctrl-C",
                                   [o](Context& ctx) { advertise(ctx, *o); });
  command->add_option("--frequency", o->frequency, "low, middle, high or alwaysOn (default: the configuration's times)");
  command->add_option("--tagid", o->tagid, "Ask for this tag id instead of the assigned one");
  command->add_option("--seconds", o->seconds, "Stop after this many seconds");
  command->add_option("--adapter", o->adapter, "The BlueZ adapter to use, e.g. hci0 (default: the first that can advertise)");
  command->add_flag("--simulate", o->simulate, "Use a simulated peripheral even when BlueZ answers");
}

}  // namespace velora::cli
