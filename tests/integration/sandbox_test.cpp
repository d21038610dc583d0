// The sandbox over real HTTP: the server properties the integration tests rely on, the
// platform routes' contract and the test routes' controls.

#include "SandboxClient.hpp"

#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <latch>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace {

using nlohmann::json;
using velora::sandbox::Sandbox;
using velora::sandbox::SandboxOptions;
using Clock = std::chrono::steady_clock;
using namespace std::string_literals;

int localPort(int sock) {
  sockaddr_in addr{};
  socklen_t len = sizeof addr;
  return getsockname(sock, reinterpret_cast<sockaddr*>(&addr), &len) == 0 ? ntohs(addr.sin_port)
                                                                          : -1;
}

TEST(SandboxServer, BindsDistinctFreePortsAndRefusesATakenOne) {
  Sandbox first;
  Sandbox second;
  EXPECT_NE(first.port(), second.port());
  const auto res = httplib::Client(first.baseUrl()).Get("/api/v1/public/diagnostic/check");
  ASSERT_TRUE(res);
  EXPECT_EQ(json::parse(res->body), json({{"code", 200}, {"message", "Velora sandbox is up"}}));

  SandboxOptions taken;  // must fail loudly rather than share the port
  taken.port = first.port();
  EXPECT_THROW(Sandbox{taken}, std::runtime_error);
}

// More clients than httplib's default pool has threads, all holding their connection open at
// once, each sending more requests than httplib's default keep-alive limit: every request must
// be served on the client's first connection.
TEST(SandboxServer, ServesManyConcurrentKeepAliveClientsWithoutReconnecting) {
  constexpr int kClients = 24;
  constexpr int kRequestsEach = 20;
  Sandbox sandbox;
  std::latch allConnected(kClients);
  std::atomic<int> served{0};
  std::atomic<int> reconnects{0};
  std::vector<std::thread> clients;
  for (int c = 0; c < kClients; ++c) {
    clients.emplace_back([&] {
      httplib::Client client(sandbox.baseUrl());
      client.set_keep_alive(true);
      int firstPort = -1;
      for (int i = 0; i < kRequestsEach; ++i) {
        const auto res = client.Get("/test/echo");
        served += res && res->status == 200;
        const int port = localPort(client.socket());
        if (i == 0) {
          firstPort = port;
          allConnected.arrive_and_wait();
        }
        reconnects += port != firstPort;
      }
    });
  }
  for (auto& t : clients) {
    t.join();
  }
  EXPECT_EQ(served, kClients * kRequestsEach);
  EXPECT_EQ(reconnects, 0);
  EXPECT_EQ(sandbox.requestCount("/test/echo"), std::size_t{kClients * kRequestsEach});
}

TEST(SandboxServer, StopsQuicklyWithADelayedRequestInFlightAndStaysStopped) {
  Sandbox sandbox;
  const std::string url = sandbox.baseUrl();
  std::thread slowClient([url] {
    httplib::Client client(url);
    client.set_read_timeout(std::chrono::seconds(120));
    const auto res = client.Get("/test/status/200?delay_ms=60000");
    EXPECT_TRUE(!res || res->status == 503);  // never the delayed answer
  });
  const auto deadline = Clock::now() + std::chrono::seconds(10);
  while (sandbox.requestCount("/test/status/200") == 0 && Clock::now() < deadline) {
    std::this_thread::yield();
  }
  sandbox.stop();  // the delayed answer is a minute away: stopping must not wait for it
  slowClient.join();
  EXPECT_EQ(sandbox.requestCount("/test/status/200"), 1u);
  sandbox.stop();  // again, then the destructor: harmless
  httplib::Client client(url);
  EXPECT_FALSE(client.Get("/api/v1/public/diagnostic/check"));
}

TEST(SandboxServer, RecordsAndEchoesWhatTheClientSent) {
  Sandbox sandbox;
  httplib::Client client(sandbox.baseUrl());
  const std::string body = "h\xc3\xa9llo";
  const auto res =
      client.Post("/test/echo?a=1&b=x%20y", {{"X-Trace-Id", "abc"}}, body, "text/plain");
  ASSERT_TRUE(res);
  const json echo = json::parse(res->body);
  EXPECT_EQ(echo, json({{"method", "POST"},
                        {"path", "/test/echo"},
                        {"query", "a=1&b=x%20y"},
                        {"headers", echo["headers"]},
                        {"body", body}}));
  EXPECT_EQ(echo["headers"]["x-trace-id"], "abc");

  ASSERT_TRUE(client.Get("/api/v1/public/diagnostic/check"));
  const auto recorded = sandbox.requests("/test/echo");
  ASSERT_EQ(recorded.size(), 1u);
  EXPECT_EQ(recorded[0].method + " " + recorded[0].query + " " + recorded[0].body,
            "POST a=1&b=x%20y " + body);
  EXPECT_EQ(recorded[0].headers.count("x-trace-id"), 1u);
  EXPECT_EQ(sandbox.requestCount("/api/v1/public/diagnostic/check"), 1u);
  sandbox.clearRecordedRequests();
  EXPECT_EQ(sandbox.requestCount("/test/echo"), 0u);
}

TEST(DeviceConfiguration, ValidatesTheRequestAndAnswersTheAdvertisingConfiguration) {
  struct Case {
    std::string body;
    int status;
    std::string expected;  // error: part of the message; success: the tag id, "" if derived
  };
  const std::vector<Case> cases = {
      {R"({"appId":"app","uuid":"device-1"})", 200, ""},
      {R"({"appId":"app","uuid":"device-1","tagid":"0011aabbccdd"})", 200, "0011aabbccdd"},
      {"not json", 400, "not valid JSON"},
      {R"(["appId","uuid"])", 400, "JSON object"},
      {R"({"uuid":"device-1"})", 400, "appId"},
      {R"({"appId":"app","uuid":""})", 400, "uuid"},
      {R"({"appId":"app","uuid":"device-1","tagid":5})", 400, "tagid"},
  };
  velora::testing::SandboxPlatform p;
  std::string derivedTag;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.body);
    const auto res = p.send("POST", "/api/v1/device/ios/conf", c.body);
    ASSERT_EQ(res.status, c.status);
    const json& answer = res.body;
    if (c.status != 200) {
      EXPECT_EQ(answer["code"], c.status);
      EXPECT_NE(answer["message"].get<std::string>().find(c.expected), std::string::npos);
      continue;
    }
    EXPECT_EQ(answer.value("appId", "") + answer.value("uuid", ""), "appdevice-1");
    const auto tag = answer["iosadvConf"]["tagid"].get<std::string>();
    if (c.expected.empty()) {  // derived: 12 hex digits, the same for the same device
      EXPECT_EQ(tag.find_first_not_of("0123456789abcdef"), std::string::npos);
      EXPECT_EQ(tag.size(), 12u);
      EXPECT_TRUE(derivedTag.empty() || derivedTag == tag);
      derivedTag = tag;
    } else {
      EXPECT_EQ(tag, c.expected);
    }
  }
  EXPECT_NE(p.send("POST", "/api/v1/device/ios/conf", R"({"appId":"app","uuid":"device-2"})").body["iosadvConf"]["tagid"],
            derivedTag);
}

TEST(Images, ServeCompleteFilesAndGuardThePrivateRouteWithABearerToken) {
  struct Case {
    std::string path, authorization;  // empty: none sent; "TOKEN" stands for a live one
    int status;
    std::string type, magic;  // magic: the file type's signature, found at `at`
    std::size_t at;
  };
  const std::vector<Case> cases = {
      {"/api/v1/public/image/logo.png", "", 200, "image/png", "\x89PNG\r\n\x1a\n\0\0\0\x0dIHDR"s,
       0},
      {"/api/v1/public/image/photo.jpg", "", 200, "image/jpeg", "\xff\xd8\xff", 0},
      {"/api/v1/public/image/anim.gif", "", 200, "image/gif", "GIF89a", 0},
      {"/api/v1/public/image/icon.webp", "", 200, "image/webp", "WEBPVP8", 8},
      {"/api/v1/image/icon.webp", "Bearer TOKEN", 200, "image/webp", "WEBPVP8", 8},
      {"/api/v1/image/nothing.png", "Bearer TOKEN", 404, "application/json", R"({"code":404,)", 0},
  };
  Sandbox sandbox;
  httplib::Client client(sandbox.baseUrl());
  const std::string token = sandbox.issueAccessToken(velora::sandbox::demo::kUser);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.path + " / " + c.authorization);
    httplib::Headers headers;
    if (!c.authorization.empty()) {
      std::string authorization = c.authorization;
      if (const auto at = authorization.find("TOKEN"); at != std::string::npos) {
        authorization.replace(at, 5, token);
      }
      headers.emplace("Authorization", authorization);
    }
    const auto res = client.Get(c.path, headers);
    ASSERT_TRUE(res);
    EXPECT_EQ(res->status, c.status);
    EXPECT_EQ(res->get_header_value("Content-Type"), c.type);
    EXPECT_EQ(res->body.compare(c.at, c.magic.size(), c.magic), 0);
  }
}

TEST(TestRoutes, AnswerTheRequestedStatusBodyTypeAndLocation) {
  struct Case {
    std::string method, target;
    int status;
    std::string body, type, location;  // body, type "*": not checked
  };
  const std::vector<Case> cases = {
      {"GET", "/test/status/418?body=teapot&type=text/plain", 418, "teapot", "text/plain", ""},
      {"PATCH", "/test/status/503?body=%7B%7D&delay_ms=20", 503, "{}", "application/json", ""},
      {"GET", "/test/status/99", 400, "*", "application/json", ""},
      {"POST", "/test/redirect?to=/test/echo&code=307", 307, "", "*", "/test/echo"},
      {"GET", "/test/redirect-chain/0", 302, "", "*", "/test/echo"},
      {"DELETE", "/nowhere", 404, R"({"code":404,"message":"No route for DELETE /nowhere"})",
       "application/json", ""},
  };
  velora::testing::SandboxPlatform p;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.method + " " + c.target);
    const auto res = p.send(c.method, c.target, {}, {}, "");
    EXPECT_EQ(res.status, c.status);
    EXPECT_TRUE(c.body == "*" || res.raw == c.body) << res.raw;
    EXPECT_TRUE(c.type == "*" || res.contentType == c.type);
    EXPECT_EQ(res.location, c.location);
  }
}

TEST(TestRoutes, ChallengeUntilTheNamedBasicCredentialsCome) {
  struct Case {
    const char* name;
    std::string target;
    std::optional<std::pair<std::string, std::string>> credentials;
    int status;
    std::string challenge;
  };
  const std::string basic = "/test/challenge?www-authenticate=Basic%20realm%3D%22x%22&user=ann&password=s%3Acret";
  const std::vector<Case> cases = {
      {"no credentials", basic, std::nullopt, 401, R"(Basic realm="x")"},
      {"right credentials", basic, std::pair{"ann", "s:cret"}, 200, ""},
      {"wrong password", basic, std::pair{"ann", "secret"}, 401, R"(Basic realm="x")"},
      {"other user", basic, std::pair{"bob", "s:cret"}, 401, R"(Basic realm="x")"},
      {"no expected credentials", "/test/challenge?www-authenticate=NTLM", std::pair{"ann", "s:cret"}, 401, "NTLM"},
      {"no challenge named", "/test/challenge?user=ann&password=s%3Acret", std::nullopt, 400, ""},
  };
  Sandbox sandbox;
  httplib::Client client(sandbox.baseUrl());
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    httplib::Headers headers;
    if (c.credentials) headers.insert(httplib::make_basic_authentication_header(c.credentials->first, c.credentials->second));
    const auto res = client.Get(c.target, headers);
    ASSERT_TRUE(res);
    EXPECT_EQ(res->status, c.status);
    EXPECT_EQ(res->get_header_value("WWW-Authenticate"), c.challenge);
  }
}

// A redirect chain is followed to its end by the curl transport's tests.
TEST(TestRoutes, ServeBytesAndCanBeLeftOut) {
  Sandbox sandbox;
  httplib::Client client(sandbox.baseUrl());
  std::string expected(300, '\0');
  for (std::size_t i = 0; i < expected.size(); ++i) {
    expected[i] = static_cast<char>(i % 256);
  }
  const auto bytes = client.Get("/test/bytes/300");
  ASSERT_TRUE(bytes);
  EXPECT_EQ(bytes->get_header_value("Content-Type"), "application/octet-stream");
  EXPECT_EQ(bytes->body, expected);

  SandboxOptions platformOnly;
  platformOnly.testRoutes = false;
  Sandbox plain(platformOnly);
  httplib::Client plainClient(plain.baseUrl());
  const auto res = plainClient.Get("/test/echo");
  ASSERT_TRUE(res);
  EXPECT_EQ(res->status, 404);
}

#ifdef VELORA_SANDBOX_PATH
// The shell reports the program's pid, relays its announcements, then reports its exit status.
TEST(SandboxProgram, AnnouncesItsUrlServesAndExitsCleanlyOnSigterm) {
  FILE* out = popen("'" VELORA_SANDBOX_PATH "' --port 0 --auto-login demo & echo pid=$!; wait $!; echo exit=$?", "r");
  ASSERT_NE(out, nullptr);
  const std::string announcement = "velora-sandbox listening on ";
  std::string url;
  std::string realm;
  std::string printed;
  pid_t pid = -1;
  char line[256];
  while ((url.empty() || realm.empty() || pid < 0) && fgets(line, sizeof line, out) != nullptr) {
    const std::string text(line, std::strcspn(line, "\n"));
    printed += text + "\n";
    if (text.starts_with("pid=")) {
      pid = std::stoi(text.substr(4));
    } else if (text.starts_with(announcement + "http://127.0.0.1:")) {
      url = text.substr(announcement.size());
    } else if (text.starts_with("identity realm at ")) {
      realm = text;
    }
  }
  ASSERT_GT(pid, 0);
  EXPECT_FALSE(url.empty());
  EXPECT_EQ(realm, "identity realm at " + url + "/realms/velora (logs demo in at once)");
  for (const char* secret : {velora::sandbox::demo::kPassword, velora::sandbox::demo::kGuestSecret}) {
    EXPECT_EQ(printed.find(secret), std::string::npos) << printed;
  }
  httplib::Client client(url.empty() ? "http://127.0.0.1:1" : url);
  const auto res = client.Get("/test/echo");
  EXPECT_TRUE(res && res->status == 200);
  kill(pid, SIGTERM);
  EXPECT_STREQ(fgets(line, sizeof line, out), "exit=0\n");
  pclose(out);
}
#endif

}  // namespace
