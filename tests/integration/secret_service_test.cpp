// The system credential store against a real keyring daemon on a private session bus (the
// `secret_service` CTest test sets one up and runs the SecretService* cases), and its fallback
// to files when no Secret Service answers.

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
  return ::mkdtemp(pattern.data()) ? fs::path(pattern) : fs::path();
}

bool hasFiles(const fs::path& folder) { return fs::exists(folder) && !fs::is_empty(folder); }

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
    store_ = makeSystemSecureStore("velora-tests", root_ / "fallback");
  }
  void TearDown() override {
    if (!root_.empty()) fs::remove_all(root_);
  }

  fs::path root_;
  std::shared_ptr<SecureStore> store_;
};

TEST_F(SecretServiceTest, ItemLifecycle) {
  struct Step {
    char op;  // a)dd u)pdate r)ead d)elete
    std::optional<std::string> service;
    std::string account;
    std::string data;  // written, or expected when read
    int status;
  };
  const auto none = std::nullopt;
  const std::string binary("\0\xff\x01secret\0", 10);
  const std::string unicode = "\xc3\xa9t\xc3\xa9 \xf0\x9f\x94\x91 ../x";
  const std::vector<Step> steps = {
      {'r', "svc", "al", "", kItemNotFound},  {'u', "svc", "al", "x", kItemNotFound},
      {'d', "svc", "al", "", kItemNotFound},  {'a', "svc", "al", "one", kSuccess},
      {'a', "svc", "al", "two", kDuplicateItem}, {'r', "svc", "al", "one", kSuccess},
      {'u', "svc", "al", binary, kSuccess},   {'r', "svc", "al", binary, kSuccess},
      {'u', "svc", "al", "", kSuccess},       {'r', "svc", "al", "", kSuccess},
      // Absent service, empty service and "svc" are three different items.
      {'a', none, "al", "none", kSuccess},    {'a', "", "al", "empty", kSuccess},
      {'r', none, "al", "none", kSuccess},    {'r', "", "al", "empty", kSuccess},
      {'d', none, "al", "", kSuccess},        {'r', none, "al", "", kItemNotFound},
      {'r', "", "al", "empty", kSuccess},     {'d', "svc", "al", "", kSuccess},
      {'d', "svc", "al", "", kItemNotFound},  {'a', "svc", unicode, "u", kSuccess},
      {'r', "svc", unicode, "u", kSuccess},   {'a', "svc", "", "e", kSuccess},
      {'r', "svc", "", "e", kSuccess},
      // D-Bus carries only valid UTF-8 without NUL in attributes.
      {'a', "svc", "bad \xff", "x", kParameterError}, {'r', std::string("n\0", 2), "al", "", kParameterError},
  };
  for (std::size_t i = 0; i < steps.size(); ++i) {
    const Step& s = steps[i];
    Bytes out;
    const int status = s.op == 'a'   ? store_->add(s.service, s.account, bytes(s.data))
                       : s.op == 'u' ? store_->update(s.service, s.account, bytes(s.data))
                       : s.op == 'd' ? store_->remove(s.service, s.account)
                                     : store_->copyMatching(s.service, s.account, &out);
    EXPECT_EQ(status, s.status) << "step " << i;
    EXPECT_EQ(out, s.op == 'r' ? bytes(s.data) : Bytes()) << "step " << i;
  }
}

TEST_F(SecretServiceTest, ItemsLiveInTheServiceNotInTheFallbackFolder) {
  ASSERT_EQ(store_->add("persist", "bob", bytes("kept")), kSuccess);
  EXPECT_FALSE(hasFiles(root_ / "fallback"));
  // A store made later, as after a restart, finds the item in the service.
  auto again = makeSystemSecureStore("velora-tests", root_ / "other-fallback");
  Bytes out;
  EXPECT_EQ(again->copyMatching("persist", "bob", &out), kSuccess);
  EXPECT_EQ(out, bytes("kept"));
  EXPECT_EQ(again->remove("persist", "bob"), kSuccess);
  EXPECT_EQ(store_->copyMatching("persist", "bob", &out), kItemNotFound);
}

// Runs in its own process in the normal test run: a session bus that is not there must quietly
// give the file store in the fallback folder.
TEST(SystemSecureStoreFallback, UnreachableBusFallsBackToFiles) {
  const fs::path root = makeTemporaryFolder();
  ASSERT_FALSE(root.empty());
  ::setenv("DBUS_SESSION_BUS_ADDRESS", ("unix:path=" + (root / "no-bus").string()).c_str(), 1);
  auto store = makeSystemSecureStore("velora-tests", root / "fallback");
  EXPECT_EQ(store->add("svc", "carol", bytes("v")), kSuccess);
  EXPECT_TRUE(hasFiles(root / "fallback"));
  fs::remove_all(root);
}

}  // namespace
}  // namespace velora
