// The "console.log" file: entry format, append-or-create, the tail rule of readLog, clearLog.

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

#include <velora/core/ORVSLogManager.hpp>

#include "Fakes.hpp"

namespace velora {
namespace {

class LogManagerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    setenv("TZ", "UTC", 1);
    tzset();
    folder_ = std::filesystem::temp_directory_path() / ("velora-log-" + std::to_string(::getpid()));
    std::filesystem::remove_all(folder_);
    Platform platform = fakes_.platform();
    platform.documentsDirectory = folder_;
    Platform::setDefault(platform);
  }
  void TearDown() override { std::filesystem::remove_all(folder_); }
  void at(const char* isoUtc) {
    std::tm tm{};
    strptime(isoUtc, "%Y-%m-%dT%H:%M", &tm);
    fakes_.clock->now_ = std::chrono::system_clock::from_time_t(timegm(&tm));
  }

  testing::FakePlatform fakes_;
  std::filesystem::path folder_;
};

TEST_F(LogManagerTest, EntriesUseTheTwelveHourPatternAndAppend) {
  at("2026-03-07T09:05");
  ORVSLogManager::log("first");
  EXPECT_TRUE(std::filesystem::exists(folder_ / "console.log"));
  at("2026-03-07T21:05");
  ORVSLogManager::log("second");
  at("2026-03-07T00:30");
  ORVSLogManager::log("midnight");
  EXPECT_EQ(ORVSLogManager::readLog(true),
            "07/03/2026 - 09:05 - first\n07/03/2026 - 09:05 - second\n07/03/2026 - 12:30 - midnight\n");
  EXPECT_EQ(fakes_.consoleLines, (std::vector<std::string>{"07/03/2026 - 09:05 - first", "07/03/2026 - 09:05 - second",
                                                           "07/03/2026 - 12:30 - midnight"}));
}

TEST_F(LogManagerTest, ShortReadReturnsTheLastFifteenThousandCharacterPiece) {
  struct Case {
    std::size_t length;
    std::size_t expected;
  };
  for (const Case& c : {Case{1, 1}, Case{15000, 15000}, Case{15001, 1}, Case{29999, 14999}, Case{30000, 15000}}) {
    std::filesystem::create_directories(folder_);
    std::ofstream(folder_ / "console.log", std::ios::trunc) << std::string(c.length, 'x');
    EXPECT_EQ(ORVSLogManager::readLog(false).size(), c.expected) << c.length;
    EXPECT_EQ(ORVSLogManager::readLog(true).size(), c.length);
  }
}

TEST_F(LogManagerTest, ClearRemovesTheFileAndTellsWhenThereIsNone) {
  ORVSLogManager::log("x");
  ORVSLogManager::clearLog();
  EXPECT_FALSE(std::filesystem::exists(folder_ / "console.log"));
  EXPECT_EQ(ORVSLogManager::readLog(false), "");
  fakes_.consoleLines.clear();  // the entry itself was echoed
  ORVSLogManager::clearLog();
  EXPECT_EQ(fakes_.consoleLines,
            std::vector<std::string>{"Could not delete " + (folder_ / "console.log").string() + ": No such file or directory"});
}

TEST(Split, CountsCharactersNotBytes) {
  EXPECT_EQ(split("abcdefg", 3), (std::vector<std::string>{"abc", "def", "g"}));
  EXPECT_EQ(split("\xC3\xA9\xC3\xA9\xC3\xA9", 2), (std::vector<std::string>{"\xC3\xA9\xC3\xA9", "\xC3\xA9"}));
  EXPECT_TRUE(split("", 5).empty());
}

}  // namespace
}  // namespace velora
