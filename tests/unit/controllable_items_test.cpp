// Controllable items: decoding what the platform sends, the two operations, and the write-through
// of a control's current value.

#include <gtest/gtest.h>

#include <velora/core/Orvane.hpp>

#include "Fakes.hpp"

namespace velora {
namespace {

using testing::FakePlatform;
using Reply = testing::FakeTransport::Reply;

constexpr const char* kItems = R"([
  {"id": 1, "logicName": "light.f1.meeting", "widgetName": "light", "name": "Meeting room light", "type": "LIGHT",
   "position": {"mapId": 1, "roomId": 12, "x": 12.5, "y": 4, "level": 1},
   "buildingPositionList": [{"buildingId": 7, "level": 1, "future": true}],
   "icon": {"name": "light", "alt": "Light", "lightPath": "/img/light.png"},
   "controls": [
     {"name": "power", "type": "CTRL_TOGGLE", "currentValue": {"id": 101, "value": "off"},
      "toggleOnValue": "on", "toggleOffValue": "off", "labelIconPlacement": "leading"},
     {"name": "brightness", "type": "CTRL_SLIDER", "currentValue": {"id": 102}, "min": 0, "max": 100, "step": 10},
     {"name": "mode", "type": "CTRL_CHOICE", "currentValue": {"id": 103, "value": "auto"}, "choiceType": "RADIO",
      "choiceOptions": [{"name": "Auto", "optionValue": "auto"}, {"name": "Off", "optionValue": "off"}]},
     {"name": "future", "type": "CTRL_HOLOGRAM", "currentValue": {"id": 104}, "buttonIconPlacement": "diagonal",
      "choiceType": "WHEEL"}]},
  {"id": 2, "logicName": "sensor.f1", "widgetName": "occupancy", "type": "TELEPORTER"}
])";

std::shared_ptr<Orvane> loggedInFacade(FakePlatform& fakes) {
  return testing::makeTestFacade(fakes, EnvironmentModel("http://platform.test/base", 30), true);
}

TEST(ControllableItems, DecodeWithUnknownKindsAndMissingControls) {
  const auto items = decodeJSON<std::vector<ItemControllable>>(kItems);
  ASSERT_EQ(items.size(), 2u);
  const auto& controls = *items[0].controls;
  EXPECT_EQ(controls[0]->currentValue(), (ItemCurrentValue{101, "off"}));
  EXPECT_EQ(controls[1]->currentValue().value, std::nullopt);
  EXPECT_EQ(controls[1]->max, 100.0);
  EXPECT_EQ(controls[2]->choiceOptions->at(1).optionValue, "off");
  EXPECT_EQ(controls[3]->type, ItemControlType::UNKNOWN);
  EXPECT_EQ(items[1].type, ControllableElementType::UNKNOWN);
  EXPECT_FALSE(items[1].controls);
  // Writing back and reading again gives the same items.
  EXPECT_EQ(decodeJSON<std::vector<ItemControllable>>(encodeJSON(items)), items);
}

TEST(ControllableItems, RequiredKeysAreEnforcedWithTheirPath) {
  const std::pair<const char*, const char*> cases[] = {
      {R"({"logicName":"l","widgetName":"w","type":"LIGHT"})", "$.id: required key is missing"},
      {R"({"id":1,"logicName":"l","widgetName":"w","type":"LIGHT","controls":[{"name":"p","type":"CTRL_LABEL"}]})",
       "$.controls[0].currentValue: required key is missing"},
  };
  for (const auto& [json, message] : cases) EXPECT_EQ(testing::decodingError<ItemControllable>(json), message) << json;
}

TEST(ControllableItems, OperationsInBothForms) {
  FakePlatform fakes;
  fakes.transport->responder = [](const HttpRequest& request) {
    if (request.url.ends_with("/item/list")) return Reply{200, kItems};
    return Reply{200, R"({"id":101,"value":"on"})"};
  };
  auto facade = loggedInFacade(fakes);
  ItemControllableFilter filter;
  filter.types = std::vector{ControllableElementType::LIGHT};
  const auto items = facade->getControllableItems(filter).get();
  ASSERT_EQ(items.size(), 2u);
  auto request = fakes.transport->requests().back();
  EXPECT_EQ(request.method, "POST");
  EXPECT_EQ(request.url, "http://platform.test/base/api/v1/item/list");
  EXPECT_EQ(request.body, R"({"filter":{"radius":0.0,"hasPosition":false,"widgetNames":[],"types":["LIGHT"]}})");
  EXPECT_EQ(request.headers.get("Authorization"), "Bearer tok");

  int answers = 0;
  facade->getControllableItems(std::nullopt, [&](const ResponseMessage& m) {
    ++answers;
    EXPECT_EQ(m.code, 200);
    EXPECT_EQ(m.payloadAs<std::vector<ItemControllable>>(), items);
  });
  fakes.queue->drain();
  EXPECT_EQ(fakes.transport->requests().back().body, "{}");

  const auto stored = facade->setControllableItem(*items[0].controls->at(0)).get();
  EXPECT_EQ(stored, (ItemCurrentValue{101, "on"}));
  EXPECT_EQ(fakes.transport->requests().back().body, R"({"id":101,"value":"off"})");
  facade->setControllableItem(*items[0].controls->at(0), [&](const ResponseMessage& m) {
    ++answers;
    EXPECT_EQ(m.payloadAs<ItemCurrentValue>(), (ItemCurrentValue{101, "on"}));
  });
  fakes.queue->drain();
  EXPECT_EQ(answers, 2);
}

TEST(ControllableItems, EveryAssignmentWritesThrough) {
  FakePlatform fakes;
  fakes.transport->responder = [](const HttpRequest& request) {
    if (request.url.ends_with("/item/list")) return Reply{200, kItems};
    return Reply{200, request.body.text()};
  };
  auto facade = loggedInFacade(fakes);
  auto items = facade->getControllableItems().get();
  auto power = items[0].controls->at(0);
  const auto before = fakes.transport->requests().size();
  power->setCurrentValue({101, "on"});
  power->setCurrentValue({101, "on"});  // the same value still goes out
  fakes.queue->drain();                 // the ignored answers
  const auto requests = fakes.transport->requests();
  ASSERT_EQ(requests.size(), before + 2);
  for (std::size_t i = before; i < requests.size(); ++i) {
    EXPECT_EQ(requests[i].url, "http://platform.test/base/api/v1/item/set");
    EXPECT_EQ(requests[i].body, R"({"id":101,"value":"on"})");
  }
  EXPECT_EQ(power->currentValue().value, "on");
  EXPECT_EQ(std::count(fakes.consoleLines.begin(), fakes.consoleLines.end(), R"(setControllableItem({"id":101,"value":"on"}))"), 2);

  // A control whose facade is gone keeps the value but sends nothing.
  facade.reset();
  power->setCurrentValue({101, "off"});
  EXPECT_EQ(fakes.transport->requests().size(), before + 2);
  EXPECT_EQ(power->currentValue().value, "off");
}

}  // namespace
}  // namespace velora
