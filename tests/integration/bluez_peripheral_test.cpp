// The BlueZ peripheral against a stand-in Bluetooth daemon (fake_bluez.py) on a private bus of its
// own. The stand-in reads the advertisement back over the bus as the daemon does, so what these
// tests see is what the adapter would have put on air.

#include <fcntl.h>
#include <gio/gio.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <future>
#include <mutex>
#include <regex>
#include <thread>

#include <velora/platform/BlePeripheral.hpp>

namespace velora {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Events = std::vector<std::string>;

constexpr auto kDeadline = 20s;

/// A child process whose standard output the test reads line by line; stopped when dropped.
class Child {
 public:
  explicit Child(std::vector<std::string> argv) {
    std::vector<char*> args;
    for (auto& arg : argv) args.push_back(arg.data());
    args.push_back(nullptr);
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) return;
    pid_ = ::fork();
    if (pid_ == 0) {
      ::dup2(fds[1], STDOUT_FILENO);
      ::execv(args[0], args.data());
      ::_exit(127);
    }
    ::close(fds[1]);
    out_ = fds[0];
  }
  ~Child() {
    stop();
    if (out_ >= 0) ::close(out_);
  }
  void stop() {
    if (pid_ <= 0) return;
    ::kill(pid_, SIGTERM);
    ::waitpid(pid_, nullptr, 0);
    pid_ = -1;
  }
  /// The next line printed; empty when the child ends or stays silent past the deadline.
  std::string readLine() {
    std::string line;
    const auto until = Clock::now() + kDeadline;
    char c;
    while (out_ >= 0 && Clock::now() < until) {
      pollfd ready{out_, POLLIN, 0};
      if (::poll(&ready, 1, 100) <= 0) continue;
      if (::read(out_, &c, 1) != 1 || c == '\n') break;
      line += c;
    }
    return line;
  }

 private:
  pid_t pid_ = -1;
  int out_ = -1;
};

/// Polls `probe` until `done` holds for its value or the deadline passes; returns the last value.
template <typename Probe, typename Done>
auto eventually(Probe probe, Done done) {
  const auto until = Clock::now() + kDeadline;
  auto value = probe();
  while (!done(value) && Clock::now() < until) {
    std::this_thread::sleep_for(10ms);
    value = probe();
  }
  return value;
}

struct StateRecorder {
  std::mutex mutex;
  std::condition_variable changed;
  std::vector<BlePowerState> seen;

  BlePeripheral::StateHandler handler() {
    return [this](BlePowerState state) {
      std::lock_guard lock(mutex);
      seen.push_back(state);
      changed.notify_all();
    };
  }
  std::vector<BlePowerState> waitFor(std::size_t count) {
    std::unique_lock lock(mutex);
    changed.wait_for(lock, kDeadline, [&] { return seen.size() >= count; });
    return seen;
  }
};

std::optional<std::string> startAndWait(BlePeripheral& peripheral, const BeaconIdentity& identity) {
  auto outcome = std::make_shared<std::promise<std::optional<std::string>>>();
  auto future = outcome->get_future();
  // set_value throws when `done` runs twice, which ends the test run loudly.
  peripheral.startAdvertising(identity, [outcome](std::optional<std::string> error) { outcome->set_value(error); });
  if (future.wait_for(kDeadline) != std::future_status::ready) return "no outcome before the deadline";
  return future.get();
}

BeaconIdentity identity(const char* uuid, std::uint16_t major, std::uint16_t minor, std::int8_t power) {
  return {BeaconIdentity::parseUUID(uuid).value(), major, minor, power};
}

const BeaconIdentity kOffice = identity("E2C56DB5-DFFB-48D2-B060-D0F5A71096E0", 1, 2, -59);
const std::string kOfficeData = "type=broadcast data=004c:0215e2c56db5dffb48d2b060d0f5a71096e000010002c5";
const BeaconIdentity kLobby = identity("00112233-4455-6677-8899-aabbccddeeff", 0xBEEF, 0x0100, 4);
const std::string kLobbyData = "type=broadcast data=004c:021500112233445566778899aabbccddeeffbeef010004";

TEST(BeaconIdentity, ParsesOnlyCanonicalUUIDText) {
  using Bytes = std::array<std::uint8_t, 16>;
  const Bytes office = {0xe2, 0xc5, 0x6d, 0xb5, 0xdf, 0xfb, 0x48, 0xd2,
                        0xb0, 0x60, 0xd0, 0xf5, 0xa7, 0x10, 0x96, 0xe0};
  const std::vector<std::pair<std::string, std::optional<Bytes>>> cases = {
      {"E2C56DB5-DFFB-48D2-B060-D0F5A71096E0", office},
      {"e2c56db5-dffb-48d2-b060-d0f5a71096e0", office},
      {"e2c56db5-DFFB-48d2-B060-d0f5a71096E0", office},
      {"", std::nullopt},
      {"E2C56DB5DFFB48D2B060D0F5A71096E0", std::nullopt},        // no dashes
      {"E2C56DB5-DFFB-48D2-B060-D0F5A71096E", std::nullopt},     // one digit short
      {"E2C56DB5-DFFB-48D2-B060-D0F5A71096E00", std::nullopt},   // one digit over
      {"E2C56DB-5DFFB-48D2-B060-D0F5A71096E0", std::nullopt},    // dash out of place
      {"G2C56DB5-DFFB-48D2-B060-D0F5A71096E0", std::nullopt},    // not hex
      {"{E2C56DB5-DFFB-48D2-B060-D0F5A71096E0}", std::nullopt},  // braced form
      {" E2C56DB5-DFFB-48D2-B060-D0F5A71096E", std::nullopt},    // padded
      {"E2C56DB5-DFFB-48D2-B060+D0F5A71096E0", std::nullopt},
  };
  for (const auto& [text, expected] : cases) EXPECT_EQ(BeaconIdentity::parseUUID(text), expected) << text;
}

/// A private bus with the stand-in daemon on it, and a connection to the stand-in's controls.
class BlueZPeripheralTest : public ::testing::Test {
 protected:
  void SetUp() override {
    bus_ = std::make_unique<Child>(std::vector<std::string>{"/usr/bin/dbus-daemon", "--session", "--nofork",
                                                            "--print-address=1"});
    address_ = bus_->readLine();
    ASSERT_FALSE(address_.empty()) << "dbus-daemon did not start (package dbus-daemon)";
    GError* error = nullptr;
    control_ = g_dbus_connection_new_for_address_sync(
        address_.c_str(),
        GDBusConnectionFlags(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT | G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, &error);
    ASSERT_NE(control_, nullptr) << error->message;
  }

  void TearDown() override {
    if (control_) {
      g_dbus_connection_close_sync(control_, nullptr, nullptr);
      g_object_unref(control_);
    }
  }

  /// Starts the stand-in; false (with a failure recorded) when it does not come up.
  bool startBlueZ(std::vector<std::string> options = {}) {
    std::vector<std::string> argv{"/usr/bin/python3", VELORA_FAKE_BLUEZ_PATH, address_};
    argv.insert(argv.end(), options.begin(), options.end());
    blueZ_ = std::make_unique<Child>(argv);
    const bool ready = blueZ_->readLine() == "ready";
    EXPECT_TRUE(ready) << "the stand-in daemon did not start (needs /usr/bin/python3 with python3-dbus, python3-gi)";
    return ready;
  }

  std::shared_ptr<BlePeripheral> peripheral(const std::string& adapter = {}) {
    std::string why;
    auto made = makeBlueZPeripheral(&why, adapter, address_);
    EXPECT_NE(made, nullptr) << why;
    return made;
  }

  void control(const char* method, GVariant* arguments = nullptr) {
    GError* error = nullptr;
    GVariant* reply = g_dbus_connection_call_sync(control_, "org.bluez", "/org/velora/test", "org.velora.Test", method,
                                                  arguments, nullptr, G_DBUS_CALL_FLAGS_NONE, 10000, nullptr, &error);
    ASSERT_NE(reply, nullptr) << method << ": " << error->message;
    g_variant_unref(reply);
  }

  /// What the stand-in was asked, with our object's path written "ADV".
  Events events() {
    GVariant* reply = g_dbus_connection_call_sync(control_, "org.bluez", "/org/velora/test", "org.velora.Test",
                                                  "Events", nullptr, G_VARIANT_TYPE("(as)"), G_DBUS_CALL_FLAGS_NONE,
                                                  10000, nullptr, nullptr);
    Events out;
    if (!reply) return out;
    GVariantIter* iter;
    const gchar* event;
    g_variant_get(reply, "(as)", &iter);
    static const std::regex path("/org/velora/advertisement[0-9]+");
    while (g_variant_iter_next(iter, "&s", &event)) out.push_back(std::regex_replace(event, path, "ADV"));
    g_variant_iter_free(iter);
    g_variant_unref(reply);
    return out;
  }

  Events eventsOnce(std::size_t count) {
    return eventually([&] { return events(); }, [&](const Events& seen) { return seen.size() >= count; });
  }

  bool advertisingOnce(BlePeripheral& peripheral, bool expected) {
    const auto isExpected = [&](bool seen) { return seen == expected; };
    return isExpected(eventually([&] { return peripheral.isAdvertising(); }, isExpected));
  }

  std::unique_ptr<Child> bus_;
  std::string address_;
  GDBusConnection* control_ = nullptr;
  std::unique_ptr<Child> blueZ_;
};

TEST_F(BlueZPeripheralTest, BlueZReadsBackTheBeaconBytesAndEachNewIdentity) {
  ASSERT_TRUE(startBlueZ());
  auto tag = peripheral();
  ASSERT_NE(tag, nullptr);
  struct Step {
    BeaconIdentity identity;
    Events expected;  // everything the stand-in was asked so far
  };
  const std::vector<Step> steps = {
      {kOffice, {"register ADV " + kOfficeData}},
      // BlueZ reads the data only at registration, so a new identity goes through a new one.
      {kLobby, {"register ADV " + kOfficeData, "unregister ADV", "register ADV " + kLobbyData}},
      {kLobby, {"register ADV " + kOfficeData, "unregister ADV", "register ADV " + kLobbyData}},
  };
  for (std::size_t i = 0; i < steps.size(); ++i) {
    SCOPED_TRACE("step " + std::to_string(i));
    EXPECT_EQ(startAndWait(*tag, steps[i].identity), std::nullopt);
    EXPECT_TRUE(tag->isAdvertising());
    EXPECT_EQ(events(), steps[i].expected);
  }
}

TEST_F(BlueZPeripheralTest, EachOnPeriodRegistersAndEachOffPeriodUnregisters) {
  ASSERT_TRUE(startBlueZ());
  auto tag = peripheral();
  ASSERT_NE(tag, nullptr);
  EXPECT_EQ(tag->description(), "BlueZ adapter hci0");
  for (int period = 0; period < 2; ++period) {
    EXPECT_EQ(startAndWait(*tag, kOffice), std::nullopt);
    EXPECT_TRUE(tag->isAdvertising());
    tag->stopAdvertising();
    EXPECT_TRUE(advertisingOnce(*tag, false));
    EXPECT_EQ(eventsOnce(2 * period + 2).size(), 2u * period + 2);
  }
  tag->stopAdvertising();  // nothing on air: nothing to ask
  // Work runs in the order asked, so once this start is done the stop above has been handled.
  EXPECT_EQ(startAndWait(*tag, kOffice), std::nullopt);
  const std::string on = "register ADV " + kOfficeData;
  EXPECT_EQ(events(), (Events{on, "unregister ADV", on, "unregister ADV", on}));
  tag.reset();  // dropping the peripheral takes it off air
  EXPECT_EQ(events(), (Events{on, "unregister ADV", on, "unregister ADV", on, "unregister ADV"}));
}

TEST_F(BlueZPeripheralTest, RefusalsBecomeReadableErrors) {
  struct Case {
    const char* errorName;
    const char* message;
    std::optional<std::string> outcome;
    Events expected;
  };
  const std::string on = "register ADV " + kOfficeData;
  const std::vector<Case> cases = {
      {"org.bluez.Error.NotPermitted", "Permission denied",
       "BlueZ refused the advertisement: not permitted (Permission denied)",
       {"refuse ADV org.bluez.Error.NotPermitted"}},
      {"org.bluez.Error.Failed", "Maximum advertisements reached", "BlueZ has too many advertisements registered",
       {"refuse ADV org.bluez.Error.Failed"}},
      {"org.bluez.Error.InvalidArguments", "Invalid Arguments in method call",
       "BlueZ rejected the advertisement's data (Invalid Arguments in method call)",
       {"refuse ADV org.bluez.Error.InvalidArguments"}},
      {"org.bluez.Error.Failed", "Failed to register advertisement",
       "BlueZ could not register the advertisement (org.bluez.Error.Failed: Failed to register advertisement)",
       {"refuse ADV org.bluez.Error.Failed"}},
      // BlueZ still holding our object from before: replaced, and on air.
      {"org.bluez.Error.AlreadyExists", "Already Exists", std::nullopt,
       {"refuse ADV org.bluez.Error.AlreadyExists", "unregister ADV", on}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.errorName) + ": " + c.message);
    ASSERT_TRUE(startBlueZ());
    auto tag = peripheral();
    ASSERT_NE(tag, nullptr);
    control("FailNextRegister", g_variant_new("(ss)", c.errorName, c.message));
    EXPECT_EQ(startAndWait(*tag, kOffice), c.outcome);
    EXPECT_EQ(tag->isAdvertising(), !c.outcome.has_value());
    EXPECT_EQ(events(), c.expected);
    tag.reset();
    blueZ_.reset();
  }
}

TEST_F(BlueZPeripheralTest, ReleaseByBlueZTakesItOffAirWithoutAnUnregister) {
  ASSERT_TRUE(startBlueZ());
  auto tag = peripheral();
  ASSERT_NE(tag, nullptr);
  ASSERT_EQ(startAndWait(*tag, kOffice), std::nullopt);
  control("ReleaseAll");
  EXPECT_TRUE(advertisingOnce(*tag, false));
  tag->stopAdvertising();
  EXPECT_EQ(startAndWait(*tag, kOffice), std::nullopt);
  EXPECT_TRUE(tag->isAdvertising());
  const std::string on = "register ADV " + kOfficeData;
  EXPECT_EQ(events(), (Events{on, "release ADV", on}));
}

TEST_F(BlueZPeripheralTest, PowerStateFollowsTheAdapter) {
  ASSERT_TRUE(startBlueZ());
  StateRecorder states;  // outlives the peripheral that calls it
  auto tag = peripheral();
  ASSERT_NE(tag, nullptr);
  tag->setStateHandler(states.handler());
  using enum BlePowerState;
  EXPECT_EQ(states.waitFor(1), (std::vector{poweredOn}));
  ASSERT_EQ(startAndWait(*tag, kOffice), std::nullopt);

  struct Step {
    const char* method;
    GVariant* (*arguments)();
    std::vector<BlePowerState> expected;
  };
  const std::vector<Step> steps = {
      {"SetPowered", [] { return g_variant_new("(b)", FALSE); }, {poweredOn, poweredOff}},
      {"SetPowered", [] { return g_variant_new("(b)", TRUE); }, {poweredOn, poweredOff, poweredOn}},
      {"RemoveAdapter", [] { return static_cast<GVariant*>(nullptr); }, {poweredOn, poweredOff, poweredOn, unsupported}},
  };
  for (const auto& step : steps) {
    SCOPED_TRACE(step.method);
    control(step.method, step.arguments());
    EXPECT_EQ(states.waitFor(step.expected.size()), step.expected);
    EXPECT_EQ(tag->state(), step.expected.back());
    EXPECT_FALSE(tag->isAdvertising());  // switched off, nothing comes back on air by itself
  }
  tag.reset();
}

TEST_F(BlueZPeripheralTest, BlueZLeavingTheBusMakesThePeripheralUnsupported) {
  ASSERT_TRUE(startBlueZ());
  StateRecorder states;
  auto tag = peripheral();
  ASSERT_NE(tag, nullptr);
  tag->setStateHandler(states.handler());
  blueZ_->stop();
  using enum BlePowerState;
  EXPECT_EQ(states.waitFor(2), (std::vector{poweredOn, unsupported}));
  const auto outcome = startAndWait(*tag, kOffice);
  ASSERT_TRUE(outcome.has_value());
  EXPECT_TRUE(outcome->starts_with("BlueZ does not answer (")) << *outcome;
  EXPECT_FALSE(tag->isAdvertising());
  tag.reset();
}

TEST_F(BlueZPeripheralTest, MakingFindsTheAdapterOrSaysWhyNot) {
  struct Case {
    const char* name;
    std::optional<std::vector<std::string>> blueZ;  // stand-in's options; nullopt: none on the bus
    std::string adapter;
    std::string why;  // empty: made, as "BlueZ adapter hci0"
    bool busReasonFollows = false;  // `why` is followed by the bus's own reason
    std::string busAddress = {};
  };
  const std::vector<Case> cases = {
      {"first adapter", std::vector<std::string>{}, "", ""},
      {"named adapter", std::vector<std::string>{}, "hci0", ""},
      {"unknown adapter", std::vector<std::string>{}, "hci1", "BlueZ has no adapter hci1"},
      {"adapter cannot advertise", std::vector<std::string>{"--no-advertising"}, "",
       "BlueZ has no adapter that can advertise"},
      {"no BlueZ on the bus", std::nullopt, "", "no BlueZ on the bus at " + address_ + ": ", true},
      {"no bus", std::nullopt, "", "no BlueZ on the bus at unix:path=/nonexistent/bus: ", true,
       "unix:path=/nonexistent/bus"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    if (c.blueZ) {
      ASSERT_TRUE(startBlueZ(*c.blueZ));
    }
    std::string why = "untouched";
    auto made = makeBlueZPeripheral(&why, c.adapter, c.busAddress.empty() ? address_ : c.busAddress);
    if (c.why.empty()) {
      ASSERT_NE(made, nullptr) << why;
      EXPECT_EQ(made->description(), "BlueZ adapter hci0");
      EXPECT_EQ(why, "untouched");
    } else if (c.busReasonFollows) {
      EXPECT_EQ(made, nullptr);
      EXPECT_TRUE(why.starts_with(c.why)) << why;
      EXPECT_GT(why.size(), c.why.size()) << "the bus's own reason is missing";
    } else {
      EXPECT_EQ(made, nullptr);
      EXPECT_EQ(why, c.why);
    }
    made.reset();
    blueZ_.reset();
  }
}

}  // namespace
}  // namespace velora
