#pragma once
// The outside services the library reaches, bundled so that an application (or a test) can hand
// in its own. `Platform::linuxDefaults` builds the real adapters.

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include <velora/platform/Clock.hpp>
#include <velora/platform/HostInfo.hpp>
#include <velora/platform/HttpTransport.hpp>
#include <velora/platform/KeyValueStore.hpp>
#include <velora/platform/MainQueue.hpp>

namespace velora {

/// Where diagnostic console lines go (standard output unless replaced).
using ConsoleSink = std::function<void(std::string_view line)>;

struct Platform {
  std::shared_ptr<HttpTransport> transport;
  std::shared_ptr<MainQueue> mainQueue;
  std::shared_ptr<KeyValueStore> defaults;
  std::shared_ptr<HostInfo> host;
  std::shared_ptr<Clock> clock;
  /// The application's documents folder ("console.log" lives here).
  std::filesystem::path documentsDirectory;
  ConsoleSink console;

  /// Real adapters for an application named `bundleIdentifier`: curl transport, a ThreadQueue as
  /// main queue, defaults in $XDG_CONFIG_HOME/<bundleIdentifier>/defaults.json, documents in
  /// $XDG_DATA_HOME/<bundleIdentifier>/, the system clock, console lines on standard output.
  static Platform linuxDefaults(const std::string& bundleIdentifier, AnyCodable infoDictionary = {});

  /// The platform used by `Orvane::setupSDK`, `Orvane::shared` and the log manager. Set it before
  /// either is first used; otherwise linuxDefaults("velora.app") is built on first use.
  static void setDefault(Platform platform);
  static Platform& getDefault();

  void print(std::string_view line) const;
};

/// $XDG_CONFIG_HOME (or ~/.config) and $XDG_DATA_HOME (or ~/.local/share).
std::filesystem::path xdgConfigHome();
std::filesystem::path xdgDataHome();

}  // namespace velora
