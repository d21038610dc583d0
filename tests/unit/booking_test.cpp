// Booking records as the platform sends them, the day and time texts, and what the booking
// operations do beyond their request line (filtering, local refusals).

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

#include <velora/velora.hpp>

#include "Fakes.hpp"

namespace velora {
namespace {

using testing::FakePlatform;
using Reply = testing::FakeTransport::Reply;

void useTimeZone(const char* zone) {
  setenv("TZ", zone, 1);
  tzset();
}

Date unixSeconds(long long seconds) { return std::chrono::system_clock::from_time_t(static_cast<std::time_t>(seconds)); }

constexpr const char* kResource = R"({
  "id": "R-12", "name": "Desk 12", "type": "DESK", "subtype": "standing", "subtypeLabel": "Standing desk",
  "i18nSubtype": "desk.standing", "tagid": "TAG-9", "i18n": "desk", "image": "/img/d12.png",
  "images": ["/img/d12a.png", "/img/d12b.png"],
  "buildingPosition": {"buildingId": 7, "buildingName": "North", "level": 2},
  "position": {"mapId": 3, "x": 10.5, "y": 4, "level": 2},
  "bookingConfig": {"dailyBooking": true, "timeBooking": true, "attendeesPresent": false, "hasRecurring": true,
    "constraints": {"minTimeSlot": 30, "maxTimeSlot": 480, "maxNumberOfBookingDay": 2, "dateLimit": "2024-12-31",
      "bookableDaysLimit": 14, "bookableDaysOfWeek": [1, 2, 3, 4, 5],
      "weekConstraints": [{"day": 1, "scheduleIntervals": [{"start": "08:00", "end": "12:00", "minStart": "07:30"}]}]}},
  "services": [{"id": "s1", "name": "Screen", "icon": "screen"}],
  "controls": [{"id": "c1", "name": "Lamp", "type": "LIGHT"}],
  "sensors": [{"id": "t1", "name": "Temperature", "value": "21.5", "unit": "°C"}],
  "additionalServices": [{"id": "a1", "name": "Coffee", "quantity": 2}],
  "favourite": true,
  "singleInfo": {"name": "quiet", "i18n": "zone.quiet", "color": "#00FF00"},
  "skills": ["java"], "metadataTypes": ["ergonomic"], "connectedGroupNames": ["floor-2"],
  "description": "By the window", "integrationKey": "ext-12", "username": "desk12", "dnd": 0,
  "data": {"row": "B", "seat": "3"},
  "somethingNew": {"ignored": true}
})";

TEST(Booking, AResourceWithEveryOptionalBlock) {
  const auto resource = decodeJSON<Resource>(kResource);
  EXPECT_EQ(resource.type, ResourceType::DESK);
  EXPECT_EQ(resource.images->at(1), "/img/d12b.png");
  EXPECT_EQ(resource.buildingPosition->buildingName, "North");
  EXPECT_EQ(resource.position->x, 10.5);
  const auto& constraints = *resource.bookingConfig->constraints;
  EXPECT_EQ(constraints.bookableDaysLimit, 14);
  EXPECT_EQ(constraints.bookableDaysOfWeek->size(), 5u);
  EXPECT_EQ(constraints.weekConstraints->at(0).scheduleIntervals.at(0).minStart, "07:30");
  EXPECT_EQ(constraints.weekConstraints->at(0).scheduleIntervals.at(0).maxEnd, std::nullopt);
  EXPECT_EQ(resource.sensors->at(0).unit, "°C");
  EXPECT_EQ(resource.additionalServices->at(0).quantity, 2);
  EXPECT_TRUE(resource.favourite);
  EXPECT_EQ(resource.singleInfo->color, "#00FF00");
  EXPECT_EQ(resource.dnd, 0);
  EXPECT_EQ(resource.data->at("seat"), "3");
  EXPECT_EQ(decodeJSON<Resource>(encodeJSON(resource)), resource);

  // The minimal resource: only the required keys.
  const auto minimal = decodeJSON<Resource>(R"({"id":"R-1","name":"Desk 1","type":"DESK","favourite":false})");
  EXPECT_EQ(encodeJSON(minimal), R"({"id":"R-1","name":"Desk 1","type":"DESK","favourite":false})");
  EXPECT_EQ(testing::decodingError<Resource>(R"({"id":"R-1","name":"Desk 1","type":"DESK"})"),
            "$.favourite: required key is missing");
}

TEST(Booking, AScheduleRequestSendsAttendeesAndRecurrenceButNotTheEditedEntry) {
  ScheduleRequest request;
  request.bookingId = "B-7";
  request.scheduleElement = ScheduleElement{.id = "B-7", .type = ScheduleElementType::MEETING, .day = "2024-03-15"};
  request.elementId = "ROOM-1";
  request.elementType = ResourceType::ROOM;
  request.dayStart = "2024-03-15";
  request.start = "09:00";
  request._attendees = std::vector{MeetingAttendee{MeetingAttendeeType::PHYSICAL,
                                                   Resource{.id = "P-1", .name = "Ann", .type = ResourceType::PEOPLE}}};
  request._recurring = RecurringType::WEEKLY;
  EXPECT_EQ(encodeJSON(request),
            R"({"bookingId":"B-7","elementId":"ROOM-1","elementType":"ROOM","dayStart":"2024-03-15","start":"09:00",)"
            R"("attendees":[{"type":"PHYSICAL","attendee":{"id":"P-1","name":"Ann","type":"PEOPLE","favourite":false}}],)"
            R"("recurring":"WEEKLY"})");

  // Read back, the keys land in the underscored members and a sent entry is not read.
  const auto read = decodeJSON<ScheduleRequest>(
      R"({"elementId":"ROOM-1","elementType":"ROOM","dayStart":"2024-03-15","recurring":"YEARLY",)"
      R"("scheduleElement":{"id":"x","type":"MEETING","day":"2024-03-15"},"attendees":[]})");
  EXPECT_EQ(read._recurring, RecurringType::UNKNOWN);
  EXPECT_EQ(read._attendees, std::vector<MeetingAttendee>{});
  EXPECT_FALSE(read.scheduleElement);
}

TEST(Booking, DayAndTimeTextsReadOnlyWhenTheyMatchExactly) {
  useTimeZone("UTC");
  const struct {
    const char* text;
    bool isTime;
    std::optional<long long> unix;
  } cases[] = {
      {"2024-03-15", false, 1710460800},
      {"2024-02-29", false, 1709164800},
      {"2023-02-29", false, std::nullopt},
      {"2024-13-01", false, std::nullopt},
      {"2024-00-10", false, std::nullopt},
      {"2024-04-31", false, std::nullopt},
      {"2024-3-15", false, std::nullopt},
      {"2024-03-15T10", false, std::nullopt},
      {"2024/03/15", false, std::nullopt},
      {"2024-0a-15", false, std::nullopt},
      {"", false, std::nullopt},
      {"09:30", true, 946719000},
      {"00:00", true, 946684800},
      {"23:59", true, 946771140},
      {"25:00", true, std::nullopt},
      {"12:60", true, std::nullopt},
      {"9:30", true, std::nullopt},
      {"09-30", true, std::nullopt},
      {"09:3x", true, std::nullopt},
      {"09:30:00", true, std::nullopt},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    const auto date = c.isTime ? dateFromTime(c.text) : dateFromDay(c.text);
    EXPECT_EQ(date, c.unix ? std::optional(unixSeconds(*c.unix)) : std::nullopt);
  }

  // The records' accessors: absent and malformed texts give nothing.
  ScheduleElement entry{.id = "B-1", .day = "2024-03-15", .start = "08:15", .end = "8:45"};
  EXPECT_EQ(entry.dayDate(), unixSeconds(1710460800));
  EXPECT_EQ(entry.startDate(), unixSeconds(946714500));
  EXPECT_EQ(entry.endDate(), std::nullopt);
  EXPECT_EQ(entry.dayEndDate(), std::nullopt);
  const auto agenda = decodeJSON<ResourceAgendaRequest>(R"({"dateStart":"2024-03-15","dateEnd":"2024-03-32"})");
  EXPECT_EQ(agenda.dateStartDate(), unixSeconds(1710460800));
  EXPECT_EQ(agenda.dateEndDate(), std::nullopt);
  const DaySchedule day{.id = "d", .date = "2024-03-15", .dayStart = "07:00"};
  EXPECT_EQ(day.dateDate(), unixSeconds(1710460800));
  EXPECT_EQ(day.dayStartDate(), unixSeconds(946710000));
}

TEST(Booking, DaysAreLocal) {
  useTimeZone("XYZ-10");  // ten hours ahead of UTC
  EXPECT_EQ(dayText(unixSeconds(1710532800)), "2024-03-16");  // 2024-03-15T20:00Z
  EXPECT_EQ(dateFromDay("2024-03-16"), unixSeconds(1710532800 - 6 * 3600));
  EXPECT_EQ(dateFromTime("10:00"), unixSeconds(946684800));
  useTimeZone("UTC");
  EXPECT_EQ(dayText(unixSeconds(1710532800)), "2024-03-15");
}

TEST(Booking, UnknownEnumerationTextsReadAsTheLastCase) {
  const auto unknown = AnyCodable("SOMETHING_NEW");
  EXPECT_EQ(decode<ResourceType>(unknown), ResourceType::UNKNOWN);
  EXPECT_EQ(decode<ScheduleElementType>(unknown), ScheduleElementType::UNKNOWN);
  EXPECT_EQ(decode<ScheduleType>(unknown), ScheduleType::UNKNOWN);
  EXPECT_EQ(decode<RecurringType>(unknown), RecurringType::UNKNOWN);
  EXPECT_EQ(decode<MeetingAttendeeType>(unknown), MeetingAttendeeType::UNKNOWN);
  EXPECT_EQ(decode<SectionType>(unknown), SectionType::UNKNOWN);
  EXPECT_EQ(decode<FilterElementType>(unknown), FilterElementType::UNKNOWN);
  EXPECT_EQ(decode<BookFilterResourceType>(unknown), BookFilterResourceType::UNKNOWN);
  EXPECT_EQ(decode<BookingUserContactSection>(unknown), BookingUserContactSection::UNKNOWN);
  EXPECT_EQ(decode<FilterType>(unknown), FilterType::UNKNOWN);
  EXPECT_EQ(decode<ReservationBookableStatus>(unknown), ReservationBookableStatus::UNBOOKABLE);
  EXPECT_EQ(decode<ReservationBookableStatus>(AnyCodable("BOOKED_BY_ME")), ReservationBookableStatus::BOOKED_BY_ME);
  EXPECT_EQ(decode<ResourceType>(AnyCodable("GROUP_LOCKER")), ResourceType::GROUP_LOCKER);
  EXPECT_EQ(decode<ResourceType>(AnyCodable("desk")), ResourceType::UNKNOWN);  // exact text only
}

std::shared_ptr<Orvane> facadeAnswering(FakePlatform& fakes, std::string body) {
  fakes.transport->responder = [body = std::move(body)](const HttpRequest&) { return Reply{200, body}; };
  return testing::makeTestFacade(fakes, EnvironmentModel("http://platform.test/", 30), true);
}

TEST(Booking, FilteringUnknownValuesDropsOnlyWhatIsListed) {
  const auto resource = [](const char* id, const char* type) {
    return std::string(R"({"id":")") + id + R"(","name":"n","type":")" + type + R"(","favourite":false})";
  };
  {
    FakePlatform fakes;
    auto facade = facadeAnswering(fakes, "[" + resource("a", "DESK") + "," + resource("b", "SPACESHIP") + "," +
                                             resource("c", "LOCKER") + "]");
    const auto kept = facade->search(BookFilterModel{}, true).get();
    ASSERT_EQ(kept.size(), 2u);
    EXPECT_EQ(kept[1].id, "c");
    EXPECT_EQ(facade->search(BookFilterModel{}).get().size(), 3u);
    std::size_t delivered = 0;
    facade->search(BookFilterModel{}, [&](const ResponseMessage& m) { delivered = m.payloadAs<std::vector<Resource>>().size(); });
    fakes.queue->drain();
    EXPECT_EQ(delivered, 3u);
  }
  {
    FakePlatform fakes;
    auto facade = facadeAnswering(fakes, R"([{"id":"1","element":)" + resource("a", "ROOM") +
                                             R"(,"dateStart":"2024-03-15"},{"id":"2","element":)" + resource("b", "HOLODECK") +
                                             R"(,"dateStart":"2024-03-15","days":[]}])");
    const auto kept = facade->findAgenda(ResourceAgendaRequest{.dateStart = "2024-03-15"}, true).get();
    ASSERT_EQ(kept.size(), 1u);
    EXPECT_EQ(kept[0].id, "1");
    EXPECT_EQ(facade->findAgenda(ResourceAgendaRequest{.dateStart = "2024-03-15"}).get().size(), 2u);
  }
  {
    FakePlatform fakes;
    auto facade = facadeAnswering(fakes, R"([
      {"id":"keep-no-scheduleType","type":"MEETING","day":"2024-03-15"},
      {"id":"drop-type","type":"TRIP","day":"2024-03-15"},
      {"id":"drop-scheduleType","type":"PERSONAL","scheduleType":"WEEKEND","day":"2024-03-15"},
      {"id":"keep","type":"PERSONAL","scheduleType":"DAY","day":"2024-03-15"}])");
    const auto kept = facade->getAgendaMy(unixSeconds(1710504000), std::nullopt, true).get();
    ASSERT_EQ(kept.size(), 2u);
    EXPECT_EQ(kept[0].id, "keep-no-scheduleType");
    EXPECT_EQ(kept[1].id, "keep");
    EXPECT_EQ(facade->getAgendaMy(unixSeconds(1710504000), std::nullopt).get().size(), 4u);
  }
}

TEST(Booking, AvailableSlotsWithoutAURLAreRefusedBeforeSending) {
  FakePlatform fakes;
  auto facade = testing::makeTestFacade(fakes, EnvironmentModel("http://plat form.test/", 30), true);
  const Date day = unixSeconds(1710504000);
  EXPECT_EQ(testing::failureOf(facade->getAvailableSlots("R-1", std::nullopt, ResourceType::DESK, day)),
            ResponseMessage(-27000, "GetAvailableSlots - undefined URL"));
  std::vector<ResponseMessage> answers;
  facade->getAvailableSlots("R-1", "B-1", ResourceType::DESK, day, [&](const ResponseMessage& m) { answers.push_back(m); });
  EXPECT_TRUE(answers.empty());  // never on the caller's thread
  fakes.queue->drain();
  ASSERT_EQ(answers.size(), 1u);
  EXPECT_EQ(answers[0].code, -27000);
  EXPECT_EQ(answers[0].message, "GetAvailableSlots - undefined URL");
  EXPECT_TRUE(fakes.transport->requests().empty());
}

TEST(Booking, SlotsAreListsOfTimes) {
  FakePlatform fakes;
  auto facade = facadeAnswering(fakes, R"([["09:00","09:30"],["14:00"]])");
  const auto slots = facade->getAvailableSlots("R-1", std::nullopt, ResourceType::ROOM, unixSeconds(1710504000)).get();
  EXPECT_EQ(slots, (std::vector<std::vector<std::string>>{{"09:00", "09:30"}, {"14:00"}}));
}

}  // namespace
}  // namespace velora
