// The sandbox's booking engine over HTTP: searching, booking and editing with conflicts, the
// agendas and home screen that reflect it, lockers, favourites, and the booking data's checks.

#include <string>
#include <vector>

#include "SandboxClient.hpp"

namespace {

using nlohmann::json;
namespace demo = velora::sandbox::demo;

using Platform = velora::testing::SandboxPlatform;
using Reply = Platform::Reply;

// The sandbox's today, as a locker booking reports it.
std::string today(Platform& p) {
  const Reply locker = p.call("POST", "/api/v2/locker/booking", {{"resourceId", "4103"}});
  EXPECT_EQ(locker.status, 200);
  EXPECT_EQ(p.call("POST", "/api/v2/locker/release/" + locker.body.value("id", "")).status, 200);
  return locker.body.value("day", "");
}

std::vector<std::string> ids(const json& list) {
  std::vector<std::string> found;
  for (const json& entry : list) {
    found.push_back(entry.value("id", entry.value("componentId", "")));
  }
  return found;
}

const json& widget(const json& home, const std::string& type) {
  static const json none;
  for (const json& container : home) {
    for (const json& w : container["widgets"]) {
      if (w["type"] == type) {
        return w;
      }
    }
  }
  return none;
}

TEST(SandboxBooking, SearchFiltersByKindTextPlaceServicesAndFreeTime) {
  struct Case {
    json filter;
    std::vector<std::string> expected;
  };
  // Desk 1.04 is taken from 09:00 to 10:00; the sleep pod is of a kind clients do not know.
  const std::vector<Case> cases = {
      {{{"types", {"MEETING"}}}, {"1201", "2201", "9001"}},
      {{{"types", {"PARK"}}}, {"3001", "3002", "3003", "9001"}},
      {{{"types", {"DESK"}}, {"services", {"MONITOR", "DOCKING"}}}, {}},
      {{{"types", {"DESK"}}, {"mapId", 2}}, {"2101", "2102", "9001"}},
      {{{"types", {"DESK"}}, {"mapId", "2"}, {"search", "2.02"}}, {"2102"}},
      {{{"search", "DESK 1.0"}, {"hasPosition", true}}, {"1101", "1102", "1103"}},
      {{{"search", "desk 1.0"}}, {"1101", "1102", "1103", "1105"}},
      {{{"search", "desk 1.0"}, {"start", "09:30"}, {"end", "10:30"}}, {"1101", "1102", "1103", "1105"}},
      {{{"search", "desk 1.0"}, {"start", "10:00"}, {"end", "11:00"}}, {"1101", "1102", "1103", "1104", "1105"}},
  };
  Platform p;
  const json booked = {{"elementId", "1104"}, {"elementType", "DESK"}, {"dayStart", "2030-03-04"},
                       {"start", "09:00"},    {"end", "10:00"}};
  ASSERT_EQ(p.call("POST", "/api/v2/schedule", booked).status, 200);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.filter.dump());
    json filter = c.filter;
    filter["date"] = "2030-03-04";
    const Reply found = p.call("POST", "/api/v2/search", filter);
    ASSERT_EQ(found.status, 200);
    EXPECT_EQ(ids(found.body), c.expected);
  }
}

TEST(SandboxBooking, BookingConflictsEditsAndShowsInAgendaSlotsAndHomeUntilDeleted) {
  Platform p;
  const std::string day = today(p);
  json request = {{"elementId", "1104"}, {"elementType", "DESK"}, {"dayStart", day},
                  {"start", "09:00"},    {"end", "10:00"},        {"meetingName", "Focus time"}};
  const Reply made = p.call("POST", "/api/v2/schedule", request);
  ASSERT_EQ(made.status, 200);
  const std::string id = made.body.value("bookingId", "");
  json expected = request;
  expected["bookingId"] = id;
  EXPECT_EQ(made.body, expected);

  const Reply twice = p.call("POST", "/api/v2/schedule", request, demo::kAliceUser);
  EXPECT_EQ(twice.status, 409);
  EXPECT_EQ(twice.body, json({{"code", 409}, {"message", "Desk 1.04 is already booked on " + day + " from 09:00 to 10:00"}}));

  // Moved to overlap its own old hours, which must not count against it.
  request["bookingId"] = id;
  request["start"] = "09:30";
  request["end"] = "11:00";
  EXPECT_EQ(p.call("POST", "/api/v2/schedule", request, demo::kAliceUser).status, 404);
  const Reply edited = p.call("POST", "/api/v2/schedule", request);
  ASSERT_EQ(edited.status, 200);
  EXPECT_EQ(edited.body["bookingId"], id);

  const Reply agenda = p.call("GET", "/api/v2/agenda/next/my?dateStart=" + day);
  ASSERT_EQ(agenda.status, 200);
  ASSERT_FALSE(agenda.body.empty());
  const json& first = agenda.body[0];
  EXPECT_EQ(first["id"].get<std::string>() + first["day"].get<std::string>() + first["start"].get<std::string>() +
                first["end"].get<std::string>() + first["resource"]["name"].get<std::string>(),
            id + day + "09:3011:00Desk 1.04");
  EXPECT_EQ(agenda.body.back()["scheduleType"], "FLEX");  // the demo data's entry for tomorrow

  const std::string slots = "/api/v2/booking/slots?resourceType=DESK&resourceId=1104&date=" + day;
  const Reply free = p.call("GET", slots);
  ASSERT_EQ(free.status, 200);
  EXPECT_EQ(free.body.size(), 8u);
  EXPECT_EQ(free.body[1], json({"11:00", "12:00"}));
  EXPECT_EQ(p.call("GET", slots + "&bookingId=" + id).body.size(), 10u);

  const Reply home = p.call("GET", "/api/v2/home/my");
  ASSERT_EQ(home.status, 200);
  EXPECT_EQ(ids(widget(home.body, "BOOKING")["nextBookings"]), std::vector<std::string>({id, "x-flex-1"}));
  EXPECT_EQ(widget(home.body, "USER")["user"]["username"], demo::kUser);
  EXPECT_EQ(home.body.back()["type"], "FOOTER");
  EXPECT_TRUE(p.call("GET", "/api/v2/home/my", nullptr, demo::kAliceUser).body[1]["widgets"][0]["nextBookings"].empty());

  EXPECT_EQ(p.call("DELETE", "/api/v2/schedule/" + id, nullptr, demo::kAliceUser).status, 404);
  EXPECT_EQ(p.call("DELETE", "/api/v2/schedule/" + id).status, 200);
  EXPECT_EQ(p.call("DELETE", "/api/v2/schedule/" + id).status, 404);
  EXPECT_EQ(p.call("GET", slots).body.size(), 10u);
  EXPECT_EQ(ids(p.call("GET", "/api/v2/agenda/next/my?dateStart=" + day).body), std::vector<std::string>{"x-flex-1"});
}

TEST(SandboxBooking, NearestLockerPrefersTheDeskFloorThenDistance) {
  struct Case {
    std::string desk;  // booked today first; empty: none, so the entrance counts
    std::string size, expected;
  };
  const std::vector<Case> cases = {
      {"", "S", "4104"},
      {"2101", "S", "4201"},  // 4104 is nearer in x and y, but on the other floor
      {"1104", "S", "4104"},
      {"1101", "L", "4103"},
      {"2102", "M", "4202"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.desk + " " + c.size);
    Platform p;
    if (!c.desk.empty()) {
      ASSERT_EQ(p.call("POST", "/api/v2/schedule", {{"elementId", c.desk}, {"elementType", "DESK"}, {"dayStart", today(p)}})
                    .status,
                200);
    }
    const Reply locker = p.call("POST", "/api/v2/locker/book/nearest", {{"size", c.size}});
    ASSERT_EQ(locker.status, 200);
    EXPECT_EQ(locker.body["resource"]["id"], c.expected);
  }
}

TEST(SandboxBooking, LockersUnlockForTheirOwnerReleaseAndRunOut) {
  Platform p;
  const Reply locker = p.call("POST", "/api/v2/locker/booking", {{"resourceId", "4101"}});
  ASSERT_EQ(locker.status, 200);
  const std::string id = locker.body["id"];
  EXPECT_EQ(p.call("POST", "/api/v2/locker/booking", {{"resourceId", "4101"}}, demo::kAliceUser).status, 409);
  EXPECT_EQ(ids(widget(p.call("GET", "/api/v2/home/my").body, "LOCKER")["nextLockers"]), std::vector<std::string>{id});

  EXPECT_EQ(p.call("POST", "/api/v2/locker/unlock/" + id).body, json({{"opentime", 15}}));
  EXPECT_EQ(p.call("POST", "/api/v2/locker/unlock/" + id, nullptr, demo::kAliceUser).status, 404);
  EXPECT_EQ(p.call("POST", "/api/v2/locker/release/" + id).status, 200);
  EXPECT_EQ(p.call("POST", "/api/v2/locker/unlock/" + id).status, 404);
  EXPECT_EQ(p.call("POST", "/api/v2/locker/booking", {{"resourceId", "4101"}}, demo::kAliceUser).status, 200);

  EXPECT_EQ(p.call("POST", "/api/v2/locker/book/nearest", {{"size", "S"}}).status, 200);
  EXPECT_EQ(p.call("POST", "/api/v2/locker/book/nearest", {{"size", "S"}}).status, 200);
  const Reply none = p.call("POST", "/api/v2/locker/book/nearest", {{"size", "S"}});
  EXPECT_EQ(none.status, 409);
  EXPECT_NE(none.body.value("message", "").find("No locker of size S"), std::string::npos);
}

TEST(SandboxBooking, FavouritesBelongToEachUser) {
  Platform p;
  const auto favourite = [&p](const std::string& user) {
    return p.call("GET", "/api/v2/resource/1201", nullptr, user).body["favourite"];
  };
  ASSERT_EQ(p.call("PUT", "/api/v2/favourite", {{"resourceId", "1201"}, {"favourite", true}}).status, 200);
  EXPECT_EQ(favourite(demo::kUser), true);
  EXPECT_EQ(favourite(demo::kAliceUser), false);
  const Reply found = p.call("POST", "/api/v2/search", {{"date", "2030-03-04"}, {"search", "meeting room"}});
  EXPECT_EQ(found.body[0]["favourite"], true);
  ASSERT_EQ(p.call("PUT", "/api/v2/favourite", {{"resourceId", "1201"}, {"favourite", false}}).status, 200);
  EXPECT_EQ(favourite(demo::kUser), false);
}

TEST(SandboxBooking, ReadRoutesServeTheDemoData) {
  struct Case {
    std::string target, pointer;
    json expected;  // a list of strings is compared with the ids of the list found
  };
  const std::vector<Case> cases = {
      {"/api/v2/filter/section?sectionTypes=BOOKING&sectionTypes=MAP", "", {"sec-booking", "sec-map"}},
      {"/api/v2/filter/section?", "/4/sectionType", "LOBBY"},
      {"/api/v2/filter/resource?type=LOCKER", "/id", "f-locker"},
      {"/api/v2/filter?type=MEETING", "/filterElements/2/name", "Seats"},
      {"/api/v2/locker/filter?size=M", "/filterElements/0/value", "M"},
      {"/api/v2/booking/user/list?search=ROSSI", "", {"u-4"}},
      {"/api/v2/booking/user/list?search=%40velora.example", "", {"demo", "alice", "u-3", "u-4"}},
      {"/api/v2/profile/my", "/profileId", "profile-demo"},
      {"/api/v2/widget/card?componentId=w-meetings-1", "/name", "Meetings"},
      {"/api/v2/widget/room/21", "", {"w-room-21-temp", "w-room-21-occupancy"}},
      {"/api/v2/agenda/day?id=1201&date=2030-03-04", "/scheduleElements", json::array()},
      {"/api/v2/resource/1201", "/data/capacity", "8"},
  };
  Platform p;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.target);
    const Reply reply = p.call("GET", c.target);
    ASSERT_EQ(reply.status, 200) << reply.body;
    json found = reply.body.at(json::json_pointer(c.pointer));
    if (c.target.starts_with("/api/v2/widget/room/")) {
      found = found["components"];
    }
    EXPECT_EQ(c.expected.is_array() && !c.expected.empty() ? json(ids(found)) : found, c.expected);
  }
}

TEST(SandboxBooking, RefusesBadRequestsWithThePlatformsMessage) {
  struct Case {
    std::string method, target;
    json body;
    std::string user;  // empty: no token
    int status;
    std::string message;  // part of it
  };
  const std::vector<Case> cases = {
      {"GET", "/api/v2/home/my", nullptr, "", 401, "bearer token"},
      {"POST", "/api/v2/search", {{"date", "2030-03-04"}}, "", 401, "bearer token"},
      {"POST", "/api/v2/schedule", {{"elementId", "7"}, {"elementType", "DESK"}, {"dayStart", "2030-03-04"}}, demo::kUser,
       404, "No resource with id 7"},
      {"POST", "/api/v2/schedule", {{"elementId", "1101"}, {"elementType", "DESK"}, {"dayStart", "2030-02-30"}},
       demo::kUser, 400, "dayStart"},
      {"POST", "/api/v2/schedule",
       {{"elementId", "1101"}, {"elementType", "DESK"}, {"dayStart", "2030-03-04"}, {"start", "9:00"}, {"end", "10:00"}},
       demo::kUser, 400, "HH:mm"},
      {"POST", "/api/v2/schedule",
       {{"elementId", "1101"}, {"elementType", "DESK"}, {"dayStart", "2030-03-04"}, {"start", "10:00"}, {"end", "09:00"}},
       demo::kUser, 400, "after start"},
      {"GET", "/api/v2/resource/nothing", nullptr, demo::kUser, 404, "nothing"},
      {"GET", "/api/v2/filter?type=GARDEN", nullptr, demo::kUser, 404, "GARDEN"},
      {"GET", "/api/v2/booking/info?bookingId=b-9", nullptr, demo::kUser, 404, "b-9"},
      {"GET", "/api/v2/widget/card?componentId=none", nullptr, demo::kUser, 404, "none"},
      {"GET", "/api/v2/widget/room/99", nullptr, demo::kUser, 404, "99"},
      {"POST", "/api/v1/booking", {{"id", 1101}, {"name", "Desk 1.01"}, {"x", 1.0}, {"y", 2.0}}, demo::kUser, 400,
       "bookable"},
  };
  Platform p;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.method + " " + c.target);
    const Reply reply = p.call(c.method, c.target, c.body, c.user);
    EXPECT_EQ(reply.status, c.status);
    EXPECT_EQ(reply.body.value("code", 0), c.status);
    EXPECT_NE(reply.body.value("message", "").find(c.message), std::string::npos) << reply.body;
  }
}

TEST(SandboxBooking, MapBookingTakesTheBookableDaysAtOnceOrNone) {
  Platform p;
  const auto reservation = [](const std::string& date, const std::string& status) {
    return json({{"index", 0}, {"date", date}, {"bookableStatus", status}});
  };
  const json click = {{"id", 2101},
                      {"name", "Desk 2.01"},
                      {"x", 22.0},
                      {"y", 4.0},
                      {"info",
                       {{"reservation",
                         {reservation("2030-03-04", "BOOKABLE"), reservation("2030-03-05", "NOT_AVAILABLE"),
                          reservation("2030-03-06", "BOOKABLE")}}}}};
  ASSERT_EQ(p.call("POST", "/api/v1/booking", click).status, 200);
  EXPECT_EQ(p.call("POST", "/api/v1/booking", click, demo::kAliceUser).status, 409);
  const Reply agenda = p.call("POST", "/api/v2/agenda/find",
                              {{"elements", {"2101"}}, {"dateStart", "2030-03-04"}, {"dateEnd", "2030-03-06"}});
  ASSERT_EQ(agenda.status, 200);
  std::vector<std::size_t> perDay;
  for (const json& day : agenda.body[0]["days"]) {
    perDay.push_back(day["scheduleElements"].size());
  }
  EXPECT_EQ(perDay, std::vector<std::size_t>({1, 0, 1}));
}

}  // namespace
