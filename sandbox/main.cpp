// velora-sandbox: runs the sandbox platform on loopback until SIGTERM or SIGINT.

#include <pthread.h>
#include <signal.h>

#include <charconv>
#include <csignal>
#include <cstring>
#include <exception>
#include <iostream>
#include <limits>
#include <stdexcept>
#include <string>
#include <string_view>

#include "velora_sandbox/Sandbox.hpp"

namespace {

// Lists the demo accounts by name only: the program prints no password or secret.
constexpr const char* kUsage =
    "Usage: velora-sandbox [--port N] [--host ADDRESS] [--no-test-routes] [--realm NAME]\n"
    "                      [--access-token-lifetime SECONDS] [--refresh-token-lifetime SECONDS]\n"
    "                      [--auto-login USER] [--position-interval-ms MS] [--widget-interval-ms MS]\n"
    "                      [--threads N] [--cut-random-stream-ms MS]\n"
    "\n"
    "Serves the Velora sandbox platform and its identity realm until SIGTERM or SIGINT.\n"
    "  --port N                          port to listen on; 0 picks a free one (default 0)\n"
    "  --host ADDRESS                    address to bind (default 127.0.0.1)\n"
    "  --no-test-routes                  leave out the /test/... routes\n"
    "  --realm NAME                      serve the realm at /realms/NAME (default velora)\n"
    "  --access-token-lifetime SECONDS   how long access tokens live (default 300)\n"
    "  --refresh-token-lifetime SECONDS  how long refresh tokens live (default 1800)\n"
    "  --auto-login USER                 log USER in at once instead of showing the login page\n"
    "  --position-interval-ms MS         how often the position and diagnostic streams report\n"
    "                                    (default 1000)\n"
    "  --widget-interval-ms MS           how often the widget streams take their next step\n"
    "                                    (default 2000)\n"
    "  --threads N                       worker threads; each open stream holds one (default 256)\n"
    "  --cut-random-stream-ms MS         every MS cut one open event stream, chosen at random,\n"
    "                                    in the middle of its next event (default: never)\n"
    "  --version                         print the version and exit\n"
    "  --help                            show this help\n"
    "\n"
    "Platform routes outside /api/v1/public/ need an access token from the realm.\n"
    "Demo users: demo, alice. Clients: velora-app (public), velora-guest (confidential).\n"
    "Their passwords and the guest secret are listed in docs/sandbox.md.\n";

int usageError(const std::string& message) {
  std::cerr << "velora-sandbox: " << message << "\n"
            << "Try 'velora-sandbox --help'.\n";
  return 2;
}

bool parseNumber(std::string_view text, int min, int max, int& out) {
  int value = 0;
  const auto* end = text.data() + text.size();
  const auto [ptr, ec] = std::from_chars(text.data(), end, value);
  if (text.empty() || ec != std::errc() || ptr != end || value < min || value > max) {
    return false;
  }
  out = value;
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  velora::sandbox::SandboxOptions options;
  for (int i = 1; i < argc; ++i) {
    const std::string_view arg = argv[i];
    if (arg == "--help" || arg == "-h") {
      std::cout << kUsage;
      return 0;
    }
    if (arg == "--version") {
      std::cout << "velora-sandbox " VELORA_VERSION "\n";
      return 0;
    }
    if (arg == "--no-test-routes") {
      options.testRoutes = false;
    } else if (arg == "--port" || arg == "--host" || arg == "--realm" ||
               arg == "--access-token-lifetime" || arg == "--refresh-token-lifetime" ||
               arg == "--auto-login" || arg == "--position-interval-ms" || arg == "--widget-interval-ms" || arg == "--threads" ||
               arg == "--cut-random-stream-ms") {
      if (i + 1 >= argc) {
        return usageError(std::string(arg) + " needs a value");
      }
      const std::string_view value = argv[++i];
      if (arg == "--host") {
        if (value.empty()) {
          return usageError("--host needs a non-empty address");
        }
        options.host = value;
      } else if (arg == "--realm") {
        options.realm = value;
      } else if (arg == "--auto-login") {
        options.autoLoginUser = std::string(value);
      } else if (arg == "--port") {
        if (!parseNumber(value, 0, 65535, options.port)) {
          return usageError("--port needs a number from 0 to 65535, not '" + std::string(value) +
                            "'");
        }
      } else if (arg == "--threads") {
        if (!parseNumber(value, 1, 100000, options.threads)) {
          return usageError("--threads needs a number from 1 to 100000, not '" + std::string(value) + "'");
        }
      } else if (arg == "--cut-random-stream-ms") {
        if (!parseNumber(value, 1, std::numeric_limits<int>::max(), options.cutRandomStreamEveryMs)) {
          return usageError("--cut-random-stream-ms needs a positive number of milliseconds, not '" +
                            std::string(value) + "'");
        }
      } else if (arg == "--position-interval-ms" || arg == "--widget-interval-ms") {
        if (!parseNumber(value, 1, std::numeric_limits<int>::max(),
                         arg == "--position-interval-ms" ? options.positionIntervalMs : options.widgetIntervalMs)) {
          return usageError(std::string(arg) + " needs a positive number of milliseconds, not '" +
                            std::string(value) + "'");
        }
      } else if (!parseNumber(value, 1, std::numeric_limits<int>::max(),
                              arg == "--access-token-lifetime"
                                  ? options.accessTokenLifetimeSeconds
                                  : options.refreshTokenLifetimeSeconds)) {
        return usageError(std::string(arg) + " needs a positive number of seconds, not '" +
                          std::string(value) + "'");
      }
    } else {
      return usageError("unknown argument '" + std::string(arg) + "'");
    }
  }

  // Blocked before any thread starts so that every server thread inherits the mask and the
  // signals wait for sigwait below instead of interrupting a worker. A shell starting the
  // program in the background sets SIGINT to ignored, which would discard it before sigwait
  // sees it; the program is meant to stop on either signal, so the defaults come back first.
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  for (const int sig : {SIGTERM, SIGINT}) {
    std::signal(sig, SIG_DFL);
    sigaddset(&stopSignals, sig);
  }
  if (const int err = pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr); err != 0) {
    std::cerr << "velora-sandbox: cannot block signals: " << std::strerror(err) << "\n";
    return 1;
  }

  try {
    velora::sandbox::Sandbox sandbox(options);
    // Scripts read the address from the first line; it must stay first and unchanged.
    std::cout << "velora-sandbox listening on " << sandbox.baseUrl() << "\n"
              << "identity realm at " << sandbox.realmUrl()
              << (options.autoLoginUser ? " (logs " + *options.autoLoginUser + " in at once)" : "")
              << std::endl;
    int received = 0;
    while (sigwait(&stopSignals, &received) != 0) {
    }
    sandbox.stop();
  } catch (const std::invalid_argument& e) {  // options that parse but make no sense
    std::cerr << e.what() << "\n"
              << "Try 'velora-sandbox --help'.\n";
    return 2;
  } catch (const std::exception& e) {
    std::cerr << e.what() << "\n";
    return 1;
  }
  return 0;
}
