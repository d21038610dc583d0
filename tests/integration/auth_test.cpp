// Logins and session renewal end to end: the library's curl transport against the sandbox's
// identity realm and bearer-protected routes. The client's clock is moved forward to expire tokens
// on the client side; the server's tokens stay live.

#include <gtest/gtest.h>

#include <unistd.h>

#include <future>

#include <velora/core/Orvane.hpp>
#include <velora_sandbox/Sandbox.hpp>

#include "OverHttp.hpp"

namespace velora {
namespace {

using namespace std::chrono_literals;
namespace demo = sandbox::demo;

/// A browser that follows the authorisation address itself, stopping at the first redirect away
/// from the realm (the callback), as a user's browser would with an already logged-in user.
class FollowingBrowser : public BrowserAuthSession {
 public:
  explicit FollowingBrowser(std::shared_ptr<HttpTransport> transport) : transport_(std::move(transport)) {}
  void start(const std::string& url, const std::string&, Completion completion) override {
    struct Delegate : HttpDelegate {
      Completion completion;
      std::optional<std::string> location;
      bool willRedirect(HttpRequest&, const HttpResponseHead& head) override {
        location = head.headers.get("Location");
        return false;
      }
      void didReceiveResponse(const HttpResponseHead& head) override {
        if (!location) location = head.headers.get("Location");
      }
      void didReceiveData(std::string_view) override {}
      void didComplete(std::optional<TransportError> error) override {
        if (error || !location) return completion(std::nullopt, PlatformError("no redirect", -1));
        completion(location, std::nullopt);
      }
    };
    auto delegate = std::make_shared<Delegate>();
    delegate->completion = std::move(completion);
    HttpRequest request;
    request.url = url;
    transport_->start(std::move(request), delegate);
  }

 private:
  std::shared_ptr<HttpTransport> transport_;
};

/// A keychain that remembers the threads that wrote it.
class ThreadRecordingStore : public testing::MemorySecureStore {
 public:
  int add(const std::optional<std::string>& service, const std::string& account, const Bytes& data) override {
    record();
    return MemorySecureStore::add(service, account, data);
  }
  int update(const std::optional<std::string>& service, const std::string& account, const Bytes& data) override {
    record();
    return MemorySecureStore::update(service, account, data);
  }
  int remove(const std::optional<std::string>& service, const std::string& account) override {
    record();
    return MemorySecureStore::remove(service, account);
  }
  std::vector<std::thread::id> writers() {
    std::lock_guard lock(mutex_);
    return writers_;
  }

 private:
  void record() {
    std::lock_guard lock(mutex_);
    writers_.push_back(std::this_thread::get_id());
  }
  std::mutex mutex_;
  std::vector<std::thread::id> writers_;
};

/// A transport that learns the thread its deliveries come from (the I/O thread).
class IoThreadProbe : public HttpTransport {
 public:
  explicit IoThreadProbe(std::shared_ptr<HttpTransport> inner) : inner_(std::move(inner)) {}
  std::shared_ptr<HttpCall> start(HttpRequest request, std::shared_ptr<HttpDelegate> delegate) override {
    struct Probe : HttpDelegate {
      std::shared_ptr<HttpDelegate> inner;
      std::atomic<std::thread::id>* io;
      bool willRedirect(HttpRequest& next, const HttpResponseHead& head) override { return inner->willRedirect(next, head); }
      void didReceiveResponse(const HttpResponseHead& head) override { inner->didReceiveResponse(head); }
      void didReceiveData(std::string_view chunk) override { inner->didReceiveData(chunk); }
      void didComplete(std::optional<TransportError> error) override {
        io->store(std::this_thread::get_id());
        inner->didComplete(std::move(error));
      }
    };
    auto probe = std::make_shared<Probe>();
    probe->inner = std::move(delegate);
    probe->io = &io_;
    return inner_->start(std::move(request), probe);
  }
  std::thread::id ioThread() const { return io_.load(); }

 private:
  std::shared_ptr<HttpTransport> inner_;
  std::atomic<std::thread::id> io_;
};

class AuthOverHttp : public ::testing::Test {
 protected:
  std::string tokenPath() const { return "/realms/" + std::string(demo::kRealm) + "/protocol/openid-connect/token"; }

  /// A facade on real HTTP in login mode `mode`, with fakes only for clock and keychain.
  std::shared_ptr<Orvane> facade(KeycloakLoginMode mode, const std::shared_ptr<SecureStore>& keychain = nullptr) {
    testing::HttpPlatform http = http_;
    http.transport = transport_;
    http.browser = std::make_shared<FollowingBrowser>(transport_);
    if (keychain) http.secureStore = keychain;
    KeycloakEnvironment keycloak{KeycloakAuthenticationMethod::APPLE, mode, demo::kPublicClient, demo::kGuestClient,
                                 demo::kGuestSecret, "http://127.0.0.1:1/callback",
                                 sandbox_.realmUrl() + "/.well-known/openid-configuration"};
    return testing::sandboxFacade(sandbox_, http.platform("auth.it"), false, keycloak);
  }

  ResponseMessage callbackConfiguration(Orvane& f) {
    std::promise<ResponseMessage> answer;
    f.getConfiguration(std::nullopt, [&](const ResponseMessage& m) { answer.set_value(m); });
    auto future = answer.get_future();
    EXPECT_EQ(future.wait_for(20s), std::future_status::ready);
    return future.get();
  }

  sandbox::Sandbox sandbox_;
  std::shared_ptr<testing::ManualClock> clock_ = std::make_shared<testing::ManualClock>();
  std::shared_ptr<testing::MemorySecureStore> keychain_ = std::make_shared<testing::MemorySecureStore>();
  testing::HttpPlatform http_ = [this] {
    testing::HttpPlatform http;
    http.clock = clock_;
    http.secureStore = keychain_;
    return http;
  }();
  std::shared_ptr<HttpTransport> transport_ = http_.transport;
  std::shared_ptr<MainQueue> queue_ = http_.queue;
};

TEST_F(AuthOverHttp, EveryLoginFlowReachesAProtectedRoute) {
  sandbox_.setAutoLogin(std::string(demo::kUser));
  struct Case {
    const char* name;
    KeycloakLoginMode mode;
    std::function<KeyCloakAuthResponse(Orvane&)> login;
  };
  const Case cases[] = {
      {"password", KeycloakLoginMode::BACKGROUND, [](Orvane& f) { return f.backgroundLogin(demo::kUser, demo::kPassword, -1).get(); }},
      {"browser", KeycloakLoginMode::USER, [](Orvane& f) { return f.keycloakLogin().get(); }},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    auto f = facade(c.mode, std::make_shared<testing::MemorySecureStore>());
    // The awaitable form sends without a token.
    EXPECT_EQ(testing::failureOf(f->getConfiguration(std::nullopt)).code, 401);
    auto token = c.login(*f);
    EXPECT_TRUE(token.accessTokenValid(clock_->now()));
    EXPECT_EQ(f->authStatus(), AuthenticationStatus::authenticated);
    EXPECT_EQ(f->getConfiguration(std::nullopt).get().appId, "auth.it");
    EXPECT_EQ(callbackConfiguration(*f).code, 200);
    f->logout().get();
    EXPECT_EQ(f->authStatus(), AuthenticationStatus::notAuthenticated);
  }
}

TEST_F(AuthOverHttp, ExpiredRefreshTokenTriggersCaptiveRenewalInTheConfiguredMode) {
  struct Case {
    KeycloakLoginMode mode;
    const char* grant;
  };
  for (const Case& c : {Case{KeycloakLoginMode::GUEST, "grant_type=client_credentials"}, Case{KeycloakLoginMode::BACKGROUND, "grant_type=password"}}) {
    auto f = facade(c.mode, std::make_shared<testing::MemorySecureStore>());
    if (c.mode == KeycloakLoginMode::GUEST) {
      f->keycloakGuestLogin().get();
    } else {
      f->backgroundLogin(demo::kUser, demo::kPassword, -1).get();
    }
    clock_->now_ += 3600s;  // both tokens expired on the client
    sandbox_.clearRecordedRequests();
    EXPECT_EQ(callbackConfiguration(*f).code, 200);
    clock_->now_ += 3600s;
    EXPECT_EQ(f->getConfiguration(std::nullopt).get().appId, "auth.it");
    const auto grants = sandbox_.requests(tokenPath());
    ASSERT_EQ(grants.size(), 2u);
    for (const auto& g : grants) EXPECT_NE(g.body.find(c.grant), std::string::npos) << g.body;
  }
}

TEST_F(AuthOverHttp, LoopbackBrowserHandsBackTheRedirect) {
  std::vector<std::string> printed;
  auto browser = makeLoopbackBrowserAuthSession([&](const std::string& line) { printed.push_back(line); });
  const int port = 20000 + static_cast<int>(::getpid() % 20000);
  const std::string redirect = "http://127.0.0.1:" + std::to_string(port) + "/callback";
  std::promise<std::optional<std::string>> callback;
  browser->start(sandbox_.realmUrl() + "/protocol/openid-connect/auth?client_id=x&redirect_uri=http:%2F%2F127.0.0.1:" +
                     std::to_string(port) + "%2Fcallback",
                 "", [&](auto url, auto) { callback.set_value(url); });
  ASSERT_FALSE(printed.empty());
  // The user's browser arrives at the redirect.
  HttpRequest hit;
  hit.url = redirect + "?state=STATE&session_state=s&code=abc";
  std::promise<DataResult> reply;
  startDataRequest(*transport_, hit, [&](DataResult r) { reply.set_value(std::move(r)); });
  auto answered = reply.get_future().get();
  ASSERT_TRUE(answered.response);
  EXPECT_EQ(answered.response->head.status, 200);
  EXPECT_EQ(callback.get_future().get(), hit.url);
}
TEST_F(AuthOverHttp, CompletionsReachTheMainQueueOnceAndKeychainWritesStayOffTheIoThread) {
  auto probe = std::make_shared<IoThreadProbe>(transport_);
  transport_ = probe;
  auto store = std::make_shared<ThreadRecordingStore>();
  auto f = facade(KeycloakLoginMode::BACKGROUND, store);
  std::promise<std::thread::id> main;
  queue_->post([&] { main.set_value(std::this_thread::get_id()); });
  const auto mainThread = main.get_future().get();

  using Answered = std::function<void(std::int64_t code)>;
  auto token = [](Answered done) {
    return [done](std::optional<KeyCloakAuthResponse> t, std::optional<PlatformError> e) { done(t && !e ? 200 : e->code); };
  };
  auto message = [](Answered done) { return [done](const ResponseMessage& m) { done(m.code); }; };
  struct Step {
    const char* name;
    std::function<void(Orvane&, Answered)> run;
  };
  const Step steps[] = {
      {"guest login", [&](Orvane& o, Answered d) { o.keycloakGuestLogin(token(d)); }},
      {"check", [&](Orvane& o, Answered d) { o.checkConnection(message(d)); }},
      {"configuration", [&](Orvane& o, Answered d) { o.getConfiguration(std::nullopt, message(d)); }},
      {"qr code", [&](Orvane& o, Answered d) {
         o.getLoginParameters(demo::kLoginCode, [d](std::optional<ResponseMessage> m) { d(m ? m->code : -1); });
       }},
      {"background login", [&](Orvane& o, Answered d) { o.backgroundLogin(std::nullopt, std::nullopt, -1, token(d)); }},
      {"captive renewal", [&](Orvane& o, Answered d) { o.captiveReauth(token(d)); }},
      {"resource", [&](Orvane& o, Answered d) { o.fetchResource("/api/v1/public/image/logo.png", message(d)); }},
      {"image", [&](Orvane& o, Answered d) {
         o.downloadSdkImage("/api/v1/public/image/logo.png", true, [d](auto image, auto e) { d(image ? 200 : e->code); });
       }},
      {"logout", [&](Orvane& o, Answered d) { o.logout(std::nullopt, [d](std::optional<PlatformError> e) { d(e ? e->code : 200); }); }},
  };
  for (const auto& step : steps) {
    SCOPED_TRACE(step.name);
    std::atomic<int> answers{0};
    std::promise<std::int64_t> first;
    step.run(*f, [&](std::int64_t code) {
      EXPECT_EQ(std::this_thread::get_id(), mainThread);
      if (++answers == 1) first.set_value(code);
    });
    auto future = first.get_future();
    ASSERT_EQ(future.wait_for(20s), std::future_status::ready);
    EXPECT_EQ(future.get(), 200);
    std::promise<void> drained;  // a second answer would be queued before this
    queue_->post([&] { drained.set_value(); });
    drained.get_future().wait();
    EXPECT_EQ(answers.load(), 1);
  }
  const auto writers = store->writers();
  EXPECT_GE(writers.size(), 4u);  // two logins, the QR credentials, the logout
  for (const auto& writer : writers) EXPECT_NE(writer, probe->ioThread());
}

}  // namespace
}  // namespace velora
