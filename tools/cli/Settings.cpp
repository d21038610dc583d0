#include "Settings.hpp"

#include <algorithm>
#include <atomic>
#include <cctype>
#include <charconv>
#include <optional>

#include <velora/velora.hpp>
#include <velora/platform/Platform.hpp>

#include "Secrets.hpp"
#include "Spinner.hpp"
#include "Window.hpp"

namespace velora::cli {
namespace {

// The bundle identifier names the folders of the client's state under the XDG directories.
constexpr const char* kBundleIdentifier = "velora-cli";
// Where the sandbox's realm publishes its discovery document, below the endpoint.
constexpr const char* kDiscoveryPath = "/realms/velora/.well-known/openid-configuration";
CLI::Validator validatorFor(const SettingSpec& spec) {
  return CLI::Validator([check = spec.check](std::string& raw) { return check(raw); }, "", "");
}

std::atomic<bool> dropped{false};

// The guest client's secret is remembered in the credential store, not beside the other
// settings: those end up in an ordinary file, where the library keeps its environment as JSON.
constexpr const char* kSecretService = "velora-cli";
constexpr const char* kGuestSecretAccount = "guest-secret";

std::optional<std::string> rememberedGuestSecret(SecureStore& store) {
  Bytes data;
  if (store.copyMatching(kSecretService, kGuestSecretAccount, &data) != secure_status::kSuccess) return std::nullopt;
  return std::string(data.begin(), data.end());
}

void rememberGuestSecret(SecureStore& store, const std::string& secret) {
  const Bytes data(secret.begin(), secret.end());
  int status = store.update(kSecretService, kGuestSecretAccount, data);
  if (status == secure_status::kItemNotFound) status = store.add(kSecretService, kGuestSecretAccount, data);
  if (status != secure_status::kSuccess) {
    writeDiagnostic("velora: the guest secret could not be remembered (credential store status " + std::to_string(status) + ")");
  }
}

/// Why the library's URL parser refuses `text`, in the words of someone who typed it.
std::string unparsableBecause(std::string_view text) {
  const auto hex = [](char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; };
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '%') {
      if (i + 2 >= text.size() || !hex(text[i + 1]) || !hex(text[i + 2])) return "a '%' must start an escape such as %20";
    } else if (!URL::parse(std::string(1, c))) {
      // Alone, a character only fails when no URL may hold it unescaped.
      return c == ' ' ? std::string("it contains a space") : "it contains '" + std::string(1, c) + "', which a URL cannot hold unescaped";
    }
  }
  const auto authority = text.substr(text.find("://") + 3);
  if (authority.starts_with('[') && authority.substr(0, authority.find('/')).find(']') == std::string_view::npos) {
    return "the '[' of its IPv6 address is never closed";
  }
  return "its port is not a number from 0 to 65535";
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
  defaults.discoverURL = endpoint.substr(0, endpoint.find_last_not_of('/') + 1) + kDiscoveryPath;
  defaults.clientId = "velora-app";
  defaults.guestClientId = "velora-guest";
  defaults.guestSecretKey = "velora-guest-secret";
  // The default browser session listens here for the identity server's redirect.
  defaults.redirectURI = "http://127.0.0.1:53682/callback";
  return defaults;
}

std::string urlProblem(std::string_view text) {
  if (!text.starts_with("http://") && !text.starts_with("https://")) return "it does not start with http:// or https://";
  const auto url = URL::parse(text);
  if (!url) return unparsableBecause(text);
  if (url->host().empty()) return "it names no host";
  return {};
}

std::string checkDiscoverUrl(std::string& raw) {
  if (const auto problem = urlProblem(raw); !problem.empty()) {
    return "discover URL '" + raw + "' is not usable: " + problem +
           "; give the identity server's discovery document, e.g. http://127.0.0.1:8080" + kDiscoveryPath;
  }
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
  std::string problem = urlProblem(raw);
  if (problem.empty() && raw.find_first_of("?#") != std::string::npos) problem = "a base URL has no ?query or #fragment";
  if (!problem.empty()) {
    return "endpoint '" + raw + "' is not usable: " + problem + "; give the platform's base URL, e.g. http://127.0.0.1:8080";
  }
  // Exactly one final "/": the platform's profile path has no leading slash, and the library
  // folds the "//" this gives the other paths.
  while (raw.back() == '/') raw.pop_back();
  raw += '/';
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

std::shared_ptr<WindowLoop> installPlatform(const Settings& settings, const std::optional<std::string>& windowPurpose) {
  Platform platform = Platform::linuxDefaults(kBundleIdentifier);
  const std::optional<EnvironmentModel> stored = Orvane::storedEnvironment(platform);
  const std::string endpoint = settings.endpoint.empty() && stored ? stored->sdkEndpoint : settings.endpoint;
  KeycloakEnvironment defaults = identityDefaults(endpoint);
  // The library reads the guest secret from here unless the environment holds one.
  if (!settings.guestSecret.empty()) {
    defaults.guestSecretKey = settings.guestSecret;
  } else if (auto remembered = platform.secureStore ? rememberedGuestSecret(*platform.secureStore) : std::nullopt) {
    defaults.guestSecretKey = std::move(remembered);
  }
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
  std::shared_ptr<WindowLoop> window = windowPurpose ? installWindowLoop(platform, *windowPurpose) : nullptr;
  Platform::setDefault(std::move(platform));
  return window;
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
  // Given settings were checked as they were parsed; remembered ones may predate those checks,
  // and the library would only say that some URL "couldn't be parsed".
  if (!endpointGiven) {
    std::string remembered = environment->sdkEndpoint;
    if (auto problem = checkEndpoint(remembered); !problem.empty()) {
      throw UsageError("the remembered " + problem + " (--endpoint URL replaces it)");
    }
  }
  if (!isGiven(app, "--discover-url") && environment && environment->keycloakEnv && environment->keycloakEnv->discoverURL) {
    std::string remembered = *environment->keycloakEnv->discoverURL;
    if (auto problem = checkDiscoverUrl(remembered); !problem.empty()) {
      throw UsageError("the remembered " + problem + " (--discover-url URL replaces it)");
    }
  }
  const bool secretGiven = isGiven(app, "--guest-secret");
  if (secretGiven && platform.secureStore) rememberGuestSecret(*platform.secureStore, settings.guestSecret);
  // Settings saved by earlier versions kept the secret in the environment: it moves to the store.
  std::optional<std::string> secretInSettings = environment && environment->keycloakEnv ? environment->keycloakEnv->guestSecretKey : std::nullopt;
  if (secretInSettings && platform.secureStore) {
    if (!secretGiven) rememberGuestSecret(*platform.secureStore, *secretInSettings);
    environment->keycloakEnv->guestSecretKey.reset();
  }
  if (endpointGiven || timeoutGiven || identityGiven || secretInSettings) {
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
