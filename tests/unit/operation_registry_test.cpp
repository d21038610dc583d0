// Every REST operation the facade declares, checked against what it must send. A new operation
// fails the coverage test until it has its row in tests/support/OperationRows.cpp.

#include <gtest/gtest.h>

#include <set>

#include <velora/velora.hpp>

#include "Fakes.hpp"
#include "OperationRows.hpp"

namespace velora {
namespace {

std::string replaceAll(std::string text, const std::string& from, const std::string& to) {
  for (auto at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) text.replace(at, from.size(), to);
  return text;
}

TEST(OperationRegistry, EachOperationSendsItsMethodPathQueryAndBody) {
  testing::FakePlatform fakes;
  auto facade = testing::makeTestFacade(fakes, EnvironmentModel("http://platform.test", 30), true);
  for (const auto& row : testing::operationRows()) {
    SCOPED_TRACE(std::string(row.name) + " " + row.arguments);
    const OperationEntry* entry = findOperation(row.name);
    ASSERT_NE(entry, nullptr);
    const HttpRequest request = entry->request(*facade, AnyCodable::parse(row.arguments));
    EXPECT_EQ(request.method, row.method);
    EXPECT_EQ(entry->method, row.method);
    const std::string target = row.target;
    EXPECT_EQ(request.url, target.rfind("http", 0) == 0 ? target : "http://platform.test" + target);
    if (row.body && std::string_view(row.body) == testing::kMultipartBody) {
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
  for (const auto& row : testing::operationRows()) covered.insert(row.name);
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
