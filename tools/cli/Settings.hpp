#pragma once
// The client's global settings and the platform they configure.
//
// Every setting is one row of kSettings: its flag, its environment variable, its help and the
// member it fills. A flag wins over the variable; the variable wins over the default. A command
// group that needs a new setting (a user name for login, say) adds a member and a row, and the
// flag, the variable and the help text follow.

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>

#include <CLI/CLI.hpp>

#include <velora/velora.hpp>

namespace velora::cli {

class WindowLoop;

struct Settings {
  /// Base URL of the platform; remembered by the library once given.
  std::string endpoint;
  /// Request time-out in seconds.
  std::int64_t timeout = 90;
  /// Library diagnostics go to standard error instead of being dropped.
  bool verbose = false;
  /// Results are printed as JSON records instead of text.
  bool json = false;

  // The identity server. Each one given is remembered; each one never given follows the endpoint
  // (see identityDefaults), so that pointing the client at another server moves the login with it.
  std::string discoverUrl;
  std::string clientId;
  std::string guestClientId;
  std::string guestSecret;
  std::string redirectUri;
};

struct SettingSpec {
  std::string_view flag;
  std::string_view envVar;
  std::string_view help;
  /// What the value is called in the help ("URL"); empty for on/off flags.
  std::string_view valueName;
  std::variant<std::string Settings::*, std::int64_t Settings::*, bool Settings::*> member;
  /// Checks (and may rewrite) the raw text before it is converted; returns an error or "".
  std::string (*check)(std::string& raw) = nullptr;
};

/// What keeps `text` from being a base URL the client can send requests below ("it names no
/// host"), or "" when nothing does.
std::string urlProblem(std::string_view text);

std::string checkEndpoint(std::string& raw);
std::string checkTimeout(std::string& raw);
std::string checkDiscoverUrl(std::string& raw);
std::string checkRedirectUri(std::string& raw);
std::string checkNotBlank(std::string& raw);

inline constexpr std::array kSettings{
    SettingSpec{"--endpoint", "VELORA_ENDPOINT", "Platform base URL, e.g. https://host:port (remembered once given)", "URL",
                &Settings::endpoint, &checkEndpoint},
    SettingSpec{"--timeout", "VELORA_TIMEOUT", "Request time-out in seconds (default 90, remembered once given)",
                "SECONDS", &Settings::timeout,
                &checkTimeout},
    SettingSpec{"--verbose", "VELORA_VERBOSE", "Show the library's diagnostic lines on standard error", "",
                &Settings::verbose},
    SettingSpec{"--json", "VELORA_JSON", "Print results as JSON on standard output", "", &Settings::json},
    SettingSpec{"--discover-url", "VELORA_DISCOVER_URL",
                "Identity server discovery document (default: the endpoint's realm 'velora'; remembered once given)", "URL",
                &Settings::discoverUrl, &checkDiscoverUrl},
    SettingSpec{"--client-id", "VELORA_CLIENT_ID", "Client id for password and browser logins (default velora-app; remembered)",
                "ID", &Settings::clientId, &checkNotBlank},
    SettingSpec{"--guest-client-id", "VELORA_GUEST_CLIENT_ID", "Client id for guest logins (default velora-guest; remembered)",
                "ID", &Settings::guestClientId, &checkNotBlank},
    SettingSpec{"--guest-secret", "VELORA_GUEST_SECRET",
                "Secret of the guest client (remembered); prefer the variable, command lines are visible to other users",
                "SECRET", &Settings::guestSecret, &checkNotBlank},
    SettingSpec{"--redirect-uri", "VELORA_REDIRECT_URI",
                "Where the browser login returns (default http://127.0.0.1:53682/callback; remembered)", "URI",
                &Settings::redirectUri, &checkRedirectUri},
};

/// The identity settings kept in the environment, as flag and KeycloakEnvironment member, for the
/// code that persists them. The guest secret is not among them: it goes to the credential store.
struct IdentitySetting {
  std::string_view flag;
  std::string Settings::*value;
  std::optional<std::string> KeycloakEnvironment::*stored;
};
inline constexpr std::array kIdentitySettings{
    IdentitySetting{"--discover-url", &Settings::discoverUrl, &KeycloakEnvironment::discoverURL},
    IdentitySetting{"--client-id", &Settings::clientId, &KeycloakEnvironment::clientId},
    IdentitySetting{"--guest-client-id", &Settings::guestClientId, &KeycloakEnvironment::guestClientId},
    IdentitySetting{"--redirect-uri", &Settings::redirectUri, &KeycloakEnvironment::redirectURI},
};

/// What an identity setting is when neither given nor remembered: the sandbox's realm and clients
/// on the endpoint's own server.
KeycloakEnvironment identityDefaults(const std::string& endpoint);

/// Adds one global option per row of kSettings, bound to `settings`.
void addSettings(CLI::App& app, Settings& settings);

/// True when the setting's flag or environment variable was given for this run.
bool isGiven(const CLI::App& app, std::string_view flag);

/// A problem with how the client was invoked that the parser could not see; exit code 2.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Builds the platform the settings describe and makes it the library's default. Must run before
/// anything else reaches the library: the log manager and the facade read the default on first use.
/// With `windowPurpose` (see CommandSet::needsWindow) the platform shows windows, and the loop that
/// the command's waits turn is returned.
std::shared_ptr<WindowLoop> installPlatform(const Settings& settings, const std::optional<std::string>& windowPurpose);

/// True when the library wrote diagnostic lines that were dropped because --verbose was off.
bool diagnosticsDropped();

/// The shared facade, after persisting the endpoint, time-out and identity settings that were given
/// for this run. Throws UsageError when no endpoint was given and none is remembered, or when the
/// remembered endpoint or discover URL is not a usable URL.
Orvane& connect(const Settings& settings, const CLI::App& app);

}  // namespace velora::cli
