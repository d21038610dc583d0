// Server-driven components: decoding by kind, round trips, unknown kinds kept verbatim, decoding
// failures with their paths, observation of record fields and tolerant vocabularies.

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include <velora/widgets/ORVSComponent.hpp>

#include "Fakes.hpp"

namespace velora {
namespace {

const AnyCodable& member(const AnyCodable& json, std::string_view key) {
  const AnyCodable* found = json.find(key);
  if (!found) throw std::runtime_error("no key " + std::string(key));
  return *found;
}
const AnyCodable& element(const AnyCodable& json, std::size_t index) { return json.as<AnyCodable::Array>()->at(index); }

/// The places where `output` lacks a non-null value of `input`, or holds another value there: a
/// member the field tables do not know, or one decoded into the wrong member. JSON does not tell
/// 50 from 50.0, so numbers compare as numbers.
std::string differences(const AnyCodable& output, const AnyCodable& input, const std::string& at = "$") {
  std::string found;
  if (const auto* object = input.as<AnyCodable::Object>()) {
    for (const auto& [key, value] : *object) {
      if (value.isNull()) continue;  // null reads as absent
      const AnyCodable* written = output.find(key);
      found += written ? differences(*written, value, at + "." + key) : at + "." + key + " ";
    }
  } else if (const auto* array = input.as<AnyCodable::Array>()) {
    const auto* writtenArray = output.as<AnyCodable::Array>();
    if (!writtenArray || writtenArray->size() != array->size()) return at + " ";
    for (std::size_t i = 0; i < array->size(); ++i) {
      found += differences((*writtenArray)[i], (*array)[i], at + "[" + std::to_string(i) + "]");
    }
  } else if (input.number() ? input.number() != output.number() : input != output) {
    found = at + " ";
  }
  return found;
}

TEST(Component, EveryKindDecodesIntoItsRecordAndRoundTrips) {
  struct Case {
    const char* json;
    ORVSComponentType kind;
  };
  // Each kind with its members set, nested records and components included. Unknown kinds,
  // including a known name in the wrong case, carry no record and need no base fields.
  const Case cases[] = {
      {R"({"type":"BUTTON","componentId":"c1","enabled":true})", ORVSComponentType::BUTTON},
      {R"({"type":"BUTTON","componentId":"b","enabled":true,"name":"Save","i18n":"btn.save","value":{"k":[1,2]},
           "buttonStyle":"SECONDARY_OUTLINED","icon":"disk","action":{"kind":"SUBMIT","target":"form-1"}})", ORVSComponentType::BUTTON},
      {R"({"type":"DATEPICKER","componentId":"d","enabled":true,"placeholder":"Day","required":true,
           "constraints":{"minDate":"2024-05-01","maxDate":"2024-06-30","weekdays":[1,2,3,4,5]}})", ORVSComponentType::DATEPICKER},
      {R"({"type":"DATEPICKER_MULTI","componentId":"dm","enabled":false,"i18nHelper":"help.days",
           "constraints":{"minDate":"2024-05-01"}})", ORVSComponentType::DATEPICKER_MULTI},
      {R"({"type":"INPUT_TEXT","componentId":"mail","enabled":true,"iconLeft":"at","value":"a@b.c",
           "constraints":{"type":"EMAIL","regex":".+@.+","maxLength":120}})", ORVSComponentType::INPUT_TEXT},
      {R"({"type":"INPUT_NUMBER","componentId":"n","enabled":true,"helperRight":"kg","value":3.5,
           "constraints":{"positive":true,"min":0,"max":50,"step":0.5}})", ORVSComponentType::INPUT_NUMBER},
      {R"({"type":"TIMEPICKER","componentId":"t","enabled":true,"constraints":{
           "slots":{"dateComponentId":"d","slotApi":"/rooms/12/slots"},
           "range":{"minTime":"08:00","maxTime":"18:00","timeStep":15}}})", ORVSComponentType::TIMEPICKER},
      {R"({"type":"SLIDER","componentId":"s","enabled":true,"value":40,"lowText":"Off","barGradient":true,
           "action":"DIM","constraints":{"min":0,"max":100,"step":5,"percentage":true}})", ORVSComponentType::SLIDER},
      {R"({"type":"SECTION","componentId":"sec","enabled":true,"completion":false,
           "components":[{"type":"INPUT_TEXT","componentId":"x","enabled":true}]})", ORVSComponentType::SECTION},
      {R"({"type":"FORM","componentId":"f","enabled":true,"submitOnChange":true,"isRealTime":false,
           "sections":[{"type":"SECTION","componentId":"s1","enabled":true,"components":[]}],
           "buttons":[{"type":"BUTTON","componentId":"ok","enabled":true,"buttonStyle":"PRIMARY_FILLED"}]})", ORVSComponentType::FORM},
      {R"({"type":"STEPPER","componentId":"wiz","enabled":true,"description":"Book a room",
           "discardButton":{"type":"BUTTON","componentId":"cancel","enabled":true},
           "steps":[{"type":"STEP","componentId":"st1","enabled":true,"mandatory":true,
                     "nextButton":{"type":"BUTTON","componentId":"next","enabled":false}}]})", ORVSComponentType::STEPPER},
      {R"({"type":"STEP","componentId":"st","enabled":true,"validated":false,"filled":true,"backButton":null})", ORVSComponentType::STEP},
      {R"({"type":"SELECTOR","componentId":"sel","enabled":true,"value":["a","b"],"constraints":{"minValue":1,"maxValue":3}})", ORVSComponentType::SELECTOR},
      {R"({"type":"GENERIC_SELECTOR","componentId":"g","enabled":true,"selectorIdentifier":"floors","required":true})", ORVSComponentType::GENERIC_SELECTOR},
      {R"({"type":"PAGE_REFERENCE","componentId":"p","enabled":true,"reference":"page-7"})", ORVSComponentType::PAGE_REFERENCE},
      {R"({"type":"WIDGET_BLUR","componentId":"w1","enabled":true,"radius":16,"color":"#FFAA00","mainValue":"Open","subValue":2})", ORVSComponentType::WIDGET_BLUR},
      {R"({"type":"WIDGET_RADIAL","componentId":"w2","enabled":true,"mainValue":"21.5","barHue":true,
           "error":"Sensor offline","secondaryValue":{"setpoint":22}})", ORVSComponentType::WIDGET_RADIAL},
      {R"({"type":"WIDGET_BLUR_RADIAL","componentId":"w3","enabled":true,"radius":8.5,"barColor":"#00FF00","i18nError":"err.door"})", ORVSComponentType::WIDGET_BLUR_RADIAL},
      {R"({"type":"WIDGET_VERTICAL","componentId":"w4","enabled":true,"barHue":false,"value1":30,"value2":"ha"})", ORVSComponentType::WIDGET_VERTICAL},
      {R"({"type":"WIDGET_DOUBLE_VALUE","componentId":"w5","enabled":true,"radius":4,"value1":1,"value2":2})", ORVSComponentType::WIDGET_DOUBLE_VALUE},
      {R"({"type":"WIDGET_SECTION_EDITABLE","componentId":"fav","enabled":true,"scroll":"HORIZONTAL","counter":true,
           "components":[],"addButton":{"type":"BUTTON","componentId":"add","enabled":true,"icon":"plus"}})", ORVSComponentType::WIDGET_SECTION_EDITABLE},
      {R"({"type":"WIDGET_SECTION","componentId":"room","enabled":true,"scroll":"VERTICAL","noElementsText":"Nothing here"})", ORVSComponentType::WIDGET_SECTION},
      {R"({"type":"WIDGET_GROUP","componentId":"grp","enabled":true,"radius":12,"icons":["bulb","fan"]})", ORVSComponentType::WIDGET_GROUP},
      {R"({"type":"CHART","componentId":"c1","enabled":true})", ORVSComponentType::unknown},
      {R"({"type":"button","series":[1,2]})", ORVSComponentType::unknown},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.json);
    const AnyCodable json = AnyCodable::parse(c.json);
    const auto component = decode<ORVSComponent>(json);
    EXPECT_EQ(component.type(), c.kind);
    EXPECT_EQ(component.isUnsupported(), !component.base());
    if (auto base = component.base()) {
      EXPECT_EQ(base->type, c.kind);
    }
    const AnyCodable encoded = encode(component);
    if (component.isUnsupported()) {
      EXPECT_EQ(encoded, json);
    }
    EXPECT_EQ(differences(encoded, json), "");
    const auto again = decode<ORVSComponent>(AnyCodable::parse(encoded.dump()));
    EXPECT_EQ(again, component);
    if (!component.isUnsupported()) {
      EXPECT_NE(again.base(), component.base()) << "a decoded copy is a new instance";
    }
  }
}

TEST(Component, UnknownKindsInsideContainersStayUnsupportedAndAreWrittenBackUnchanged) {
  const char* chart = R"({"type":"CHART","componentId":"ch","enabled":true,"series":[{"t":1,"v":[0.5,null]}]})";
  const std::string json = std::string(R"({"type":"FORM","componentId":"f","enabled":true,"sections":[
      {"type":"SECTION","componentId":"s","enabled":true,"components":[
        {"type":"INPUT_TEXT","componentId":"i","enabled":true},)") + chart + R"(,
        {"type":"WIDGET_SECTION","componentId":"ws","enabled":true,"components":[)" + chart + R"(,
          {"type":"WIDGET_SECTION_EDITABLE","componentId":"we","enabled":true,"components":[)" + chart + R"(]}]}]}]})";
  const auto form = decodeJSON<ORVSComponent>(json).as<ORVSFormModel>();
  ASSERT_TRUE(form);
  const auto& components = *(*form->sections)[0]->components;
  ASSERT_EQ(components.size(), 3u);
  EXPECT_EQ(components[0].type(), ORVSComponentType::INPUT_TEXT);
  EXPECT_TRUE(components[1].isUnsupported());
  const auto widgets = components[2].as<ORVSWidgetSectionModel>();
  ASSERT_TRUE(widgets);
  EXPECT_TRUE((*widgets->components)[0].isUnsupported());
  EXPECT_TRUE((*(*widgets->components)[1].as<ORVSWidgetSectionEditableModel>()->components)[0].isUnsupported());

  const AnyCodable expected = AnyCodable::parse(chart);
  const AnyCodable encoded = encode(ORVSComponent(form));
  const AnyCodable& list = member(element(member(encoded, "sections"), 0), "components");
  EXPECT_EQ(element(list, 1), expected);
  EXPECT_EQ(element(member(element(list, 2), "components"), 0), expected);
  EXPECT_EQ(element(member(element(member(element(list, 2), "components"), 1), "components"), 0), expected);

  // A list of components does not fail over a kind it does not know.
  const auto list2 = decodeJSON<std::vector<ORVSComponent>>(std::string("[") + chart + R"(,{"type":"STEP","componentId":"s","enabled":true}])");
  ASSERT_EQ(list2.size(), 2u);
  EXPECT_TRUE(list2[0].isUnsupported());
  EXPECT_EQ(list2[1].type(), ORVSComponentType::STEP);
}

TEST(Component, DecodingFailuresNameThePath) {
  struct Case {
    const char* json;
    const char* message;
  };
  const Case cases[] = {
      {R"({"componentId":"c1","enabled":true})", "$.type: required key is missing"},
      {R"({"type":7,"componentId":"c1","enabled":true})", "$.type: expected a string, found a number"},
      {R"({"type":null})", "$.type: expected a string, found null"},
      {R"("BUTTON")", "$: expected an object, found a string"},
      {R"({"type":"BUTTON","componentId":"c1","enabled":"yes"})", "$.enabled: expected a boolean, found a string"},
      {R"({"type":"BUTTON","enabled":true})", "$.componentId: required key is missing"},
      {R"({"type":"INPUT_TEXT","componentId":"c","enabled":true,"constraints":{"maxLength":"long"}})",
       "$.constraints.maxLength: expected an integer, found a string"},
      {R"({"type":"SECTION","componentId":"s","enabled":true,"components":[{"type":"BUTTON","componentId":"b","enabled":true},{"enabled":true}]})",
       "$.components[1].type: required key is missing"},
      {R"({"type":"FORM","componentId":"f","enabled":true,"buttons":[{"type":"BUTTON","componentId":"b"}]})",
       "$.buttons[0].enabled: required key is missing"},
      {R"({"type":"STEPPER","componentId":"w","enabled":true,"steps":[{"type":"STEP","componentId":"s","enabled":true,"nextButton":{"type":"BUTTON","enabled":true}}]})",
       "$.steps[0].nextButton.componentId: required key is missing"},
  };
  for (const auto& c : cases) EXPECT_EQ(testing::decodingError<ORVSComponent>(c.json), c.message) << c.json;
}

TEST(Component, EncodingWritesTheCaseKindAndAbsentOptionalsAreLeftOut) {
  auto button = std::make_shared<ORVSButtonModel>();
  button->componentId = "b";
  EXPECT_EQ(encodeJSON(ORVSComponent(button)), R"({"type":"BUTTON","componentId":"b","enabled":false})");
  button->type = ORVSComponentType::SLIDER;
  EXPECT_EQ(member(encode(ORVSComponent(button)), "type"), AnyCodable("BUTTON"));
  EXPECT_THROW(ORVSComponent(std::shared_ptr<ORVSSliderModel>{}), std::invalid_argument);
}

TEST(ComponentObservation, SetNotifiesOnceWithTheKeyOnlyWhenTheValueChanges) {
  auto slider = std::make_shared<ORVSSliderModel>();
  std::vector<std::string> seen;
  auto subscription = slider->observe([&](std::string_view key) { seen.emplace_back(key); });

  struct Step {
    std::function<bool()> set;
    bool changed;
    const char* key;
  };
  const Step steps[] = {
      {[&] { return slider->set(&ORVSSliderModel::enabled, true); }, true, "enabled"},
      {[&] { return slider->set(&ORVSSliderModel::enabled, true); }, false, nullptr},
      {[&] { return slider->set(&ORVSSliderModel::value, AnyCodable(40)); }, true, "value"},
      {[&] { return slider->set(&ORVSSliderModel::value, AnyCodable(40)); }, false, nullptr},
      {[&] { return slider->set(&ORVSSliderModel::lowText, "Off"); }, true, "lowText"},
      {[&] { return slider->set(&ORVSSliderModel::constraints, ORVSSliderContraint{0, 100}); }, true, "constraints"},
      {[&] { return slider->set(&ORVSSliderModel::constraints, ORVSSliderContraint{0, 100}); }, false, nullptr},
      {[&] { return slider->set(&ORVSSliderModel::i18nHighText, std::nullopt); }, false, nullptr},
      // Through the shared base, as code that only knows "a component" would.
      {[&] { return ORVSComponent(slider).base()->set(&ORVSBaseModel::name, "Dimmer"); }, true, "name"},
  };
  for (std::size_t i = 0; i < std::size(steps); ++i) {
    SCOPED_TRACE(i);
    seen.clear();
    EXPECT_EQ(steps[i].set(), steps[i].changed);
    EXPECT_EQ(seen, steps[i].key ? std::vector<std::string>{steps[i].key} : std::vector<std::string>{});
  }
  EXPECT_EQ(slider->lowText, "Off");
  EXPECT_EQ(slider->name, "Dimmer");
}

TEST(ComponentObservation, SubscriptionsEndWithTheirTokenAndStayWithTheirInstance) {
  auto button = std::make_shared<ORVSButtonModel>();
  int first = 0, second = 0;
  auto a = button->observe([&](std::string_view) { ++first; });
  {
    auto b = button->observe([&](std::string_view) { ++second; });
    button->set(&ORVSButtonModel::icon, "x");
    EXPECT_EQ(first, 1);
    EXPECT_EQ(second, 1);
  }
  button->set(&ORVSButtonModel::icon, "y");
  EXPECT_EQ(first, 2);
  EXPECT_EQ(second, 1);

  // A copy has the same value but no observers; the original keeps its own.
  auto copy = std::make_shared<ORVSButtonModel>(*button);
  EXPECT_EQ(*copy, *button);
  copy->set(&ORVSButtonModel::icon, "z");
  EXPECT_EQ(first, 2);
  EXPECT_NE(*copy, *button);

  // An observer may cancel itself while being notified, and a token may outlive its record.
  ORVSBaseModel::Subscription self;
  int calls = 0;
  self = button->observe([&](std::string_view) {
    ++calls;
    self.cancel();
  });
  button->set(&ORVSButtonModel::enabled, true);
  button->set(&ORVSButtonModel::enabled, false);
  EXPECT_EQ(calls, 1);
  EXPECT_FALSE(self.active());
  button.reset();
  EXPECT_FALSE(a.active());
}

}  // namespace
}  // namespace velora
