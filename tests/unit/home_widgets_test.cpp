// The home screen: widgets chosen by their "type", containers, and the home operations' URLs.

#include <gtest/gtest.h>

#include <velora/velora.hpp>

#include "Fakes.hpp"

namespace velora {
namespace {

using testing::FakePlatform;
using Reply = testing::FakeTransport::Reply;

constexpr const char* kHome = R"([
  {"title": {"name": "hello", "i18n": "home.hello"}, "type": "HEADER", "widgets": [
    {"type": "USER", "backgroundImage": "/img/bg.png",
     "user": {"username": "ann", "name": "Ann", "profiles": ["employee"]}}]},
  {"type": "BODY", "widgets": [
    {"type": "BOOKING", "nextBookingTitle": {"name": "Next", "icon": "calendar"},
     "nextBookings": [{"id": "B-1", "type": "PERSONAL", "scheduleType": "DAY", "day": "2024-03-15",
                       "resource": {"id": "R-1", "name": "Desk 1", "type": "DESK", "favourite": false}}],
     "actions": [{"id": "book", "name": "Book", "value": false}]},
    {"type": "LOCKER", "nextLockerTitle": {"name": "Locker"}, "nextLockers": []},
    {"type": "WEB", "title": {"name": "Canteen"}, "url": "https://canteen.test", "button": {"name": "Open"}},
    {"type": "ACTION", "title": {"name": "Report"}, "action": "TICKET_ACTION"},
    {"type": "DND_OOO", "resource": {"id": "P-1", "name": "Ann", "dndEnable": true}},
    {"type": "CHART", "series": [1, 2, 3]}]}
])";

TEST(HomeWidgets, AHomeWithEveryKindAndAnUnknownOne) {
  const auto home = decodeJSON<std::vector<Container>>(kHome);
  ASSERT_EQ(home.size(), 2u);
  EXPECT_EQ(home[0].title->i18n, "home.hello");
  EXPECT_EQ(home[0].widgets.at(0).as<WidgetUser>()->user.profiles->at(0), "employee");
  const auto& body = home[1].widgets;
  std::vector<WidgetType> kinds;
  for (const auto& widget : body) kinds.push_back(widget.type());
  EXPECT_EQ(kinds, (std::vector{WidgetType::BOOKING, WidgetType::LOCKER, WidgetType::WEB, WidgetType::ACTION, WidgetType::DND,
                                WidgetType::UNSUPPORTED}));
  EXPECT_EQ(body[0].as<WidgetBooking>()->nextBookings->at(0).resource->id, "R-1");
  EXPECT_EQ(body[0].as<WidgetBooking>()->actions->at(0).name, "Book");
  EXPECT_EQ(body[2].as<WidgetWeb>()->button->name, "Open");
  EXPECT_EQ(body[3].as<WidgetAction>()->action, WidgetActionType::TICKET_ACTION);
  EXPECT_EQ(body[4].as<WidgetDND>()->resource->dndEnable, true);
  EXPECT_EQ(body[5].as<WidgetWeb>(), nullptr);

  // The supported widgets' records, "type" included; the unknown one has none.
  const auto objects = wrappedObjects(body);
  ASSERT_EQ(objects.size(), 5u);
  EXPECT_EQ(objects[4], AnyCodable::parse(R"({"type":"DND_OOO","resource":{"id":"P-1","name":"Ann","dndEnable":true}})"));
  EXPECT_EQ(body[5].wrappedObject(), std::nullopt);
  EXPECT_EQ(encode(body[5]), AnyCodable::parse(R"({"type":"CHART"})"));

  // Read again, the widgets are equal though each record got a new id.
  const auto again = decodeJSON<std::vector<Container>>(encodeJSON(home));
  EXPECT_EQ(again, home);
  EXPECT_NE(again[1].widgets[0].as<WidgetBooking>()->id, body[0].as<WidgetBooking>()->id);
}

TEST(HomeWidgets, TheTypeTextChoosesTheCase) {
  const struct {
    const char* json;
    WidgetType type;
    /// How the widget is written back.
    const char* encoded;
  } cases[] = {
      {R"({"type":"DND_OOO","button":{"name":"Off"}})", WidgetType::DND, R"({"type":"DND_OOO","button":{"name":"Off"}})"},
      {R"({"type":"DND"})", WidgetType::UNSUPPORTED, R"({"type":"DND"})"},
      {R"({"type":"user","user":{"username":"a"}})", WidgetType::UNSUPPORTED, R"({"type":"user"})"},
      // Nothing else of an unknown widget is read, so a shape that would fail a record passes.
      {R"({"type":"CHART","user":42,"resource":"x"})", WidgetType::UNSUPPORTED, R"({"type":"CHART"})"},
      {R"({"type":"WEB","url":"https://a.test"})", WidgetType::WEB, R"({"type":"WEB","url":"https://a.test"})"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.json);
    const auto widget = decodeJSON<Widget>(c.json);
    EXPECT_EQ(widget.type(), c.type);
    EXPECT_EQ(encode(widget), AnyCodable::parse(c.encoded));
    EXPECT_EQ(widget.wrappedObject().has_value(), c.type != WidgetType::UNSUPPORTED);
  }
}

TEST(HomeWidgets, AWidgetThatDoesNotDecodeFailsTheWholeReply) {
  const std::pair<const char*, const char*> cases[] = {
      {R"([{"type":"BODY","widgets":[{"title":{"name":"no type"}}]}])", "$[0].widgets[0].type: required key is missing"},
      {R"([{"type":"BODY","widgets":[{"type":"WEB","title":"a text, not a label"}]}])", "$[0].widgets[0].title: expected an object, found a string"},
      {R"([{"type":"BODY","widgets":[{"type":7}]}])", "$[0].widgets[0].type: expected a string, found a number"},
      {R"([{"type":"HEADER","widgets":[{"type":"USER"}]}])", "$[0].widgets[0].user: required key is missing"},
      {R"([{"type":"BODY","widgets":[{"type":"WEB"},{"type":"LOCKER","nextLockers":[{"id":"L-1","type":"PERSONAL"}]}]}])",
       "$[0].widgets[1].nextLockers[0].day: required key is missing"},
      {R"([{"type":"BODY","widgets":[{"type":"BOOKING","nextBookings":[7]}]}])",
       "$[0].widgets[0].nextBookings[0]: expected an object, found a number"},
  };
  for (const auto& [json, message] : cases) EXPECT_EQ(testing::decodingError<std::vector<Container>>(json), message) << json;
}

TEST(HomeWidgets, FilteringUnknownContainersKeepsTheWidgets) {
  FakePlatform fakes;
  fakes.transport->responder = [](const HttpRequest&) {
    return Reply{200, R"([{"type":"FOOTER","widgets":[]},{"type":"BODY","widgets":[{"type":"CHART"},{"type":"WEB"}]}])"};
  };
  auto facade = testing::makeTestFacade(fakes, EnvironmentModel("http://platform.test/", 30), true);
  const auto filtered = facade->getMyHome("bld-1", true).get();
  ASSERT_EQ(filtered.size(), 1u);
  EXPECT_EQ(filtered[0].type, ContainerType::BODY);
  EXPECT_EQ(filtered[0].widgets.size(), 2u);
  EXPECT_EQ(facade->getMyHome(std::nullopt).get().size(), 2u);
  EXPECT_EQ(fakes.transport->requests().front().url, "http://platform.test/api/v2/home/my?buildingId=bld-1");
}

TEST(HomeWidgets, ProfileActionsFollowTheEndpointsFinalSlash) {
  FakePlatform fakes;
  fakes.transport->responder = [](const HttpRequest& request) {
    if (!request.url.ends_with("/profile/my")) return Reply{200, R"({"type":"HOLOGRAM"})"};
    return Reply{200, R"({"profileId":"p-1","profileFilter":[{"filterType":"DESK","filter":{"id":"f","filterElements":[]}}]})"};
  };
  auto facade = testing::makeTestFacade(fakes, EnvironmentModel("http://platform.test/base/", 30), true);
  const auto actions = facade->getUserActions().get();
  EXPECT_EQ(actions.profileFilter->at(0).filterType, FilterType::DESK);
  EXPECT_EQ(fakes.transport->requests().back().url, "http://platform.test/base/api/v2/profile/my");
  facade->getWidgetGroupComponents("12").get();  // the other paths' "//" is folded
  EXPECT_EQ(fakes.transport->requests().back().url, "http://platform.test/base/api/v2/widget/room/12");
}

TEST(HomeWidgets, WidgetCardsAnswerComponentsInBothForms) {
  FakePlatform fakes;
  fakes.transport->responder = [](const HttpRequest& request) {
    return Reply{200, request.method == "POST" ? request.body.text() : R"({"type":"HOLOGRAM","id":"c-1"})"};
  };
  auto facade = testing::makeTestFacade(fakes, EnvironmentModel("http://platform.test/", 30), true);
  const auto posted = facade->postWidgetCard(AnyCodable::parse(R"({"type":"HOLOGRAM","id":"c-2"})")).get();
  EXPECT_EQ(*posted.unsupportedJSON(), AnyCodable::parse(R"({"type":"HOLOGRAM","id":"c-2"})"));
  int answers = 0;
  facade->getWidgetCard("c-1", [&](const ResponseMessage& m) {
    ++answers;
    EXPECT_EQ(m.code, 200);
    EXPECT_EQ(*m.payloadAs<ORVSComponent>().unsupportedJSON(), AnyCodable::parse(R"({"type":"HOLOGRAM","id":"c-1"})"));
  });
  fakes.queue->drain();
  EXPECT_EQ(answers, 1);
}

}  // namespace
}  // namespace velora
