#include <velora/platform/Platform.hpp>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <sstream>
#include <system_error>

namespace velora {
namespace {

std::filesystem::path homeFolder() {
  const char* home = std::getenv("HOME");
  return home && *home ? std::filesystem::path(home) : std::filesystem::temp_directory_path();
}

std::filesystem::path xdgFolder(const char* variable, const char* fallback) {
  const char* value = std::getenv(variable);
  // Relative values are invalid for XDG variables and are ignored.
  if (value && *value == '/') return value;
  return homeFolder() / fallback;
}

std::mutex defaultMutex;
std::optional<Platform> defaultPlatform;

}  // namespace

std::filesystem::path xdgConfigHome() { return xdgFolder("XDG_CONFIG_HOME", ".config"); }
std::filesystem::path xdgDataHome() { return xdgFolder("XDG_DATA_HOME", ".local/share"); }

Platform Platform::linuxDefaults(const std::string& bundleIdentifier, AnyCodable infoDictionary) {
  Platform p;
  p.transport = makeCurlTransport();
  p.mainQueue = std::make_shared<ThreadQueue>();
  p.executor = makeThreadPool();
  p.defaults = std::make_shared<JsonFileStore>(xdgConfigHome() / bundleIdentifier / "defaults.json");
  p.secureStore = makeSystemSecureStore(bundleIdentifier, xdgDataHome() / bundleIdentifier / "keychain");
  p.host = std::make_shared<StaticHostInfo>(bundleIdentifier, std::move(infoDictionary));
  p.clock = std::make_shared<SystemClock>();
  p.reachability = makeNetlinkReachability();
  auto prompt = [](const std::string& line) { std::fprintf(stderr, "%s\n", line.c_str()); };
  p.browser = makeLoopbackBrowserAuthSession(prompt);
  p.customAuthentication = makeUnavailableCustomAuthenticationHandler();
  p.documentsDirectory = xdgDataHome() / bundleIdentifier;
  p.console = [](std::string_view line) {
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
  };
  return p;
}

void Platform::setDefault(Platform platform) {
  std::lock_guard lock(defaultMutex);
  defaultPlatform = std::move(platform);
}

Platform& Platform::getDefault() {
  std::lock_guard lock(defaultMutex);
  if (!defaultPlatform) defaultPlatform = linuxDefaults("velora.app");
  return *defaultPlatform;
}

bool debugAssertionsStopByDefault() {
#ifdef NDEBUG
  return false;
#else
  return true;
#endif
}

void Platform::print(std::string_view line) const {
  if (console) console(line);
}

std::shared_ptr<HostInfo> loadHostInfo(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  if (!in) throw std::system_error(errno, std::generic_category(), "cannot read " + file.string());
  std::stringstream text;
  text << in.rdbuf();
  std::string error;
  const auto parsed = AnyCodable::tryParse(text.str(), &error);
  if (!parsed) throw JsonError(file.string() + " is not JSON: " + error);
  const AnyCodable& root = *parsed;
  std::optional<std::string> bundle;
  if (const auto* id = root.find("bundleIdentifier"); id && id->as<std::string>()) bundle = *id->as<std::string>();
  const AnyCodable* info = root.find("info");
  return std::make_shared<StaticHostInfo>(bundle, info ? *info : AnyCodable{});
}

}  // namespace velora
