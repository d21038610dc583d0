#pragma once
// The identity realm's state and rules: demo clients and users, sessions, one-time codes and
// opaque tokens. Every public method may be called from any handler thread.

#include <chrono>
#include <cstddef>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <unordered_map>

#include "SandboxInternal.hpp"

namespace velora::sandbox::detail {

struct DemoClient {
  std::string_view id;
  std::string_view secret;  // empty: a public client, which sends none
  bool browserLogin;        // the login page and the authorization code grant
  bool passwordGrant;
  bool clientCredentials;
};
/// nullptr when the realm has no such client.
const DemoClient* findDemoClient(std::string_view id);
bool isDemoUser(std::string_view username);
/// The demo user's password; empty for a user the realm does not know.
std::string_view demoPassword(std::string_view username);
bool checkDemoPassword(std::string_view username, std::string_view password);
/// Whether the login page may send its answer to `uri` for `client`.
bool acceptsRedirect(const DemoClient& client, std::string_view uri);
/// Realm names end up in URL paths and route patterns.
bool isValidRealmName(std::string_view name);

/// The OpenID provider metadata for the realm whose issuer is `issuer`.
nlohmann::json discoveryDocument(const std::string& issuer);

struct RealmSettings {
  std::string name;
  std::chrono::seconds accessTokenLifetime;
  std::chrono::seconds refreshTokenLifetime;
  std::optional<std::string> autoLoginUser;
};

/// What the token endpoint answers: a status and its JSON body.
struct TokenReply {
  int status;
  nlohmann::json body;
};

/// The outcome of a browser login: the session's id and the code that redeems it.
struct Authorization {
  std::string sessionState;
  std::string code;
};

class Realm {
 public:
  /// Throws std::invalid_argument when the auto-login user is not a demo user.
  explicit Realm(RealmSettings settings);

  const std::string& name() const { return settings_.name; }
  /// Fixes the issuer once the server's address is known; called before it serves requests.
  void setServerUrl(const std::string& serverUrl);
  /// The issuer: SERVER/realms/NAME.
  const std::string& url() const { return url_; }

  std::optional<std::string> autoLoginUser() const;
  /// Throws std::invalid_argument for a user the realm does not know.
  void setAutoLoginUser(std::optional<std::string> username);

  /// `username` has logged in through the login page of `clientId`: opens a session and hands
  /// out a code that the same client can exchange once, with the same redirect URI.
  Authorization authorize(const std::string& clientId, const std::string& redirectUri,
                          const std::string& username);
  /// Runs one token request whose form fields are `form`.
  TokenReply token(const FormFields& form);
  /// Ends every session of the client.
  void logout(std::string_view clientId);
  void revokeAll();

  bool isLiveAccessToken(const std::string& token) const;
  /// The user a live access token was issued to; nullopt for any other token.
  std::optional<std::string> accessTokenUser(const std::string& token) const;
  std::size_t liveTokenCount() const;
  /// Throws std::invalid_argument for a user the realm does not know.
  std::string issueAccessToken(const std::string& username);
  void advanceClock(std::chrono::seconds by);

 private:
  using Clock = std::chrono::steady_clock;
  struct Session {
    std::string id, clientId, username;
  };
  struct Token {
    bool refresh;
    Session session;
    Clock::time_point expires;
  };
  struct Code {
    Session session;
    std::string redirectUri;
    Clock::time_point expires;
  };

  // The members below need mutex_ held.
  Clock::time_point now() const;
  std::string randomToken();
  Session newSession(std::string_view clientId, std::string username);
  nlohmann::json issueTokens(const Session& session);
  void dropExpired();
  TokenReply exchangeCode(const DemoClient& client, const FormFields& form);
  TokenReply passwordGrant(const DemoClient& client, const FormFields& form);
  TokenReply clientCredentialsGrant(const DemoClient& client);
  TokenReply refreshGrant(const DemoClient& client, const FormFields& form);

  const RealmSettings settings_;
  std::string url_;

  mutable std::mutex mutex_;
  std::optional<std::string> autoLoginUser_;
  std::random_device random_;
  Clock::duration skew_{};
  std::unordered_map<std::string, Token> tokens_;
  std::unordered_map<std::string, Code> codes_;
};

}  // namespace velora::sandbox::detail
