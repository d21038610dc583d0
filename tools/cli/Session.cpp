#include "Session.hpp"

#include <cmath>

#include "Secrets.hpp"

namespace velora::cli {
namespace {

std::optional<std::int64_t> secondsLeft(const KeyCloakAuthResponse& token, const std::optional<double>& lifetime, Date now) {
  if (!lifetime || !token.storingDate) return std::nullopt;
  const double left = secondsSinceReferenceDate(*token.storingDate) + *lifetime - secondsSinceReferenceDate(now);
  return left > 0 ? static_cast<std::int64_t>(std::ceil(left)) : 0;
}

std::string authText(AuthenticationStatus status) {
  switch (status) {
    case AuthenticationStatus::authenticated: return "authenticated";
    case AuthenticationStatus::notAuthenticated: return "not authenticated";
    case AuthenticationStatus::unknown: break;
  }
  return "unknown";
}

std::string authKey(AuthenticationStatus status) {
  switch (status) {
    case AuthenticationStatus::authenticated: return "authenticated";
    case AuthenticationStatus::notAuthenticated: return "notAuthenticated";
    case AuthenticationStatus::unknown: break;
  }
  return "unknown";
}

std::string lifetimeText(const std::optional<std::int64_t>& seconds) {
  if (!seconds) return "none";
  if (*seconds == 0) return "expired";
  return "expires in " + formatDuration(*seconds);
}

AnyCodable orNull(const std::optional<std::int64_t>& value) { return value ? AnyCodable(*value) : AnyCodable(); }

}  // namespace

bool identityConfigured(const Orvane& orvane) { return orvane.environment && orvane.environment->keycloakEnv; }

std::optional<KeycloakLoginMode> storedLoginMode(const Orvane& orvane) {
  return identityConfigured(orvane) ? orvane.environment->keycloakEnv->loginMode : std::nullopt;
}

void rememberLoginMode(Orvane& orvane, std::optional<KeycloakLoginMode> mode) {
  EnvironmentModel updated = orvane.environment.value_or(EnvironmentModel{});
  KeycloakEnvironment identity = updated.keycloakEnv.value_or(KeycloakEnvironment{});
  identity.loginMode = mode;
  updated.keycloakEnv = std::move(identity);
  Orvane::setupSDK(updated, orvane.platform());
  // The facade read its environment when it was created; renewals later in this run read the mode from it.
  orvane.environment = std::move(updated);
}

void setupIdentity(Context& ctx, Orvane& orvane) {
  ctx.await("Contacting the identity server", orvane.networkSetup());
  // The login layer takes a stored session over without rebuilding the request headers, so
  // without this the next request would go out without its bearer token.
  orvane.setupSession();
  if (auto manager = orvane.keycloakManager()) {
    if (auto token = manager->currentTokenPayload()) registerTokens(*token);
  }
}

void resumeSession(Context& ctx, Orvane& orvane) {
  if (storedLoginMode(orvane)) setupIdentity(ctx, orvane);
}

Orvane& connectWithSession(Context& ctx) {
  Orvane& orvane = ctx.orvane();
  resumeSession(ctx, orvane);
  return orvane;
}

SessionStatus sessionStatus(const Orvane& orvane) {
  SessionStatus status;
  status.auth = orvane.authStatus();
  status.loginMode = storedLoginMode(orvane);
  status.connectivity = orvane.hasConnectivity();
  const auto manager = orvane.keycloakManager();
  if (const auto token = manager ? manager->currentTokenPayload() : std::nullopt) {
    const Date now = orvane.platform().clock->now();
    status.accessTokenExpiresIn = secondsLeft(*token, token->expires_in, now);
    status.refreshTokenExpiresIn = secondsLeft(*token, token->refresh_expires_in, now);
  }
  return status;
}

AnyCodable statusRecord(const SessionStatus& status) {
  return AnyCodable::object({{"authStatus", authKey(status.auth)},
                             {"loginMode", status.loginMode ? AnyCodable(rawValue(*status.loginMode)) : AnyCodable()},
                             {"accessTokenExpiresIn", orNull(status.accessTokenExpiresIn)},
                             {"refreshTokenExpiresIn", orNull(status.refreshTokenExpiresIn)},
                             {"connectivity", status.connectivity}});
}

std::string describeStatus(const SessionStatus& status) {
  return fieldLines({{"status", authText(status.auth)},
                     {"login mode", status.loginMode ? std::string(rawValue(*status.loginMode)) : "-"},
                     {"access token", lifetimeText(status.accessTokenExpiresIn)},
                     {"refresh token", lifetimeText(status.refreshTokenExpiresIn)},
                     {"connectivity", status.connectivity ? "online" : "offline"}});
}

std::string formatDuration(std::int64_t seconds) {
  const auto two = [](std::int64_t n) { return (n < 10 ? "0" : "") + std::to_string(n); };
  if (seconds < 60) return std::to_string(seconds) + "s";
  if (seconds < 3600) return std::to_string(seconds / 60) + "m " + two(seconds % 60) + "s";
  return std::to_string(seconds / 3600) + "h " + two(seconds / 60 % 60) + "m " + two(seconds % 60) + "s";
}

}  // namespace velora::cli
