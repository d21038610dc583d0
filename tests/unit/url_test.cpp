#include <gtest/gtest.h>

#include <tuple>

#include <velora/core/URL.hpp>

namespace velora {
namespace {

TEST(URL, SafeInitReplacesEachDoubleSlashPairInThePathOnly) {
  struct Case {
    const char* text;
    const char* expected;  // nullptr: no URL
  };
  const Case cases[] = {
      {"https://host.example/api/v1/x", "https://host.example/api/v1/x"},
      {"https://host.example//api//v1///x", "https://host.example/api/v1//x"},
      {"https://host.example/a////b", "https://host.example/a//b"},
      {"http://127.0.0.1:8080//api/v1?next=http://a//b", "http://127.0.0.1:8080/api/v1?next=http://a//b"},
      {"https://host.example/a//b#frag//x", "https://host.example/a/b#frag//x"},
      {"https://host.example/a b", nullptr},
      {"https://host.example/%zz", nullptr},
      {"https://host.example:99999/", nullptr},
      {"", nullptr},
      {"myapp://callback", "myapp://callback"},
  };
  for (const auto& c : cases) {
    auto url = URL::safeInit(c.text);
    if (!c.expected) {
      EXPECT_FALSE(url) << c.text;
    } else {
      ASSERT_TRUE(url) << c.text;
      EXPECT_EQ(url->absoluteString(), c.expected);
    }
  }
}

TEST(URL, Components) {
  auto url = URL::parse("http://user@127.0.0.1:8080/api/v1/item?x=1#top");
  ASSERT_TRUE(url);
  EXPECT_EQ(std::tuple(url->scheme(), url->host(), url->port(), url->path(), url->query(), url->fragment()),
            std::tuple("http", "127.0.0.1", 8080, "/api/v1/item", "x=1", "top"));
  EXPECT_EQ(URL::parse("myapp://callback")->scheme(), "myapp");
  EXPECT_EQ(URL::parse("/relative/path")->scheme(), "");
}

}  // namespace
}  // namespace velora
