#include "Settings.hpp"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <optional>

#include <velora/velora.hpp>
#include <velora/platform/Platform.hpp>

#include "Secrets.hpp"
#include "Spinner.hpp"

namespace velora::cli {
namespace {

// The bundle identifier names the folders of the client's state under the XDG directories.
constexpr const char* kBundleIdentifier = "velora-cli";
CLI::Validator validatorFor(const SettingSpec& spec) {
  return CLI::Validator([check = spec.check](std::string& raw) { return check(raw); }, "", "");
}

std::atomic<bool> dropped{false};

bool isHttpUrl(const std::string& raw) {
  const std::string_view scheme = raw.starts_with("https://") ? "https://" : "http://";
  return raw.starts_with(scheme) && raw.size() > scheme.size() && raw[scheme.size()] != '/';
}

/// The identity defaults as the library reads them from the host's information dictionary: below
/// whatever the environment holds, so a remembered setting still wins.
AnyCodable keycloakConfig(const KeycloakEnvironment& defaults) {
  return AnyCodable::object({{"discoverURL", *defaults.discoverURL},
                             {"clientId", *defaults.clientId},
                             {"guestClientId", *defaults.guestClientId},
                             {"guestSecretKey", *defaults.guestSecretKey},
                             {"redirectURI", *defaults.redirectURI}});
}

}  // namespace

KeycloakEnvironment identityDefaults(const std::string& endpoint) {
  KeycloakEnvironment defaults;
  defaults.discoverURL = endpoint + "/realms/velora/.well-known/openid-configuration";
  defaults.clientId = "velora-app";
  defaults.guestClientId = "velora-guest";
  defaults.guestSecretKey = "velora-guest-secret";
  // The default browser session listens here for the identity server's redirect.
  defaults.redirectURI = "http://127.0.0.1:53682/callback";
  return defaults;
}

std::string checkDiscoverUrl(std::string& raw) {
  if (!isHttpUrl(raw)) return "discover URL must be an http:// or https:// URL with a host, not '" + raw + "'";
  return {};
}

std::string checkRedirectUri(std::string& raw) {
  const auto separator = raw.find("://");
  if (separator == std::string::npos || separator == 0 || separator + 3 == raw.size()) {
    return "redirect URI must be a URL such as http://127.0.0.1:53682/callback, not '" + raw + "'";
  }
  return {};
}

std::string checkNotBlank(std::string& raw) {
  if (raw.find_first_not_of(" \t") == std::string::npos) return "client ids and secrets must not be empty";
  return {};
}

std::string checkEndpoint(std::string& raw) {
  if (!isHttpUrl(raw)) return "endpoint must be an http:// or https:// URL with a host, not '" + raw + "'";
  // Request paths are appended verbatim, so "https://host/" would produce "//api/...".
  while (raw.back() == '/') raw.pop_back();
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
  Platform platform = Platform::linuxDefaults(kBundleIdentifier);
  const std::optional<EnvironmentModel> stored = Orvane::storedEnvironment(platform);
  const std::string endpoint = settings.endpoint.empty() && stored ? stored->sdkEndpoint : settings.endpoint;
  const KeycloakEnvironment defaults = identityDefaults(endpoint);
  if (!endpoint.empty()) {
    registerSecret(*defaults.guestSecretKey);
    platform.host = std::make_shared<StaticHostInfo>(
        kBundleIdentifier, AnyCodable::object({{"VeloraSDK", AnyCodable::object({{"defaultURL", endpoint},
                                                                                 {"KeycloakConfig", keycloakConfig(defaults)}})}}));
  }
  const std::optional<KeycloakEnvironment> remembered = stored ? stored->keycloakEnv : std::nullopt;
  registerSecret(settings.guestSecret);
  if (remembered && remembered->guestSecretKey) registerSecret(*remembered->guestSecretKey);

  // The browser login prints where to log in when no desktop browser opens; through
  // writeDiagnostic that line never shares standard error's last line with the spinner.
  platform.browser = makeLoopbackBrowserAuthSession([](const std::string& text) { writeDiagnostic(maskSecrets(text)); });
  // Standard output carries results only, so that --json output can be piped.
  if (settings.verbose) {
    platform.console = [](std::string_view line) { writeDiagnostic(maskSecrets(line)); };
  } else {
    platform.console = [](std::string_view line) {
      // A stream's connection changes are news for whoever watches it, not library chatter.
      if (line == "SSEManager - CONNECTED" || line == "SSEManager - DISCONNECTED") {
        writeDiagnostic(line == "SSEManager - CONNECTED" ? "velora: stream connected" : "velora: stream disconnected");
        return;
      }
      dropped = true;
    };
  }
  Platform::setDefault(std::move(platform));
}

bool diagnosticsDropped() { return dropped; }

Orvane& connect(const Settings& settings, const CLI::App& app) {
  const Platform& platform = Platform::getDefault();
  std::optional<EnvironmentModel> environment = Orvane::storedEnvironment(platform);
  const bool endpointGiven = !settings.endpoint.empty();
  const bool timeoutGiven = isGiven(app, "--timeout");
  const bool identityGiven = std::any_of(kIdentitySettings.begin(), kIdentitySettings.end(),
                                         [&](const IdentitySetting& s) { return isGiven(app, s.flag); });
  if (!endpointGiven && !environment) {
    // Checked here because the facade stops the process when it has no environment.
    throw UsageError("no platform endpoint; pass --endpoint URL or set VELORA_ENDPOINT");
  }
  if (endpointGiven || timeoutGiven || identityGiven) {
    // Starting from the remembered environment keeps what other commands stored in it.
    EnvironmentModel updated = environment.value_or(EnvironmentModel{});
    if (endpointGiven) updated.sdkEndpoint = settings.endpoint;
    if (timeoutGiven || !environment) updated.timeout = settings.timeout;
    if (identityGiven) {
      KeycloakEnvironment identity = updated.keycloakEnv.value_or(KeycloakEnvironment{});
      for (const IdentitySetting& s : kIdentitySettings) {
        if (isGiven(app, s.flag)) identity.*s.stored = settings.*s.value;
      }
      updated.keycloakEnv = std::move(identity);
    }
    Orvane::setupSDK(updated);
  }
  return Orvane::shared();
}

}  // namespace velora::cli
