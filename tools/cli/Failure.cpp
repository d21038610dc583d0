#include "Failure.hpp"

#include <velora/auth/KeycloakManager.hpp>
#include <velora/platform/Platform.hpp>
#include <velora/velora.hpp>

#include "Output.hpp"
#include "Settings.hpp"

namespace velora::cli {
namespace {

// The platform's answer to a request without a valid session, and the library's refusal to send
// one when it has no session to renew.
constexpr std::int64_t kUnauthorized = 401;
constexpr std::int64_t kNoSession = -28005;
// What the awaitable requests throw when no answer came at all; the transport's reason is the trace.
constexpr std::int64_t kNoAnswer = -27003;

/// "velora login guest, velora login password USER ... or velora login qr CODE": the command
/// line's own login commands, so that the advice follows when one is added.
std::string loginCommands(const CLI::App& app) {
  std::vector<std::string> commands;
  for (const CLI::App* group : app.get_subcommands({})) {
    if (group->get_name() != "login") continue;
    for (const CLI::App* login : group->get_subcommands({})) {
      std::string command = "velora login " + login->get_name();
      for (const CLI::Option* argument : login->get_options([](const CLI::Option* o) { return o->get_positional(); })) {
        command += " " + argument->get_name();
      }
      commands.push_back(std::move(command));
    }
  }
  return enumerate(commands);
}

/// The endpoint this run used: connect() remembered it before any request went out.
std::string usedEndpoint() {
  const auto environment = Orvane::storedEnvironment(Platform::getDefault());
  return environment ? environment->sdkEndpoint : std::string();
}

std::string usedDiscoverUrl() {
  const auto environment = Orvane::storedEnvironment(Platform::getDefault());
  if (!environment) return {};
  if (environment->keycloakEnv && environment->keycloakEnv->discoverURL) return *environment->keycloakEnv->discoverURL;
  return identityDefaults(environment->sdkEndpoint).discoverURL.value_or("");
}

std::string checkTheServer(const std::string& settings) {
  return "check " + settings + ", and that the platform is running there (velora-sandbox runs a local one)";
}

}  // namespace

Failure describeFailure(const APIError& error, const CLI::App& app) {
  const ResponseMessage& reply = error.responseMessage;
  Failure failure{error.localizedDescription() + (reply.trace ? ": " + *reply.trace : std::string()) + " (code " +
                  std::to_string(reply.code) + ")", {}};
  if (reply.code == kUnauthorized || reply.code == kNoSession) {
    failure.hints.push_back("this needs a session; log in first: " + loginCommands(app));
  } else if (reply.code == kNoAnswer && reply.trace) {
    // A failed session renewal ends the same way, and only the trace's wording tells them apart.
    failure.hints.push_back("if nothing answered at " + usedEndpoint() + ", " + checkTheServer("--endpoint"));
  }
  return failure;
}

Failure describeFailure(const PlatformError& error) {
  // The identity server's refusals arrive here too, its own description as the domain.
  const auto reason = error.userInfo.find("reason");
  Failure failure{error.domain + (reason != error.userInfo.end() ? ": " + reason->second : std::string()) + " (code " +
                  std::to_string(error.code) + ")", {}};
  if (error.code == keycloak_error::kDiscovery && reason != error.userInfo.end()) {
    // The reason is the transport's unless the server answered, in which case it gives the status.
    if (reason->second.starts_with("HTTP ")) {
      failure.hints.push_back("no discovery document at " + usedDiscoverUrl() + ": check --discover-url");
    } else {
      failure.hints.push_back("nothing answered at " + usedDiscoverUrl() + ": " + checkTheServer("--endpoint (or --discover-url)"));
    }
  }
  return failure;
}

}  // namespace velora::cli
