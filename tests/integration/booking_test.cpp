// Booking, lockers and the home screen over real HTTP: the library against the sandbox's booking
// engine, logged in as the demo user.

#include <gtest/gtest.h>

#include <algorithm>
#include <future>

#include <velora/booking/Booking.hpp>
#include <velora/widgets/HomeWidgets.hpp>

#include "OverHttp.hpp"

namespace velora {
namespace {

using namespace std::chrono_literals;
using sandbox::FaultAction;
using sandbox::FaultRule;
namespace demo = sandbox::demo;

using testing::failureOf;

class BookingOverHttp : public ::testing::Test {
 protected:
  void SetUp() override {
    clock_->now_ = std::chrono::system_clock::now();
    http_.clock = clock_;
    const KeycloakEnvironment keycloak = testing::passwordLoginIdentity(sandbox_);
    // The endpoint ends in "/" as applications are told to write it.
    facade_ = testing::sandboxFacade(sandbox_, http_.platform("booking.it"), false, keycloak, 10, sandbox_.baseUrl() + "/");
    facade_->backgroundLogin(demo::kUser, demo::kPassword, -1).get();
  }

  /// A free desk tomorrow, the first the search offers.
  Resource freeDesk() {
    BookFilterModel filter;
    filter.date = tomorrowText();
    filter.types = std::vector{BookFilterResourceType::DESK};
    auto desks = facade_->search(filter, true).get();
    EXPECT_FALSE(desks.empty());
    return desks.empty() ? Resource{} : desks.front();
  }

  static std::string tomorrowText() {
    const std::time_t t = std::chrono::system_clock::to_time_t(tomorrow());
    std::tm day{};
    localtime_r(&t, &day);
    char text[11];
    std::strftime(text, sizeof text, "%Y-%m-%d", &day);
    return text;
  }
  static Date tomorrow() { return std::chrono::system_clock::now() + 24h; }

  sandbox::Sandbox sandbox_;
  std::shared_ptr<testing::ManualClock> clock_ = std::make_shared<testing::ManualClock>();
  testing::HttpPlatform http_;
  std::shared_ptr<Orvane> facade_;
};

TEST_F(BookingOverHttp, ADeskIsBookedSeenInTheAgendaAndOnTheHomeScreenThenCancelled) {
  const Resource desk = freeDesk();
  ScheduleRequest request;
  request.elementId = desk.id;
  request.elementType = ResourceType::DESK;
  request.dayStart = tomorrowText();
  const ScheduleRequest booked = facade_->schedule(request).get();
  ASSERT_TRUE(booked.bookingId);

  // The same desk on the same day is taken now: the server's own message reaches the caller.
  const ResponseMessage refused = failureOf(facade_->schedule(request));
  EXPECT_EQ(refused.code, 409);
  EXPECT_NE(refused.message.value_or("").find(desk.name), std::string::npos) << refused.message.value_or("");

  const auto agenda = facade_->getAgendaMy(tomorrow(), tomorrow(), true).get();
  EXPECT_TRUE(std::any_of(agenda.begin(), agenda.end(), [&](const ScheduleElement& e) { return e.id == *booked.bookingId; }));

  const auto home = facade_->getMyHome(std::nullopt, true).get();
  bool shown = false;
  for (const Container& container : home) {
    EXPECT_NE(container.type, ContainerType::UNKNOWN);
    for (const Widget& widget : container.widgets) {
      if (const auto* bookings = widget.as<WidgetBooking>()) {
        for (const auto& next : bookings->nextBookings.value_or(std::vector<ScheduleElement>{})) shown |= next.id == *booked.bookingId;
      }
    }
  }
  EXPECT_TRUE(shown) << "the home screen's booking widget does not list the new booking";
  EXPECT_GT(facade_->getMyHome(std::nullopt, false).get().size(), home.size());  // the unknown container kept

  EXPECT_EQ(facade_->deleteSchedule(*booked.bookingId).get().code, 200);
  const auto after = facade_->getAgendaMy(tomorrow(), tomorrow(), true).get();
  EXPECT_TRUE(std::none_of(after.begin(), after.end(), [&](const ScheduleElement& e) { return e.id == *booked.bookingId; }));
}

TEST_F(BookingOverHttp, TheNearestLockerIsBookedOpenedAndReleased) {
  const ScheduleElement locker = facade_->bookNearestLocker("M").get();
  ASSERT_TRUE(locker.resource);
  EXPECT_EQ(locker.resource->type, ResourceType::LOCKER);
  EXPECT_EQ(locker.resource->subtype, "M");
  EXPECT_GT(facade_->unlock(locker.id).get().opentime, 0);
  EXPECT_EQ(facade_->release(locker.id).get().code, 200);
  EXPECT_EQ(failureOf(facade_->unlock(locker.id)).code, 404);
}

TEST_F(BookingOverHttp, UnknownKindsArriveAndAreDroppedOnRequest) {
  BookFilterModel everything;
  everything.date = tomorrowText();
  const auto all = facade_->search(everything, false).get();
  const auto known = facade_->search(everything, true).get();
  const auto unknown = std::count_if(all.begin(), all.end(), [](const Resource& r) { return r.type == ResourceType::UNKNOWN; });
  EXPECT_GT(unknown, 0);
  EXPECT_EQ(known.size() + static_cast<std::size_t>(unknown), all.size());
}

TEST_F(BookingOverHttp, FaultsOnTwoRoutesInBothForms) {
  struct Route {
    const char* path;
    const char* method;
    std::function<Task<void>(Orvane&)> awaited;
    std::function<void(Orvane&, ResponseCallback)> callback;
  };
  const Route routes[] = {
      {"/api/v2/search", "POST",
       [](Orvane& o) -> Task<void> { co_await o.search(BookFilterModel{}); },
       [](Orvane& o, ResponseCallback cb) { o.search(BookFilterModel{}, std::move(cb)); }},
      {"/api/v2/agenda/next/my", "GET",
       [](Orvane& o) -> Task<void> { co_await o.getAgendaMy(tomorrow(), std::nullopt); },
       [](Orvane& o, ResponseCallback cb) { o.getAgendaMy(tomorrow(), std::nullopt, std::move(cb)); }},
  };
  struct Fault {
    const char* name;
    FaultRule rule;
    std::int64_t callbackCode, awaitCode;
  };
  const auto status = [](int code, std::optional<std::string> body) {
    FaultRule rule;
    rule.status = code;
    rule.body = std::move(body);
    return rule;
  };
  FaultRule malformed;
  malformed.action = FaultAction::malformedBody;
  const Fault faults[] = {
      {"malformed body", malformed, -27004, -27003},
      {"500 with a message", status(500, R"({"code":5001,"message":"engine down"})"), 5001, 5001},
      {"500 without one", status(500, "<html>oops</html>"), 500, 500},
      {"401", FaultRule::unauthorizedOnce(""), 401, 401},
  };
  for (const Route& route : routes) {
    for (Fault fault : faults) {
      SCOPED_TRACE(std::string(route.path) + ": " + fault.name);
      for (bool awaited : {false, true}) {
        fault.rule.path = route.path;
        fault.rule.method = route.method;
        fault.rule.remaining = 1;
        sandbox_.addFault(fault.rule);
        if (awaited) {
          EXPECT_EQ(failureOf(route.awaited(*facade_)).code, fault.awaitCode);
        } else {
          std::promise<ResponseMessage> answer;
          route.callback(*facade_, [&](const ResponseMessage& m) { answer.set_value(m); });
          EXPECT_EQ(answer.get_future().get().code, fault.callbackCode);
        }
        route.awaited(*facade_).get();  // the next request succeeds
      }
    }
  }
  // An expired access token is renewed once before the request, which then succeeds.
  sandbox_.clearRecordedRequests();
  clock_->now_ += 600s;
  facade_->search(BookFilterModel{}).get();
  facade_->getAgendaMy(tomorrow(), std::nullopt).get();
  EXPECT_EQ(sandbox_.requests("/realms/" + std::string(demo::kRealm) + "/protocol/openid-connect/token").size(), 1u);
}

}  // namespace
}  // namespace velora
