// Notifications and do-not-disturb over real HTTP: the library against the sandbox's
// notification service, logged in as the demo user.

#include <gtest/gtest.h>

#include <functional>
#include <future>

#include <velora/notifications/Notifications.hpp>

#include "OverHttp.hpp"

namespace velora {
namespace {

namespace demo = sandbox::demo;
using Status = NTFMNotificationStatus;

constexpr const char* kToken = "9f86d081884c7d65";

std::vector<std::string> ids(const std::vector<NTFMNotification>& notifications) {
  std::vector<std::string> found;
  for (const auto& n : notifications) found.push_back(n.id);
  return found;
}

class NotificationsOverHttp : public ::testing::Test {
 protected:
  void SetUp() override {
    clock_->now_ = std::chrono::system_clock::now();
    http_.clock = clock_;
    const KeycloakEnvironment keycloak = testing::passwordLoginIdentity(sandbox_);
    facade_ = testing::sandboxFacade(sandbox_, http_.platform("notifications.it"), false, keycloak, 10, sandbox_.baseUrl() + "/");
    facade_->backgroundLogin(demo::kUser, demo::kPassword, -1).get();
  }

  sandbox::Sandbox sandbox_;
  std::shared_ptr<testing::ManualClock> clock_ = std::make_shared<testing::ManualClock>();
  testing::HttpPlatform http_;
  std::shared_ptr<Orvane> facade_;
};

TEST_F(NotificationsOverHttp, ARegisteredDeviceListsCountsReadsAndDeletes) {
  const auto registered = facade_->ntfmRegister(facade_->registrationRequest("velora-demo", kToken)).get();
  EXPECT_EQ(registered.username, demo::kUser);
  EXPECT_EQ(registered.pushToken, kToken);
  EXPECT_EQ(registered.uuid, facade_->envUUID);
  EXPECT_EQ(registered.platform, "IOS");
  const auto sent = sandbox_.requests("/api/ntfm/v1/device/register").at(0);
  EXPECT_NE(sent.body.find(R"("appId":"notifications.it")"), std::string::npos) << sent.body;

  const auto both = facade_->getNotifications(kToken, NTFMNotificationType::generic, std::vector{Status::sent, Status::read}).get();
  EXPECT_EQ(ids(both), (std::vector<std::string>{"n-1", "n-2", "n-3"}));  // newest first
  EXPECT_EQ(sandbox_.requests("/api/ntfm/v1/notification/list").at(0).query,
            std::string("pushToken=") + kToken + "&type=GENERIC_NOTIFICATION&status=SENT&status=READ");
  EXPECT_EQ(ids(facade_->getNotifications(kToken, NTFMNotificationType::generic, std::vector{Status::read}).get()),
            std::vector<std::string>{"n-3"});
  EXPECT_EQ(ids(facade_->getNotifications(kToken, NTFMNotificationType::pool, std::nullopt).get()), std::vector<std::string>{"n-4"});
  EXPECT_EQ(facade_->getNotificationsCount(kToken, NTFMNotificationType::generic).get(), (NTFMNotificationCount{2, 1}));

  const auto read = facade_->readNotifications({"n-1"}, kToken, NTFMNotificationType::generic).get();
  ASSERT_EQ(read.notifications->size(), 1u);
  EXPECT_EQ(read.notifications->at(0).status, "READ");
  EXPECT_NE(read.notifications->at(0).lastModificationDate, both[0].lastModificationDate);
  EXPECT_EQ(read.count, (NTFMNotificationCount{1, 2}));

  const auto deleted = facade_->deleteNotifications({"n-2", "n-3"}, kToken, NTFMNotificationType::generic).get();
  EXPECT_EQ(ids(*deleted.notifications), (std::vector<std::string>{"n-2", "n-3"}));
  EXPECT_EQ(deleted.count, (NTFMNotificationCount{0, 1}));
  EXPECT_EQ(ids(facade_->getNotifications(kToken, NTFMNotificationType::generic, std::vector<Status>{}).get()),
            std::vector<std::string>{"n-1"});
  EXPECT_EQ(ids(facade_->getNotifications(kToken, NTFMNotificationType::generic, std::vector{Status::deleted}).get()),
            (std::vector<std::string>{"n-2", "n-3"}));

  // Registering again keeps what the device has done.
  facade_->ntfmRegister(facade_->registrationRequest("velora-demo", kToken)).get();
  EXPECT_EQ(facade_->getNotificationsCount(kToken, NTFMNotificationType::generic).get(), (NTFMNotificationCount{0, 1}));
}

TEST_F(NotificationsOverHttp, UnknownTokensAndIdsAreRefused) {
  const struct {
    const char* name;
    std::function<Task<UpdateNotificationResponse>()> run;
    int code;
  } cases[] = {
      {"unregistered token", [this] { return facade_->readNotifications({"n-1"}, "feed", NTFMNotificationType::generic); }, 404},
      {"id of another type", [this] { return facade_->readNotifications({"n-4"}, kToken, NTFMNotificationType::generic); }, 404},
      {"one id unknown", [this] { return facade_->deleteNotifications({"n-1", "n-9"}, kToken, NTFMNotificationType::generic); }, 404},
  };
  facade_->ntfmRegister(facade_->registrationRequest("velora-demo", kToken)).get();
  for (const auto& c : cases) EXPECT_EQ(testing::failureOf(c.run()).code, c.code) << c.name;
  // Nothing changed by the refused update that named n-1.
  EXPECT_EQ(facade_->getNotificationsCount(kToken, NTFMNotificationType::generic).get(), (NTFMNotificationCount{2, 1}));
}

TEST_F(NotificationsOverHttp, DoNotDisturbIsSetAndReadBack) {
  EXPECT_EQ(facade_->getDNDFilters(true).get().size(), 4u);  // with a field of a kind this library does not know
  auto form = facade_->getDNDFilters(true, true).get();
  ASSERT_EQ(form.size(), 3u);
  EXPECT_EQ(form[0].id, "dnd-from");
  EXPECT_EQ(form[0].value, std::nullopt);
  form[0].value = AnyCodable("2024-03-15");
  form[1].value = AnyCodable("2024-03-22");
  // In the sandbox's key order: objects compare member by member in order.
  form[2].value = AnyCodable::parse(R"({"end":"14:00","start":"12:00"})");

  std::promise<ResponseMessage> answer;
  facade_->setDNDFilters(SetDNDRequest{demo::kUser, form}, [&answer](const ResponseMessage& m) { answer.set_value(m); });
  EXPECT_EQ(answer.get_future().get().code, 200);

  EXPECT_EQ(facade_->getDNDFilters(true, true).get(), form);
  const auto days = facade_->getDNDFilters(false).get();
  ASSERT_EQ(days.size(), 2u);
  EXPECT_EQ(days[0].value, std::nullopt);  // dnd-day was not set
  EXPECT_EQ(days[1].value, form[2].value);  // the hours are shared by both forms

  EXPECT_EQ(testing::failureOf(facade_->setDNDFilters(SetDNDRequest{demo::kAliceUser, form})).code, 403);
}

}  // namespace
}  // namespace velora
