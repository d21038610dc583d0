// The identity realm's rules. Tokens are opaque random strings looked up in a table rather
// than signed JWTs: the SDK never reads inside a token, and a table makes revocation and
// expiry exact, which is what the tests need to observe.
//
// Errors use the identity server's bodies and statuses, since the SDK shows their
// error_description to the user.

#include "Realm.hpp"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "velora_sandbox/Sandbox.hpp"

namespace velora::sandbox::detail {
namespace {

using nlohmann::json;

struct DemoUser {
  std::string_view name;
  std::string_view password;
};

constexpr DemoUser kUsers[] = {
    {demo::kUser, demo::kPassword},
    {demo::kAliceUser, demo::kAlicePassword},
};

constexpr DemoClient kClients[] = {
    {demo::kPublicClient, "", /*browserLogin=*/true, /*passwordGrant=*/true,
     /*clientCredentials=*/false},
    {demo::kGuestClient, demo::kGuestSecret, false, false, true},
};

// What every token is good for; the SDK asks for exactly these scopes.
constexpr const char* kScope = "email openid phone profile";
constexpr std::chrono::seconds kCodeLifetime{demo::kCodeLifetimeSeconds};

std::string field(const FormFields& form, const char* name) {
  const auto it = form.find(name);
  return it == form.end() ? std::string() : it->second;
}

TokenReply failure(int status, const char* error, const char* description) {
  return {status, {{"error", error}, {"error_description", description}}};
}

// A loopback URI with a port and a path: whichever port the app's local listener got.
bool isLoopbackRedirect(std::string_view uri) {
  for (const std::string_view prefix : {"http://127.0.0.1:", "http://localhost:"}) {
    if (!uri.starts_with(prefix)) {
      continue;
    }
    const std::string_view rest = uri.substr(prefix.size());
    const auto slash = rest.find('/');
    long long port = 0;
    return slash != std::string_view::npos && parseInt(rest.substr(0, slash), 1, 65535, port);
  }
  return false;
}

}  // namespace

const DemoClient* findDemoClient(std::string_view id) {
  const auto* it = std::find_if(std::begin(kClients), std::end(kClients),
                                [id](const DemoClient& client) { return client.id == id; });
  return it == std::end(kClients) ? nullptr : it;
}

bool isDemoUser(std::string_view username) {
  return std::any_of(std::begin(kUsers), std::end(kUsers),
                     [username](const DemoUser& user) { return user.name == username; });
}

std::string_view demoPassword(std::string_view username) {
  const auto* it = std::find_if(std::begin(kUsers), std::end(kUsers),
                                [username](const DemoUser& user) { return user.name == username; });
  return it == std::end(kUsers) ? std::string_view() : it->password;
}

bool checkDemoPassword(std::string_view username, std::string_view password) {
  return std::any_of(std::begin(kUsers), std::end(kUsers), [&](const DemoUser& user) {
    return user.name == username && user.password == password;
  });
}

bool acceptsRedirect(const DemoClient& client, std::string_view uri) {
  // The URI goes back out in a Location header: no spaces, controls or fragment.
  const bool clean = std::all_of(uri.begin(), uri.end(), [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte > 0x20 && byte != 0x7f && c != '#';
  });
  return client.browserLogin && clean &&
         (uri == demo::kAppRedirectUri || isLoopbackRedirect(uri));
}

bool isValidRealmName(std::string_view name) {
  const bool allowed = std::all_of(name.begin(), name.end(), [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           c == '.' || c == '_' || c == '-';
  });
  return allowed && !name.empty() && name != "." && name != "..";
}

Realm::Realm(RealmSettings settings) : settings_(std::move(settings)) {
  setAutoLoginUser(settings_.autoLoginUser);
}

void Realm::setServerUrl(const std::string& serverUrl) {
  url_ = serverUrl + "/realms/" + settings_.name;
}

std::optional<std::string> Realm::autoLoginUser() const {
  const std::lock_guard lock(mutex_);
  return autoLoginUser_;
}

void Realm::setAutoLoginUser(std::optional<std::string> username) {
  if (username && !isDemoUser(*username)) {
    throw std::invalid_argument("velora-sandbox: no demo user named '" + *username + "'");
  }
  const std::lock_guard lock(mutex_);
  autoLoginUser_ = std::move(username);
}

Authorization Realm::authorize(const std::string& clientId, const std::string& redirectUri,
                               const std::string& username) {
  const std::lock_guard lock(mutex_);
  dropExpired();
  Session session = newSession(clientId, username);
  std::string code = randomToken();
  std::string sessionState = session.id;
  codes_.emplace(code, Code{std::move(session), redirectUri, now() + kCodeLifetime});
  return {std::move(sessionState), std::move(code)};
}

TokenReply Realm::token(const FormFields& form) {
  const std::string grantType = field(form, "grant_type");
  if (grantType.empty()) {
    return failure(400, "invalid_request", "Missing form parameter: grant_type");
  }
  if (grantType != "authorization_code" && grantType != "password" &&
      grantType != "client_credentials" && grantType != "refresh_token") {
    return failure(400, "unsupported_grant_type", "Unsupported grant_type");
  }
  // A public client sends no secret; one sent anyway is ignored.
  const DemoClient* client = findDemoClient(field(form, "client_id"));
  if (client == nullptr ||
      (!client->secret.empty() && field(form, "client_secret") != client->secret)) {
    return failure(401, "unauthorized_client", "Invalid client or Invalid client credentials");
  }

  const std::lock_guard lock(mutex_);
  dropExpired();
  if (grantType == "authorization_code") {
    return exchangeCode(*client, form);
  }
  if (grantType == "password") {
    return passwordGrant(*client, form);
  }
  if (grantType == "client_credentials") {
    return clientCredentialsGrant(*client);
  }
  return refreshGrant(*client, form);
}

TokenReply Realm::exchangeCode(const DemoClient& client, const FormFields& form) {
  if (!client.browserLogin) {
    return failure(400, "unauthorized_client", "Client not allowed to exchange code");
  }
  const std::string presented = field(form, "code");
  if (presented.empty()) {
    return failure(400, "invalid_request", "Missing parameter: code");
  }
  const auto it = codes_.find(presented);
  if (it == codes_.end()) {
    return failure(400, "invalid_grant", "Code not valid");
  }
  // A code allows one attempt whatever its outcome, so that a leaked code cannot be retried.
  const Code code = std::move(it->second);
  codes_.erase(it);
  if (code.session.clientId != client.id) {
    return failure(400, "invalid_grant", "Code not valid");
  }
  if (code.redirectUri != field(form, "redirect_uri")) {
    return failure(400, "invalid_grant", "Incorrect redirect_uri");
  }
  return {200, issueTokens(code.session)};
}

TokenReply Realm::passwordGrant(const DemoClient& client, const FormFields& form) {
  if (!client.passwordGrant) {
    return failure(400, "unauthorized_client", "Client not allowed for direct access grants");
  }
  std::string username = field(form, "username");
  if (!checkDemoPassword(username, field(form, "password"))) {
    return failure(400, "invalid_grant", "Invalid user credentials");
  }
  return {200, issueTokens(newSession(client.id, std::move(username)))};
}

TokenReply Realm::clientCredentialsGrant(const DemoClient& client) {
  if (!client.clientCredentials) {
    return failure(400, "unauthorized_client", "Client not enabled to retrieve service account");
  }
  return {200, issueTokens(newSession(client.id, "service-account-" + std::string(client.id)))};
}

TokenReply Realm::refreshGrant(const DemoClient& client, const FormFields& form) {
  const std::string presented = field(form, "refresh_token");
  if (presented.empty()) {
    return failure(400, "invalid_request", "Missing form parameter: refresh_token");
  }
  const auto it = tokens_.find(presented);
  if (it == tokens_.end() || !it->second.refresh) {
    return failure(400, "invalid_grant", "Token is not active");
  }
  if (it->second.session.clientId != client.id) {
    return failure(400, "invalid_grant",
                   "Invalid refresh token. Token client and authorized client don't match");
  }
  // Rotation: the refresh token is spent; the access token issued with it lives on until it
  // expires, as the identity server's do.
  const Session session = std::move(it->second.session);
  tokens_.erase(it);
  return {200, issueTokens(session)};
}

void Realm::logout(std::string_view clientId) {
  const std::lock_guard lock(mutex_);
  const auto ofClient = [clientId](const auto& entry) {
    return entry.second.session.clientId == clientId;
  };
  std::erase_if(tokens_, ofClient);
  std::erase_if(codes_, ofClient);
}

void Realm::revokeAll() {
  const std::lock_guard lock(mutex_);
  tokens_.clear();
  codes_.clear();
}

bool Realm::isLiveAccessToken(const std::string& token) const { return accessTokenUser(token).has_value(); }

std::optional<std::string> Realm::accessTokenUser(const std::string& token) const {
  const std::lock_guard lock(mutex_);
  const auto it = tokens_.find(token);
  if (it == tokens_.end() || it->second.refresh || now() >= it->second.expires) {
    return std::nullopt;
  }
  return it->second.session.username;
}

std::size_t Realm::liveTokenCount() const {
  const std::lock_guard lock(mutex_);
  const auto t = now();
  return static_cast<std::size_t>(std::count_if(
      tokens_.begin(), tokens_.end(), [t](const auto& entry) { return t < entry.second.expires; }));
}

std::string Realm::issueAccessToken(const std::string& username) {
  if (!isDemoUser(username)) {
    throw std::invalid_argument("velora-sandbox: no demo user named '" + username + "'");
  }
  const std::lock_guard lock(mutex_);
  dropExpired();
  return issueTokens(newSession(demo::kPublicClient, username))["access_token"].get<std::string>();
}

void Realm::advanceClock(std::chrono::seconds by) {
  if (by.count() < 0) {
    throw std::invalid_argument("velora-sandbox: the realm's clock only moves forward");
  }
  const std::lock_guard lock(mutex_);
  skew_ += by;
}

Realm::Clock::time_point Realm::now() const { return Clock::now() + skew_; }

// 43 characters of the base64url alphabet, 258 random bits: the length of a base64url
// encoded 32-byte secret.
std::string Realm::randomToken() {
  static constexpr char kAlphabet[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
  constexpr std::size_t kLength = 43;
  constexpr int kCharsPerDraw = 5;  // 30 of the 32 bits each draw gives
  std::string token;
  token.reserve(kLength);
  while (token.size() < kLength) {
    auto bits = static_cast<std::uint32_t>(random_());
    for (int i = 0; i < kCharsPerDraw && token.size() < kLength; ++i, bits >>= 6) {
      token.push_back(kAlphabet[bits & 63]);
    }
  }
  return token;
}

Realm::Session Realm::newSession(std::string_view clientId, std::string username) {
  std::array<unsigned char, 16> bytes{};
  for (std::size_t i = 0; i < bytes.size(); i += 4) {
    const auto word = static_cast<std::uint32_t>(random_());
    std::memcpy(bytes.data() + i, &word, sizeof word);
  }
  bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0f) | 0x40);  // a version 4 UUID
  bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3f) | 0x80);
  char id[37];
  std::snprintf(id, sizeof id,
                "%02x%02x%02x%02x-%02x%02x-%02x%02x-%02x%02x-%02x%02x%02x%02x%02x%02x",
                bytes[0], bytes[1], bytes[2], bytes[3], bytes[4], bytes[5], bytes[6], bytes[7],
                bytes[8], bytes[9], bytes[10], bytes[11], bytes[12], bytes[13], bytes[14],
                bytes[15]);
  return {id, std::string(clientId), std::move(username)};
}

json Realm::issueTokens(const Session& session) {
  const auto t = now();
  std::string access = randomToken();
  std::string refresh = randomToken();
  tokens_.emplace(access, Token{false, session, t + settings_.accessTokenLifetime});
  tokens_.emplace(refresh, Token{true, session, t + settings_.refreshTokenLifetime});
  return {{"access_token", std::move(access)},
          {"expires_in", settings_.accessTokenLifetime.count()},
          {"refresh_expires_in", settings_.refreshTokenLifetime.count()},
          {"refresh_token", std::move(refresh)},
          {"token_type", "Bearer"},
          {"not-before-policy", 0},
          {"session_state", session.id},
          {"scope", kScope}};
}

// Expired entries go whenever something new is stored, so a long-running program keeps only
// what is still live.
void Realm::dropExpired() {
  const auto t = now();
  std::erase_if(tokens_, [t](const auto& entry) { return entry.second.expires <= t; });
  std::erase_if(codes_, [t](const auto& entry) { return entry.second.expires <= t; });
}

}  // namespace velora::sandbox::detail
