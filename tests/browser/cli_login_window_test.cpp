// `velora login browser --custom` as a user runs it: the client opens its login window on the
// browser tier's display, and the realm, with auto-login on, signs the demo user in at once.

#include <glib.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <velora/velora.hpp>
#include <velora/platform/WebKitWebView.hpp>
#include <velora_sandbox/Sandbox.hpp>

#include "CliProcess.hpp"
#include "StoreSteps.hpp"

namespace velora {
namespace {

namespace fs = std::filesystem;

constexpr auto kPatience = std::chrono::seconds(60);

using Result = velora::testing::CliResult;
using velora::testing::slurp;

/// Runs the client with its state in `home` and the display of this process; the loop turns
/// while it runs, so that the child's end is noticed without polling.
Result runCli(GlibMainQueue& queue, const fs::path& home, std::vector<std::string> args) {
  std::vector<std::string> display;
  for (const char* name : {"DISPLAY", "XAUTHORITY"}) {
    if (const char* value = std::getenv(name)) display.push_back(std::string(name) + "=" + value);
  }
  const pid_t pid = velora::testing::startCli(VELORA_CLI_PATH, home, args, display);
  if (pid < 0) return {};

  struct Exit {
    bool done = false;
    int status = 0;
  } exit;
  g_child_watch_add(
      pid,
      [](GPid, gint status, gpointer data) {
        auto* out = static_cast<Exit*>(data);
        out->status = status;
        out->done = true;
      },
      &exit);
  if (!queue.runUntil([&] { return exit.done; }, kPatience)) {
    ADD_FAILURE() << "the client did not finish";
    kill(pid, SIGKILL);
    queue.runUntil([&] { return exit.done; }, kPatience);
  }
  return velora::testing::cliResult(home, exit.status);
}

TEST(CliLoginWindow, LogsInThroughTheWindowWithoutRememberingTheMethod) {
  sandbox::SandboxOptions options;
  options.autoLoginUser = sandbox::demo::kUser;
  options.keepAliveTimeoutSeconds = 1;
  sandbox::Sandbox sandbox(options);
  GlibMainQueue queue;
  struct Case {
    const char* name;
    std::vector<std::string> redirect;
  };
  const std::vector<Case> cases = {
      {"default loopback redirect", {}},
      {"custom scheme", {"--redirect-uri", sandbox::demo::kAppRedirectUri}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    testing::TempDir home;
    std::vector<std::string> args{"--endpoint", sandbox.baseUrl(), "--json", "login", "browser", "--custom"};
    args.insert(args.end(), c.redirect.begin(), c.redirect.end());
    const Result login = runCli(queue, home.path, args);
    ASSERT_EQ(login.exitCode, 0) << login.err;
    EXPECT_NE(login.out.find(R"("authStatus":"authenticated")"), std::string::npos) << login.out;
    EXPECT_NE(login.out.find(R"("loginMode":"USER")"), std::string::npos) << login.out;

    Platform stored;
    stored.defaults = std::make_shared<JsonFileStore>(home.path / "config" / "velora-cli" / "defaults.json");
    const auto environment = Orvane::storedEnvironment(stored);
    ASSERT_TRUE(environment && environment->keycloakEnv);
    EXPECT_EQ(environment->keycloakEnv->loginMode, KeycloakLoginMode::USER);
    EXPECT_EQ(environment->keycloakEnv->authMethod, std::nullopt);

    // A later run without a window takes the session over.
    const Result status = runCli(queue, home.path, {"--json", "status"});
    EXPECT_EQ(status.exitCode, 0) << status.err;
    EXPECT_NE(status.out.find(R"("authStatus":"authenticated")"), std::string::npos) << status.out;
  }
}

TEST(CliMapWindow, ShowsTheMapPrintsItsEventsAndWritesAScreenshot) {
  sandbox::SandboxOptions options;
  options.keepAliveTimeoutSeconds = 1;
  sandbox::Sandbox sandbox(options);
  GlibMainQueue queue;
  testing::TempDir home;
  ASSERT_EQ(runCli(queue, home.path, {"--endpoint", sandbox.baseUrl(), "login", "guest"}).exitCode, 0);

  const fs::path png = home.path / "map.png";
  const Result map = runCli(queue, home.path, {"--json", "map", "--floor", "2", "--screenshot", png.string()});
  ASSERT_EQ(map.exitCode, 0) << map.err;
  EXPECT_NE(map.out.find(R"({"event":"initialised","data":{"operationId":")"), std::string::npos) << map.out;
  EXPECT_NE(map.out.find(R"({"event":"floorChange","data":{)"), std::string::npos) << map.out;
  EXPECT_NE(map.err.find("map screenshot written to " + png.string()), std::string::npos) << map.err;
  EXPECT_EQ(slurp(png).substr(0, 8), "\x89PNG\r\n\x1a\n");

  // Without a session the page cannot initialise; the client says so instead of waiting.
  testing::TempDir stranger;
  const Result refused = runCli(queue, stranger.path, {"--endpoint", sandbox.baseUrl(), "map", "--screenshot", png.string()});
  EXPECT_NE(refused.exitCode, 0);
  EXPECT_NE(refused.err.find("log in first"), std::string::npos) << refused.err;
}

}  // namespace
}  // namespace velora
