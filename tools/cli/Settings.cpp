#include "Settings.hpp"

#include <atomic>
#include <charconv>
#include <optional>

#include <velora/core/Orvane.hpp>
#include <velora/platform/Platform.hpp>

#include "Spinner.hpp"

namespace velora::cli {
namespace {

// The bundle identifier names the folders of the client's state under the XDG directories.
constexpr const char* kBundleIdentifier = "velora-cli";
CLI::Validator validatorFor(const SettingSpec& spec) {
  return CLI::Validator([check = spec.check](std::string& raw) { return check(raw); }, "", "");
}

std::atomic<bool> dropped{false};

}  // namespace

std::string checkEndpoint(std::string& raw) {
  const std::string_view scheme = raw.starts_with("https://") ? "https://" : "http://";
  const std::size_t hostStart = scheme.size();
  if (!raw.starts_with(scheme) || raw.size() <= hostStart || raw[hostStart] == '/') {
    return "endpoint must be an http:// or https:// URL with a host, not '" + raw + "'";
  }
  // Request paths are appended verbatim, so "https://host/" would produce "//api/...".
  while (raw.size() > hostStart && raw.back() == '/') raw.pop_back();
  return {};
}

std::string checkTimeout(std::string& raw) {
  std::int64_t seconds = 0;
  const auto* end = raw.data() + raw.size();
  const auto [ptr, ec] = std::from_chars(raw.data(), end, seconds);
  if (raw.empty() || ec != std::errc() || ptr != end || seconds <= 0) {
    return "timeout must be a whole number of seconds above 0, not '" + raw + "'";
  }
  return {};
}

void addSettings(CLI::App& app, Settings& settings) {
  for (const SettingSpec& spec : kSettings) {
    CLI::Option* option = std::visit(
        [&](auto member) -> CLI::Option* {
          auto& target = settings.*member;
          if constexpr (std::is_same_v<std::decay_t<decltype(target)>, bool>) {
            return app.add_flag(std::string(spec.flag), target, std::string(spec.help));
          } else {
            return app.add_option(std::string(spec.flag), target, std::string(spec.help));
          }
        },
        spec.member);
    option->envname(std::string(spec.envVar));
    if (!spec.valueName.empty()) option->type_name(std::string(spec.valueName));
    if (spec.check) option->transform(validatorFor(spec));
  }
}

bool isGiven(const CLI::App& app, std::string_view flag) {
  return app.get_option(std::string(flag))->count() > 0;
}

void installPlatform(const Settings& settings) {
  AnyCodable info;
  if (!settings.endpoint.empty()) {
    info = AnyCodable::object({{"VeloraSDK", AnyCodable::object({{"defaultURL", settings.endpoint}})}});
  }
  Platform platform = Platform::linuxDefaults(kBundleIdentifier, std::move(info));
  // Standard output carries results only, so that --json output can be piped.
  if (settings.verbose) {
    platform.console = [](std::string_view line) { writeDiagnostic(line); };
  } else {
    platform.console = [](std::string_view) { dropped = true; };
  }
  Platform::setDefault(std::move(platform));
}

bool diagnosticsDropped() { return dropped; }

Orvane& connect(const Settings& settings, const CLI::App& app) {
  const Platform& platform = Platform::getDefault();
  std::optional<EnvironmentModel> environment = Orvane::storedEnvironment(platform);
  const bool endpointGiven = !settings.endpoint.empty();
  const bool timeoutGiven = isGiven(app, "--timeout");
  if (!endpointGiven && !environment) {
    // Checked here because the facade stops the process when it has no environment.
    throw UsageError("no platform endpoint; pass --endpoint URL or set VELORA_ENDPOINT");
  }
  if (endpointGiven || timeoutGiven) {
    // Starting from the remembered environment keeps what other commands stored in it.
    EnvironmentModel updated = environment.value_or(EnvironmentModel{});
    if (endpointGiven) updated.sdkEndpoint = settings.endpoint;
    if (timeoutGiven || !environment) updated.timeout = settings.timeout;
    Orvane::setupSDK(updated);
  }
  return Orvane::shared();
}

}  // namespace velora::cli
