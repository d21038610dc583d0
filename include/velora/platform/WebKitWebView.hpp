#pragma once
// The Linux web view on WebKitGTK and the GLib main queue it needs. Part of the optional
// `velora_webkit` library (CMake option VELORA_WEBKIT); link VeloraSDK::velora_webkit to use it.

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <velora/platform/MainQueue.hpp>
#include <velora/platform/WebView.hpp>

namespace velora {

/// The application's main queue on the GTK main loop (GLib's default main context), so that
/// library callbacks and web-view callbacks share one thread. `isCurrent` holds on the thread
/// that runs the loop (`run`, `runUntil` or the application's own `gtk_main`).
class GlibMainQueue : public MainQueue {
 public:
  void post(std::function<void()> work) override;
  void postAfter(std::chrono::milliseconds delay, std::function<void()> work) override;
  bool isCurrent() const override;

  /// Runs the loop until `quit()`.
  void run();
  /// Makes run() return after the current dispatch; callable from any thread.
  void quit();
  /// Runs the loop until `done()` holds (checked after each dispatch) or `timeout` passes; false
  /// on timeout.
  bool runUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout);

 private:
  std::atomic<bool> quitRequested_{false};
};

/// How makeWebKitWebView sets up its view.
struct WebViewOptions {
  /// A window on screen, or an offscreen one (rendering and snapshots without showing anything).
  bool offscreen = false;
  /// @{
  /// The window's size in pixels, on screen or offscreen (what snapshots capture).
  int width = 1024;
  int height = 768;
  /// @}
  /// Cookies, storage and caches in memory only, gone with the view.
  bool ephemeral = true;
  /// Replaces the engine's user agent.
  std::optional<std::string> userAgent;
};

/// Creates a web view on WebKitGTK; initialises GTK on first use. Call on the thread that runs
/// the GTK main loop. Throws std::runtime_error when GTK cannot open a display.
std::shared_ptr<WebView> makeWebKitWebView(WebViewOptions options = {});

}  // namespace velora
