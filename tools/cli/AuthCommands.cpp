// login, logout and status: the identity server's session.

#include <signal.h>
#include <termios.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <memory>

#include <velora/auth/KeychainHelper.hpp>

#include "Command.hpp"
#include "Secrets.hpp"
#include "Session.hpp"

namespace velora::cli {
namespace {

// ---- reading a password ------------------------------------------------------------------------

// The terminal's settings while echo is off, so that a signal handler can put them back.
termios savedTerminal{};
struct sigaction savedActions[3];
constexpr int kRestoreSignals[3] = {SIGINT, SIGTERM, SIGHUP};

void restoreTerminalAndDie(int signal) {
  ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &savedTerminal);
  ::signal(signal, SIG_DFL);
  ::raise(signal);
}

/// One line from the terminal with echo off; Ctrl-C leaves the terminal as it found it.
std::string readHidden(const std::string& prompt) {
  if (::tcgetattr(STDIN_FILENO, &savedTerminal) != 0) throw UsageError("cannot read the password: standard input is not a terminal");
  struct sigaction restore {};
  restore.sa_handler = restoreTerminalAndDie;
  for (int i = 0; i < 3; ++i) ::sigaction(kRestoreSignals[i], &restore, &savedActions[i]);
  termios quiet = savedTerminal;
  quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
  quiet.c_lflag |= ECHONL;  // the Enter still moves to the next line
  std::cerr << prompt << std::flush;  // the answer goes on the same line
  ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet);
  std::string line;
  const bool read = static_cast<bool>(std::getline(std::cin, line));
  ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &savedTerminal);
  for (int i = 0; i < 3; ++i) ::sigaction(kRestoreSignals[i], &savedActions[i], nullptr);
  if (!read) throw UsageError("no password was entered");
  return line;
}

/// VELORA_PASSWORD when set (scripts, tests); otherwise asked on the terminal. Never a flag: command
/// lines are visible to every user of the machine.
std::string password(const std::string& username) {
  std::string value;
  if (const char* given = std::getenv("VELORA_PASSWORD")) {
    value = given;
  } else if (::isatty(STDIN_FILENO) != 1) {
    throw UsageError("no password: set VELORA_PASSWORD or run velora on a terminal");
  } else {
    value = readHidden("Password for " + username + ": ");
  }
  if (value.empty()) throw UsageError("the password is empty");
  registerSecret(value);
  return value;
}

// ---- logging in --------------------------------------------------------------------------------

/// The secrets a login replaces. The library hands back whatever session it holds, of any mode,
/// instead of logging in, so an explicit login first puts the held one aside; a failed attempt
/// puts it back, with the stored password it renews with.
class SessionSnapshot {
 public:
  explicit SessionSnapshot(Orvane& orvane)
      : orvane_(orvane),
        token_(orvane.keychain().readItem<KeyCloakAuthResponse>()),
        credentials_(BackgroundLoginParameters::readFromKeychain(orvane.keychain())) {
    if (token_) registerTokens(*token_);
    if (credentials_) registerSecret(credentials_->password);
  }

  /// Drops the current session, here and in the store, so that the next login runs for real.
  void setAside() { replaceToken(std::nullopt); }

  void restore() {
    replaceToken(token_);
    if (credentials_) {
      credentials_->storeToKeychain(orvane_.keychain());
    } else {
      BackgroundLoginParameters::removeFromKeychain(orvane_.keychain());
    }
  }

 private:
  void replaceToken(const std::optional<KeyCloakAuthResponse>& token) {
    if (auto manager = orvane_.keycloakManager()) {
      manager->setCurrentTokenPayload(token);
    } else {
      // The next login creates the login layer, which reads the stored session.
      orvane_.keychain().saveItem(token);
    }
  }

  Orvane& orvane_;
  std::optional<KeyCloakAuthResponse> token_;
  std::optional<BackgroundLoginParameters> credentials_;
};

/// Runs `steps` as one login in `mode`: on success the mode is remembered and the new status
/// shown, on failure the earlier session is back as it was.
void login(Context& ctx, Orvane& orvane, KeycloakLoginMode mode, const std::function<void(SessionSnapshot&)>& steps) {
  SessionSnapshot previous(orvane);
  try {
    steps(previous);
  } catch (...) {
    previous.restore();
    throw;
  }
  if (auto manager = orvane.keycloakManager()) {
    if (auto token = manager->currentTokenPayload()) registerTokens(*token);
  }
  // A stored password is kept only while the session renews with it.
  if (mode != KeycloakLoginMode::BACKGROUND) BackgroundLoginParameters::removeFromKeychain(orvane.keychain());
  rememberLoginMode(orvane, mode);
  const std::string modeName(rawValue(mode));
  logEntry("velora login: " + modeName);
  const SessionStatus status = sessionStatus(orvane);
  if (ctx.out.json()) {
    ctx.out.printJson(statusRecord(status));
  } else {
    ctx.out.printText("logged in (" + modeName + ")\n" + describeStatus(status));
  }
}

void loginGuest(Context& ctx) {
  Orvane& orvane = ctx.orvane();
  login(ctx, orvane, KeycloakLoginMode::GUEST, [&](SessionSnapshot& previous) {
    previous.setAside();
    ctx.await("Logging in as guest", orvane.keycloakGuestLogin());
  });
}

void loginPassword(Context& ctx, const std::string& username) {
  Orvane& orvane = ctx.orvane();
  const std::string secret = password(username);
  login(ctx, orvane, KeycloakLoginMode::BACKGROUND, [&](SessionSnapshot& previous) {
    previous.setAside();
    ctx.await("Logging in as " + username, orvane.backgroundLogin(username, secret, -1));
  });
}

/// The CUSTOM authentication method for one login. It is never remembered: a later run that must
/// log in again renews the session in the desktop browser, since only this command opens a window.
class CustomMethodForThisLogin {
 public:
  explicit CustomMethodForThisLogin(Orvane& orvane) : orvane_(orvane), remembered_(orvane.environment->keycloakEnv) {
    KeycloakEnvironment identity = remembered_.value_or(KeycloakEnvironment{});
    identity.authMethod = KeycloakAuthenticationMethod::CUSTOM;
    orvane_.environment->keycloakEnv = std::move(identity);
  }
  ~CustomMethodForThisLogin() { orvane_.environment->keycloakEnv = remembered_; }
  CustomMethodForThisLogin(const CustomMethodForThisLogin&) = delete;
  CustomMethodForThisLogin& operator=(const CustomMethodForThisLogin&) = delete;

 private:
  Orvane& orvane_;
  std::optional<KeycloakEnvironment> remembered_;
};

void loginBrowser(Context& ctx, bool custom) {
  Orvane& orvane = ctx.orvane();
  login(ctx, orvane, KeycloakLoginMode::USER, [&](SessionSnapshot& previous) {
    previous.setAside();
    if (!custom) {
      ctx.await("Waiting for the login in the browser", orvane.keycloakLogin());
      return;
    }
    CustomMethodForThisLogin method(orvane);
    ctx.await("Waiting for the login in the login window", orvane.keycloakLogin());
  });
}

/// The code goes into a query string as it is; letters, digits and "-._~" are the only characters
/// that need no escaping there.
std::string queryValue(const std::string& text) {
  static constexpr char hex[] = "0123456789ABCDEF";
  std::string out;
  for (unsigned char c : text) {
    if (std::isalnum(c) || c == '-' || c == '.' || c == '_' || c == '~') {
      out.push_back(static_cast<char>(c));
    } else {
      out.append({'%', hex[c >> 4], hex[c & 15]});
    }
  }
  return out;
}

void loginQr(Context& ctx, const std::string& code) {
  Orvane& orvane = ctx.orvane();
  setupIdentity(ctx, orvane);
  login(ctx, orvane, KeycloakLoginMode::BACKGROUND, [&](SessionSnapshot& previous) {
    // The scan route wants a bearer token like every other platform route.
    if (orvane.authStatus() != AuthenticationStatus::authenticated) {
      previous.setAside();
      ctx.await("Logging in as guest", orvane.keycloakGuestLogin());
    }
    const BackgroundLoginParameters credentials =
        ctx.await("Reading the login code", orvane.getLoginParameters(queryValue(code)));
    registerSecret(credentials.password);
    previous.setAside();
    ctx.await("Logging in as " + credentials.username, orvane.backgroundLogin(std::nullopt, std::nullopt, -1));
  });
}

// ---- logging out and status ------------------------------------------------------------------

void logout(Context& ctx) {
  Orvane& orvane = ctx.orvane();
  if (identityConfigured(orvane)) {
    setupIdentity(ctx, orvane);
    const auto manager = orvane.keycloakManager();
    if (manager && manager->currentTokenPayload() && manager->parameters()) {
      // The library ends guest and browser sessions through the browser session, which here would
      // wait for a browser nobody opens; the end-session endpoint takes the direct request it
      // sends for password sessions just as well.
      KeyCloakParameters direct = *manager->parameters();
      direct.loginMode = KeycloakLoginMode::BACKGROUND;
      ctx.await("Logging out", orvane.logout(direct));
    }
    // A later run must neither renew the session nor log in again with the stored password.
    BackgroundLoginParameters::removeFromKeychain(orvane.keychain());
    rememberLoginMode(orvane, std::nullopt);
  }
  logEntry("velora logout");
  if (ctx.out.json()) {
    ctx.out.printJson(statusRecord(sessionStatus(orvane)));
  } else {
    ctx.out.printText("logged out");
  }
}

void status(Context& ctx) {
  Orvane& orvane = ctx.orvane();
  if (identityConfigured(orvane)) setupIdentity(ctx, orvane);
  const SessionStatus current = sessionStatus(orvane);
  if (ctx.out.json()) {
    ctx.out.printJson(statusRecord(current));
  } else {
    ctx.out.printText(describeStatus(current));
  }
}

}  // namespace

void addAuthCommands(CommandSet& commands) {
  CLI::App* group = commands.group("login", "Log in to the identity server; later runs resume the session");
  commands.add(*group, "guest", "Log in with the application's guest client", loginGuest);

  auto username = std::make_shared<std::string>();
  CLI::App* byPassword = commands.add(*group, "password", "Log in as USER with a password (VELORA_PASSWORD, else asked)",
                                      [username](Context& ctx) { loginPassword(ctx, *username); });
  byPassword->add_option("USER", *username, "User name")->required();

  auto custom = std::make_shared<bool>(false);
  CLI::App* byBrowser = commands.add(*group, "browser", "Log in in a web browser (the address is printed when none opens)",
                                     [custom](Context& ctx) { loginBrowser(ctx, *custom); });
  byBrowser->add_flag("--custom", *custom, "Log in in the library's own login window instead of the desktop browser");
  commands.needsWindow(byBrowser, "login browser --custom", [custom] { return *custom; });

  auto code = std::make_shared<std::string>();
  CLI::App* byCode = commands.add(*group, "qr", "Log in with the credentials a login code (QR code) stands for",
                                  [code](Context& ctx) { loginQr(ctx, *code); });
  byCode->add_option("CODE", *code, "The scanned code")->required();

  commands.add("logout", "End the session and forget the stored credentials", logout);
  commands.add("status", "Show whether a session is open and how long its tokens last", status);
}

}  // namespace velora::cli
