// Where work runs: nothing waits on a thread for the library, and a wait that could never end
// stops with a message instead.

#include <gtest/gtest.h>

#include <velora/velora.hpp>

#include "Fakes.hpp"

namespace velora {
namespace {

using testing::FakePlatform;

TEST(Threading, GetOnTheMainQueuesOwnThreadStopsWithAMessage) {
  EXPECT_DEATH(
      {
        FakePlatform fakes;
        auto facade = testing::makeTestFacade(fakes, EnvironmentModel("http://platform.test", 30), true);
        fakes.queue->post([&] { (void)facade->checkConnection().get(); });
        fakes.queue->drain();
      },
      "Task::get\\(\\) was called on the main queue's thread");
}

TEST(Threading, SettingAControlWithoutATokenSendsOnceAndReturnsAtOnce) {
  FakePlatform fakes;
  auto facade = testing::makeTestFacade(fakes, EnvironmentModel("http://platform.test", 30), false);
  // A transport that holds every request until the test answers it: the assignment must come
  // back while its request is still out.
  auto held = std::make_shared<testing::SteppedTransport>();
  auto platform = fakes.platform();
  platform.transport = held;
  auto sending = Orvane::make(platform);
  auto control = std::make_shared<ItemControl>(
      decodeJSON<ItemControl>(R"({"name":"Power","type":"CTRL_TOGGLE","currentValue":{"id":101,"value":"off"}})"));
  control->bind(sending);

  control->setCurrentValue({101, "on"});
  ASSERT_EQ(held->started.size(), 1u);
  const HttpRequest& request = held->started[0]->request;
  EXPECT_EQ(request.url, "http://platform.test/api/v1/item/set");
  EXPECT_FALSE(request.headers.contains("Authorization"));
  EXPECT_EQ(AnyCodable::parse(request.body.text()), AnyCodable::parse(R"({"id":101,"value":"on"})"));
  EXPECT_EQ(fakes.consoleLines.back(), R"(setControllableItem({"id":101,"value":"on"}))");

  held->last().didReceiveResponse({200, {}, request.url});
  held->last().didReceiveData(R"({"id":101,"value":"on"})");
  held->last().didComplete(std::nullopt);
  EXPECT_EQ(held->started.size(), 1u);
}

TEST(Threading, StressManyThreadsMeetingAnExpiredSessionShareRenewalsAndEachGetOneAnswer) {
  FakePlatform fakes;
  auto facade = testing::makeTestFacade(fakes, EnvironmentModel("http://platform.test", 30), false);
  fakes.transport->responder = [](const HttpRequest&) { return testing::FakeTransport::Reply{200, R"({"code":0})"}; };
  auto renewer = std::make_shared<testing::FakeRenewer>();
  renewer->state = {false, true, true};  // access token expired, refresh token alive
  facade->setSessionRenewer(renewer);
  constexpr int kThreads = 8, kEach = 50;
  std::atomic<int> answers{0};
  {
    std::vector<std::jthread> callers;
    for (int t = 0; t < kThreads; ++t) {
      callers.emplace_back([&] {
        for (int i = 0; i < kEach; ++i) facade->checkConnection([&](const ResponseMessage& m) {
          EXPECT_EQ(m.code, 200);
          ++answers;
        });
      });
    }
  }
  fakes.queue->drain();
  EXPECT_EQ(answers.load(), kThreads * kEach);
  // Requests that met the renewal waited for it and then found the new token in force.
  EXPECT_EQ(renewer->refreshes, 1);
  EXPECT_EQ(fakes.transport->requests().size(), static_cast<std::size_t>(kThreads * kEach));
}

}  // namespace
}  // namespace velora
