// Browser sessions for the interactive login on Linux: a console one (the user pastes the
// redirect), and a loopback one that receives the redirect on 127.0.0.1 itself.

#include <velora/platform/BrowserAuthSession.hpp>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fcntl.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <thread>

#include <velora/core/URL.hpp>

extern char** environ;

namespace velora {
namespace {

constexpr std::int64_t kBrowserError = -23001;
constexpr int kWaitSeconds = 300;

PlatformError browserError(const std::string& message) { return PlatformError("BrowserAuthSession: " + message, kBrowserError); }

class ConsoleBrowser : public BrowserAuthSession {
 public:
  explicit ConsoleBrowser(std::function<void(const std::string&)> prompt) : prompt_(std::move(prompt)) {}

  void start(const std::string& url, const std::string&, Completion completion) override {
    prompt_("Open this address in a browser and log in:\n  " + url +
            "\nThen paste the address the browser was sent to (it contains \"code=\") and press Enter:");
    // Reading standard input blocks, so it happens on a thread of its own.
    std::thread([completion = std::move(completion)] {
      std::string line;
      if (!std::getline(std::cin, line) || line.empty()) return completion(std::nullopt, browserError("no callback address was entered"));
      while (!line.empty() && (line.back() == '\r' || line.back() == ' ')) line.pop_back();
      completion(line, std::nullopt);
    }).detach();
  }

 private:
  std::function<void(const std::string&)> prompt_;
};

void openSystemBrowser(const std::string& url) {
  if (!std::getenv("DISPLAY") && !std::getenv("WAYLAND_DISPLAY")) return;
  const char* argv[] = {"xdg-open", url.c_str(), nullptr};
  pid_t pid = 0;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  if (posix_spawnp(&pid, "xdg-open", &actions, nullptr, const_cast<char**>(argv), environ) == 0) {
    std::thread([pid] { ::waitpid(pid, nullptr, 0); }).detach();
  }
  posix_spawn_file_actions_destroy(&actions);
}

/// Listens on the redirect URI's loopback port and answers the browser's one request.
class LoopbackBrowser : public BrowserAuthSession {
 public:
  explicit LoopbackBrowser(std::function<void(const std::string&)> prompt) : prompt_(prompt), console_(prompt) {}

  void start(const std::string& url, const std::string& callbackURLScheme, Completion completion) override {
    const auto redirect = redirectOf(url);
    if (!redirect || redirect->scheme() != "http" || (redirect->host() != "127.0.0.1" && redirect->host() != "localhost") ||
        !redirect->port()) {
      return console_.start(url, callbackURLScheme, std::move(completion));
    }
    const int fd = listenOn(*redirect->port());
    if (fd < 0) return completion(std::nullopt, browserError("cannot listen on port " + std::to_string(*redirect->port()) + ": " + std::strerror(errno)));
    prompt_("Log in in your browser; if it does not open, visit:\n  " + url);
    openSystemBrowser(url);
    const std::string origin = "http://" + redirect->host() + ":" + std::to_string(*redirect->port());
    std::thread([fd, origin, completion = std::move(completion)] {
      auto target = receive(fd);
      ::close(fd);
      if (!target) return completion(std::nullopt, browserError("no redirect arrived within " + std::to_string(kWaitSeconds) + " seconds"));
      completion(origin + *target, std::nullopt);
    }).detach();
  }

 private:
  /// The redirect_uri query value of the authorisation URL, decoded.
  static std::optional<URL> redirectOf(const std::string& url) {
    const auto at = url.find("redirect_uri=");
    if (at == std::string::npos) return std::nullopt;
    std::string encoded = url.substr(at + 13, url.find('&', at) == std::string::npos ? std::string::npos : url.find('&', at) - at - 13);
    std::string decoded;
    for (std::size_t i = 0; i < encoded.size(); ++i) {
      if (encoded[i] == '%' && i + 2 < encoded.size()) {
        decoded.push_back(static_cast<char>(std::stoi(encoded.substr(i + 1, 2), nullptr, 16)));
        i += 2;
      } else {
        decoded.push_back(encoded[i]);
      }
    }
    return URL::parse(decoded);
  }

  static int listenOn(int port) {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return -1;
    const int on = 1;
    ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 || ::listen(fd, 4) != 0) {
      const int error = errno;
      ::close(fd);
      errno = error;
      return -1;
    }
    return fd;
  }

  /// Accepts connections until one carries a request line; answers it and returns its target.
  static std::optional<std::string> receive(int fd) {
    pollfd waiting{fd, POLLIN, 0};
    while (::poll(&waiting, 1, kWaitSeconds * 1000) > 0) {
      const int client = ::accept4(fd, nullptr, nullptr, SOCK_CLOEXEC);
      if (client < 0) continue;
      std::string request;
      char buffer[2048];
      pollfd readable{client, POLLIN, 0};
      while (request.find("\r\n") == std::string::npos && request.size() < 16384 && ::poll(&readable, 1, 5000) > 0) {
        const ssize_t n = ::read(client, buffer, sizeof buffer);
        if (n <= 0) break;
        request.append(buffer, static_cast<std::size_t>(n));
      }
      const auto first = request.find(' ');
      const auto second = request.find(' ', first + 1);
      const bool valid = first != std::string::npos && second != std::string::npos;
      const std::string body = valid ? "<html><body><p>Login received. You can close this window.</p></body></html>"
                                     : "<html><body><p>Bad request.</p></body></html>";
      const std::string reply = std::string(valid ? "HTTP/1.1 200 OK" : "HTTP/1.1 400 Bad Request") +
                                "\r\nContent-Type: text/html; charset=utf-8\r\nConnection: close\r\nContent-Length: " +
                                std::to_string(body.size()) + "\r\n\r\n" + body;
      [[maybe_unused]] const ssize_t written = ::write(client, reply.data(), reply.size());
      ::close(client);
      if (valid) return request.substr(first + 1, second - first - 1);
    }
    return std::nullopt;
  }

  std::function<void(const std::string&)> prompt_;
  ConsoleBrowser console_;
};

class UnavailableCustomAuthentication : public CustomAuthenticationHandler {
 public:
  void presentAuthentication(const std::string&, OnCompletion onCompletion, OnLogout) override {
    onCompletion(std::nullopt, PlatformError("CustomAuthenticationHandler: the web-view login screen is not available in this build", kBrowserError));
  }
  void cancelDidPress() override {}
};

}  // namespace

std::shared_ptr<BrowserAuthSession> makeConsoleBrowserAuthSession(std::function<void(const std::string&)> prompt) {
  return std::make_shared<ConsoleBrowser>(std::move(prompt));
}

std::shared_ptr<BrowserAuthSession> makeLoopbackBrowserAuthSession(std::function<void(const std::string&)> prompt) {
  return std::make_shared<LoopbackBrowser>(std::move(prompt));
}

std::shared_ptr<CustomAuthenticationHandler> makeUnavailableCustomAuthenticationHandler() {
  return std::make_shared<UnavailableCustomAuthentication>();
}

}  // namespace velora
