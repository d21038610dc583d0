// The system credential store against a real keyring daemon on a private session bus (the
// `secret_service` CTest test sets one up and runs these), and its fallback to files when no
// Secret Service answers.

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstring>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <velora/platform/SecureStore.hpp>

namespace velora {
namespace {

namespace fs = std::filesystem;
using namespace secure_status;

Bytes bytes(std::string_view text) { return Bytes(text.begin(), text.end()); }

fs::path makeTemporaryFolder() {
  std::string pattern = (fs::temp_directory_path() / "velora-secret-XXXXXX").string();
  if (!::mkdtemp(pattern.data())) return {};
  return pattern;
}

bool folderHasFiles(const fs::path& folder) {
  return fs::exists(folder) && fs::directory_iterator(folder) != fs::directory_iterator();
}

class SecretServiceTest : public testing::Test {
 protected:
  void SetUp() override {
    const char* bus = std::getenv("DBUS_SESSION_BUS_ADDRESS");
    const char* marked = std::getenv("VELORA_PRIVATE_BUS");
    if (!bus || !*bus || !marked || std::strcmp(marked, "1") != 0) {
      GTEST_SKIP() << "needs a keyring daemon on a private session bus: run the `secret_service` CTest test";
    }
    root_ = makeTemporaryFolder();
    ASSERT_FALSE(root_.empty());
    fallback_ = root_ / "fallback";
    store_ = makeSystemSecureStore("velora-tests", fallback_);
  }
  void TearDown() override {
    if (!root_.empty()) fs::remove_all(root_);
  }

  fs::path root_;
  fs::path fallback_;
  std::shared_ptr<SecureStore> store_;
};

TEST_F(SecretServiceTest, ItemLifecycle) {
  struct Step {
    const char* op;
    std::optional<std::string> service;
    std::string account;
    std::string data;
    int status;
    std::string expected;  // for "read"
  };
  const std::string binary("\0\xff\x01secret\0", 10);
  const std::vector<Step> steps = {
      {"read", "svc", "alice", "", kItemNotFound},
      {"update", "svc", "alice", "x", kItemNotFound},
      {"remove", "svc", "alice", "", kItemNotFound},
      {"add", "svc", "alice", "one", kSuccess},
      {"add", "svc", "alice", "two", kDuplicateItem},
      {"read", "svc", "alice", "", kSuccess, "one"},
      {"update", "svc", "alice", binary, kSuccess},
      {"read", "svc", "alice", "", kSuccess, binary},
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
      {"add", "svc", "\xc3\xa9t\xc3\xa9 \xf0\x9f\x94\x91 ../x", "unicode", kSuccess},
      {"read", "svc", "\xc3\xa9t\xc3\xa9 \xf0\x9f\x94\x91 ../x", "", kSuccess, "unicode"},
      {"add", "svc", "", "no account", kSuccess},
      {"read", "svc", "", "", kSuccess, "no account"},
      // D-Bus carries only valid UTF-8 without NUL in attributes.
      {"add", "svc", "bad \xff", "x", kParameterError},
      {"add", "svc", std::string("nul\0", 4), "x", kParameterError},
  };
  for (std::size_t i = 0; i < steps.size(); ++i) {
    const Step& s = steps[i];
    SCOPED_TRACE("step " + std::to_string(i) + ": " + s.op);
    Bytes out = bytes("untouched");
    const std::string op = s.op;
    const int status = op == "add"      ? store_->add(s.service, s.account, bytes(s.data))
                       : op == "update" ? store_->update(s.service, s.account, bytes(s.data))
                       : op == "remove" ? store_->remove(s.service, s.account)
                                        : store_->copyMatching(s.service, s.account, &out);
    EXPECT_EQ(status, s.status);
    if (op == "read" && status == kSuccess) {
      EXPECT_EQ(out, bytes(s.expected));
    }
  }
}

TEST_F(SecretServiceTest, ItemsLiveInTheServiceNotInTheFallbackFolder) {
  ASSERT_EQ(store_->add("persist", "bob", bytes("kept")), kSuccess);
  EXPECT_FALSE(folderHasFiles(fallback_));
  // A store made later in the process, as after a restart, finds the item in the service.
  auto again = makeSystemSecureStore("velora-tests", root_ / "other-fallback");
  Bytes out;
  ASSERT_EQ(again->copyMatching("persist", "bob", &out), kSuccess);
  EXPECT_EQ(out, bytes("kept"));
  EXPECT_EQ(again->remove("persist", "bob"), kSuccess);
  EXPECT_EQ(store_->copyMatching("persist", "bob", &out), kItemNotFound);
}

// Runs as its own process under the normal test run: pointing the session bus at nothing must
// quietly give the file store in the fallback folder.
TEST(SystemSecureStoreFallback, UnreachableBusFallsBackToFiles) {
  const fs::path root = makeTemporaryFolder();
  ASSERT_FALSE(root.empty());
  ::setenv("DBUS_SESSION_BUS_ADDRESS", ("unix:path=" + (root / "no-bus").string()).c_str(), 1);
  auto store = makeSystemSecureStore("velora-tests", root / "fallback");
  EXPECT_EQ(store->add("svc", "carol", bytes("v")), kSuccess);
  EXPECT_TRUE(folderHasFiles(root / "fallback"));
  Bytes out;
  EXPECT_EQ(store->copyMatching("svc", "carol", &out), kSuccess);
  EXPECT_EQ(out, bytes("v"));
  fs::remove_all(root);
}

}  // namespace
}  // namespace velora
