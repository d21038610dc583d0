#include "CliProcess.hpp"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <thread>

namespace velora::testing {
namespace {

std::vector<char*> pointers(std::vector<std::string>& strings) {
  std::vector<char*> out;
  for (auto& s : strings) out.push_back(s.data());
  out.push_back(nullptr);
  return out;
}

}  // namespace

std::string slurp(const std::filesystem::path& file) {
  std::ifstream in(file);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

pid_t startCli(const std::string& program, const std::filesystem::path& home, const std::vector<std::string>& args,
               const std::vector<std::string>& extraEnv) {
  std::vector<std::string> env{"PATH=/usr/bin:/bin", "HOME=" + home.string(), "XDG_CONFIG_HOME=" + (home / "config").string(),
                               "XDG_DATA_HOME=" + (home / "data").string(), "XDG_CACHE_HOME=" + (home / "cache").string()};
  env.insert(env.end(), extraEnv.begin(), extraEnv.end());
  std::vector<std::string> argv{program};
  argv.insert(argv.end(), args.begin(), args.end());
  auto argp = pointers(argv);
  auto envp = pointers(env);

  const auto outFile = home / "stdout", errFile = home / "stderr";
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_addopen(&files, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&files, 1, outFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_addopen(&files, 2, errFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  pid_t pid = -1;
  const int spawned = posix_spawn(&pid, argp[0], &files, nullptr, argp.data(), envp.data());
  posix_spawn_file_actions_destroy(&files);
  return spawned == 0 ? pid : -1;
}

CliResult cliResult(const std::filesystem::path& home, int status) {
  CliResult result;
  result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  result.out = slurp(home / "stdout");
  result.err = slurp(home / "stderr");
  return result;
}

CliResult finishCli(const std::filesystem::path& home, pid_t pid) {
  if (pid < 0) return {};
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
  return cliResult(home, status);
}

}  // namespace velora::testing
