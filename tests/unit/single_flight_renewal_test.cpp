// Single-flight renewal: requests of both forms that meet an expired session while its renewal
// is still running, against a renewer that answers only when the test says so.

#include <gtest/gtest.h>

#include <velora/core/Orvane.hpp>

#include "Fakes.hpp"

namespace velora {
namespace {

using testing::FakePlatform;
using Reply = testing::FakeTransport::Reply;

const EnvironmentModel kEnvironment("http://platform.test/base", 30);

/// Holds every renewal until the test finishes it, so that requests pile up behind it.
class HeldRenewer : public SessionRenewer {
 public:
  TokenState tokenState() const override { return state; }
  std::optional<std::string> accessToken() const override { return token; }
  void refresh(Completion completion) override {
    ++refreshes;
    held.push_back(std::move(completion));
  }
  void captiveReauth(Completion completion) override {
    ++captives;
    held.push_back(std::move(completion));
  }
  /// Ends every renewal held now with `result`; a token makes the session valid.
  void finish(const RenewalResult& result) {
    auto ending = std::exchange(held, {});
    if (result.gotToken) {
      state.accessTokenValid = true;
      token = "renewed-token";
    }
    for (auto& completion : ending) completion(result);
  }

  TokenState state{false, true, true};
  std::optional<std::string> token = "expired-token";
  std::vector<Completion> held;
  int refreshes = 0;
  int captives = 0;
};

/// What one request answered: a callback's message or an awaited request's value or error.
struct Answer {
  int count = 0;
  std::optional<ResponseMessage> message;
};

Task<void> awaited(std::shared_ptr<Orvane> facade, HttpRequest request, Answer& answer) {
  try {
    auto reply = facade->resumeAsyncSession<ResponseMessage>(std::move(request));
    answer.message = co_await std::move(reply);
  } catch (const APIError& e) {
    answer.message = e.responseMessage;
  }
  ++answer.count;
}

TEST(SingleFlightRenewal, RequestsThatMeetOneExpiredSession) {
  const APIError refused(ResponseMessage(-23001, "token endpoint refused"));
  struct Case {
    const char* name;
    bool singleFlight;
    bool renewalSucceeds;
    int callbacks;
    int awaitedRequests;
    int refreshes;
  };
  const Case cases[] = {
      {"on, renewal succeeds", true, true, 3, 3, 1},
      {"on, renewal fails", true, false, 3, 3, 1},
      {"on, callbacks only, renewal fails", true, false, 4, 0, 1},
      {"on, awaited only, renewal fails", true, false, 0, 4, 1},
      // Off: renewals take turns, and each request that finds the session still expired after a
      // failed turn tries a renewal of its own.
      {"off, renewal succeeds", false, true, 3, 3, 1},
      {"off, renewal fails", false, false, 3, 3, 6},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    FakePlatform fakes;
    fakes.transport->responder = [](const HttpRequest&) { return Reply{200, R"({"code":0,"message":"up"})"}; };
    auto facade = testing::makeTestFacade(fakes, kEnvironment, false);
    auto renewer = std::make_shared<HeldRenewer>();
    facade->setSessionRenewer(renewer);
    facade->setupSession();
    facade->setSingleFlightRenewal(c.singleFlight);
    const auto request = *facade->makeRequest("/api/v1/public/diagnostic/check");

    std::vector<Answer> callbackAnswers(c.callbacks);
    std::vector<Answer> awaitedAnswers(c.awaitedRequests);
    for (int i = 0; i < std::max(c.callbacks, c.awaitedRequests); ++i) {  // the two forms interleaved
      if (i < c.callbacks) {
        facade->resumeSession(request, ResponseMessage{}, [&answer = callbackAnswers[i]](const ResponseMessage& m) {
          ++answer.count;
          answer.message = m;
        });
      }
      if (i < c.awaitedRequests) detachTask(awaited(facade, request, awaitedAnswers[i]));
    }
    EXPECT_EQ(renewer->refreshes, 1) << "one renewal runs while the requests wait";
    EXPECT_TRUE(fakes.transport->requests().empty());

    const RenewalResult outcome =
        c.renewalSucceeds ? RenewalResult{true, nullptr} : RenewalResult{false, std::make_exception_ptr(refused)};
    while (!renewer->held.empty()) renewer->finish(outcome);
    fakes.queue->drain();

    EXPECT_EQ(renewer->refreshes, c.refreshes);
    EXPECT_EQ(renewer->captives, 0);
    const auto sent = fakes.transport->requests();
    ASSERT_EQ(sent.size(), c.renewalSucceeds ? std::size_t(c.callbacks + c.awaitedRequests) : 0u);
    for (const auto& each : sent) EXPECT_EQ(each.headers.get("Authorization"), "Bearer renewed-token");
    for (const auto& answer : callbackAnswers) {
      EXPECT_EQ(answer.count, 1);
      ASSERT_TRUE(answer.message);
      if (c.renewalSucceeds) {
        EXPECT_EQ(answer.message->code, 200);
      } else {
        EXPECT_EQ(*answer.message, refused.responseMessage);
      }
    }
    for (const auto& answer : awaitedAnswers) {
      EXPECT_EQ(answer.count, 1);
      ASSERT_TRUE(answer.message);
      EXPECT_EQ(answer.message->code, c.renewalSucceeds ? 0 : -27003);
      if (!c.renewalSucceeds) {
        EXPECT_EQ(answer.message->trace, "APIError -23001: token endpoint refused");
      }
    }
  }
}

TEST(SingleFlightRenewal, ARequestAfterALandedFailureStartsANewRenewal) {
  FakePlatform fakes;
  fakes.transport->responder = [](const HttpRequest&) { return Reply{200, R"({"code":0,"message":"up"})"}; };
  auto facade = testing::makeTestFacade(fakes, kEnvironment, false);
  auto renewer = std::make_shared<HeldRenewer>();
  facade->setSessionRenewer(renewer);
  facade->setupSession();
  facade->setSingleFlightRenewal(true);
  const auto request = *facade->makeRequest("/api/v1/public/diagnostic/check");

  std::vector<std::int64_t> codes;
  const auto record = [&](const ResponseMessage& m) { codes.push_back(m.code); };
  facade->resumeSession(request, ResponseMessage{}, record);
  renewer->finish({false, std::make_exception_ptr(APIError(ResponseMessage(-23001, "down")))});
  facade->resumeSession(request, ResponseMessage{}, record);
  EXPECT_EQ(renewer->refreshes, 2) << "a failure is not kept for later requests";
  renewer->finish({true, nullptr});
  fakes.queue->drain();
  EXPECT_EQ(codes, (std::vector<std::int64_t>{-23001, 200}));
}

}  // namespace
}  // namespace velora
