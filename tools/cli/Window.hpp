#pragma once
// Commands that open a window (the login window of `login browser --custom`) run with the GTK main
// loop as the library's main queue. GTK belongs to the thread that turns that loop, so the client's
// main thread turns it while such a command waits, instead of blocking in Task::get().

#include <memory>
#include <optional>
#include <string>

#include <velora/core/Task.hpp>
#include <velora/platform/Platform.hpp>

namespace velora::cli {

class WindowLoop {
 public:
  virtual ~WindowLoop() = default;
  /// Turns the loop on the calling thread until `task` has finished; rethrows its error.
  virtual void run(Task<void> task) = 0;
};

/// Makes `platform` one that shows windows: the GTK main loop as its main queue, the library's
/// login window as its CUSTOM login screen, and the web engine's caches. Throws UsageError naming
/// `purpose` (what needed the window) when this client was built without WebKitGTK.
std::shared_ptr<WindowLoop> installWindowLoop(Platform& platform, const std::string& purpose);

/// `task`, keeping its result in `into` for a WindowLoop, which runs tasks without one.
template <class T>
Task<void> keepingResult(Task<T> task, std::optional<T>& into) {
  into = co_await std::move(task);
}

}  // namespace velora::cli
