// Single-flight renewal against the sandbox's realm: requests of both forms that find the access
// token expired while the token endpoint is slow to answer send it one refresh between them.

#include <gtest/gtest.h>

#include <future>
#include <set>

#include <velora/core/Orvane.hpp>
#include <velora_sandbox/Sandbox.hpp>

#include "OverHttp.hpp"

namespace velora {
namespace {

using namespace std::chrono_literals;
namespace demo = sandbox::demo;

TEST(SingleFlightRenewalOverHttp, ConcurrentRequestsShareOneRefresh) {
  for (bool refreshSucceeds : {true, false}) {
    SCOPED_TRACE(refreshSucceeds ? "refresh succeeds" : "refresh refused");
    sandbox::Sandbox sandbox;
    auto clock = std::make_shared<testing::ManualClock>();
    testing::HttpPlatform http;
    http.clock = clock;
    auto facade = testing::sandboxFacade(sandbox, http.platform("auth.it"), false, testing::passwordLoginIdentity(sandbox));
    facade->setSingleFlightRenewal(true);
    facade->backgroundLogin(demo::kUser, demo::kPassword, -1).get();

    clock->now_ += 400s;  // the access token has expired on the client, the refresh token has not
    if (!refreshSucceeds) sandbox.revokeAllTokens();
    const std::string tokenPath = "/realms/" + std::string(demo::kRealm) + "/protocol/openid-connect/token";
    // A slow token endpoint, so that every request meets the refresh still running.
    sandbox.addFault({.path = tokenPath, .method = "POST", .action = sandbox::FaultAction::delay, .remaining = 1, .delayMs = 300});
    sandbox.clearRecordedRequests();

    std::vector<std::shared_ptr<std::promise<std::int64_t>>> callbacks;
    for (int i = 0; i < 4; ++i) {
      auto answer = callbacks.emplace_back(std::make_shared<std::promise<std::int64_t>>());
      facade->getConfiguration(std::nullopt, [answer](const ResponseMessage& m) { answer->set_value(m.code); });
    }
    std::vector<std::future<std::int64_t>> awaited;
    for (int i = 0; i < 3; ++i) {
      awaited.push_back(std::async(std::launch::async, [facade]() -> std::int64_t {
        try {
          facade->getConfiguration(std::nullopt).get();
          return 200;
        } catch (const APIError& e) {
          return e.responseMessage.code;
        }
      }));
    }
    std::set<std::int64_t> callbackCodes;
    for (auto& answer : callbacks) {
      auto code = answer->get_future();
      ASSERT_EQ(code.wait_for(20s), std::future_status::ready);
      callbackCodes.insert(code.get());
    }
    for (auto& code : awaited) EXPECT_EQ(code.get(), refreshSucceeds ? 200 : -27003);
    ASSERT_EQ(callbackCodes.size(), 1u) << "every callback got the same answer";
    if (refreshSucceeds) {
      EXPECT_EQ(*callbackCodes.begin(), 200);
    } else {
      EXPECT_NE(*callbackCodes.begin(), 200);
    }
    EXPECT_EQ(sandbox.requests(tokenPath).size(), 1u);
    EXPECT_EQ(sandbox.requests("/api/v1/device/ios/conf").size(), refreshSucceeds ? 7u : 0u);
  }
}

}  // namespace
}  // namespace velora
