#pragma once
// The outside services the library reaches, bundled so that an application (or a test) can hand
// in its own. `Platform::linuxDefaults` builds the real adapters.

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include <velora/platform/BlePeripheral.hpp>
#include <velora/platform/BrowserAuthSession.hpp>
#include <velora/platform/Clock.hpp>
#include <velora/platform/HostInfo.hpp>
#include <velora/platform/HttpTransport.hpp>
#include <velora/platform/KeyValueStore.hpp>
#include <velora/platform/MainQueue.hpp>
#include <velora/platform/NotificationCenter.hpp>
#include <velora/platform/Reachability.hpp>
#include <velora/platform/SecureStore.hpp>
#include <velora/platform/WebView.hpp>

namespace velora {

/// Where diagnostic console lines go (standard output unless replaced).
using ConsoleSink = std::function<void(std::string_view line)>;

/// True when the library was built without NDEBUG.
bool debugAssertionsStopByDefault();

/// The outside services one facade uses. Copies share the services; an empty member is a
/// service the application does without (where that is allowed, its member says so).
struct Platform {
  /// Carries every HTTP request and event stream.
  std::shared_ptr<HttpTransport> transport;
  /// Where every callback to the application runs, and the streams' delayed reconnects.
  std::shared_ptr<MainQueue> mainQueue;
  /// The library's own threads: where tasks that run on no application queue resume, and where
  /// replies of the identity server are handled so that the I/O thread only moves bytes. Left
  /// empty, a facade makes a pool of two threads.
  std::shared_ptr<Executor> executor;
  /// User defaults: the environment, its UUID and the language choice, kept across restarts.
  std::shared_ptr<KeyValueStore> defaults;
  /// Keychain items (tokens, background-login credentials).
  std::shared_ptr<SecureStore> secureStore;
  /// The application's identifier and information dictionary.
  std::shared_ptr<HostInfo> host;
  /// The time for token validity and log timestamps; tests put in a controllable one.
  std::shared_ptr<Clock> clock;
  /// The browser session of interactive login and logout.
  std::shared_ptr<BrowserAuthSession> browser;
  /// The web-view login screen of the CUSTOM authentication method.
  std::shared_ptr<CustomAuthenticationHandler> customAuthentication;
  /// The web engine's shared caches, purged when a Keycloak manager is created so that a new
  /// login never reuses a cached login page. Empty when the application shows no web content.
  std::shared_ptr<WebsiteDataStore> websiteData;
  /// Asked by Orvane::hasConnectivity; absent means no connectivity.
  std::shared_ptr<Reachability> reachability;
  /// The Bluetooth LE peripheral the positioning tag advertises with; absent on a machine that
  /// has none (startAdvertisingRegion then reports it).
  std::shared_ptr<BlePeripheral> bluetooth;
  /// Positions and headings for the map view, language changes.
  std::shared_ptr<NotificationCenter> notifications = NotificationCenter::make();
  /// The application's documents folder ("console.log" lives here).
  std::filesystem::path documentsDirectory;
  /// Where diagnostic lines go (e.g. "SSEManager - CONNECTED", keychain failures); empty: nowhere.
  ConsoleSink console;
  /// Whether a debug assertion (a setup mistake such as a missing environment) stops the process
  /// or is only printed. Defaults to the library's build type: stop unless built with NDEBUG.
  bool debugAssertionsStop = debugAssertionsStopByDefault();

  /// Real adapters for an application named `bundleIdentifier`: curl transport, a ThreadQueue as
  /// main queue, a two-thread pool as executor, defaults in
  /// `$XDG_CONFIG_HOME/<bundleIdentifier>/defaults.json`, documents in
  /// `$XDG_DATA_HOME/<bundleIdentifier>/`, secrets in the Secret Service or else in
  /// `$XDG_DATA_HOME/<bundleIdentifier>/keychain/`, the system clock, console lines on standard
  /// output. `infoDictionary` becomes the host's information dictionary.
  static Platform linuxDefaults(const std::string& bundleIdentifier, AnyCodable infoDictionary = {});

  /// @{
  /// The platform used by `Orvane::setupSDK`, `Orvane::shared` and the log manager. Set it before
  /// either is first used; otherwise linuxDefaults("velora.app") is built on first use.
  static void setDefault(Platform platform);
  static Platform& getDefault();
  /// @}

  /// Writes `line` to the console sink, if there is one.
  void print(std::string_view line) const;
};

/// @{
/// $XDG_CONFIG_HOME (or ~/.config) and $XDG_DATA_HOME (or ~/.local/share). A relative value of the
/// variable is ignored, and without $HOME the temporary folder stands in for ~.
std::filesystem::path xdgConfigHome();
std::filesystem::path xdgDataHome();
/// @}

}  // namespace velora
