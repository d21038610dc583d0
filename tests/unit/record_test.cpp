// The record layer: one field table drives encoding and decoding; failures name the JSON path.

#include <gtest/gtest.h>

#include <cmath>

#include <velora/auth/KeycloakEnumerations.hpp>
#include <velora/core/DeviceConfiguration.hpp>
#include <velora/core/EnvironmentModel.hpp>
#include <velora/core/ResponseMessage.hpp>
#include <velora/sse/SSERecords.hpp>

#include "Fakes.hpp"

namespace velora {
namespace {

TEST(Record, RoundTripKeepsEveryFieldAndOmitsAbsentOptionals) {
  NetworkResponseConfiguration config{"app", "UU", std::nullopt,
                                      {"tag-1", 7, 255, 0.5, std::nullopt, EnlightedConfig{"E2C5", 1, 2, -59}}};
  const std::string text = encodeJSON(config);
  EXPECT_EQ(text,
            R"({"appId":"app","uuid":"UU","iosadvConf":{"tagid":"tag-1","byte1":7,"byte2":255,"tON":0.5,)"
            R"("enlightedConfig":{"uuid":"E2C5","major":1,"minor":2,"measuredPower":-59}}})");
  EXPECT_EQ(decodeJSON<NetworkResponseConfiguration>(text), config);
}

TEST(Record, DecodingFailuresNameThePath) {
  struct Case {
    const char* json;
    const char* message;
  };
  const Case cases[] = {
      {R"({"uuid":"u","iosadvConf":{"tagid":"t","byte1":1,"byte2":2}})", "$.appId: required key is missing"},
      {R"({"appId":"a","uuid":"u","iosadvConf":{"tagid":"t","byte1":1}})", "$.iosadvConf.byte2: required key is missing"},
      {R"({"appId":"a","uuid":"u","iosadvConf":{"tagid":"t","byte1":300,"byte2":2}})", "$.iosadvConf.byte1: integer 300 out of range"},
      {R"({"appId":"a","uuid":"u","iosadvConf":{"tagid":7,"byte1":1,"byte2":2}})", "$.iosadvConf.tagid: expected a string, found a number"},
      {R"({"appId":null,"uuid":"u","iosadvConf":{"tagid":"t","byte1":1,"byte2":2}})", "$.appId: required value is null"},
      {R"({"appId":"a","uuid":"u","iosadvConf":{"tagid":"t","byte1":1.5,"byte2":2}})", "$.iosadvConf.byte1: expected an integer, found a number"},
      {R"([1])", "$: expected an object, found an array"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(testing::decodingError<NetworkResponseConfiguration>(c.json), c.message) << c.json;
  }
}

TEST(Record, NullOptionalReadsAsAbsentAndUnknownKeysAreIgnored) {
  auto message = decodeJSON<ResponseMessage>(R"({"code":401,"message":null,"extra":[1,2],"alert":{"code":7,"title":"T","description":"D"}})");
  EXPECT_EQ(message.code, 401);
  EXPECT_FALSE(message.message);
  ASSERT_TRUE(message.alert);
  EXPECT_EQ(message.alert->title, "T");
  EXPECT_FALSE(message.alert->icon);
}

TEST(Record, TolerantEnumerationsTakeTheLastCaseForUnknownText) {
  EXPECT_EQ(enumFromRaw<KeycloakLoginMode>("GUEST"), KeycloakLoginMode::GUEST);
  EXPECT_EQ(enumFromRaw<KeycloakLoginMode>("user"), KeycloakLoginMode::BACKGROUND);
  EXPECT_EQ(enumFromRaw<KeycloakAuthenticationMethod>("custom"), KeycloakAuthenticationMethod::APPLE);
  EXPECT_EQ(enumFromRaw<BLEFrequency>("high"), BLEFrequency::high);
  auto env = decodeJSON<EnvironmentModel>(
      R"({"sdkEndpoint":"http://x","timeout":5,"keycloakEnv":{"loginMode":"nope","authMethod":"CUSTOM"},"quuppaEnv":{"bluetoothFreq":"sometimes","byte0":1,"byte1":2}})");
  EXPECT_EQ(env.keycloakEnv->loginMode, KeycloakLoginMode::BACKGROUND);
  EXPECT_EQ(env.keycloakEnv->authMethod, KeycloakAuthenticationMethod::CUSTOM);
  EXPECT_EQ(env.quuppaEnv.bluetoothFreq, BLEFrequency::alwaysOn);
  EXPECT_EQ(*encode(env).find("keycloakEnv")->find("loginMode")->as<std::string>(), "BACKGROUND");
}

// Declared the way the library's records are, with each form an entry can take.
VELORA_ENUM(Shade, light, (dark_blue, "dark-blue"), other);

struct Swatch {
  std::string name;
  Shade shade = Shade::light;
  std::optional<std::string> note;

  VELORA_RECORD(Swatch, (name, "display-name"), shade, VELORA_NOT_CODED(note));
};

TEST(RecordDeclaration, EntriesChooseTheKeyAndWhetherTheMemberTravels) {
  const std::pair<const char*, Swatch> decoded[] = {
      {R"({"display-name":"a","shade":"dark-blue"})", {"a", Shade::dark_blue}},
      {R"({"display-name":"b","shade":"light","note":"n"})", {"b", Shade::light}},
      // A case's name is not its raw text; unknown text takes the last case.
      {R"({"display-name":"c","shade":"dark_blue"})", {"c", Shade::other}},
      {R"({"display-name":"d","shade":"navy"})", {"d", Shade::other}},
  };
  for (const auto& [json, expected] : decoded) EXPECT_EQ(decodeJSON<Swatch>(json), expected) << json;

  EXPECT_EQ(testing::decodingError<Swatch>(R"({"name":"a","shade":"light"})"), "$.display-name: required key is missing");
  EXPECT_EQ(encodeJSON(Swatch{"e", Shade::dark_blue, "kept here"}), R"({"display-name":"e","shade":"dark-blue"})");
  EXPECT_EQ(typeName<Swatch>(), "Swatch");
}

TEST(RecordDeclaration, AnItemsLocalisedNameNeverTravels) {
  ItemControllable item;
  item.i18nName = "Lampe";
  EXPECT_FALSE(encode(item).find("i18nName"));
  EXPECT_FALSE(decodeJSON<ItemControllable>(R"({"id":1,"logicName":"l","widgetName":"w","type":"LIGHT","i18nName":"x"})")
                   .i18nName);
}

TEST(RecordDeclaration, EnumerationCasesKeepTheirWireTexts) {
  const auto cases = std::tuple{
      std::pair{KeycloakGrantType::device_code, "urn:ietf:params:oauth:grant-type:device_code"},
      std::pair{KeycloakResponseType::idtoken_token, "id_token token"},
      std::pair{KeycloakSubjectType::generic_public, "public"},
      std::pair{KeycloakAlgorithm::RSA15, "RSA1_5"},
      std::pair{KeycloakScope::microprofile_jwft, "microprofile-jwt"},
      std::pair{SSEStreamTypeEvent::tagid, "TAGID_EVENT"},
      std::pair{SSEWidgetEventsType::remove_all, "remove_all"},
  };
  const auto expectBothWays = [](auto value, std::string_view raw) {
    EXPECT_EQ(rawValue(value), raw);
    EXPECT_EQ(enumFromRaw<decltype(value)>(raw), value) << raw;
  };
  std::apply([&](const auto&... c) { (expectBothWays(c.first, c.second), ...); }, cases);
}

TEST(AnyCodable, ParsesAndPrintsEveryKind) {
  const char* text = R"({"n":null,"b":true,"i":-3,"u":18446744073709551615,"d":0.25,"s":"a\"\n\u00e9","a":[1,{"k":[]}]})";
  AnyCodable value = AnyCodable::parse(text);
  EXPECT_EQ(*value.find("i")->as<std::int64_t>(), -3);
  EXPECT_DOUBLE_EQ(*value.find("u")->number(), 18446744073709551615.0);
  EXPECT_EQ(*value.find("s")->as<std::string>(), "a\"\n\xC3\xA9");
  EXPECT_EQ(AnyCodable::parse(value.dump()), value);
}

TEST(AnyCodable, ErrorsCarryTheirFixedTexts) {
  EXPECT_THROW(
      {
        try {
          AnyCodable::parse("{\"a\":");
        } catch (const JsonError& e) {
          EXPECT_STREQ(e.what(), "AnyDecodable value cannot be decoded");
          EXPECT_NE(e.detail().find("unexpected end of input"), std::string::npos) << e.detail();
          throw;
        }
      },
      JsonError);
  try {
    AnyCodable(AnyCodable::Array{1.0, std::nan("")}).dump();
    ADD_FAILURE();
  } catch (const JsonError& e) {
    EXPECT_STREQ(e.what(), "AnyEncodable value cannot be encoded");
  }
}

TEST(AnyCodable, TopLevelElementsAreCountedWithoutParsing) {
  const std::pair<const char*, std::size_t> cases[] = {
      {"[]", 0},       {" [ ] ", 0},          {"[1]", 1},    {"[1, 2,3]", 3}, {R"(["a,b", "c]\"]", {"d":[1,2]}])", 3},
      {"[[1,2],[3]]", 2}, {R"({"a":[1,2]})", 0}, {"[1,2", 0},  {"7", 0},         {"[{}]", 1},
  };
  for (const auto& [text, count] : cases) EXPECT_EQ(detail::countTopLevelElements(text), count) << text;
}

TEST(AnyCodable, BytesTravelAsBase64) {
  for (std::size_t n = 0; n < 7; ++n) {
    Bytes bytes;
    for (std::size_t i = 0; i < n; ++i) bytes.push_back(static_cast<std::uint8_t>(250 + i));
    EXPECT_EQ(base64Decode(base64Encode(bytes)), bytes) << n;
  }
  EXPECT_EQ(base64Encode({'M', 'a'}), "TWE=");
  EXPECT_FALSE(base64Decode("TW=E"));
  EXPECT_EQ(decode<Bytes>(AnyCodable("TWE=")), (Bytes{'M', 'a'}));
}

TEST(Record, ReferenceDateSecondsRoundTrip) {
  const Date t = dateFromReferenceSeconds(12.5);
  EXPECT_EQ(std::chrono::system_clock::to_time_t(t), 978307212);
  EXPECT_DOUBLE_EQ(*encode(t).number(), 12.5);
  EXPECT_EQ(decode<Date>(AnyCodable(12.5)), t);
}

}  // namespace
}  // namespace velora
