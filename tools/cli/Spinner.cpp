#include "Spinner.hpp"

#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace velora::cli {
namespace {

constexpr std::array<std::string_view, 10> kFrames{"⠋", "⠙", "⠹", "⠸", "⠼", "⠴", "⠦", "⠧", "⠇", "⠏"};
constexpr auto kFrameInterval = std::chrono::milliseconds(80);
constexpr std::string_view kEraseLine = "\r\033[K";

// Guards standard error between the spinner thread and diagnostic lines from library threads.
std::mutex stderrMutex;
bool frameShown = false;  // a spinner frame is on the current line (guarded by stderrMutex)

void writeAll(std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(STDERR_FILENO, text.data(), text.size());
    if (written <= 0) return;
    text.remove_prefix(static_cast<std::size_t>(written));
  }
}

}  // namespace

Spinner::Spinner(std::string label, bool enabled) : label_(std::move(label)) {
  if (enabled) thread_ = std::thread([this] { run(); });
}

Spinner::~Spinner() { stop(); }

void Spinner::stop() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  wake_.notify_all();
  if (thread_.joinable()) thread_.join();
}

bool Spinner::wanted() {
  const char* term = std::getenv("TERM");
  return ::isatty(STDERR_FILENO) == 1 && !(term && std::strcmp(term, "dumb") == 0);
}

void Spinner::run() {
  std::unique_lock lock(mutex_);
  for (std::size_t frame = 0; !stopping_; frame = (frame + 1) % kFrames.size()) {
    {
      std::lock_guard out(stderrMutex);
      writeAll(std::string(kEraseLine) + std::string(kFrames[frame]) + " " + label_);
      frameShown = true;
    }
    wake_.wait_for(lock, kFrameInterval, [this] { return stopping_; });
  }
  std::lock_guard out(stderrMutex);
  if (frameShown) writeAll(kEraseLine);
  frameShown = false;
}

void writeStatus(std::string_view text) {
  std::lock_guard out(stderrMutex);
  writeAll(std::string(kEraseLine).append(text));
  frameShown = !text.empty();
}

void writeDiagnostic(std::string_view line) {
  std::lock_guard out(stderrMutex);
  std::string text;
  if (frameShown) text = kEraseLine;
  frameShown = false;  // the spinner redraws on its next frame
  text.append(line).push_back('\n');
  writeAll(text);
}

}  // namespace velora::cli
