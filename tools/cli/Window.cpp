#include "Window.hpp"

#include <exception>

#include "Settings.hpp"

#if VELORA_CLI_WINDOWS
#include <velora/platform/WebKitAuthentication.hpp>
#include <velora/platform/WebKitWebView.hpp>
#endif

namespace velora::cli {

#if VELORA_CLI_WINDOWS

namespace {

class GlibWindowLoop final : public WindowLoop {
 public:
  explicit GlibWindowLoop(std::shared_ptr<GlibMainQueue> queue) : queue_(std::move(queue)) {}

  void run(Task<void> task) override {
    std::exception_ptr failure;
    // The task ends on the library's threads. quit() wakes the loop, and a quit that comes before
    // the loop turns still ends it, so a task that finishes at once is no trouble.
    detachTask(std::move(task), [queue = queue_, &failure](std::exception_ptr error) {
      failure = error;
      queue->quit();
    });
    queue_->run();
    if (failure) std::rethrow_exception(failure);
  }

 private:
  std::shared_ptr<GlibMainQueue> queue_;
};

}  // namespace

std::shared_ptr<WindowLoop> installWindowLoop(Platform& platform, const std::string&) {
  auto queue = std::make_shared<GlibMainQueue>();
  platform.mainQueue = queue;
  platform.customAuthentication = makeWebKitCustomAuthenticationHandler(queue);
  platform.websiteData = makeWebKitWebsiteDataStore();
  return std::make_shared<GlibWindowLoop>(queue);
}

#else

std::shared_ptr<WindowLoop> installWindowLoop(Platform&, const std::string& purpose) {
  throw UsageError(purpose + " opens a window, and this velora was built without WebKitGTK (install libwebkit2gtk-4.1-dev and rebuild)");
}

#endif

}  // namespace velora::cli
