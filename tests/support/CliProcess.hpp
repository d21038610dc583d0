#pragma once
// Runs the velora client as a separate process, as a user would, with its state in a folder of the
// test's own.

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

namespace velora::testing {

struct CliResult {
  int exitCode = -1;  // 128 + signal when the client was killed (an abort reads 134)
  std::string out;
  std::string err;
};

/// Starts `program` with standard input on /dev/null (so never a terminal) and its output in
/// `home`/stdout and `home`/stderr; HOME and the XDG folders point into `home`, then `extraEnv`.
/// -1 when it could not start.
pid_t startCli(const std::string& program, const std::filesystem::path& home, const std::vector<std::string>& args,
               const std::vector<std::string>& extraEnv = {});

/// The whole of a file; empty when it cannot be read.
std::string slurp(const std::filesystem::path& file);

/// The result of a client started in `home` that ended with wait status `status`.
CliResult cliResult(const std::filesystem::path& home, int status);

/// Waits for a client started in `home` (killed after 30 s) and returns its result; a client
/// that could not start (`pid` -1) gives the default result.
CliResult finishCli(const std::filesystem::path& home, pid_t pid);

}  // namespace velora::testing
