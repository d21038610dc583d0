// The velora client as a user runs it: a subprocess against an in-process sandbox, with its state
// in private XDG folders and none of the caller's VELORA_* variables.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "velora_sandbox/Sandbox.hpp"

namespace {

namespace fs = std::filesystem;

struct TempDir {
  fs::path path;
  TempDir() {
    std::string pattern = (fs::temp_directory_path() / "velora-cli-test.XXXXXX").string();
    path = mkdtemp(pattern.data());
  }
  ~TempDir() { fs::remove_all(path); }
};

struct Result {
  int exitCode = -1;  // 128 + signal when the client was killed (an abort reads 134)
  std::string out;
  std::string err;
};

std::string slurp(const fs::path& file) {
  std::ifstream in(file);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

Result runCli(const fs::path& home, const std::vector<std::string>& args, const std::vector<std::string>& extraEnv) {
  std::vector<std::string> env{"PATH=/usr/bin:/bin", "HOME=" + home.string(),
                               "XDG_CONFIG_HOME=" + (home / "config").string(),
                               "XDG_DATA_HOME=" + (home / "data").string()};
  env.insert(env.end(), extraEnv.begin(), extraEnv.end());
  std::vector<std::string> argv{VELORA_CLI_PATH};
  argv.insert(argv.end(), args.begin(), args.end());
  const auto pointers = [](std::vector<std::string>& strings) {
    std::vector<char*> out;
    for (auto& s : strings) out.push_back(s.data());
    out.push_back(nullptr);
    return out;
  };
  auto argp = pointers(argv);
  auto envp = pointers(env);

  const fs::path outFile = home / "stdout", errFile = home / "stderr";
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_addopen(&files, 1, outFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_addopen(&files, 2, errFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  pid_t pid = -1;
  const int spawned = posix_spawn(&pid, argp[0], &files, nullptr, argp.data(), envp.data());
  posix_spawn_file_actions_destroy(&files);
  Result result;
  if (spawned != 0) return result;

  // A hung client fails its case instead of the whole run.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  int status = 0;
  while (waitpid(pid, &status, WNOHANG) == 0) {
    if (std::chrono::steady_clock::now() > deadline) {
      kill(pid, SIGKILL);
      waitpid(pid, &status, 0);
      break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  result.out = slurp(outFile);
  result.err = slurp(errFile);
  return result;
}

// A bound but not listening socket: connecting to its port is refused, and no other process can
// take the port while the test runs.
struct ClosedPort {
  int sock = socket(AF_INET, SOCK_STREAM, 0);
  int port = 0;
  ClosedPort() {
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof addr;
    bind(sock, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
    getsockname(sock, reinterpret_cast<sockaddr*>(&addr), &len);
    port = ntohs(addr.sin_port);
  }
  ~ClosedPort() { close(sock); }
};

nlohmann::json parseOnly(const std::string& out) {
  // The whole of standard output must be one JSON document: library console lines must not leak.
  return nlohmann::json::parse(out, nullptr, /*allow_exceptions=*/false);
}

TEST(Cli, CommandsAgainstTheSandbox) {
  velora::sandbox::Sandbox sandbox;
  ClosedPort closed;
  const std::string closedUrl = "http://127.0.0.1:" + std::to_string(closed.port);

  struct Case {
    const char* name;
    bool freshState;  // otherwise the state left by the rows above (the rows run in order)
    std::vector<std::string> args;
    std::vector<std::string> env;
    int exitCode;
    const char* outContains;
    const char* errContains;
    std::function<void(const Result&)> more = {};
  };
  const std::vector<Case> cases{
      {"check reaches the platform", false, {"--endpoint", sandbox.baseUrl() + "/", "check"}, {}, 0,
       "Velora sandbox is up", ""},
      {"endpoint is remembered; --json record carries the tag id", false,
       {"device-config", "--tagid", "cli-tag-7", "--json"}, {}, 0, "", "",
       [](const Result& r) {
         const auto record = parseOnly(r.out);
         ASSERT_TRUE(record.is_object()) << r.out;
         EXPECT_EQ(record["iosadvConf"]["tagid"], "cli-tag-7");
         EXPECT_EQ(record["appId"], "velora-cli");
         EXPECT_EQ(r.err, "");
       }},
      {"settings come from the environment too", false, {"check"}, {"VELORA_JSON=1"}, 0, "", "",
       [](const Result& r) {
         const auto record = parseOnly(r.out);
         ASSERT_TRUE(record.is_object()) << r.out;
         EXPECT_EQ(record["code"], 200);
       }},
      {"log show lists what the commands did", false, {"log", "show"}, {}, 0,
       "velora check: Velora sandbox is up", "",
       [](const Result& r) { EXPECT_NE(r.out.find("velora device-config: tag cli-tag-7"), std::string::npos) << r.out; }},
      {"log clear empties the log", false, {"log", "clear"}, {}, 0, "log cleared", ""},
      {"log show after clear", false, {"log", "show"}, {}, 0, "(the log is empty)", ""},
      {"no endpoint at all", true, {"check"}, {}, 2, "",
       "velora: no platform endpoint; pass --endpoint URL or set VELORA_ENDPOINT"},
      {"unreachable endpoint", true, {"--endpoint", closedUrl, "check"}, {}, 1, "", "(code ",
       [](const Result& r) {
         EXPECT_TRUE(r.err.starts_with("velora: ")) << r.err;
         EXPECT_EQ(r.out, "");
       }},
      {"invalid setting is a usage error", true, {"--timeout", "0", "check"}, {}, 2, "", "timeout"},
  };

  TempDir shared;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    TempDir fresh;
    const Result r = runCli(c.freshState ? fresh.path : shared.path, c.args, c.env);
    EXPECT_EQ(r.exitCode, c.exitCode) << "stdout: " << r.out << "\nstderr: " << r.err;
    EXPECT_NE(r.out.find(c.outContains), std::string::npos) << r.out;
    EXPECT_NE(r.err.find(c.errContains), std::string::npos) << r.err;
    if (c.more) c.more(r);
  }
  EXPECT_EQ(sandbox.requestCount("/api/v1/device/ios/conf"), 1u);
}

}  // namespace
