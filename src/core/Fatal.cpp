#include <velora/core/Fatal.hpp>

#include <cstdio>
#include <cstdlib>
#include <string>

#include <velora/platform/Platform.hpp>

namespace velora {

void fatal(std::string_view message) {
  std::fprintf(stderr, "VeloraSDK fatal error: %.*s\n", static_cast<int>(message.size()), message.data());
  std::fflush(stderr);
  std::abort();
}

void debugAssertionFailure(const Platform& platform, std::string_view message) {
  if (platform.debugAssertionsStop) fatal(message);
  platform.print(message);
}

}  // namespace velora
