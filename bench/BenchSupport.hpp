#pragma once
// What the benchmarks share: a facade on the real adapters, a login layer that always holds the
// same valid token (so that they measure requests and streams, not renewals), and the sandbox as
// a program of its own, so that what is measured in this process is the client's alone.

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <future>
#include <stdexcept>
#include <string>
#include <vector>

#include <velora/velora.hpp>

/// A facade with the curl transport and a main queue of its own, for the platform at `endpoint`.
inline std::shared_ptr<velora::Orvane> benchFacade(const std::string& endpoint) {
  velora::Platform p;
  p.transport = velora::makeCurlTransport();
  p.mainQueue = std::make_shared<velora::ThreadQueue>();
  p.executor = velora::makeThreadPool();
  p.defaults = std::make_shared<velora::MemoryStore>();
  p.host = std::make_shared<velora::StaticHostInfo>("bench.app");
  p.clock = std::make_shared<velora::SystemClock>();
  p.console = [](std::string_view) {};
  velora::Orvane::setupSDK(velora::EnvironmentModel(endpoint, 30), p);
  return velora::Orvane::make(p);
}

class FixedSession : public velora::SessionRenewer {
 public:
  explicit FixedSession(std::string token) : token_(std::move(token)) {}
  velora::TokenState tokenState() const override { return {true, true, true}; }
  std::optional<std::string> accessToken() const override { return token_; }
  void refresh(Completion done) override { done({true, nullptr}); }
  void captiveReauth(Completion done) override { done({true, nullptr}); }

 private:
  std::string token_;
};

/// The velora-sandbox program, stopped when this goes.
class SandboxProcess {
 public:
  explicit SandboxProcess(std::vector<std::string> options) {
    int out[2];
    if (pipe(out) != 0) throw std::runtime_error("pipe failed");
    std::vector<std::string> args{VELORA_SANDBOX_PATH};
    args.insert(args.end(), options.begin(), options.end());
    std::vector<char*> argv;
    for (auto& arg : args) argv.push_back(arg.data());
    argv.push_back(nullptr);
    pid_ = fork();
    if (pid_ < 0) throw std::runtime_error("fork failed");
    if (pid_ == 0) {
      // The sandbox goes with the benchmark, also when the benchmark is killed.
      prctl(PR_SET_PDEATHSIG, SIGTERM);
      dup2(out[1], STDOUT_FILENO);
      close(out[0]);
      execv(VELORA_SANDBOX_PATH, argv.data());
      _exit(127);
    }
    close(out[1]);
    std::string line;
    char c;
    while (read(out[0], &c, 1) == 1 && c != '\n') line += c;
    close(out[0]);
    const auto at = line.find("http://");
    if (at == std::string::npos) throw std::runtime_error("the sandbox did not start: " + line);
    url_ = line.substr(at);
  }
  ~SandboxProcess() {
    kill(pid_, SIGTERM);
    waitpid(pid_, nullptr, 0);
  }
  const std::string& url() const { return url_; }

 private:
  pid_t pid_ = -1;
  std::string url_;
};

inline std::size_t residentBytes() {
  std::ifstream statm("/proc/self/statm");
  std::size_t pages = 0, resident = 0;
  statm >> pages >> resident;
  return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

inline std::string demoAccessToken(velora::HttpTransport& transport, const std::string& base) {
  velora::HttpRequest request;
  request.method = "POST";
  request.url = base + "/realms/velora/protocol/openid-connect/token";
  request.headers.set("Content-Type", "application/x-www-form-urlencoded");
  request.body = "grant_type=password&client_id=velora-app&username=demo&password=demo-password";
  std::promise<velora::DataResult> done;
  velora::startDataRequest(transport, request, [&](velora::DataResult r) { done.set_value(std::move(r)); });
  const auto result = done.get_future().get();
  if (!result.response || result.response->head.status != 200) throw std::runtime_error("cannot log in to the sandbox");
  const auto json = velora::AnyCodable::parse(result.response->body);
  return *json.find("access_token")->as<std::string>();
}
