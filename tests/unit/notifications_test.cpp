// Notifications and do-not-disturb beyond their request line: the repeated status items, the
// registration a device sends, the records as the platform answers them, and the filtering of
// do-not-disturb elements of unknown type.

#include <gtest/gtest.h>

#include <velora/velora.hpp>

#include "Fakes.hpp"

namespace velora {
namespace {

using testing::FakePlatform;
using Reply = testing::FakeTransport::Reply;
using Status = NTFMNotificationStatus;

std::shared_ptr<Orvane> facadeAnswering(FakePlatform& fakes, std::string body) {
  fakes.transport->responder = [body = std::move(body)](const HttpRequest&) { return Reply{200, body}; };
  return testing::makeTestFacade(fakes, EnvironmentModel("http://platform.test/", 30), true);
}

TEST(Notifications, StatusesFollowTheTypeOncePerStatusInTheGivenOrder) {
  const struct {
    const char* name;
    std::optional<std::vector<Status>> statuses;
    const char* query;
  } cases[] = {
      {"absent", std::nullopt, "pushToken=f00d&type=POOL_NOTIFICATION"},
      {"empty", std::vector<Status>{}, "pushToken=f00d&type=POOL_NOTIFICATION"},
      {"one", std::vector<Status>{Status::deleted}, "pushToken=f00d&type=POOL_NOTIFICATION&status=DELETED"},
      {"sent then read", std::vector<Status>{Status::sent, Status::read},
       "pushToken=f00d&type=POOL_NOTIFICATION&status=SENT&status=READ"},
      {"read then sent", std::vector<Status>{Status::read, Status::sent},
       "pushToken=f00d&type=POOL_NOTIFICATION&status=READ&status=SENT"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    FakePlatform fakes;
    auto facade = facadeAnswering(fakes, "[]");
    facade->getNotifications("f00d", NTFMNotificationType::pool, c.statuses).get();
    facade->getNotifications("f00d", NTFMNotificationType::pool, c.statuses, [](const ResponseMessage&) {});
    fakes.queue->drain();
    const auto requests = fakes.transport->requests();
    ASSERT_EQ(requests.size(), 2u);
    for (const auto& request : requests) {
      EXPECT_EQ(request.url, std::string("http://platform.test/api/ntfm/v1/notification/list?") + c.query);
    }
  }
}

TEST(Notifications, ARegistrationCarriesTheApplicationAndThisInstallation) {
  FakePlatform fakes;
  auto facade = facadeAnswering(fakes, R"({"username":"demo","pushToken":"f00d","uuid":"x","platform":"IOS"})");
  const auto request = facade->registrationRequest("project-7", "f00d");
  const auto answer = facade->ntfmRegister(request).get();
  EXPECT_EQ(answer.username, "demo");
  EXPECT_EQ(answer.pushToken, "f00d");
  const auto sent = fakes.transport->requests().at(0);
  EXPECT_EQ(sent.method, "POST");
  EXPECT_EQ(AnyCodable::parse(sent.body.text()),
            AnyCodable::parse(R"({"projectId":"project-7","appId":"test.app","pushToken":"f00d","uuid":")" + facade->envUUID +
                              R"(","platform":"IOS"})"));
  EXPECT_FALSE(facade->envUUID.empty());
}

TEST(Notifications, NoRegistrationWithoutABundleIdentifier) {
  FakePlatform fakes;
  fakes.bundleIdentifier = std::nullopt;
  auto facade = testing::makeTestFacade(fakes, EnvironmentModel("http://platform.test/", 30), true);
  try {
    facade->registrationRequest("project-7", "f00d");
    ADD_FAILURE() << "built";
  } catch (const APIError& e) {
    EXPECT_EQ(e.responseMessage.code, -9003);
  }
}

TEST(Notifications, RecordsAsThePlatformSendsThem) {
  const auto notifications = decodeJSON<std::vector<NTFMNotification>>(R"([
    {"id":"n-1","status":"SENT","type":"POOL_NOTIFICATION","creationDate":"2024-03-15T08:00:00Z",
     "lastModificationDate":"2024-03-15T08:00:00Z","message":{"title":"Lunch","body":"Pizza at noon","icon":"food"}},
    {"id":"n-2","status":"ARCHIVED","type":"BROADCAST","creationDate":"c","lastModificationDate":"m",
     "message":{"title":"t","body":"b"}}])");
  ASSERT_EQ(notifications.size(), 2u);
  EXPECT_EQ(notifications[0].type, NTFMNotificationType::pool);
  EXPECT_EQ(notifications[0].message.icon, "food");
  EXPECT_EQ(notifications[1].status, "ARCHIVED");  // kept as sent
  EXPECT_EQ(notifications[1].type, NTFMNotificationType::generic);  // unknown: the last case
  EXPECT_EQ(notifications[1].message.icon, std::nullopt);

  const auto withoutCount = decodeJSON<UpdateNotificationResponse>(R"({"notifications":[]})");
  EXPECT_EQ(withoutCount.count, std::nullopt);
  EXPECT_EQ(withoutCount.notifications->size(), 0u);
  const auto withCount = decodeJSON<UpdateNotificationResponse>(R"({"count":{"toRead":2,"read":5}})");
  EXPECT_EQ(withCount.count, (NTFMNotificationCount{2, 5}));
  EXPECT_EQ(withCount.notifications, std::nullopt);

  EXPECT_EQ(decode<NTFMNotificationStatus>(AnyCodable("READ")), NTFMNotificationStatus::read);
  EXPECT_EQ(decode<NTFMNotificationStatus>(AnyCodable("read")), NTFMNotificationStatus::deleted);  // exact text only
  EXPECT_EQ(encode(NTFMNotificationType::generic), AnyCodable("GENERIC_NOTIFICATION"));
}

TEST(DoNotDisturb, FilteringDropsOnlyElementsOfUnknownType) {
  FakePlatform fakes;
  auto facade = facadeAnswering(fakes, R"([
    {"id":"day","filterId":"dnd","type":"CALENDAR","name":"Day"},
    {"id":"mood","filterId":"dnd","type":"HOLOGRAM","name":"Mood"},
    {"id":"time","filterId":"dnd","type":"SCHEDULE","name":"Time","value":{"start":"09:00","end":"12:00"}}])");
  const auto kept = facade->getDNDFilters(true, true).get();
  ASSERT_EQ(kept.size(), 2u);
  EXPECT_EQ(kept[0].id, "day");
  EXPECT_EQ(kept[1].id, "time");
  EXPECT_EQ(facade->getDNDFilters(true).get().size(), 3u);
  std::size_t delivered = 0;
  facade->getDNDFilters(false, [&](const ResponseMessage& m) { delivered = m.payloadAs<std::vector<FilterElement>>().size(); });
  fakes.queue->drain();
  EXPECT_EQ(delivered, 3u);
}

}  // namespace
}  // namespace velora
