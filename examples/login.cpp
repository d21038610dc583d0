// login: the ways into the platform, and coming back to a stored session.
//
//   login [URL] guest              the application's own guest client
//   login [URL] password [USER]    a user's password (VELORA_PASSWORD; default the sandbox's demo)
//   login [URL] qr [CODE]          the user a scanned login code stands for (default DEMO-QR-1)
//   login [URL] --resume           the session an earlier run stored, without logging in
//
// Each run ends with an authenticated request: the user's profile on the platform.
// Form: coroutines. main() blocks on one velora::Task with get(); inside it, co_await. Each
// operation's task is made on one line and awaited on the next: g++ 12 can destroy temporaries
// built inside a co_await expression twice.

#include <chrono>
#include <iostream>
#include <stdexcept>

#include "Connect.hpp"

namespace {

using velora::KeycloakLoginMode;

/// The library renews an expired session in the mode its environment names, so a login stores
/// its mode there: a later run renews the same way, and --resume knows a session was stored.
void rememberLoginMode(velora::Orvane& orvane, KeycloakLoginMode mode) {
  velora::EnvironmentModel environment = *orvane.environment;
  environment.keycloakEnv->loginMode = mode;
  velora::Orvane::setupSDK(environment);
  orvane.environment = environment;  // the facade read its copy when it was created
}

velora::Task<KeycloakLoginMode> logIn(velora::Orvane& orvane, std::string how, std::string argument) {
  example::forgetStoredSession(orvane);
  if (how == "guest") {
    co_await orvane.keycloakGuestLogin();
    co_return KeycloakLoginMode::GUEST;
  }
  if (how == "password") {
    // The password is stored in the credential store: the session renews with it when it ends.
    auto login = orvane.backgroundLogin(argument.empty() ? example::user() : argument, example::password(), /*never expire*/ -1);
    co_await login;
    co_return KeycloakLoginMode::BACKGROUND;
  }
  // The scan route wants a session too, so a guest session reads the code first.
  co_await orvane.keycloakGuestLogin();
  auto scan = orvane.getLoginParameters(argument.empty() ? "DEMO-QR-1" : argument);
  const velora::BackgroundLoginParameters credentials = co_await scan;
  std::cout << "the login code stands for user " << credentials.username << '\n';
  example::forgetStoredSession(orvane);  // else the next login would hand the guest session back
  auto login = orvane.backgroundLogin(std::nullopt, std::nullopt, -1);  // with the credentials just stored
  co_await login;
  co_return KeycloakLoginMode::BACKGROUND;
}

/// Discovery makes the login layer, which takes over a stored session whose refresh token is still
/// valid; requests then carry it, renewed when needed.
velora::Task<KeycloakLoginMode> resume(velora::Orvane& orvane) {
  const auto mode = orvane.environment->keycloakEnv->loginMode;
  if (!mode) throw std::runtime_error("no stored session; log in first with 'login guest', 'login password' or 'login qr'");
  co_await orvane.networkSetup();
  const auto token = orvane.keycloakManager()->currentTokenPayload();
  if (!token) throw std::runtime_error("the stored session has ended; log in again");
  const auto age = std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now() - *token->storingDate);
  std::cout << "found a " << velora::rawValue(*mode) << " session stored " << age.count() << " s ago\n";
  co_return *mode;
}

velora::Task<int> run(velora::Orvane& orvane, std::vector<std::string> args) {
  const std::string how = args.empty() ? "" : args[0];
  if (how != "guest" && how != "password" && how != "qr" && how != "--resume") {
    co_return example::fail("login", "usage: login [URL] guest | password [USER] | qr [CODE] | --resume");
  }
  const bool resuming = how == "--resume";
  auto session = resuming ? resume(orvane) : logIn(orvane, how, args.size() > 1 ? args[1] : "");
  const KeycloakLoginMode mode = co_await session;
  if (!resuming) rememberLoginMode(orvane, mode);
  const velora::ProfileAction profile = co_await orvane.getUserActions();
  std::cout << "login ok: " << (resuming ? "resumed the " : "new ") << velora::rawValue(mode) << " session, profile "
            << profile.profileId << '\n';
  co_return 0;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  try {
    velora::Orvane& orvane = example::connect(example::platform("login"), example::platformUrl(args));
    return run(orvane, std::move(args)).get();
  } catch (...) {
    return example::fail("login", example::describe(std::current_exception()));
  }
}
