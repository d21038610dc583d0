// The BLE peripheral on Linux: an LEAdvertisement1 object of our own, registered with BlueZ's
// LEAdvertisingManager1 while the beacon is on air, and the adapter's Powered property followed.
//
// Everything D-Bus happens on one thread running a GLib main loop on a context of its own, so the
// library never touches the host's default GLib context. Public calls post work to that thread
// and return at once.

#include <gio/gio.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

#include <velora/platform/BlePeripheral.hpp>

namespace velora {
namespace {

constexpr const char* kBlueZ = "org.bluez";
constexpr const char* kAdapterInterface = "org.bluez.Adapter1";
constexpr const char* kManagerInterface = "org.bluez.LEAdvertisingManager1";
constexpr int kCallTimeoutMs = 10000;

constexpr const char* kAdvertisementXml =
    "<node><interface name='org.bluez.LEAdvertisement1'>"
    "<method name='Release'/>"
    "<property name='Type' type='s' access='read'/>"
    "<property name='ManufacturerData' type='a{qv}' access='read'/>"
    "</interface></node>";

std::atomic<unsigned> nextAdvertisementNumber{0};

std::string lastComponent(const std::string& path) { return path.substr(path.rfind('/') + 1); }

/// The remote error's name (empty for local failures) and the message without GDBus's prefix.
std::pair<std::string, std::string> splitError(GError* error) {
  std::string name;
  if (gchar* remote = g_dbus_error_get_remote_error(error)) {
    name = remote;
    g_free(remote);
  }
  g_dbus_error_strip_remote_error(error);
  return {name, error->message};
}

bool bluezGone(const std::string& name, GError* error) {
  return name == "org.freedesktop.DBus.Error.ServiceUnknown" || name == "org.freedesktop.DBus.Error.NoReply" ||
         name == "org.freedesktop.DBus.Error.Disconnected" || name == "org.freedesktop.DBus.Error.NameHasNoOwner" ||
         g_error_matches(error, G_IO_ERROR, G_IO_ERROR_TIMED_OUT) || g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CLOSED);
}

std::string describeRegisterError(const std::string& name, const std::string& message, GError* error) {
  if (name == "org.bluez.Error.NotPermitted") return "BlueZ refused the advertisement: not permitted (" + message + ")";
  if (name == "org.bluez.Error.Failed" && message.find("Maximum advertisements reached") != std::string::npos) {
    return "BlueZ has too many advertisements registered";
  }
  if (name == "org.bluez.Error.InvalidArguments") return "BlueZ rejected the advertisement's data (" + message + ")";
  if (bluezGone(name, error)) return "BlueZ does not answer (" + message + ")";
  return "BlueZ could not register the advertisement (" + (name.empty() ? "" : name + ": ") + message + ")";
}

/// The adapter's state and the advertisement, owned by the loop thread. Shared with that thread so
/// that it outlives the public object when the last reference goes away inside a callback.
class Core {
 public:
  Core(std::string adapter, std::string busAddress)
      : wantedAdapter_(std::move(adapter)), busAddress_(std::move(busAddress)),
        objectPath_("/org/velora/advertisement" + std::to_string(nextAdvertisementNumber++)),
        context_(g_main_context_new()), loop_(g_main_loop_new(context_, FALSE)), cancellable_(g_cancellable_new()) {}

  ~Core() {
    g_object_unref(cancellable_);
    g_main_loop_unref(loop_);
    g_main_context_unref(context_);
  }

  /// The loop thread's whole life: set up, tell `ready` the outcome, serve, clean up.
  void run(std::promise<std::string>& ready) {
    g_main_context_push_thread_default(context_);
    std::string why = setUp();
    const bool ok = why.empty();
    ready.set_value(std::move(why));
    if (ok) g_main_loop_run(loop_);
    tearDown();
    g_main_context_pop_thread_default(context_);
  }

  /// Runs `work` on the loop thread, after what was posted before. Always deferred, even from
  /// the loop thread, so a callback that calls back into the peripheral never re-enters it.
  void post(std::function<void(Core&)> work) {
    struct Task {
      Core* core;
      std::function<void(Core&)> work;
    };
    GSource* source = g_idle_source_new();
    g_source_set_callback(
        source,
        [](gpointer data) -> gboolean {
          auto* task = static_cast<Task*>(data);
          if (!task->core->closing_) task->work(*task->core);
          return G_SOURCE_REMOVE;
        },
        new Task{this, std::move(work)}, [](gpointer data) { delete static_cast<Task*>(data); });
    g_source_set_priority(source, G_PRIORITY_DEFAULT);
    g_source_attach(source, context_);
    g_source_unref(source);
  }

  void quit() { post([](Core& core) { g_main_loop_quit(core.loop_); }); }

  void setStateHandler(BlePeripheral::StateHandler handler) {
    unsigned generation;
    {
      std::lock_guard lock(handlerMutex_);
      stateHandler_ = std::move(handler);
      generation = ++handlerGeneration_;
      toldCurrentState_ = false;
    }
    // A new handler hears the current state first; changes reach it only after that.
    post([generation](Core& core) {
      std::lock_guard lock(core.handlerMutex_);
      if (generation != core.handlerGeneration_ || !core.stateHandler_) return;
      core.toldCurrentState_ = true;
      core.stateHandler_(core.state_);
    });
  }

  void start(const BeaconIdentity& identity, BlePeripheral::StartHandler done) {
    desired_ = identity;
    if (done) waiting_.push_back(std::move(done));
    reconcile();
  }

  void stop() {
    desired_.reset();
    finishWaiting("advertising was stopped before it went on air");
    reconcile();
  }

  std::atomic<BlePowerState> state_{BlePowerState::unknown};
  std::atomic<bool> advertising_{false};
  std::string adapterName_;

 private:
  std::string setUp() {
    GError* error = nullptr;
    std::string where = busAddress_.empty() ? "the system bus" : "the bus at " + busAddress_;
    std::string address = busAddress_;
    if (address.empty()) {
      // A private connection: the shared system-bus connection would exit the process when the
      // bus goes away, and closing it would break other users in the process.
      gchar* system = g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
      if (system) address = system;
      g_free(system);
    }
    if (!error) {
      connection_ = g_dbus_connection_new_for_address_sync(
          address.c_str(),
          GDBusConnectionFlags(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT | G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
          nullptr, nullptr, &error);
    }
    GVariant* objects = nullptr;
    if (connection_) {
      // Following changes before reading the state: the bus handles our messages in order, so
      // once the objects come back, no later change can slip past.
      subscribe();
      objects = g_dbus_connection_call_sync(connection_, kBlueZ, "/", "org.freedesktop.DBus.ObjectManager",
                                            "GetManagedObjects", nullptr, G_VARIANT_TYPE("(a{oa{sa{sv}}})"),
                                            G_DBUS_CALL_FLAGS_NONE, kCallTimeoutMs, nullptr, &error);
    }
    if (!objects) {
      std::string message = splitError(error).second;
      g_error_free(error);
      return "no BlueZ on " + where + ": " + message;
    }
    std::string why = chooseAdapter(objects);
    g_variant_unref(objects);
    if (!why.empty()) return why;

    nodeInfo_ = g_dbus_node_info_new_for_xml(kAdvertisementXml, nullptr);
    static const GDBusInterfaceVTable vtable = {&Core::onMethodCall, &Core::onGetProperty, nullptr, {}};
    registrationId_ = g_dbus_connection_register_object(connection_, objectPath_.c_str(), nodeInfo_->interfaces[0],
                                                        &vtable, this, nullptr, &error);
    if (!registrationId_) {
      std::string message = error->message;
      g_error_free(error);
      return "cannot export the advertisement at " + objectPath_ + ": " + message;
    }
    return {};
  }

  /// Picks the adapter that can advertise: the one named, or the first by object path.
  std::string chooseAdapter(GVariant* reply) {
    std::vector<std::pair<std::string, bool>> candidates;  // path, powered
    GVariant* objects = g_variant_get_child_value(reply, 0);
    GVariantIter iter;
    g_variant_iter_init(&iter, objects);
    const gchar* path;
    GVariant* interfaces;
    while (g_variant_iter_next(&iter, "{&o@a{sa{sv}}}", &path, &interfaces)) {
      GVariant* adapter = g_variant_lookup_value(interfaces, kAdapterInterface, G_VARIANT_TYPE("a{sv}"));
      GVariant* manager = g_variant_lookup_value(interfaces, kManagerInterface, nullptr);
      if (adapter && manager) {
        gboolean powered = FALSE;
        g_variant_lookup(adapter, "Powered", "b", &powered);
        candidates.emplace_back(path, powered);
      }
      if (adapter) g_variant_unref(adapter);
      if (manager) g_variant_unref(manager);
      g_variant_unref(interfaces);
    }
    g_variant_unref(objects);
    std::sort(candidates.begin(), candidates.end());
    auto chosen = std::find_if(candidates.begin(), candidates.end(), [&](const auto& candidate) {
      return wantedAdapter_.empty() || lastComponent(candidate.first) == wantedAdapter_;
    });
    if (chosen == candidates.end()) {
      return wantedAdapter_.empty() ? "BlueZ has no adapter that can advertise"
                                    : "BlueZ has no adapter " + wantedAdapter_;
    }
    adapterPath_ = chosen->first;
    adapterName_ = lastComponent(adapterPath_);
    state_ = chosen->second ? BlePowerState::poweredOn : BlePowerState::poweredOff;
    return {};
  }

  void subscribe() {
    auto add = [this](const char* sender, const char* interface, const char* member, const char* path,
                      const char* arg0, GDBusSignalCallback callback) {
      subscriptions_.push_back(g_dbus_connection_signal_subscribe(connection_, sender, interface, member, path, arg0,
                                                                  G_DBUS_SIGNAL_FLAGS_NONE, callback, this, nullptr));
    };
    add(kBlueZ, "org.freedesktop.DBus.Properties", "PropertiesChanged", nullptr, kAdapterInterface,
        &Core::onPropertiesChanged);
    // No arg0 filter here: bus match rules compare arg0 only when it is a string, and this one is
    // an object path.
    add(kBlueZ, "org.freedesktop.DBus.ObjectManager", "InterfacesRemoved", "/", nullptr, &Core::onInterfacesRemoved);
    // bluetoothd leaving the bus takes the adapter with it, without InterfacesRemoved.
    add("org.freedesktop.DBus", "org.freedesktop.DBus", "NameOwnerChanged", "/org/freedesktop/DBus", kBlueZ,
        &Core::onNameOwnerChanged);
  }

  void tearDown() {
    closing_ = true;
    if (connection_ && registeredOnAir_) {
      // Synchronous: the loop no longer runs, and BlueZ should not keep an advertisement whose
      // object is about to vanish.
      GVariant* reply = g_dbus_connection_call_sync(connection_, kBlueZ, adapterPath_.c_str(), kManagerInterface,
                                                    "UnregisterAdvertisement", g_variant_new("(o)", objectPath_.c_str()),
                                                    nullptr, G_DBUS_CALL_FLAGS_NONE, 2000, nullptr, nullptr);
      if (reply) g_variant_unref(reply);
    }
    // Calls still under way complete (cancelled) on this context; wait for them so that none
    // runs after this object is gone.
    g_cancellable_cancel(cancellable_);
    while (callsUnderWay_ > 0) g_main_context_iteration(context_, TRUE);
    finishWaiting("the peripheral was closed");
    if (registrationId_) g_dbus_connection_unregister_object(connection_, registrationId_);
    for (guint id : subscriptions_) g_dbus_connection_signal_unsubscribe(connection_, id);
    if (nodeInfo_) g_dbus_node_info_unref(nodeInfo_);
    if (connection_) {
      g_dbus_connection_close_sync(connection_, nullptr, nullptr);
      g_object_unref(connection_);
    }
    // Tasks posted from now on are dropped with the context, unrun.
  }

  /// Brings BlueZ in line with `desired_`, one call at a time. BlueZ reads the advertisement's
  /// properties only when it is registered, so another identity means unregister, then register.
  void reconcile() {
    if (busy_) return;
    if (registeredOnAir_ && (!desired_ || registeredIdentity_ != desired_)) {
      unregister();
    } else if (desired_ && !registeredOnAir_) {
      registerAdvertisement();
    } else if (desired_) {
      finishWaiting(std::nullopt);  // already on air with this identity
    }
  }

  void registerAdvertisement() {
    busy_ = true;
    served_ = *desired_;
    GVariantBuilder options;
    g_variant_builder_init(&options, G_VARIANT_TYPE("a{sv}"));
    call("RegisterAdvertisement", g_variant_new("(oa{sv})", objectPath_.c_str(), &options), &Core::onRegistered);
  }

  void unregister() {
    busy_ = true;
    setOnAir(false, std::nullopt);
    call("UnregisterAdvertisement", g_variant_new("(o)", objectPath_.c_str()), &Core::onUnregistered);
  }

  void call(const char* method, GVariant* arguments, void (Core::*then)(GVariant*, GError*)) {
    struct Pending {
      Core* core;
      void (Core::*then)(GVariant*, GError*);
    };
    ++callsUnderWay_;
    g_dbus_connection_call(
        connection_, kBlueZ, adapterPath_.c_str(), kManagerInterface, method, arguments, nullptr,
        G_DBUS_CALL_FLAGS_NONE, kCallTimeoutMs, cancellable_,
        [](GObject* source, GAsyncResult* result, gpointer data) {
          auto* pending = static_cast<Pending*>(data);
          Core& core = *pending->core;
          GError* error = nullptr;
          GVariant* reply = g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, &error);
          --core.callsUnderWay_;
          core.busy_ = false;
          if (!g_cancellable_is_cancelled(core.cancellable_)) (core.*pending->then)(reply, error);
          if (reply) g_variant_unref(reply);
          if (error) g_error_free(error);
          delete pending;
        },
        new Pending{this, then});
  }

  void onRegistered(GVariant*, GError* error) {
    if (!error) {
      setOnAir(true, served_);
      // A stop or another identity may have come while BlueZ answered.
      if (registeredIdentity_ == desired_) finishWaiting(std::nullopt);
      reconcile();
      return;
    }
    auto [name, message] = splitError(error);
    if (name == "org.bluez.Error.AlreadyExists" && !replacing_) {
      // BlueZ still holds our object from before (a drop we were not told of): take it down and
      // register again, once.
      replacing_ = true;
      setOnAir(true, std::nullopt);
      reconcile();
      return;
    }
    replacing_ = false;
    desired_.reset();
    finishWaiting(describeRegisterError(name, message, error));
  }

  void onUnregistered(GVariant*, GError*) {
    // A failure means BlueZ does not hold the advertisement either way.
    reconcile();
  }

  void setOnAir(bool onAir, std::optional<BeaconIdentity> identity) {
    registeredOnAir_ = onAir;
    registeredIdentity_ = std::move(identity);
    advertising_ = onAir && registeredIdentity_.has_value();
    if (onAir && registeredIdentity_) replacing_ = false;
  }

  void finishWaiting(const std::optional<std::string>& outcome) {
    auto waiting = std::move(waiting_);
    waiting_.clear();
    for (auto& done : waiting) done(outcome);
  }

  /// BlueZ no longer has the advertisement (released, powered off, adapter gone): nothing to
  /// unregister, and nothing comes back on air unless asked again.
  void dropped(const char* why) {
    setOnAir(false, std::nullopt);
    desired_.reset();
    finishWaiting(std::string(why));
  }

  void changeState(BlePowerState state) {
    if (state_.exchange(state) == state) return;
    if (state != BlePowerState::poweredOn) dropped("the adapter is not powered on");
    std::lock_guard lock(handlerMutex_);
    if (stateHandler_ && toldCurrentState_) stateHandler_(state);
  }

  static void onPropertiesChanged(GDBusConnection*, const gchar*, const gchar* path, const gchar*, const gchar*,
                                  GVariant* parameters, gpointer data) {
    if (static_cast<Core*>(data)->adapterPath_ != path) return;
    GVariant* changed = g_variant_get_child_value(parameters, 1);
    gboolean powered;
    if (g_variant_lookup(changed, "Powered", "b", &powered)) {
      static_cast<Core*>(data)->changeState(powered ? BlePowerState::poweredOn : BlePowerState::poweredOff);
    }
    g_variant_unref(changed);
  }

  static void onInterfacesRemoved(GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*,
                                  GVariant* parameters, gpointer data) {
    auto& core = *static_cast<Core*>(data);
    const gchar* path = nullptr;
    g_variant_get_child(parameters, 0, "&o", &path);
    if (core.adapterPath_ != path) return;
    GVariant* interfaces = g_variant_get_child_value(parameters, 1);
    gsize count = 0;
    const gchar** names = g_variant_get_strv(interfaces, &count);
    bool adapterGone = false;
    for (gsize i = 0; i < count; ++i) adapterGone = adapterGone || g_strcmp0(names[i], kAdapterInterface) == 0;
    g_free(names);
    g_variant_unref(interfaces);
    if (adapterGone) core.changeState(BlePowerState::unsupported);
  }

  static void onNameOwnerChanged(GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*,
                                 GVariant* parameters, gpointer data) {
    const gchar* newOwner = nullptr;
    g_variant_get(parameters, "(&s&s&s)", nullptr, nullptr, &newOwner);
    if (!*newOwner) static_cast<Core*>(data)->changeState(BlePowerState::unsupported);
  }

  static void onMethodCall(GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar* method,
                           GVariant*, GDBusMethodInvocation* invocation, gpointer data) {
    // Release is BlueZ telling us it dropped the advertisement on its own.
    if (g_strcmp0(method, "Release") == 0) static_cast<Core*>(data)->dropped("BlueZ released the advertisement");
    g_dbus_method_invocation_return_value(invocation, nullptr);
  }

  static GVariant* onGetProperty(GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar* property,
                                 GError** error, gpointer data) {
    auto& core = *static_cast<Core*>(data);
    if (g_strcmp0(property, "Type") == 0) return g_variant_new_string("broadcast");
    if (g_strcmp0(property, "ManufacturerData") == 0) {
      const auto bytes = core.served_.manufacturerData();
      GVariantBuilder data;
      g_variant_builder_init(&data, G_VARIANT_TYPE("a{qv}"));
      g_variant_builder_add(&data, "{qv}", guint16(kAppleCompanyIdentifier),
                            g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, bytes.data(), bytes.size(), 1));
      return g_variant_builder_end(&data);
    }
    g_set_error(error, G_DBUS_ERROR, G_DBUS_ERROR_UNKNOWN_PROPERTY, "no property %s", property);
    return nullptr;
  }

  const std::string wantedAdapter_;
  const std::string busAddress_;
  const std::string objectPath_;
  GMainContext* context_;
  GMainLoop* loop_;
  GCancellable* cancellable_;
  GDBusConnection* connection_ = nullptr;
  GDBusNodeInfo* nodeInfo_ = nullptr;
  guint registrationId_ = 0;
  std::vector<guint> subscriptions_;
  std::string adapterPath_;

  // Loop thread only.
  std::optional<BeaconIdentity> desired_;             // what the caller wants on air
  BeaconIdentity served_;                             // what the exported object shows BlueZ
  bool registeredOnAir_ = false;                      // BlueZ holds our object
  std::optional<BeaconIdentity> registeredIdentity_;  // with this identity (nullopt: unknown)
  bool busy_ = false;
  bool closing_ = false;
  bool replacing_ = false;
  int callsUnderWay_ = 0;
  std::vector<BlePeripheral::StartHandler> waiting_;

  // Recursive: a handler may replace itself from inside its call.
  std::recursive_mutex handlerMutex_;
  BlePeripheral::StateHandler stateHandler_;
  unsigned handlerGeneration_ = 0;
  bool toldCurrentState_ = false;
};

class BlueZPeripheral final : public BlePeripheral {
 public:
  BlueZPeripheral(const std::string& adapter, const std::string& busAddress, std::string* why)
      : core_(std::make_shared<Core>(adapter, busAddress)) {
    std::promise<std::string> ready;
    auto outcome = ready.get_future();
    // The thread owns the promise: it must outlive set_value, which the waiting side cannot see.
    thread_ = std::thread([core = core_, ready = std::move(ready)]() mutable { core->run(ready); });
    *why = outcome.get();
  }

  ~BlueZPeripheral() override {
    core_->quit();
    // Dropped from inside one of our own callbacks: the thread finishes on its own and keeps the
    // core alive until then.
    if (std::this_thread::get_id() == thread_.get_id()) {
      thread_.detach();
    } else {
      thread_.join();
    }
  }

  void setStateHandler(StateHandler handler) override { core_->setStateHandler(std::move(handler)); }
  BlePowerState state() const override { return core_->state_; }

  void startAdvertising(const BeaconIdentity& identity, StartHandler done) override {
    core_->post([identity, done = std::move(done)](Core& core) mutable { core.start(identity, std::move(done)); });
  }
  void stopAdvertising() override {
    core_->post([](Core& core) { core.stop(); });
  }
  bool isAdvertising() const override { return core_->advertising_; }
  std::string description() const override { return "BlueZ adapter " + core_->adapterName_; }

 private:
  std::shared_ptr<Core> core_;
  std::thread thread_;
};

}  // namespace

std::shared_ptr<BlePeripheral> makeBlueZPeripheral(std::string* why, const std::string& adapter,
                                                   const std::string& busAddress) {
  std::string failure;
  auto peripheral = std::make_shared<BlueZPeripheral>(adapter, busAddress, &failure);
  if (!failure.empty()) {
    if (why) *why = failure;
    return nullptr;
  }
  return peripheral;
}

}  // namespace velora
