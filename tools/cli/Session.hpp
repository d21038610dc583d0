#pragma once
// The login session as the commands see it: resuming the one an earlier run left, remembering the
// mode of the last login, and how long its tokens have left.

#include <optional>
#include <string>

#include <velora/velora.hpp>

#include "Command.hpp"

namespace velora::cli {

/// True once an identity setting was given or a login ran: only then does the client talk to the
/// identity server at all, so a platform without one keeps working as before.
bool identityConfigured(const Orvane& orvane);

/// The mode of the last successful login; empty before any and after logout.
std::optional<KeycloakLoginMode> storedLoginMode(const Orvane& orvane);

/// Persists `mode` in the environment, for this run and the later ones, which renew an expired
/// session in that mode.
void rememberLoginMode(Orvane& orvane, std::optional<KeycloakLoginMode> mode);

/// Reads the identity server's endpoints and sets up the login layer, which takes over a stored
/// session while its refresh token is valid. Requests then carry the session's token, and the
/// library renews an expired one on its own.
void setupIdentity(Context& ctx, Orvane& orvane);

/// Resumes the session of an earlier login. Without a remembered login mode there is no session to
/// resume, and setting up the login layer would only make the first request start a browser login,
/// so requests go out without a token instead.
void resumeSession(Context& ctx, Orvane& orvane);

/// ctx.orvane(), with the session of an earlier login resumed (see resumeSession).
Orvane& connectWithSession(Context& ctx);

/// What `velora status` shows. Lifetimes are seconds from now, 0 once past, empty without a token.
struct SessionStatus {
  AuthenticationStatus auth = AuthenticationStatus::unknown;
  std::optional<KeycloakLoginMode> loginMode;
  std::optional<std::int64_t> accessTokenExpiresIn;
  std::optional<std::int64_t> refreshTokenExpiresIn;
  bool connectivity = false;
};

SessionStatus sessionStatus(const Orvane& orvane);
/// {"authStatus", "loginMode", "accessTokenExpiresIn", "refreshTokenExpiresIn", "connectivity"};
/// never a token.
AnyCodable statusRecord(const SessionStatus& status);
std::string describeStatus(const SessionStatus& status);

/// "59s", "4m 05s", "1h 00m 00s".
std::string formatDuration(std::int64_t seconds);

}  // namespace velora::cli
