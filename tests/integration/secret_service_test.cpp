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

#include "StoreSteps.hpp"

namespace velora {
namespace {

namespace fs = std::filesystem;
using namespace secure_status;

using testing::bytes;

bool hasFiles(const fs::path& folder) { return fs::exists(folder) && !fs::is_empty(folder); }

class SecretServiceTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const char* bus = std::getenv("DBUS_SESSION_BUS_ADDRESS");
    const char* marked = std::getenv("VELORA_PRIVATE_BUS");
    if (!bus || !*bus || !marked || std::strcmp(marked, "1") != 0) {
      GTEST_SKIP() << "needs a keyring daemon on a private session bus: run the `secret_service` CTest test";
    }
    ASSERT_FALSE(root_.empty());
    store_ = makeSystemSecureStore("velora-tests", root_ / "fallback");
  }

  testing::TempDir temp_;
  const fs::path& root_ = temp_.path;
  std::shared_ptr<SecureStore> store_;
};

TEST_F(SecretServiceTest, ItemLifecycle) {
  auto steps = testing::commonStoreSteps();
  // D-Bus carries only valid UTF-8 without NUL in attributes.
  steps.push_back({'a', "svc", "bad \xff", "x", kParameterError});
  steps.push_back({'r', std::string("n\0", 2), "al", "", kParameterError});
  testing::runStoreSteps(*store_, steps);
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
  const testing::TempDir temp;
  const fs::path& root = temp.path;
  ASSERT_FALSE(root.empty());
  ::setenv("DBUS_SESSION_BUS_ADDRESS", ("unix:path=" + (root / "no-bus").string()).c_str(), 1);
  auto store = makeSystemSecureStore("velora-tests", root / "fallback");
  EXPECT_EQ(store->add("svc", "carol", bytes("v")), kSuccess);
  EXPECT_TRUE(hasFiles(root / "fallback"));
}

}  // namespace
}  // namespace velora
