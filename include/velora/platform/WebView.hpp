#pragma once
// An embedded web view that shows one of the platform's pages and talks to its script. Built on
// the GTK main loop on Linux (`makeWebKitWebView` in WebKitWebView.hpp); tests hand in their own.

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <velora/platform/HttpTransport.hpp>

namespace velora {

/// The appearance a page is asked to take (its `prefers-color-scheme`).
enum class ColorScheme { light, dark };

/// Every method is called on the main queue, and every callback runs there. A completion runs
/// exactly once; one still pending when the view is destroyed runs with an error.
class WebView {
 public:
  /// Script values reach the library as text: a string as its own text, numbers, booleans, null,
  /// arrays and objects as their JSON text (an object's keys not necessarily in the page's order). `undefined` gives neither result nor error; a thrown
  /// exception or a value that has no JSON form gives an error.
  using ScriptCompletion = std::function<void(std::optional<std::string> result, std::optional<std::string> error)>;
  /// The text of one posted message body, rendered as script results are (`undefined`: "").
  using MessageHandler = std::function<void(const std::string& body)>;
  /// The PNG image of what the view shows, or an error.
  using SnapshotCompletion =
      std::function<void(std::optional<std::vector<std::uint8_t>> png, std::optional<std::string> error)>;

  /// Observed navigation of the main frame. A navigation that fails reports `failed` and never
  /// `finished`.
  struct NavigationObserver {
    std::function<void(const std::string& url)> started;   ///< A load of `url` began.
    std::function<void(const std::string& url)> finished;  ///< The load of `url` completed.
    /// The load of `url` failed, with the engine's reason text.
    std::function<void(const std::string& url, const std::string& error)> failed;
  };

  virtual ~WebView() = default;

  /// Loads `url`; `headers` go with the request of the page itself (not with its sub-resources).
  virtual void load(const std::string& url, const HttpHeaders& headers = {}) = 0;
  /// Sets the observer of main-frame navigations, replacing the earlier one; empty members are
  /// not called.
  virtual void setNavigationObserver(NavigationObserver observer) = 0;
  /// Runs `script` in the page's main frame; its completion value is the result.
  virtual void evaluateScript(const std::string& script, ScriptCompletion completion) = 0;
  /// Makes `window.webkit.messageHandlers.NAME.postMessage(x)` available to the page; each call
  /// reaches `handler`. Registering a name again replaces its handler.
  virtual void addScriptMessageHandler(const std::string& name, MessageHandler handler) = 0;
  /// Unregisters `name`: the page's `postMessage` on it stops reaching the library. Nothing
  /// happens for a name that is not registered.
  virtual void removeScriptMessageHandler(const std::string& name) = 0;
  /// The web inspector and its context menu entry.
  virtual void setDeveloperExtrasEnabled(bool enabled) = 0;
  /// What the page's `prefers-color-scheme` media query sees.
  virtual void setColorScheme(ColorScheme scheme) = 0;
  /// The visible part of the page as a PNG.
  virtual void takeSnapshot(SnapshotCompletion completion) = 0;
};

/// The web engine's shared website data: what pages opened outside an ephemeral view leave
/// behind.
class WebsiteDataStore {
 public:
  virtual ~WebsiteDataStore() = default;
  /// Removes the disk and memory caches, whatever their age; `done` runs on the main queue once
  /// they are gone. Call on the main queue.
  virtual void removeCaches(std::function<void()> done = {}) = 0;
};

}  // namespace velora
