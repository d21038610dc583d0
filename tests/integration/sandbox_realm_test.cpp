// The sandbox's identity realm over real HTTP: discovery, the grants and their refusals, the
// login page, refresh rotation, logout, and the bearer check on the platform's routes.

#include <gtest/gtest.h>
#include <httplib.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <sys/wait.h>
#include <functional>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "velora_sandbox/Sandbox.hpp"

#include "Fakes.hpp"

namespace {

using nlohmann::json;
using velora::sandbox::Sandbox;
using velora::sandbox::SandboxOptions;
namespace demo = velora::sandbox::demo;
using namespace std::chrono_literals;

const std::string kRealmPath = "/realms/velora";
const std::string kTokenPath = kRealmPath + "/protocol/openid-connect/token";
const std::string kAuthPath = kRealmPath + "/protocol/openid-connect/auth";
const std::string kLogoutPath = kRealmPath + "/protocol/openid-connect/logout";
const std::string kPasswordForm =
    "grant_type=password&client_id=velora-app&username=demo&password=demo-password";
const std::string kGuestForm =
    "grant_type=client_credentials&client_id=velora-guest&client_secret=velora-guest-secret";
const std::string kRefreshForm = "grant_type=refresh_token&client_id=velora-app&refresh_token=";
// The redirect URI as the SDK encodes it: "/" escaped, ":" not.
const std::string kAuthQuery =
    "?client_id=velora-app&response_type=code&redirect_uri=http:%2F%2F127.0.0.1:1234%2Fcb";
const std::string kRedirectForm = "&redirect_uri=http%3A%2F%2F127.0.0.1%3A1234%2Fcb";

// Sends targets exactly as written, escapes and '+' included.
struct RealmClient {
  httplib::Client client;
  explicit RealmClient(const Sandbox& sandbox) : client(sandbox.baseUrl()) {
    client.set_url_encode(false);
  }
  httplib::Result get(const std::string& target, const std::string& authorization = "") {
    httplib::Headers headers;
    if (!authorization.empty()) {
      headers.emplace("Authorization", authorization);
    }
    return client.Get(target, headers);
  }
  httplib::Result post(const std::string& path, const std::string& form) {
    return client.Post(path, form, "application/x-www-form-urlencoded");
  }
  json token(const std::string& form) {
    const auto res = post(kTokenPath, form);
    return res ? json::parse(res->body) : json();
  }
  // The code of the login page's redirect; auto-login must be on.
  std::string code(const std::string& query) {
    const auto res = get(kAuthPath + query);
    const std::string location = res ? res->get_header_value("Location") : "";
    const auto at = location.rfind("code=");
    return at == std::string::npos ? "" : location.substr(at + 5);
  }
};

// httplib's client percent-decodes header values, which would hide whether the realm encoded
// what it put into a redirect; this reads the Location header as sent.
std::string rawLocation(int port, const std::string& target) {
  const std::string reply =
      velora::testing::rawExchange(port, "GET " + target + " HTTP/1.1\r\nHost: s\r\nConnection: close\r\n\r\n");
  const auto at = reply.find("\r\nLocation: ");
  return at == std::string::npos ? "" : reply.substr(at + 12, reply.find("\r\n", at + 2) - at - 12);
}

void expectError(const httplib::Result& res, int status, const std::string& error,
                 const std::string& description) {
  ASSERT_TRUE(res);
  EXPECT_EQ(res->status, status) << res->body;
  EXPECT_EQ(res->body, json({{"error", error}, {"error_description", description}}).dump());
}

void expectTokens(const json& reply) {
  static const std::regex token("[A-Za-z0-9_-]{43}");
  static const std::regex uuid(  // version 4
      "[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}");
  ASSERT_TRUE(reply.contains("access_token")) << reply;
  EXPECT_EQ(reply, json({{"access_token", reply["access_token"]},
                         {"expires_in", 300},
                         {"refresh_expires_in", 1800},
                         {"refresh_token", reply["refresh_token"]},
                         {"token_type", "Bearer"},
                         {"not-before-policy", 0},
                         {"session_state", reply["session_state"]},
                         {"scope", "email openid phone profile"}}));
  EXPECT_TRUE(std::regex_match(reply["access_token"].get<std::string>(), token));
  EXPECT_TRUE(std::regex_match(reply["refresh_token"].get<std::string>(), token));
  EXPECT_TRUE(std::regex_match(reply["session_state"].get<std::string>(), uuid));
}

TEST(RealmDiscovery, PublishesTheIdentityServersDocumentUnderTheIssuer) {
  SandboxOptions options;
  options.realm = "tenant.one";  // the dot must not match any character
  Sandbox sandbox(options);
  RealmClient realm(sandbox);
  ASSERT_EQ(sandbox.realmUrl(), sandbox.baseUrl() + "/realms/tenant.one");
  const auto res = realm.get("/realms/tenant.one/.well-known/openid-configuration");
  ASSERT_TRUE(res);
  const json doc = json::parse(res->body);
  const std::string oidc = sandbox.realmUrl() + "/protocol/openid-connect";
  EXPECT_EQ(doc["issuer"], sandbox.realmUrl());
  EXPECT_EQ(doc["authorization_endpoint"], oidc + "/auth");
  EXPECT_EQ(doc["token_endpoint"], oidc + "/token");
  EXPECT_EQ(doc["end_session_endpoint"], oidc + "/logout");
  for (const char* path : {"/realms/velora/.well-known/openid-configuration",
                           "/realms/tenantXone/.well-known/openid-configuration"}) {
    const auto other = realm.get(path);
    ASSERT_TRUE(other);
    EXPECT_EQ(other->status, 404);
    EXPECT_EQ(other->body, R"({"error":"Realm does not exist"})");
  }
}

TEST(TokenEndpoint, AnswersEachGrantOrTheIdentityServersRefusal) {
  struct Case {
    std::string form;
    int status;
    std::string error, description;  // empty: success
    const char* type = "application/x-www-form-urlencoded";
  };
  const std::string invalidClient = "Invalid client or Invalid client credentials";
  const std::vector<Case> cases = {
      {kPasswordForm, 200},
      {kGuestForm, 200},
      {"grant_type=password&client_id=velora%2Dapp&username=%61lice&password=alice-password", 200},
      {"grant_type=password&grant_type=client_credentials&client_id=velora-app&username=demo"
       "&password=demo-password", 200},  // a repeated field keeps its first value
      {"client_id=velora-app", 400, "invalid_request", "Missing form parameter: grant_type"},
      {R"({"grant_type":"password"})", 400, "invalid_request",
       "Missing form parameter: grant_type", "application/json"},
      {"grant_type=magic&client_id=velora-app", 400, "unsupported_grant_type",
       "Unsupported grant_type"},
      {kPasswordForm + "x", 400, "invalid_grant", "Invalid user credentials"},
      {"grant_type=password&client_id=nobody&username=demo&password=demo-password", 401,
       "unauthorized_client", invalidClient},
      {kGuestForm + "x", 401, "unauthorized_client", invalidClient},
      {"grant_type=client_credentials&client_id=velora-app", 400, "unauthorized_client",
       "Client not enabled to retrieve service account"},
      {"grant_type=password&client_id=velora-guest&client_secret=velora-guest-secret", 400,
       "unauthorized_client", "Client not allowed for direct access grants"},
      {kRefreshForm, 400, "invalid_request", "Missing form parameter: refresh_token"},
      {kRefreshForm + "made-up", 400, "invalid_grant", "Token is not active"},
      {"grant_type=authorization_code&client_id=velora-app&code=made-up" + kRedirectForm, 400,
       "invalid_grant", "Code not valid"},
  };
  Sandbox sandbox;
  RealmClient realm(sandbox);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.form);
    const auto res = realm.client.Post(kTokenPath, c.form, c.type);
    ASSERT_TRUE(res);
    EXPECT_EQ(res->get_header_value("Cache-Control"), "no-store");
    if (c.error.empty()) {
      EXPECT_EQ(res->status, 200);
      expectTokens(json::parse(res->body));
    } else {
      expectError(res, c.status, c.error, c.description);
    }
  }
  EXPECT_EQ(sandbox.liveTokenCount(), 8u);  // four successes, a pair each
}

TEST(LoginPage, RedirectsOnlyToTheClientsUrisWithStateSessionAndCodeInThatOrder) {
  SandboxOptions options;
  options.autoLoginUser = demo::kAliceUser;
  Sandbox sandbox(options);
  const std::string location =
      rawLocation(sandbox.port(), kAuthPath + kAuthQuery + "&state=a%20b%26c%2B");
  const std::regex expected("http://127\\.0\\.0\\.1:1234/cb\\?state=a%20b%26c%2B"
                            "&session_state=[0-9a-f-]{36}&code=[\\w-]{43}");
  EXPECT_TRUE(std::regex_match(location, expected)) << location;

  struct Case {
    std::string query;
    std::string result;  // the error page's message, or how the redirect starts
  };
  const std::string app = "?response_type=code&client_id=velora-app&redirect_uri=";
  const std::vector<Case> cases = {
      {app + "http:%2F%2Flocalhost:80%2Fp%3Fx=1&y=2", "http://localhost:80/p?x=1&session_state="},
      {app + "velora://callback", "velora://callback?session_state="},
      {"?response_type=code&redirect_uri=velora://callback", "Missing parameter: client_id"},
      {"?response_type=code&client_id=nobody&redirect_uri=velora://callback", "Client not found."},
      {"?response_type=code&client_id=velora-guest&redirect_uri=velora://callback",
       "Client is not allowed to initiate browser login."},
      {app + "http://evil.example:80/cb", "Invalid parameter: redirect_uri"},
      {app + "http://127.0.0.1:1234", "Invalid parameter: redirect_uri"},
      {app + "http://127.0.0.1:1234/cb%0d%0aSet-Cookie:x", "Invalid parameter: redirect_uri"},
      {app + "velora://callback/more", "Invalid parameter: redirect_uri"},
      {"?response_type=token&client_id=velora-app&redirect_uri=velora://callback",
       "Unsupported response_type"},
  };
  RealmClient realm(sandbox);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.query);
    const auto res = realm.get(kAuthPath + c.query);
    ASSERT_TRUE(res);
    if (res->status == 302) {
      EXPECT_TRUE(res->get_header_value("Location").starts_with(c.result));
    } else {
      EXPECT_EQ(res->status, 400);
      EXPECT_NE(res->body.find("<p id=\"error\">" + c.result + "</p>"), std::string::npos);
    }
  }
}

TEST(LoginPage, FormSignsInAndShowsItAgainAfterBadCredentials) {
  Sandbox sandbox;
  RealmClient realm(sandbox);
  const auto page = realm.get(kAuthPath + kAuthQuery + "&state=%22%3E%3Cscript%3E");
  ASSERT_TRUE(page);
  EXPECT_EQ(page->status, 200);
  for (const char* html : {R"(<form id="login" method="post" action="/realms/velora/login-actions/authenticate">)",
                           R"(name="username" type="text")", R"(name="password" type="password")",
                           R"(<meta name="viewport")", R"(type="submit")",
                           R"(name="redirect_uri" value="http://127.0.0.1:1234/cb")",
                           R"(name="state" value="&quot;&gt;&lt;script&gt;")"}) {
    EXPECT_NE(page->body.find(html), std::string::npos) << html;
  }
  EXPECT_EQ(page->body.find(R"(id="error")"), std::string::npos);
  const std::string authenticate = kRealmPath + "/login-actions/authenticate";
  const std::string hidden = "&client_id=velora-app&state=s1" + kRedirectForm;
  // Another user's password, a wrong one, an unknown user: the form again, what was typed kept.
  for (const std::string user : {"alice", "demo", "nobody"}) {
    SCOPED_TRACE(user);
    const auto bad = realm.post(authenticate, "username=" + user + "&password=" +
                                                  (user == "alice" ? "demo-password" : "wrong") + hidden);
    ASSERT_TRUE(bad);
    EXPECT_EQ(bad->status, 200);
    EXPECT_EQ(bad->get_header_value("Location"), "");
    for (const std::string& html : {std::string(R"(<p id="error" role="alert">Invalid username or password.</p>)"),
                                   R"(autofocus value=")" + user + '"', std::string(R"(name="state" value="s1")")}) {
      EXPECT_NE(bad->body.find(html), std::string::npos) << html;
    }
  }
  const auto elsewhere = realm.post(authenticate, "username=alice&password=alice-password"
                                                  "&client_id=velora-app&redirect_uri=http://x.y/");
  ASSERT_TRUE(elsewhere);
  EXPECT_EQ(elsewhere->status, 400);

  const auto good = realm.post(authenticate, "username=alice&password=alice-password" + hidden);
  ASSERT_TRUE(good);
  EXPECT_EQ(good->status, 302);
  const std::string location = good->get_header_value("Location");
  EXPECT_TRUE(location.starts_with("http://127.0.0.1:1234/cb?state=s1&session_state=")) << location;
  const std::string code = location.substr(location.rfind('=') + 1);
  const json tokens = realm.token("grant_type=authorization_code&client_id=velora-app&code=" +
                                  code + kRedirectForm);
  expectTokens(tokens);
  EXPECT_NE(location.find("session_state=" + tokens.value("session_state", "?")),
            std::string::npos);
}

// The rows run in order; `previous` reuses the code of the row above.
TEST(AuthorizationCode, IsExchangedOnceWithTheSameRedirectBeforeItExpires) {
  struct Case {
    const char* name;
    std::string authRedirect, tokenRedirect;  // as sent to the login page and in the form
    bool previous;
    std::chrono::seconds wait;
    std::string error;  // empty: success
  };
  const std::string cb = "http:%2F%2F127.0.0.1:1234%2Fcb";
  const std::string cbForm = "http%3A%2F%2F127.0.0.1%3A1234%2Fcb";
  const std::string plus = "http://127.0.0.1:1234/a%2Bb";
  const std::vector<Case> cases = {
      {"matching redirect", cb, cbForm, false, 0s, ""},
      {"replayed", cb, cbForm, true, 0s, "Code not valid"},
      {"other redirect", cb, cbForm + "2", false, 0s, "Incorrect redirect_uri"},
      {"spent by the failed attempt", cb, cbForm, true, 0s, "Code not valid"},
      {"'+' in a form is a space", plus, "http://127.0.0.1:1234/a+b", false, 0s,
       "Incorrect redirect_uri"},
      {"escaped '+'", plus, plus, false, 0s, ""},
      {"just before expiry", cb, cbForm, false, 59s, ""},
      {"expired", cb, cbForm, false, 60s, "Code not valid"},
  };
  Sandbox sandbox;
  sandbox.setAutoLogin(demo::kUser);
  RealmClient realm(sandbox);
  std::string code;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    if (!c.previous) {
      code = realm.code("?client_id=velora-app&response_type=code&redirect_uri=" + c.authRedirect);
      ASSERT_FALSE(code.empty());
    }
    sandbox.advanceClock(c.wait);
    const auto res = realm.post(kTokenPath, "grant_type=authorization_code&client_id=velora-app"
                                            "&code=" + code + "&redirect_uri=" + c.tokenRedirect);
    if (c.error.empty()) {
      ASSERT_TRUE(res);
      expectTokens(json::parse(res->body));
    } else {
      expectError(res, 400, "invalid_grant", c.error);
    }
  }
}

TEST(Refresh, RotatesThePairAndRefusesSpentExpiredOrForeignTokens) {
  Sandbox sandbox;
  RealmClient realm(sandbox);
  const json user = realm.token(kPasswordForm);
  const json rotated = realm.token(kRefreshForm + user["refresh_token"].get<std::string>());
  expectTokens(rotated);
  EXPECT_EQ(rotated["session_state"], user["session_state"]);
  EXPECT_NE(rotated["refresh_token"], user["refresh_token"]);
  const json guest = realm.token(
      "grant_type=refresh_token&client_id=velora-guest&client_secret=velora-guest-secret"
      "&refresh_token=" + realm.token(kGuestForm)["refresh_token"].get<std::string>());
  expectTokens(guest);

  const std::string notActive = "Token is not active";
  struct Case {
    std::string form;
    int status;
    std::string error, description;
  };
  const std::vector<Case> cases = {
      {kRefreshForm + user["refresh_token"].get<std::string>(), 400, "invalid_grant", notActive},
      {kRefreshForm + rotated["access_token"].get<std::string>(), 400, "invalid_grant", notActive},
      {kRefreshForm + guest["refresh_token"].get<std::string>(), 400, "invalid_grant",
       "Invalid refresh token. Token client and authorized client don't match"},
      {"grant_type=refresh_token&client_id=velora-guest&refresh_token=" +
           guest["refresh_token"].get<std::string>(),
       401, "unauthorized_client", "Invalid client or Invalid client credentials"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.form);
    expectError(realm.post(kTokenPath, c.form), c.status, c.error, c.description);
  }
  // The access token issued with a spent refresh token lives on; refresh tokens expire.
  const auto scan = realm.get("/api/lgnm/v1/scan?code=DEMO-QR-1",
                              "Bearer " + user["access_token"].get<std::string>());
  EXPECT_EQ(scan ? scan->status : 0, 200);
  sandbox.advanceClock(1800s);
  expectError(realm.post(kTokenPath, kRefreshForm + rotated["refresh_token"].get<std::string>()),
              400, "invalid_grant", notActive);
  EXPECT_EQ(sandbox.liveTokenCount(), 0u);
}

TEST(Logout, EndsEverySessionOfTheClientAndNoOther) {
  Sandbox sandbox;
  RealmClient realm(sandbox);
  const std::vector<json> app = {realm.token(kPasswordForm),
                                 realm.token("grant_type=password&client_id=velora-app"
                                             "&username=alice&password=alice-password")};
  const json guest = realm.token(kGuestForm);
  ASSERT_EQ(sandbox.liveTokenCount(), 6u);

  // The rows run in order: refusals end nothing, then the app's sessions end, then the guest's.
  struct Case {
    std::string query;
    int status;
    std::string location, page;
    std::size_t liveAfter;
  };
  const std::vector<Case> cases = {
      {"?post_logout_redirect_uri=velora://callback", 400, "", "Missing parameters: client_id", 6},
      {"?client_id=nobody", 400, "", "Client not found.", 6},
      {"?client_id=velora-app&post_logout_redirect_uri=http://evil.example:1/", 400, "",
       "Invalid redirect uri", 6},
      {"?client_id=velora-app&post_logout_redirect_uri=velora://callback", 302,
       "velora://callback", "", 2},
      {"?client_id=velora-guest", 200, "", "You are logged out", 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.query);
    const auto res = realm.get(kLogoutPath + c.query);
    ASSERT_TRUE(res);
    EXPECT_EQ(res->status, c.status);
    EXPECT_EQ(res->get_header_value("Location"), c.location);
    EXPECT_NE(res->body.find(c.page), std::string::npos);
    EXPECT_EQ(sandbox.liveTokenCount(), c.liveAfter);
  }
  for (const json& session : app) {  // the refresh tokens went with the sessions
    expectError(realm.post(kTokenPath, kRefreshForm + session["refresh_token"].get<std::string>()),
                400, "invalid_grant", "Token is not active");
  }
  const auto afterwards = realm.get("/api/v1/image/logo.png",
                                    "Bearer " + guest["access_token"].get<std::string>());
  EXPECT_EQ(afterwards ? afterwards->status : 0, 401);
}

TEST(Bearer, PlatformRoutesOutsideThePublicOnesNeedALiveAccessToken) {
  SandboxOptions options;
  options.accessTokenLifetimeSeconds = 5;
  options.refreshTokenLifetimeSeconds = 20;
  Sandbox sandbox(options);
  RealmClient realm(sandbox);
  const std::string expired = sandbox.issueAccessToken(demo::kUser);
  sandbox.advanceClock(5s);
  const json live = realm.token(kPasswordForm);
  EXPECT_EQ(live["expires_in"], 5);
  EXPECT_EQ(live["refresh_expires_in"], 20);
  const std::string token = live["access_token"];

  struct Case {
    std::string target, authorization;
    int status;
    json body = nullptr;  // null: not checked, except a 401's
  };
  const std::string conf = "/api/v1/device/ios/conf";
  const std::string scan = "/api/lgnm/v1/scan?code=";
  const std::vector<Case> cases = {
      {conf, "Bearer " + token, 200},
      {conf, "bearer   " + token + " ", 200},
      {conf, "", 401},
      {conf, "Bearer made-up", 401},
      {conf, "Basic " + token, 401},
      {conf, "Bearer " + live["refresh_token"].get<std::string>(), 401},
      {conf, "Bearer " + expired, 401},
      {"/api/v1/public/diagnostic/check", "", 200},
      {"/api/v1/map/building", "", 401},
      {"/api/v1/map/building", "Bearer " + token, 200},
      {scan + "DEMO-QR-1", "", 401},
      {scan + "DEMO-QR-1", "Bearer " + token, 200},
      {scan + "demo-qr-1", "Bearer " + token, 404,
       {{"code", 404}, {"message", "Unknown login code"}}},
  };
  const json unauthorized = {{"code", 401},
                             {"message", "Unauthorized: a valid bearer token is required"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.target + " / " + c.authorization);
    httplib::Headers headers;
    if (!c.authorization.empty()) {
      headers.emplace("Authorization", c.authorization);
    }
    const std::string device = R"({"appId":"a","uuid":"u"})";
    const auto res = c.target == conf ? realm.client.Post(conf, headers, device, "application/json")
                                      : realm.client.Get(c.target, headers);
    ASSERT_TRUE(res);
    EXPECT_EQ(res->status, c.status);
    const json expected = c.status == 401 ? unauthorized : c.body;
    EXPECT_TRUE(expected.is_null() || json::parse(res->body) == expected) << res->body;
  }
}

TEST(RealmApi, RefusesUnknownUsersAndSettingsAndIssuesDistinctTokensConcurrently) {
  const std::vector<std::function<void(SandboxOptions&)>> invalid = {
      [](SandboxOptions& o) { o.realm = "a/b"; },
      [](SandboxOptions& o) { o.realm = ".."; },
      [](SandboxOptions& o) { o.accessTokenLifetimeSeconds = 0; },
      [](SandboxOptions& o) { o.refreshTokenLifetimeSeconds = -1; },
      [](SandboxOptions& o) { o.autoLoginUser = "bob"; },
  };
  for (const auto& change : invalid) {
    SandboxOptions options;
    change(options);
    EXPECT_THROW(Sandbox{options}, std::invalid_argument) << options.realm;
  }
  Sandbox sandbox;
  EXPECT_THROW(sandbox.issueAccessToken("bob"), std::invalid_argument);
  EXPECT_THROW(sandbox.setAutoLogin("bob"), std::invalid_argument);
  EXPECT_THROW(sandbox.advanceClock(-1s), std::invalid_argument);

  constexpr int kThreads = 6;
  constexpr int kLoginsEach = 8;
  std::vector<std::vector<std::string>> issued(kThreads);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      RealmClient realm(sandbox);
      for (int i = 0; i < kLoginsEach; ++i) {
        const json reply = realm.token(t % 2 ? kGuestForm : kPasswordForm);
        issued[t].push_back(reply.value("access_token", ""));
        issued[t].push_back(reply.value("refresh_token", ""));
      }
    });
  }
  std::set<std::string> distinct;
  for (int t = 0; t < kThreads; ++t) {
    threads[t].join();
    distinct.insert(issued[t].begin(), issued[t].end());
  }
  EXPECT_EQ(distinct.size(), std::size_t{kThreads * kLoginsEach * 2});
  EXPECT_EQ(sandbox.liveTokenCount(), distinct.size());
  sandbox.revokeAllTokens();
  EXPECT_EQ(sandbox.liveTokenCount(), 0u);
}

#ifdef VELORA_SANDBOX_PATH
TEST(SandboxProgram, RefusesRealmFlagsThatMakeNoSense) {
  for (const char* args : {"--auto-login bob", "--refresh-token-lifetime x", "--auto-login"}) {
    const std::string command = "'" VELORA_SANDBOX_PATH "' " + std::string(args) + " >/dev/null 2>&1";
    const int status = std::system(command.c_str());
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 2) << args;  // a usage error, not a server
  }
}
#endif

}  // namespace
