// The map page's start-up document: what a configuration built without arguments sends, that
// arguments left out take their default blocks, and that decoding applies no defaults.

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include <velora/velora.hpp>

#include "Fakes.hpp"

namespace velora {
namespace {

/// The value at a dotted path of `json`, or null when a step is missing.
const AnyCodable* at(const AnyCodable& json, const std::string& path) {
  const AnyCodable* node = &json;
  std::size_t start = 0;
  while (node && start <= path.size()) {
    const auto dot = path.find('.', start);
    node = node->find(path.substr(start, dot - start));
    if (dot == std::string::npos) break;
    start = dot + 1;
  }
  return node;
}

std::vector<std::string> keysOf(const AnyCodable& json) {
  std::vector<std::string> keys;
  for (const auto& [key, value] : *json.as<AnyCodable::Object>()) keys.push_back(key);
  return keys;
}

TEST(MapConfiguration, TheDefaultDocument) {
  const auto json = encode(ConfigurationModel());
  const struct {
    const char* path;
    std::optional<const char*> value;  // JSON text; nothing when the key must be left out
  } cases[] = {
      {"toolbox.mapControl.rotationStep", "10"},
      {"toolbox.layer.rotationStep", std::nullopt},
      {"toolbox.mapControl", R"({"enabled":true,"x":50,"y":50,"buttonWidth":40,"buttonHeight":40,"buttonSpace":10,)"
                             R"("orientation":"horizontal","rotationStep":10})"},
      {"toolbox.layer", R"({"enabled":true,"x":50,"y":120,"buttonWidth":30,"buttonHeight":30,"buttonSpace":8,)"
                        R"("orientation":"vertical"})"},
      {"callbackType", R"("iOS")"},
      {"noImage", "false"},
      {"show.me", "true"},
      {"show.all", "false"},
      {"show.room", "true"},
      {"show.kiosk", "0"},
      {"show.path", "1"},
      {"show.park", "false"},
      {"show.desk", "false"},
      {"show.booking", "false"},
      {"show.list", std::nullopt},
      {"tagid", std::nullopt},
      {"areaGroups", std::nullopt},
      {"buildings", std::nullopt},
      {"initialMapId", std::nullopt},
      {"auth", "{}"},
      {"visualization", R"({"followTagOnClick":false,"centerAreaOnClick":true})"},
      {"style.bookingLayer", "{}"},
      {"style.darkMode", "false"},
      {"style.icons", R"({"opacity":1.0,"radiusMeter":5.0,"name":"orvane","align":"center","vAlign":"bottom",)"
                      R"("followZoom":true})"},
      {"style.navigation", R"({"radiusMeter":5.0,"strokeWidthMeter":0.3,"stroke":"#4965E7","strokeOpacity":1.0,)"
                           R"("strokeLinecap":"round","strokeLinejoin":"round","jumpColor":"#2424b1","jumpOpacity":1.0,)"
                           R"("jumpRadiusMeter":0.4,"animationTime":0.0,"navigationStep":1.5,"autoZoom":true,)"
                           R"("showVoronoy":false})"},
      {"style.indication", R"({"stroke":"#4965E7","radiusMeter":2.0,"sourceColor":"#f00","destColor":"#2424b1",)"
                           R"("opacity":1.0,"followZoom":false,"iconVAlign":"bottom","iconHAlign":"right"})"},
  };
  for (const auto& c : cases) {
    const AnyCodable* value = at(json, c.path);
    if (!c.value) {
      EXPECT_EQ(value, nullptr) << c.path << " is " << value->dump();
    } else {
      ASSERT_NE(value, nullptr) << c.path;
      EXPECT_EQ(*value, AnyCodable::parse(*c.value)) << c.path << " is " << value->dump();
    }
  }
  EXPECT_EQ(keysOf(json), (std::vector<std::string>{"auth", "style", "toolbox", "show", "callbackType",
                                                    "visualization", "noImage"}));
}

TEST(MapConfiguration, ArgumentsLeftOutTakeTheirDefaultBlocks) {
  ShowModel show{.me = false, .all = true, .room = false, .list = std::vector<std::string>{"desk"},
                 .kiosk = std::nullopt, .path = std::nullopt};
  const ConfigurationModel config("TAG-7", std::nullopt, ToolboxModel(std::nullopt, ToolboxModel::defaultMapControl()),
                                  show, std::vector<std::string>{"north"}, std::vector<std::int64_t>{4, 5},
                                  std::nullopt, std::nullopt, 12, true);
  EXPECT_EQ(config.style, StyleConfigurationModel{});
  EXPECT_EQ(config.toolbox.mapControl, ToolboxModel::defaultMapControl());
  EXPECT_EQ(config.toolbox.layer, ToolboxModel::defaultMapControl());
  EXPECT_EQ(config.callbackType, "iOS");
  EXPECT_EQ(config.visualization, ConfigurationModel::defaultVisualization());
  EXPECT_EQ(config.credentials().token, std::nullopt);

  const auto json = encodeJSON(config);
  EXPECT_NE(json.find(R"("tagid":"TAG-7")"), std::string::npos) << json;
  EXPECT_NE(json.find(R"("show":{"me":false,"all":true,"room":false,"list":["desk"],"park":false,"desk":false,)"
                      R"("booking":false})"),
            std::string::npos)
      << json;
  EXPECT_NE(json.find(R"("areaGroups":["north"],"buildings":[4,5],"callbackType":"iOS")"), std::string::npos) << json;
  EXPECT_NE(json.find(R"("initialMapId":12,"noImage":true})"), std::string::npos) << json;
  EXPECT_EQ(decodeJSON<ConfigurationModel>(json), config);
}

TEST(MapConfiguration, TheViewsCredentialsAreReadBack) {
  auto json = encode(ConfigurationModel());
  json["auth"] = AnyCodable::object({{"token", "ey.J"}});
  const auto config = decode<ConfigurationModel>(json);
  EXPECT_EQ(config.credentials().token, "ey.J");
  EXPECT_NE(config, ConfigurationModel());
  EXPECT_EQ(encode(config), json);
}

/// Decodes the default encoding of R with `key` removed from the object at `path` ("" for the
/// root); the error text, or nothing when it decodes.
template <class R>
std::optional<std::string> decodeWithout(const R& record, const std::string& path, const std::string& key) {
  auto json = encode(record);
  AnyCodable* object = &json;
  for (std::size_t start = 0; start < path.size();) {
    const auto dot = std::min(path.find('.', start), path.size());
    object = &(*object)[path.substr(start, dot - start)];
    start = dot + 1;
  }
  auto& members = *object->as<AnyCodable::Object>();
  std::erase_if(members, [&](const auto& member) { return member.first == key; });
  try {
    decode<R>(json);
    return std::nullopt;
  } catch (const DecodingError& e) {
    return e.what();
  }
}

TEST(MapConfiguration, DecodingRequiresEveryPlainKeyAndFillsInNoDefault) {
  const struct {
    const char* path;
    const char* key;
    std::optional<const char*> error;
  } cases[] = {
      {"", "auth", "$.auth: required key is missing"},
      {"", "style", "$.style: required key is missing"},
      {"", "callbackType", "$.callbackType: required key is missing"},
      {"", "noImage", "$.noImage: required key is missing"},
      {"", "visualization", "$.visualization: required key is missing"},
      {"style", "darkMode", "$.style.darkMode: required key is missing"},
      {"style", "bookingLayer", "$.style.bookingLayer: required key is missing"},
      {"style.navigation", "strokeLinecap", "$.style.navigation.strokeLinecap: required key is missing"},
      {"style.navigation", "showVoronoy", "$.style.navigation.showVoronoy: required key is missing"},
      {"style.navigation", "stroke", std::nullopt},
      {"style.navigation", "radiusMeter", std::nullopt},
      {"style.icons", "name", "$.style.icons.name: required key is missing"},
      {"style.icons", "opacity", std::nullopt},
      {"style.indication", "iconHAlign", "$.style.indication.iconHAlign: required key is missing"},
      {"toolbox.mapControl", "orientation", "$.toolbox.mapControl.orientation: required key is missing"},
      {"toolbox.mapControl", "rotationStep", std::nullopt},
      {"toolbox", "layer", "$.toolbox.layer: required key is missing"},
      {"show", "room", "$.show.room: required key is missing"},
      {"show", "park", std::nullopt},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(decodeWithout(ConfigurationModel(), c.path, c.key), c.error) << c.path << " without " << c.key;
  }

  // What an optional key that is left out decodes to is absent, not the constructor's value.
  auto json = encode(NavigationConfigurationModel{});
  std::erase_if(*json.as<AnyCodable::Object>(), [](const auto& m) { return m.first == "stroke" || m.first == "jumpOpacity"; });
  const auto navigation = decode<NavigationConfigurationModel>(json);
  EXPECT_EQ(navigation.stroke, std::nullopt);
  EXPECT_EQ(navigation.jumpOpacity, std::nullopt);
  EXPECT_EQ(navigation.strokeOpacity, 1.0);
  const auto show = decodeJSON<ShowModel>(R"({"me":true,"all":false,"room":true})");
  EXPECT_EQ(show.park, std::nullopt);
  EXPECT_EQ(show.booking, std::nullopt);
}

TEST(MapConfiguration, BookingRadiusIsWholeMetresAndOrientationIsTolerant) {
  const struct {
    const char* json;
    bool decodes;
  } cases[] = {
      {R"({"radiusMeter":3,"clickZoom":18,"color":"#0a0"})", true},
      {R"({"radiusMeter":3.0})", true},
      {R"({"radiusMeter":2.5})", false},
      {R"({"radiusMeter":"3"})", false},
  };
  for (const auto& c : cases) EXPECT_EQ(testing::decodingError<BookingStyleModel>(c.json) == "decoded", c.decodes) << c.json;
  EXPECT_EQ(encodeJSON(BookingStyleModel{.radiusMeter = 3}), R"({"radiusMeter":3})");
  EXPECT_EQ(enumFromRaw<OrientationType>("diagonal"), OrientationType::vertical);
  EXPECT_EQ(encodeJSON(MapBackground{"floor-2.png", "iVBORw0="}), R"({"filename":"floor-2.png","base64":"iVBORw0="})");
}

}  // namespace
}  // namespace velora
