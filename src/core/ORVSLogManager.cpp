#include <velora/core/ORVSLogManager.hpp>

#include <ctime>
#include <fstream>
#include <sstream>
#include <system_error>

#include <velora/platform/KeyValueStore.hpp>
#include <velora/platform/Platform.hpp>

namespace velora {
namespace {

std::filesystem::path logFile(const Platform& platform) { return platform.documentsDirectory / "console.log"; }

bool isContinuationByte(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

}  // namespace

std::string logTimestamp(std::time_t time) {
  std::tm local{};
  localtime_r(&time, &local);
  char text[32];
  std::strftime(text, sizeof text, "%d/%m/%Y - %I:%M", &local);
  return text;
}

void ORVSLogManager::log(std::string_view message) {
  const Platform& platform = Platform::getDefault();
  const std::string entry =
      logTimestamp(std::chrono::system_clock::to_time_t(platform.clock->now())) + " - " + std::string(message) + "\n";
  platform.print(std::string_view(entry).substr(0, entry.size() - 1));
  const auto file = logFile(platform);
  try {
    if (std::filesystem::exists(file)) {
      std::ofstream out(file, std::ios::binary | std::ios::app);
      out << entry;
      if (!out.flush()) throw std::system_error(errno, std::generic_category(), "cannot append to " + file.string());
    } else {
      writeFileAtomically(file, entry);
    }
  } catch (const std::exception& e) {
    platform.print(e.what());
  }
}

std::string ORVSLogManager::readLog(bool fullOutput) {
  std::ifstream in(logFile(Platform::getDefault()), std::ios::binary);
  if (!in) return {};
  std::stringstream text;
  text << in.rdbuf();
  std::string whole = text.str();
  if (fullOutput || whole.empty()) return whole;
  return split(whole, 15000).back();
}

void ORVSLogManager::clearLog() {
  const Platform& platform = Platform::getDefault();
  const auto file = logFile(platform);
  std::error_code error;
  // A missing file is a failed deletion too, and the developer is told so.
  if (!std::filesystem::remove(file, error) && !error) error = std::make_error_code(std::errc::no_such_file_or_directory);
  if (error) platform.print("Could not delete " + file.string() + ": " + error.message());
}

std::vector<std::string> split(std::string_view text, std::size_t by) {
  std::vector<std::string> pieces;
  if (by == 0) return {std::string(text)};
  std::size_t start = 0, count = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (isContinuationByte(text[i])) continue;
    if (count == by) {
      pieces.emplace_back(text.substr(start, i - start));
      start = i;
      count = 0;
    }
    ++count;
  }
  if (start < text.size()) pieces.emplace_back(text.substr(start));
  return pieces;
}

}  // namespace velora
