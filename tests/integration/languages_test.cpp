// Languages over real HTTP: the public list, a change of language as the demo user, and the next
// start of the application reading back what was stored.

#include <gtest/gtest.h>

#include <atomic>

#include <velora/core/Language.hpp>

#include "OverHttp.hpp"

namespace velora {
namespace {

std::vector<std::string> codes(const std::vector<SELanguage>& languages) {
  std::vector<std::string> found;
  for (const auto& l : languages) found.push_back(l.code);
  return found;
}

TEST(LanguagesOverHttp, ListChangeAndTheNextStartAgree) {
  sandbox::Sandbox sandbox;
  testing::HttpPlatform http;
  Platform platform = http.platform("languages.it");
  platform.host = std::make_shared<StaticHostInfo>(
      "languages.it", AnyCodable::object({{"VeloraSDK", AnyCodable::object({{"languageEnabled", true}})}}));

  // The list is public: no session needed.
  auto anonymous = testing::sandboxFacade(sandbox, platform, false);
  const auto offered = anonymous->getLanguages().get();
  EXPECT_EQ(codes(offered), (std::vector<std::string>{"en", "de", "fr", "it"}));
  EXPECT_EQ(anonymous->availableLocalizations(), offered);
  ASSERT_TRUE(anonymous->currentLocalization());
  EXPECT_EQ(anonymous->currentLocalization()->code, "en");
  EXPECT_EQ(testing::failureOf(anonymous->setLanguage("de")).code, 401);
  EXPECT_EQ(anonymous->currentLocalization()->code, "en");

  auto facade = testing::sandboxFacade(sandbox, platform, true);
  std::atomic<int> news{0};
  auto observation = platform.notifications->addObserver(kLocalizationsChanged, nullptr, [&](const Notification& n) {
    const auto* change = n.value<LocalizationsChange>("payload");
    if (change && change->current && change->current->code == "fr") ++news;
  });
  const auto chosen = facade->setLanguage("fr").get();
  EXPECT_EQ(chosen, (SELanguage{"fr", "Français", false}));
  EXPECT_EQ(facade->currentLocalization(), chosen);
  EXPECT_EQ(news.load(), 1);
  EXPECT_EQ(sandbox.requests("/api/v2/setLanguage").back().query, "language=fr");

  EXPECT_EQ(testing::failureOf(facade->setLanguage("xx")), ResponseMessage(404, "Unknown language xx"));
  EXPECT_EQ(facade->currentLocalization(), chosen);

  // The next start reads the stored choice and list before any request.
  auto restarted = Orvane::make(platform);
  ASSERT_TRUE(testing::eventually([&] { return restarted->currentLocalization().has_value(); }));
  EXPECT_EQ(restarted->currentLocalization(), chosen);
  EXPECT_EQ(restarted->availableLocalizations(), offered);
}

}  // namespace
}  // namespace velora
