// `velora login browser --custom` as a user runs it: the client opens its login window on the
// browser tier's display, and the realm, with auto-login on, signs the demo user in at once.

#include <fcntl.h>
#include <glib.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <velora/velora.hpp>
#include <velora/platform/WebKitWebView.hpp>
#include <velora_sandbox/Sandbox.hpp>

#include "StoreSteps.hpp"

namespace velora {
namespace {

namespace fs = std::filesystem;

constexpr auto kPatience = std::chrono::seconds(60);

struct Result {
  int exitCode = -1;
  std::string out;
  std::string err;
};

std::string slurp(const fs::path& file) {
  std::ifstream in(file);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

/// Runs the client with its state in `home` and the display of this process; the loop turns
/// while it runs, so that the child's end is noticed without polling.
Result runCli(GlibMainQueue& queue, const fs::path& home, std::vector<std::string> args) {
  std::vector<std::string> env{"PATH=/usr/bin:/bin", "HOME=" + home.string(), "XDG_CONFIG_HOME=" + (home / "config").string(),
                               "XDG_DATA_HOME=" + (home / "data").string(), "XDG_CACHE_HOME=" + (home / "cache").string()};
  for (const char* name : {"DISPLAY", "XAUTHORITY"}) {
    if (const char* value = std::getenv(name)) env.push_back(std::string(name) + "=" + value);
  }
  args.insert(args.begin(), VELORA_CLI_PATH);
  const auto pointers = [](std::vector<std::string>& strings) {
    std::vector<char*> out;
    for (auto& s : strings) out.push_back(s.data());
    out.push_back(nullptr);
    return out;
  };
  auto argp = pointers(args);
  auto envp = pointers(env);
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_addopen(&files, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&files, 1, (home / "stdout").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_addopen(&files, 2, (home / "stderr").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  pid_t pid = -1;
  const int spawned = posix_spawn(&pid, argp[0], &files, nullptr, argp.data(), envp.data());
  posix_spawn_file_actions_destroy(&files);
  Result result;
  if (spawned != 0) return result;

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
  result.exitCode = WIFEXITED(exit.status) ? WEXITSTATUS(exit.status) : 128 + WTERMSIG(exit.status);
  result.out = slurp(home / "stdout");
  result.err = slurp(home / "stderr");
  return result;
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
