// Every REST operation the facade declares, checked against what it must send. A new operation
// fails the coverage test until it has its row here.

#include <gtest/gtest.h>

#include <set>

#include <velora/velora.hpp>

#include "Fakes.hpp"

namespace velora {
namespace {

struct Row {
  const char* name;
  const char* arguments;
  const char* method;
  /// Below the endpoint, or a whole URL.
  const char* target;
  /// Expected JSON body; "{uuid}" stands for the installation identifier.
  const char* body = nullptr;
};

constexpr const char* kMultipart = "multipart";

const Row kRows[] = {
    {"checkConnection", "{}", "GET", "/api/v1/public/diagnostic/check"},
    {"downloadSdkImage", R"({"path":"/img/logo.png","publicFlag":false})", "GET", "/img/logo.png"},
    {"downloadSdkImage", R"({"path":"https://cdn.test/a.png","publicFlag":true})", "GET", "https://cdn.test/a.png"},
    {"fetchResource", R"({"path":"/files/plan.pdf"})", "GET", "/files/plan.pdf"},
    {"fetchResource", R"({"path":"http://cdn.test/x.bin"})", "GET", "http://cdn.test/x.bin"},
    {"getConfiguration", R"({"tagid":"T-1"})", "POST", "/api/v1/device/ios/conf",
     R"({"appId":"test.app","uuid":"{uuid}","tagid":"T-1"})"},
    {"getOrCreateConfiguration", "{}", "POST", "/api/v1/device/ios/conf", R"({"appId":"test.app","uuid":"{uuid}"})"},
    {"getLanguages", "{}", "GET", "/public/api/v2/languages"},
    {"setLanguage", R"({"code":"de-CH"})", "POST", "/api/v2/setLanguage?language=de-CH"},
    {"setLanguage", R"({"code":"a b&c"})", "POST", "/api/v2/setLanguage?language=a%20b%26c"},
    {"getControllableItems", "{}", "POST", "/api/v1/item/list", "{}"},
    {"getControllableItems", R"({"filter":{"roomId":4,"radius":2.5,"hasPosition":true,"widgetNames":["light"],"types":["LIGHT"]}})",
     "POST", "/api/v1/item/list",
     R"({"filter":{"roomId":4,"radius":2.5,"hasPosition":true,"widgetNames":["light"],"types":["LIGHT"]}})"},
    {"getLoginParameters", R"({"from":"DEMO-QR-1"})", "GET", "/api/lgnm/v1/scan?code=DEMO-QR-1"},
    {"setControllableItem", R"({"control":{"id":101,"value":"on"}})", "POST", "/api/v1/item/set", R"({"id":101,"value":"on"})"},
    // Days are given as seconds since 2001-01-01Z; 732196800 is 2024-03-15 at noon UTC, the same
    // local day in every zone within eleven hours of UTC.
    {"search", R"({"filter":{"search":"desk","types":["DESK"],"hasPosition":true}})", "POST", "/api/v2/search",
     R"({"search":"desk","types":["DESK"],"hasPosition":true})"},
    {"getFiltersSection", R"({"sectionTypes":["BOOKING","MAP"]})", "GET", "/api/v2/filter/section?sectionTypes=BOOKING&sectionTypes=MAP"},
    {"getFiltersSection", R"({"sectionTypes":[]})", "GET", "/api/v2/filter/section?"},
    {"getFiltersByResource", R"({"type":"MEETING"})", "GET", "/api/v2/filter/resource?type=MEETING"},
    {"getFilters", R"({"type":"PARK"})", "GET", "/api/v2/filter?type=PARK"},
    {"schedule", R"({"request":{"elementId":"D-1","elementType":"DESK","dayStart":"2024-03-15","recurring":"WEEKLY"}})", "POST",
     "/api/v2/schedule", R"({"elementId":"D-1","elementType":"DESK","dayStart":"2024-03-15","recurring":"WEEKLY"})"},
    {"deleteSchedule", R"({"bookingId":"B-7"})", "DELETE", "/api/v2/schedule/B-7"},
    {"getBookingFiltersBy", R"({"bookingId":"B-7","type":"ROOM","date":732196800})", "GET",
     "/api/v2/booking/edit/B-7?type=ROOM&date=2024-03-15"},
    {"getBookingFiltersBy", R"({"bookingId":"B-7","date":732196800})", "GET", "/api/v2/booking/edit/B-7?date=2024-03-15"},
    {"getBookingFiltersBy", R"({"bookingId":"B-7"})", "GET", "/api/v2/booking/edit/B-7"},
    {"getElementResourceBy", R"({"id":"R-1"})", "GET", "/api/v2/resource/R-1"},
    {"setFavorite", R"({"resourceId":"R-1","favourite":true})", "PUT", "/api/v2/favourite", R"({"resourceId":"R-1","favourite":true})"},
    {"getUsers", R"({"search":"Ann & Bo/é"})", "GET", "/api/v2/booking/user/list?search=Ann%20%26%20Bo%2F%C3%A9"},
    {"getUsers", "{}", "GET", "/api/v2/booking/user/list"},
    {"getAvailableSlots", R"({"resourceId":"R-1","resourceType":"DESK","date":732196800})", "GET",
     "/api/v2/booking/slots?resourceType=DESK&resourceId=R-1&date=2024-03-15"},
    {"getAvailableSlots", R"({"resourceId":"R-1","bookingId":"B-7","resourceType":"PARK","date":732196800})", "GET",
     "/api/v2/booking/slots?resourceType=PARK&resourceId=R-1&bookingId=B-7&date=2024-03-15"},
    {"findAgenda", R"({"request":{"elements":["R-1"],"dateStart":"2024-03-15"}})", "POST", "/api/v2/agenda/find",
     R"({"elements":["R-1"],"dateStart":"2024-03-15"})"},
    {"getAgendaMy", R"({"dateStart":732196800})", "GET", "/api/v2/agenda/next/my?dateStart=2024-03-15"},
    {"getAgendaMy", R"({"dateStart":732196800,"dateEnd":732283200})", "GET",
     "/api/v2/agenda/next/my?dateStart=2024-03-15&dateEnd=2024-03-16"},
    {"getAgendaDay", R"({"id":"R-1","type":"DAY_INTERVAL","date":732196800})", "GET",
     "/api/v2/agenda/day?id=R-1&type=DAY_INTERVAL&date=2024-03-15"},
    {"getAgendaDay", R"({"id":"R-1"})", "GET", "/api/v2/agenda/day?id=R-1"},
    {"bookLocker", R"({"resourceId":"L-3"})", "POST", "/api/v2/locker/booking", R"({"resourceId":"L-3"})"},
    {"bookNearestLocker", R"({"size":"M"})", "POST", "/api/v2/locker/book/nearest", R"({"size":"M"})"},
    {"getLockerFilter", R"({"size":"M"})", "GET", "/api/v2/locker/filter?size=M"},
    {"unlock", R"({"bookingId":"B-7"})", "POST", "/api/v2/locker/unlock/B-7"},
    {"release", R"({"bookingId":"B-7"})", "POST", "/api/v2/locker/release/B-7"},
    {"submitBooking", R"({"info":{"id":4,"name":"Desk 4","x":1.5,"y":2.5,"info":{"reservation":[{"index":0,"date":"2024-03-15","bookableStatus":"BOOKABLE"}]}}})",
     "POST", "/api/v1/booking",
     R"({"id":4,"name":"Desk 4","x":1.5,"y":2.5,"info":{"reservation":[{"index":0,"date":"2024-03-15","bookableStatus":"BOOKABLE"}]}})"},
    {"getBooking", R"({"bookingId":"B 7"})", "GET", "/api/v2/booking/info?bookingId=B%207"},
    {"getMyHome", R"({"buildingId":"bld-1"})", "GET", "/api/v2/home/my?buildingId=bld-1"},
    {"getMyHome", "{}", "GET", "/api/v2/home/my"},
    // Appended to the endpoint as it stands; this endpoint has no final "/" (see home_widgets_test).
    {"getUserActions", "{}", "GET", "api/v2/profile/my"},
    {"getWidgetsHome", R"({"tagId":"T-1"})", "GET", "/api/v2/widget/home?tagid=T-1"},
    {"getWidgetsHome", "{}", "GET", "/api/v2/widget/home"},
    {"getWidgetCard", R"({"componentId":"c-1"})", "GET", "/api/v2/widget/card?componentId=c-1"},
    {"postWidgetCard", R"({"body":{"type":"BUTTON","id":"b-1"}})", "POST", "/api/v2/widget/card", R"({"type":"BUTTON","id":"b-1"})"},
    {"getWidgetGroupComponents", R"({"roomId":"12"})", "GET", "/api/v2/widget/room/12"},
    {"ntfmRegister", R"({"request":{"projectId":"p-1","appId":"test.app","pushToken":"ab12","uuid":"u-1","platform":"IOS"}})", "POST",
     "/api/ntfm/v1/device/register", R"({"projectId":"p-1","appId":"test.app","pushToken":"ab12","uuid":"u-1","platform":"IOS"})"},
    {"getNotifications", R"({"pushToken":"ab12","notificationType":"POOL_NOTIFICATION","notificationStatus":["READ","SENT"]})", "GET",
     "/api/ntfm/v1/notification/list?pushToken=ab12&type=POOL_NOTIFICATION&status=READ&status=SENT"},
    {"getNotifications", R"({"pushToken":"ab12","notificationType":"GENERIC_NOTIFICATION"})", "GET",
     "/api/ntfm/v1/notification/list?pushToken=ab12&type=GENERIC_NOTIFICATION"},
    {"getNotificationsCount", R"({"pushToken":"ab12","notificationType":"GENERIC_NOTIFICATION"})", "GET",
     "/api/ntfm/v1/notification/count?pushToken=ab12&type=GENERIC_NOTIFICATION"},
    {"deleteNotifications", R"({"notificationIds":["n-1","n-2"],"token":"ab12","notificationType":"GENERIC_NOTIFICATION"})", "POST",
     "/api/ntfm/v1/notification/delete?type=GENERIC_NOTIFICATION", R"({"notificationIds":["n-1","n-2"],"pushToken":"ab12"})"},
    {"readNotifications", R"({"notificationIds":["n-1"],"token":"ab12","notificationType":"POOL_NOTIFICATION"})", "POST",
     "/api/ntfm/v1/notification/read?type=POOL_NOTIFICATION", R"({"notificationIds":["n-1"],"pushToken":"ab12"})"},
    {"getDNDFilters", R"({"useTimeIntervals":true})", "GET", "/api/v2/dnd/ooo/day/time/interval"},
    {"getDNDFilters", R"({"useTimeIntervals":false})", "GET", "/api/v2/dnd/ooo/day/time"},
    {"setDNDFilters", R"({"request":{"resourceId":"demo","datetime":[{"id":"day","filterId":"dnd","type":"CALENDAR","name":"Day","value":"2024-03-15"}]}})",
     "POST", "/api/v2/dnd/ooo/set",
     R"({"resourceId":"demo","datetime":[{"id":"day","filterId":"dnd","type":"CALENDAR","name":"Day","value":"2024-03-15"}]})"},
    {"getTicketManagerTypes", "{}", "GET", "/api/ticket/manager/types"},
    {"getTicketForm", R"({"manager":"IVIVA"})", "GET", "/api/ticket/form/IVIVA"},
    {"getTicketFormOfTicket", R"({"manager":"INTERNAL","id":"t-7"})", "GET", "/api/ticket/form/INTERNAL/t-7"},
    {"updateTicketForm", R"({"manager":"INTERNAL","form":[{"formName":"Category","formAttribute":"category","formInputType":"select","mandatory":false}]})",
     "POST", "/api/ticket/form/INTERNAL",
     R"([{"formName":"Category","formAttribute":"category","formInputType":"select","mandatory":false}])"},
    {"getTickets", "{}", "GET", "/api/ticket"},
    {"getMyTickets", "{}", "GET", "/api/ticket/my"},
    {"getTicket", R"({"id":"t-7"})", "GET", "/api/ticket/t-7"},
    {"deleteTicket", R"({"id":"t-7"})", "DELETE", "/api/ticket/t-7"},
    // The multipart body itself is checked byte for byte with the tickets.
    {"saveTicket", R"({"manager":"INTERNAL","request":{"form":[]}})", "POST", "/api/ticket/save/INTERNAL", kMultipart},
};

std::string replaceAll(std::string text, const std::string& from, const std::string& to) {
  for (auto at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) text.replace(at, from.size(), to);
  return text;
}

TEST(OperationRegistry, EachOperationSendsItsMethodPathQueryAndBody) {
  testing::FakePlatform fakes;
  auto facade = testing::makeTestFacade(fakes, EnvironmentModel("http://platform.test", 30), true);
  for (const auto& row : kRows) {
    SCOPED_TRACE(std::string(row.name) + " " + row.arguments);
    const OperationEntry* entry = findOperation(row.name);
    ASSERT_NE(entry, nullptr);
    const HttpRequest request = entry->request(*facade, AnyCodable::parse(row.arguments));
    EXPECT_EQ(request.method, row.method);
    EXPECT_EQ(entry->method, row.method);
    const std::string target = row.target;
    EXPECT_EQ(request.url, target.rfind("http", 0) == 0 ? target : "http://platform.test" + target);
    if (row.body == kMultipart) {
      EXPECT_TRUE(request.headers.get("Content-Type").value_or("").starts_with("multipart/form-data; boundary="));
      EXPECT_EQ(request.headers.get("Content-Length"), std::to_string(request.body.size()));
    } else if (row.body) {
      EXPECT_EQ(AnyCodable::parse(request.body.text()), AnyCodable::parse(replaceAll(row.body, "{uuid}", facade->envUUID)));
    } else {
      EXPECT_EQ(request.body, "");
    }
  }
}

TEST(OperationRegistry, EveryOperationHasARowAndEveryRowAnOperation) {
  std::set<std::string> registered, covered;
  for (const auto& entry : operationRegistry()) registered.insert(entry.name);
  for (const auto& row : kRows) covered.insert(row.name);
  EXPECT_EQ(registered, covered);
}

TEST(OperationRegistry, ArgumentsThatDoNotDecodeNameTheirKey) {
  testing::FakePlatform fakes;
  auto facade = testing::makeTestFacade(fakes, EnvironmentModel("http://platform.test", 30), true);
  const struct {
    const char* name;
    const char* arguments;
    const char* key;
  } cases[] = {
      {"getLoginParameters", "{}", "$.from"},
      {"setControllableItem", R"({"control":5})", "$.control"},
      {"downloadSdkImage", R"({"path":"/a.png","publicFlag":"yes"})", "$.publicFlag"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    try {
      findOperation(c.name)->request(*facade, AnyCodable::parse(c.arguments));
      ADD_FAILURE() << "accepted";
    } catch (const std::invalid_argument& e) {
      EXPECT_NE(std::string(e.what()).find(c.key), std::string::npos) << e.what();
    }
  }
  const auto& arguments = findOperation("downloadSdkImage")->arguments;
  ASSERT_EQ(arguments.size(), 2u);
  EXPECT_EQ(arguments[0].name, "path");
  EXPECT_TRUE(arguments[0].required);
  EXPECT_FALSE(findOperation("getConfiguration")->arguments[0].required);
}

}  // namespace
}  // namespace velora
