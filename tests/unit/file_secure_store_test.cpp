// The file credential store on real files: access bits, item semantics, names built from any
// text, exclusive add across store instances, and items that survive a writer killed mid-write.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <latch>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <velora/platform/SecureStore.hpp>

namespace velora {
namespace {

namespace fs = std::filesystem;
using namespace secure_status;

Bytes bytes(std::string_view text) { return Bytes(text.begin(), text.end()); }

unsigned modeOf(const fs::path& path) {
  struct stat info {};
  EXPECT_EQ(::stat(path.c_str(), &info), 0) << path;
  return info.st_mode & 07777;
}

class FileSecureStoreTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (fs::temp_directory_path() / "velora-store-XXXXXX").string();
    ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
    root_ = pattern;
    folder_ = root_ / "keychain";
  }
  void TearDown() override { fs::remove_all(root_); }

  fs::path root_;
  fs::path folder_;
};

TEST_F(FileSecureStoreTest, FolderAndItemsAreOwnerOnly) {
  const mode_t previous = ::umask(0);  // the store must not rely on the caller's umask
  auto store = makeFileSecureStore(folder_);
  EXPECT_EQ(modeOf(folder_), 0700u);
  EXPECT_EQ(store->add("svc", "a", bytes("1")), kSuccess);
  EXPECT_EQ(store->add(std::nullopt, "b", bytes("2")), kSuccess);
  EXPECT_EQ(store->update("svc", "a", bytes("3")), kSuccess);
  ::umask(previous);
  int files = 0;
  for (const auto& entry : fs::directory_iterator(folder_)) {
    EXPECT_EQ(modeOf(entry.path()), 0600u) << entry.path();
    ++files;
  }
  EXPECT_EQ(files, 2);  // no temporary files left behind

  const fs::path loose = root_ / "loose";
  fs::create_directory(loose);
  ::chmod(loose.c_str(), 0755);
  makeFileSecureStore(loose);
  EXPECT_EQ(modeOf(loose), 0700u);
}

TEST_F(FileSecureStoreTest, ItemLifecycle) {
  auto store = makeFileSecureStore(folder_);
  struct Step {
    const char* op;
    std::optional<std::string> service;
    std::string account;
    std::string data;
    int status;
    std::string expected;  // for "read"
  };
  const std::vector<Step> steps = {
      {"read", "svc", "alice", "", kItemNotFound},
      {"update", "svc", "alice", "x", kItemNotFound},
      {"remove", "svc", "alice", "", kItemNotFound},
      {"add", "svc", "alice", "one", kSuccess},
      {"add", "svc", "alice", "two", kDuplicateItem},
      {"read", "svc", "alice", "", kSuccess, "one"},
      {"update", "svc", "alice", "three", kSuccess},
      {"read", "svc", "alice", "", kSuccess, "three"},
      {"update", "svc", "alice", "", kSuccess},
      {"read", "svc", "alice", "", kSuccess, ""},
      // Absent service, empty service and another service are three different items.
      {"read", std::nullopt, "alice", "", kItemNotFound},
      {"add", std::nullopt, "alice", "none", kSuccess},
      {"add", "", "alice", "empty", kSuccess},
      {"add", "svc2", "alice", "other", kSuccess},
      {"read", std::nullopt, "alice", "", kSuccess, "none"},
      {"read", "", "alice", "", kSuccess, "empty"},
      {"read", "svc2", "alice", "", kSuccess, "other"},
      {"remove", std::nullopt, "alice", "", kSuccess},
      {"read", "", "alice", "", kSuccess, "empty"},
      {"read", std::nullopt, "alice", "", kItemNotFound},
      {"remove", "svc", "alice", "", kSuccess},
      {"remove", "svc", "alice", "", kItemNotFound},
      {"read", "svc", "alice", "", kItemNotFound},
      {"add", "svc", "alice", "again", kSuccess},
      {"read", "svc", "alice", "", kSuccess, "again"},
  };
  for (std::size_t i = 0; i < steps.size(); ++i) {
    const Step& s = steps[i];
    SCOPED_TRACE("step " + std::to_string(i) + ": " + s.op);
    Bytes out = bytes("untouched");
    const std::string op = s.op;
    const int status = op == "add"      ? store->add(s.service, s.account, bytes(s.data))
                       : op == "update" ? store->update(s.service, s.account, bytes(s.data))
                       : op == "remove" ? store->remove(s.service, s.account)
                                        : store->copyMatching(s.service, s.account, &out);
    EXPECT_EQ(status, s.status);
    if (op == "read" && status == kSuccess) {
      EXPECT_EQ(out, bytes(s.expected));
    }
  }
}

TEST_F(FileSecureStoreTest, AnyTextNamesAnItem) {
  auto store = makeFileSecureStore(folder_);
  const std::string longText(5000, 'x');
  const std::vector<std::pair<std::optional<std::string>, std::string>> keys = {
      {"svc", "../x"},
      {"svc", "/etc/passwd"},
      {"svc", ""},
      {"../..", "a"},
      {std::nullopt, ""},
      {"svc", "\xc3\xa9t\xc3\xa9 \xe2\x9c\x93 \xf0\x9f\x94\x91"},
      {"svc", std::string("nul\0inside", 10)},
      {"svc", "a.b"},  // the separator itself must not shift the split point
      {"svc.a", "b"},
      {"svc", longText},
      {"svc", longText + "y"},  // long names must not be cut to a common prefix
      {longText, "a"},
  };
  for (std::size_t i = 0; i < keys.size(); ++i) {
    ASSERT_EQ(store->add(keys[i].first, keys[i].second, bytes("value " + std::to_string(i))), kSuccess) << i;
  }
  for (std::size_t i = 0; i < keys.size(); ++i) {
    Bytes out;
    ASSERT_EQ(store->copyMatching(keys[i].first, keys[i].second, &out), kSuccess) << i;
    EXPECT_EQ(out, bytes("value " + std::to_string(i))) << i;
  }
  // Everything stayed inside the folder.
  EXPECT_EQ(std::distance(fs::directory_iterator(root_), fs::directory_iterator()), 1);
  EXPECT_EQ(std::distance(fs::directory_iterator(folder_), fs::directory_iterator()),
            static_cast<std::ptrdiff_t>(keys.size()));
}

// Store instances share no lock, like separate processes: only the file system decides.
TEST_F(FileSecureStoreTest, ConcurrentAddsHaveOneWinner) {
  constexpr int kWriters = 4;
  std::vector<std::shared_ptr<SecureStore>> stores;
  for (int i = 0; i < kWriters; ++i) stores.push_back(makeFileSecureStore(folder_));
  for (int round = 0; round < 30; ++round) {
    const std::string account = "race" + std::to_string(round);
    std::vector<int> statuses(kWriters);
    std::latch start(kWriters);
    std::vector<std::thread> writers;
    for (int i = 0; i < kWriters; ++i) {
      writers.emplace_back([&, i] {
        start.arrive_and_wait();
        statuses[i] = stores[i]->add("svc", account, bytes("writer " + std::to_string(i)));
      });
    }
    for (auto& t : writers) t.join();
    int winner = -1;
    for (int i = 0; i < kWriters; ++i) {
      if (statuses[i] == kSuccess) {
        EXPECT_EQ(winner, -1) << "round " << round << ": two adds succeeded";
        winner = i;
      } else {
        EXPECT_EQ(statuses[i], kDuplicateItem);
      }
    }
    ASSERT_NE(winner, -1);
    Bytes out;
    ASSERT_EQ(stores[0]->copyMatching("svc", account, &out), kSuccess);
    EXPECT_EQ(out, bytes("writer " + std::to_string(winner))) << "round " << round;
  }
}

// A value of `size` bytes all equal to `fill`; a torn or short write breaks the pattern.
Bytes generation(std::uint8_t fill) { return Bytes(256 * 1024 + fill, fill); }

::testing::AssertionResult isWholeGeneration(const Bytes& value) {
  if (value.empty()) return ::testing::AssertionFailure() << "empty value";
  const std::uint8_t fill = value[0];
  if (value != generation(fill)) return ::testing::AssertionFailure() << "torn value, size " << value.size();
  return ::testing::AssertionSuccess();
}

TEST_F(FileSecureStoreTest, WriterKilledMidWriteLeavesAWholeItem) {
  auto store = makeFileSecureStore(folder_);
  ASSERT_EQ(store->add("svc", "big", generation(0)), kSuccess);
  std::mt19937 random(std::random_device{}());
  for (int round = 0; round < 15; ++round) {
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      auto writer = makeFileSecureStore(folder_);
      for (std::uint8_t fill = 1;; fill = static_cast<std::uint8_t>(fill % 250 + 1)) {
        if (writer->update("svc", "big", generation(fill)) != kSuccess) ::_exit(1);
      }
    }
    // Reading while the child writes both checks readers and picks an unpredictable kill time.
    const int reads = std::uniform_int_distribution<int>(1, 8)(random);
    for (int i = 0; i < reads; ++i) {
      Bytes out;
      ASSERT_EQ(store->copyMatching("svc", "big", &out), kSuccess);
      ASSERT_TRUE(isWholeGeneration(out)) << "while writing, round " << round;
    }
    ::kill(child, SIGKILL);
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status)) << "writer failed before being killed, round " << round;
    Bytes out;
    ASSERT_EQ(store->copyMatching("svc", "big", &out), kSuccess);
    ASSERT_TRUE(isWholeGeneration(out)) << "after kill, round " << round;
  }
}

}  // namespace
}  // namespace velora
