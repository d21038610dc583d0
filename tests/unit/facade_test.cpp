// The facade and its request pipeline against a scripted transport: set-up, session headers, the
// token decision in both entries, and the reply rules.

#include <gtest/gtest.h>

#include <regex>
#include <thread>

#include <velora/core/Orvane.hpp>

#include "Fakes.hpp"

namespace velora {
namespace {

using testing::FakePlatform;
using testing::FakeRenewer;
using Reply = testing::FakeTransport::Reply;

const EnvironmentModel kEnvironment("http://platform.test/base", 30);

std::shared_ptr<Orvane> makeFacade(FakePlatform& fakes, std::optional<EnvironmentModel> environment = kEnvironment,
                                   bool loggedIn = false) {
  return testing::makeTestFacade(fakes, std::move(environment), loggedIn);
}

/// Runs the callback form and returns the one message it delivered on the main queue.
ResponseMessage callbackResult(FakePlatform& fakes, const std::function<void(ResponseCallback)>& operation) {
  int calls = 0;
  ResponseMessage result;
  operation([&](const ResponseMessage& m) {
    EXPECT_TRUE(fakes.queue->isCurrent());
    ++calls;
    result = m;
  });
  EXPECT_EQ(calls, 0) << "answered before the main queue ran";
  fakes.queue->drain();
  EXPECT_EQ(calls, 1);
  return result;
}

template <class T>
struct Outcome {
  std::optional<T> value;
  std::optional<ResponseMessage> error;
};

template <class T>
Outcome<T> awaitResult(Task<T> task) {
  try {
    return {task.get(), std::nullopt};
  } catch (const APIError& e) {
    return {std::nullopt, e.responseMessage};
  }
}

TEST(Facade, InstallationIdentifierIsCreatedOnceAndReused) {
  FakePlatform fakes;
  const std::string first = makeFacade(fakes)->envUUID;
  EXPECT_TRUE(std::regex_match(first, std::regex("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}"))) << first;
  EXPECT_EQ(makeFacade(fakes)->envUUID, first);
  EXPECT_EQ(fakes.defaults->string("envUuid"), first);
}

TEST(Facade, SetupWithoutEnvironmentFallsBackToTheInformationDictionary) {
  FakePlatform fakes;
  fakes.info = AnyCodable::object({{"VeloraSDK", AnyCodable::object({{"defaultURL", "https://from.plist/api"}})}});
  auto facade = makeFacade(fakes, std::nullopt);
  ASSERT_TRUE(facade->environment);
  EXPECT_EQ(facade->environment->sdkEndpoint, "https://from.plist/api");
  EXPECT_EQ(facade->environment->timeout, 90);

  FakePlatform bare;
  auto unconfigured = makeFacade(bare, std::nullopt);
  EXPECT_FALSE(unconfigured->environment);
  EXPECT_FALSE(bare.defaults->object("environment-model"));
  EXPECT_EQ(bare.consoleLines, (std::vector<std::string>{"Orvane-SDK: Wrong or missing environment-model",
                                                         "Orvane-SDK: Missing environment-model"}));
  EXPECT_EQ(unconfigured->authStatus(), AuthenticationStatus::unknown);

  FakePlatform strict;
  strict.debugAssertionsStop = true;
  EXPECT_DEATH(makeFacade(strict, std::nullopt), "VeloraSDK fatal error: Orvane-SDK: Wrong or missing environment-model");
}

TEST(Facade, SessionCarriesExactlyTheSessionHeadersAndAddsAPermitEachTime) {
  FakePlatform fakes;
  auto facade = makeFacade(fakes);
  EXPECT_EQ(facade->session()->additionalHeaders(),
            (HttpHeaders{{"Content-Type", "application/json; charset=utf-8"}, {"uuid", facade->envUUID}}));
  EXPECT_EQ(facade->resumeAsyncSessionSemaphore.value(), 2);  // one at creation, one from construction

  auto renewer = std::make_shared<FakeRenewer>();
  renewer->token = "tok";
  facade->setSessionRenewer(renewer);
  facade->setupSession();
  EXPECT_EQ(facade->session()->additionalHeaders(),
            (HttpHeaders{{"Content-Type", "application/json; charset=utf-8"}, {"Authorization", "Bearer tok"}, {"uuid", facade->envUUID}}));
  EXPECT_EQ(facade->resumeAsyncSessionSemaphore.value(), 3);
}

struct DecisionCase {
  const char* name;
  bool installRenewer;
  TokenState state;
  enum { token, apiError, otherError, nothing } outcome;
  // callback form
  std::int64_t callbackCode;
  std::string callbackMessage;
  // awaitable form
  std::int64_t awaitCode;
  std::optional<std::string> sentAuthorization;  // of the one request the awaitable form sent
  int refreshes, captives;
};

RenewalResult renewal(const DecisionCase& c) {
  switch (c.outcome) {
    case DecisionCase::token: return {true, nullptr};
    case DecisionCase::apiError: return {false, std::make_exception_ptr(APIError(ResponseMessage(-23005, "invalid_grant")))};
    case DecisionCase::otherError: return {false, std::make_exception_ptr(std::runtime_error("network down"))};
    case DecisionCase::nothing: break;
  }
  return {false, nullptr};
}

TEST(Pipeline, TokenDecisionInBothEntries) {
  const std::string kName = "resumeSession(with:payload:callback:)";
  const TokenState valid{true, true, true}, refreshable{false, true, true}, captive{false, false, true}, none{};
  const DecisionCase cases[] = {
      {"valid token", true, valid, DecisionCase::token, 200, "ResponseMessage completed successfully", 200, "Bearer tok", 0, 0},
      {"refresh", true, refreshable, DecisionCase::token, 200, "ResponseMessage completed successfully", 200, "Bearer renewed-token", 1, 0},
      {"refresh api error", true, refreshable, DecisionCase::apiError, -23005, "invalid_grant", -27003, std::nullopt, 1, 0},
      {"refresh other error", true, refreshable, DecisionCase::otherError, -28001, "network down", -27003, std::nullopt, 1, 0},
      {"refresh nothing", true, refreshable, DecisionCase::nothing, -28002, kName + " - Unknown error occurred", -27003, std::nullopt, 1, 0},
      {"captive", true, captive, DecisionCase::token, 200, "ResponseMessage completed successfully", 200, "Bearer renewed-token", 0, 1},
      {"captive api error", true, captive, DecisionCase::apiError, -23005, "invalid_grant", -27003, std::nullopt, 0, 1},
      {"captive other error", true, captive, DecisionCase::otherError, -28003, "network down", -27003, std::nullopt, 0, 1},
      {"captive nothing", true, captive, DecisionCase::nothing, -28004, kName + " - Unknown error occurred", -27003, std::nullopt, 0, 1},
      {"no way to a token", true, none, DecisionCase::token, -28005, kName + " - Unauthorized token exception occurred", 200, "Bearer tok", 0, 0},
      {"no login layer", false, none, DecisionCase::token, -28005, kName + " - Unauthorized token exception occurred", 200, std::nullopt, 0, 0},
  };
  for (const auto& c : cases) {
    for (bool awaited : {false, true}) {
      SCOPED_TRACE(std::string(c.name) + (awaited ? " (awaited)" : " (callback)"));
      FakePlatform fakes;
      fakes.transport->responder = [](const HttpRequest&) { return Reply{200, R"({"code":0,"message":"up"})"}; };
      auto facade = makeFacade(fakes);
      auto renewer = std::make_shared<FakeRenewer>();
      renewer->state = c.state;
      renewer->outcome = renewal(c);
      renewer->token = "tok";
      if (c.installRenewer) {
        facade->setSessionRenewer(renewer);
        facade->setupSession();
      }
      const auto request = *facade->makeRequest("/api/v1/public/diagnostic/check");
      if (!awaited) {
        auto m = callbackResult(fakes, [&](ResponseCallback cb) { facade->resumeSession(request, ResponseMessage{}, cb); });
        EXPECT_EQ(m.code, c.callbackCode);
        EXPECT_EQ(m.message, c.callbackMessage);
        EXPECT_EQ(fakes.transport->requests().size(), c.callbackCode == 200 ? 1u : 0u);
      } else {
        auto result = awaitResult(facade->resumeAsyncSession<ResponseMessage>(request));
        const auto code = result.error ? result.error->code : 200;
        EXPECT_EQ(code, c.awaitCode);
        const auto sent = fakes.transport->requests();
        ASSERT_EQ(sent.size(), c.awaitCode == 200 ? 1u : 0u);
        if (!sent.empty()) {
          EXPECT_EQ(sent[0].headers.get("Authorization"), c.sentAuthorization);
        }
      }
      EXPECT_EQ(renewer->refreshes, c.refreshes);
      EXPECT_EQ(renewer->captives, c.captives);
    }
  }
}

TEST(Pipeline, A401AfterARenewalIsReportedWithoutRenewingAgain) {
  for (bool awaited : {false, true}) {
    SCOPED_TRACE(awaited ? "awaited" : "callback");
    FakePlatform fakes;
    fakes.transport->responder = [](const HttpRequest&) { return Reply{401, R"({"error":"invalid_token"})"}; };
    auto facade = makeFacade(fakes);
    auto renewer = std::make_shared<FakeRenewer>();
    renewer->state = {false, true, true};
    facade->setSessionRenewer(renewer);
    facade->setupSession();
    const auto request = *facade->makeRequest("/api/v1/public/diagnostic/check");
    if (awaited) {
      auto result = awaitResult(facade->resumeAsyncSession<ResponseMessage>(request));
      ASSERT_TRUE(result.error);
      EXPECT_EQ(*result.error, ResponseMessage(401, "Invalid status code"));
    } else {
      auto m = callbackResult(fakes, [&](ResponseCallback cb) { facade->resumeSession(request, ResponseMessage{}, cb); });
      EXPECT_EQ(m.code, 401);
    }
    EXPECT_EQ(renewer->refreshes, 1);
    EXPECT_EQ(renewer->captives, 0);
    ASSERT_EQ(fakes.transport->requests().size(), 1u);
    EXPECT_EQ(fakes.transport->requests()[0].headers.get("Authorization"), "Bearer renewed-token");
  }
}

Task<void> takePermit(AsyncSemaphore& semaphore) { co_await semaphore.wait(); }

TEST(Pipeline, AnAwaitedRequestCancelledWhileWaitingForItsTurnThrowsWithoutSending) {
  FakePlatform fakes;
  auto facade = makeFacade(fakes, kEnvironment, true);
  AsyncSemaphore& turns = facade->resumeAsyncSessionSemaphore;
  while (turns.value() > 0) takePermit(turns).get();
  auto task = facade->resumeAsyncSession<ResponseMessage>(*facade->makeRequest("/api/v1/public/diagnostic/check"));
  std::exception_ptr error;
  std::thread runner([&] {
    try {
      task.get();
    } catch (...) {
      error = std::current_exception();
    }
  });
  while (turns.value() != -1) std::this_thread::yield();
  task.cancel();
  runner.join();
  ASSERT_TRUE(error);
  EXPECT_THROW(std::rethrow_exception(error), CancellationError);
  EXPECT_TRUE(fakes.transport->requests().empty());
  EXPECT_EQ(turns.value(), 0);
}

TEST(Pipeline, ReplyRulesInBothEntries) {
  struct Case {
    Reply reply;
    std::int64_t callbackCode;
    std::optional<std::string> callbackMessage;
    std::int64_t awaitCode;
    std::optional<std::string> awaitMessage;
  };
  const Case cases[] = {
      {{200, R"({"code":7,"message":"up"})"}, 200, "ResponseMessage completed successfully", 7, "up"},
      {{200, R"({"message":"no code"})"}, -27004, "JSON Parsing Failure", -27003, "Invalid JSON decoded"},
      {{200, ""}, -27004, "JSON Parsing Failure", -27003, "Invalid JSON decoded"},
      {{201, ""}, 201, "created", 201, "Invalid status code"},
      {{201, R"({"code":201,"message":"made"})"}, 201, "made", 201, "made"},
      {{404, R"({"code":4040,"message":"No such desk","alert":{"code":1,"title":"T","description":"D"}})"}, 4040, "No such desk", 4040, "No such desk"},
      {{401, R"({"error":"x"})"}, 401, "unauthorized", 401, "Invalid status code"},
      {{500, "<html>oops</html>"}, 500, "internal server error", 500, "Invalid status code"},
      {{0, "", TransportError{-1004, "Could not connect to the server."}}, -1004, "Could not connect to the server.", -27003, "Unknown error occurred"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.reply.status);
    FakePlatform fakes;
    fakes.transport->responder = [&](const HttpRequest&) { return c.reply; };
    auto facade = makeFacade(fakes, kEnvironment, true);
    auto m = callbackResult(fakes, [&](ResponseCallback cb) { facade->checkConnection(cb); });
    EXPECT_EQ(m.code, c.callbackCode);
    EXPECT_EQ(m.message, c.callbackMessage);
    auto result = awaitResult(facade->checkConnection());
    const auto awaited = result.error ? *result.error : *result.value;
    EXPECT_EQ(awaited.code, c.awaitCode);
    EXPECT_EQ(awaited.message, c.awaitMessage);
  }
}

TEST(Pipeline, AnUnreadableReplyIsLoggedWithWhatTheParserFound) {
  FakePlatform fakes;
  fakes.transport->responder = [](const HttpRequest&) { return Reply{200, "{\"code\":"}; };
  auto facade = makeFacade(fakes, kEnvironment, true);
  EXPECT_EQ(callbackResult(fakes, [&](ResponseCallback cb) { facade->checkConnection(cb); }).code, -27004);
  ASSERT_EQ(fakes.consoleLines.size(), 1u);
  EXPECT_EQ(fakes.consoleLines[0].rfind("resumeSession(with:payload:callback:) - AnyDecodable value cannot be decoded (", 0), 0u)
      << fakes.consoleLines[0];
  EXPECT_NE(fakes.consoleLines[0].find("unexpected end of input"), std::string::npos) << fakes.consoleLines[0];
}

TEST(Pipeline, SuccessfulPayloadDecodesBackIntoTheRecord) {
  FakePlatform fakes;
  fakes.transport->responder = [](const HttpRequest& r) {
    auto sent = decodeJSON<NetworkRequestConfiguration>(r.body.text());
    return Reply{200, R"({"appId":")" + sent.appId + R"(","uuid":")" + sent.uuid + R"(","iosadvConf":{"tagid":")" +
                          sent.tagid.value_or("auto") + R"(","byte1":1,"byte2":2}})"};
  };
  auto facade = makeFacade(fakes, kEnvironment, true);
  auto m = callbackResult(fakes, [&](ResponseCallback cb) { facade->getConfiguration("t-9", cb); });
  EXPECT_EQ(m.message, "NetworkResponseConfiguration completed successfully");
  EXPECT_EQ(m.payloadAs<NetworkResponseConfiguration>().iosadvConf.tagid, "t-9");
  EXPECT_EQ(facade->getOrCreateConfiguration(std::nullopt).get().iosadvConf.tagid, "auto");
}

TEST(Pipeline, BothConfigurationOperationsSendTheIdenticalRequest) {
  FakePlatform fakes;
  auto facade = makeFacade(fakes, kEnvironment, true);
  callbackResult(fakes, [&](ResponseCallback cb) { facade->getConfiguration(std::nullopt, cb); });
  callbackResult(fakes, [&](ResponseCallback cb) { facade->getOrCreateConfiguration(std::nullopt, cb); });
  awaitResult(facade->getConfiguration(std::nullopt));
  awaitResult(facade->getOrCreateConfiguration(std::nullopt));
  const auto sent = fakes.transport->requests();
  ASSERT_EQ(sent.size(), 4u);
  for (const auto& r : sent) {
    EXPECT_EQ(r.method, "POST");
    EXPECT_EQ(r.url, "http://platform.test/base/api/v1/device/ios/conf");
    EXPECT_EQ(r.body, R"({"appId":"test.app","uuid":")" + facade->envUUID + R"("})");
    EXPECT_EQ(r.headers, sent[0].headers);
    EXPECT_EQ(r.timeout, std::chrono::seconds(30));
  }
}

TEST(Pipeline, MissingBundleIdentifierIsRefusedLocally) {
  FakePlatform fakes;
  fakes.bundleIdentifier.reset();
  auto facade = makeFacade(fakes, kEnvironment, true);
  auto m = callbackResult(fakes, [&](ResponseCallback cb) { facade->getConfiguration(std::nullopt, cb); });
  EXPECT_EQ(m, ResponseMessage(-9003, "Invalid Bundle Identifier Specified"));
  auto result = awaitResult(facade->getOrCreateConfiguration("x"));
  EXPECT_EQ(result.error, ResponseMessage(-9003, "Invalid Bundle Identifier Specified"));
  EXPECT_TRUE(fakes.transport->requests().empty());
}

TEST(Pipeline, RawBytesAndResources) {
  FakePlatform fakes;
  fakes.transport->responder = [](const HttpRequest& r) {
    return r.url.find("missing") != std::string::npos ? Reply{404, ""} : Reply{200, std::string("\x00\xFFz", 3)};
  };
  auto facade = makeFacade(fakes, kEnvironment, true);
  const Bytes expected{0x00, 0xFF, 'z'};
  auto m = callbackResult(fakes, [&](ResponseCallback cb) { facade->fetchResource("/files/a.bin", cb); });
  EXPECT_EQ(m.code, 200);
  EXPECT_EQ(m.payload->find("data")->as<Bytes>() ? *m.payload->find("data")->as<Bytes>() : Bytes{}, expected);
  EXPECT_EQ(facade->fetchResource("/files/a.bin").get(), expected);
  EXPECT_EQ(facade->fetchResource("https://cdn.test/a.bin").get(), expected);
  EXPECT_EQ(awaitResult(facade->fetchResource("/missing")).error->code, 404);
  auto bad = callbackResult(fakes, [&](ResponseCallback cb) { facade->fetchResource("/has space", cb); });
  EXPECT_EQ(bad.code, -27002);
  // Whole URLs go out without the session's headers.
  const auto sent = fakes.transport->requests();
  EXPECT_TRUE(sent[0].headers.contains("uuid"));
  EXPECT_FALSE(sent[2].headers.contains("uuid"));
}

TEST(SdkImage, RecognisesFormatsAndReadsTheirSize) {
  auto bytes = [](std::initializer_list<int> values) {
    Bytes out;
    for (int v : values) out.push_back(static_cast<std::uint8_t>(v));
    return out;
  };
  Bytes png = bytes({0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n', 0, 0, 0, 13, 'I', 'H', 'D', 'R', 0, 0, 1, 0, 0, 0, 0, 3});
  Bytes gif = bytes({'G', 'I', 'F', '8', '9', 'a', 5, 0, 7, 0});
  Bytes jpeg = bytes({0xFF, 0xD8, 0xFF, 0xE0, 0, 4, 0, 0, 0xFF, 0xC0, 0, 11, 8, 0, 2, 0, 4});
  Bytes webp = bytes({'R', 'I', 'F', 'F', 0, 0, 0, 0, 'W', 'E', 'B', 'P', 'V', 'P', '8', 'L', 0, 0, 0, 0, 0x2F,
                      0x02, 0x80, 0, 0, 0, 0, 0, 0, 0});
  struct Case {
    Bytes data;
    std::optional<SdkImage::Format> format;
    int width, height;
  };
  const Case cases[] = {{png, SdkImage::Format::png, 256, 3},  {gif, SdkImage::Format::gif, 5, 7},
                        {jpeg, SdkImage::Format::jpeg, 4, 2},  {webp, SdkImage::Format::webp, 3, 3},
                        {Bytes(png.begin(), png.end() - 1), {}, 0, 0}, {bytes({'{', '}'}), {}, 0, 0}};
  for (const auto& c : cases) {
    auto image = SdkImage::decode(c.data);
    ASSERT_EQ(image.has_value(), c.format.has_value());
    if (!image) continue;
    EXPECT_EQ(image->format, *c.format);
    EXPECT_EQ(image->width, c.width);
    EXPECT_EQ(image->height, c.height);
  }
}

}  // namespace
}  // namespace velora
