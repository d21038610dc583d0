// The file credential store on real files: access bits, item semantics, names built from any
// text, exclusive add across store instances, and items that survive a writer killed mid-write.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <latch>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <velora/platform/SecureStore.hpp>

#include "StoreSteps.hpp"

namespace velora {
namespace {

namespace fs = std::filesystem;
using namespace secure_status;

using testing::bytes;

unsigned modeOf(const fs::path& path) {
  struct stat info {};
  EXPECT_EQ(::stat(path.c_str(), &info), 0) << path;
  return info.st_mode & 07777;
}

std::ptrdiff_t entries(const fs::path& folder) { return std::distance(fs::directory_iterator(folder), {}); }

class FileSecureStoreTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_FALSE(root_.empty()); }

  testing::TempDir temp_;
  const fs::path& root_ = temp_.path;
  fs::path folder_ = root_ / "keychain";
};

TEST_F(FileSecureStoreTest, FolderAndItemsAreOwnerOnly) {
  const mode_t previous = ::umask(0);  // the store must not rely on the caller's umask
  auto store = makeFileSecureStore(folder_);
  EXPECT_EQ(store->add("svc", "a", bytes("1")), kSuccess);
  EXPECT_EQ(store->add(std::nullopt, "b", bytes("2")), kSuccess);
  EXPECT_EQ(store->update("svc", "a", bytes("3")), kSuccess);
  ::umask(previous);
  EXPECT_EQ(modeOf(folder_), 0700u);
  for (const auto& entry : fs::directory_iterator(folder_)) EXPECT_EQ(modeOf(entry.path()), 0600u) << entry.path();
  EXPECT_EQ(entries(folder_), 2);  // no temporary files left behind

  const fs::path loose = root_ / "loose";
  fs::create_directory(loose);
  ::chmod(loose.c_str(), 0755);
  makeFileSecureStore(loose);
  EXPECT_EQ(modeOf(loose), 0700u);
}

TEST_F(FileSecureStoreTest, ItemLifecycle) {
  testing::runStoreSteps(*makeFileSecureStore(folder_), testing::commonStoreSteps());
}

TEST_F(FileSecureStoreTest, AnyTextNamesAnItem) {
  const std::string longText(5000, 'x');
  const std::vector<std::pair<std::optional<std::string>, std::string>> keys = {
      {"svc", "../x"}, {"svc", "/etc/passwd"}, {"../..", "a"}, {"svc", ""}, {std::nullopt, ""},
      {"svc", "\xc3\xa9t\xc3\xa9 \xf0\x9f\x94\x91"}, {"svc", std::string("nul\0in", 6)},
      {"svc", "a.b"}, {"svc.a", "b"},  // the separator must not move between service and account
      {"svc", longText}, {"svc", longText + "y"}, {longText, "a"},  // long names are not cut short
  };
  auto store = makeFileSecureStore(folder_);
  for (std::size_t i = 0; i < keys.size(); ++i) {
    ASSERT_EQ(store->add(keys[i].first, keys[i].second, bytes(std::to_string(i))), kSuccess) << i;
  }
  for (std::size_t i = 0; i < keys.size(); ++i) {
    Bytes out;
    EXPECT_EQ(store->copyMatching(keys[i].first, keys[i].second, &out), kSuccess) << i;
    EXPECT_EQ(out, bytes(std::to_string(i))) << i;
  }
  EXPECT_EQ(entries(root_), 1);  // nothing escaped the folder
  EXPECT_EQ(entries(folder_), static_cast<std::ptrdiff_t>(keys.size()));
}

// Store instances share no lock, like separate processes: only the file system decides.
TEST_F(FileSecureStoreTest, StressConcurrentAddsHaveOneWinner) {
  constexpr int kWriters = 4;
  std::vector<std::shared_ptr<SecureStore>> stores;
  for (int i = 0; i < kWriters; ++i) stores.push_back(makeFileSecureStore(folder_));
  for (int round = 0; round < 30; ++round) {
    const std::string account = std::to_string(round);
    std::vector<int> statuses(kWriters);
    std::latch start(kWriters);
    std::vector<std::jthread> writers;
    for (int i = 0; i < kWriters; ++i) {
      writers.emplace_back([&, i] {
        start.arrive_and_wait();
        statuses[i] = stores[i]->add("svc", account, bytes(std::to_string(i)));
      });
    }
    writers.clear();
    const auto winner = std::find(statuses.begin(), statuses.end(), kSuccess) - statuses.begin();
    ASSERT_LT(winner, kWriters);
    EXPECT_EQ(std::count(statuses.begin(), statuses.end(), kDuplicateItem), kWriters - 1) << "round " << round;
    Bytes out;
    EXPECT_EQ(stores[0]->copyMatching("svc", account, &out), kSuccess);
    EXPECT_EQ(out, bytes(std::to_string(winner))) << "round " << round;
  }
}

// Generation n is 256 KiB + n bytes, all equal to n: a short or mixed write breaks the pattern.
Bytes generation(std::uint8_t n) { return Bytes(256 * 1024 + n, n); }
bool isWhole(const Bytes& value) { return !value.empty() && value == generation(value[0]); }

TEST_F(FileSecureStoreTest, StressWriterKilledMidWriteLeavesAWholeItem) {
  auto store = makeFileSecureStore(folder_);
  ASSERT_EQ(store->add("svc", "big", generation(0)), kSuccess);
  std::mt19937 random(std::random_device{}());
  auto readsWhole = [&] {
    Bytes out;
    return store->copyMatching("svc", "big", &out) == kSuccess && isWhole(out);
  };
  for (int round = 0; round < 15; ++round) {
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      auto writer = makeFileSecureStore(folder_);
      for (std::uint8_t n = 1;; n = static_cast<std::uint8_t>(n % 250 + 1)) {
        if (writer->update("svc", "big", generation(n)) != kSuccess) ::_exit(1);
      }
    }
    // Reading while the child writes checks readers too, and makes the kill time unpredictable.
    bool whole = true;
    for (int reads = std::uniform_int_distribution(1, 8)(random); reads > 0; --reads) whole = whole && readsWhole();
    ::kill(child, SIGKILL);
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status)) << "the writer failed on its own, round " << round;
    ASSERT_TRUE(whole) << "torn read while writing, round " << round;
    ASSERT_TRUE(readsWhole()) << "torn item after the kill, round " << round;
  }
}

}  // namespace
}  // namespace velora
