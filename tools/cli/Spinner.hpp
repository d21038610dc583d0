#pragma once
// A progress spinner on standard error while the client waits for the platform.

#include <condition_variable>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

namespace velora::cli {

class Spinner {
 public:
  /// Starts animating "<frame> <label>" when `enabled`; otherwise does nothing.
  Spinner(std::string label, bool enabled);
  ~Spinner();
  Spinner(const Spinner&) = delete;
  Spinner& operator=(const Spinner&) = delete;

  /// Stops the animation and erases its line; returns once the thread has ended.
  void stop();

  /// Only an interactive standard error gets a spinner: in logs and pipes it would be noise.
  static bool wanted();

 private:
  void run();

  std::string label_;
  std::mutex mutex_;
  std::condition_variable wake_;
  bool stopping_ = false;
  std::thread thread_;
};

/// Replaces the transient line on standard error (a spinner frame, a progress bar) with `text`;
/// empty text only erases it. Diagnostic lines erase it before they are written.
void writeStatus(std::string_view text);

/// Writes one diagnostic line to standard error, erasing a spinner frame first so the two never
/// share a line.
void writeDiagnostic(std::string_view line);

}  // namespace velora::cli
