// Languages: the start-up read of the stored state, and how the list and change operations keep
// the facade's state, the defaults and the "LocalizationsChanged" news in step.

#include <gtest/gtest.h>

#include <velora/core/Language.hpp>
#include <velora/core/Orvane.hpp>

#include "Fakes.hpp"

namespace velora {
namespace {

using testing::FakePlatform;
using Reply = testing::FakeTransport::Reply;

const SELanguage kEnglish{"en", "English", true};
const SELanguage kGerman{"de", "Deutsch", std::nullopt};
const SELanguage kFrench{"fr", "Français", false};

/// Every "LocalizationsChanged" payload posted on the fakes' notification center.
struct Recorder {
  explicit Recorder(FakePlatform& fakes)
      : observation(fakes.notifications->addObserver(kLocalizationsChanged, nullptr, [this](const Notification& n) {
          const auto* change = n.value<LocalizationsChange>("payload");
          ASSERT_NE(change, nullptr);
          changes.push_back(*change);
        })) {}
  std::vector<LocalizationsChange> changes;
  NotificationCenter::Observation observation;
};

void enableLanguages(FakePlatform& fakes, bool enabled) {
  fakes.info = AnyCodable::object({{"VeloraSDK", AnyCodable::object({{"languageEnabled", enabled}})}});
}

std::shared_ptr<Orvane> makeFacade(FakePlatform& fakes) {
  return testing::makeTestFacade(fakes, EnvironmentModel("http://platform.test", 30), true);
}

TEST(Languages, StartupReadsTheStoredStateOnlyWhenEnabled) {
  const struct {
    const char* name;
    bool enabled;
    std::optional<AnyCodable> storedList, storedCurrent;
    std::optional<std::string> current;  // code
    std::size_t listed;
  } cases[] = {
      {"disabled ignores what is stored", false, encode(std::vector{kEnglish, kGerman}), encode(kGerman), std::nullopt, 0},
      {"nothing stored", true, std::nullopt, std::nullopt, std::nullopt, 0},
      {"stored choice", true, encode(std::vector{kEnglish, kGerman}), encode(kGerman), "de", 2},
      {"no choice falls back to the list's default", true, encode(std::vector{kGerman, kEnglish}), std::nullopt, "en", 2},
      {"no choice and no default", true, encode(std::vector{kGerman}), std::nullopt, std::nullopt, 1},
      {"unreadable entries count as absent", true, AnyCodable("garbage"), AnyCodable::object({{"code", 3}}), std::nullopt, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    FakePlatform fakes;
    enableLanguages(fakes, c.enabled);
    if (c.storedList) fakes.defaults->set("localizations", *c.storedList);
    if (c.storedCurrent) fakes.defaults->set("current-localization", *c.storedCurrent);
    Recorder recorder(fakes);
    auto facade = makeFacade(fakes);
    const auto current = facade->currentLocalization();
    EXPECT_EQ(current ? std::optional(current->code) : std::nullopt, c.current);
    EXPECT_EQ(facade->availableLocalizations().value_or(std::vector<SELanguage>{}).size(), c.listed);
    // News only when the read changed something.
    const bool changed = current || facade->availableLocalizations();
    ASSERT_EQ(recorder.changes.size(), changed ? 1u : 0u);
    if (changed) {
      EXPECT_EQ(recorder.changes[0].current, current);
      EXPECT_EQ(recorder.changes[0].available, facade->availableLocalizations());
    }
  }
}

TEST(Languages, ListKeepsAnOfferedChoiceAndOtherwiseFallsBackToTheDefault) {
  const struct {
    const char* name;
    std::optional<SELanguage> chosen;
    std::vector<SELanguage> offered;
    std::optional<SELanguage> current;
  } cases[] = {
      {"first list", std::nullopt, {kGerman, kEnglish}, kEnglish},
      {"choice still offered", kGerman, {kEnglish, kGerman}, kGerman},
      {"choice withdrawn", kFrench, {kEnglish, kGerman}, kEnglish},
      {"choice withdrawn, no default", kFrench, {kGerman}, std::nullopt},
  };
  for (const auto& c : cases) {
    for (bool awaited : {false, true}) {
      SCOPED_TRACE(std::string(c.name) + (awaited ? " (awaited)" : " (callback)"));
      FakePlatform fakes;
      enableLanguages(fakes, true);
      if (c.chosen) fakes.defaults->set("current-localization", encode(*c.chosen));
      fakes.transport->responder = [&](const HttpRequest& request) {
        EXPECT_EQ(request.url, "http://platform.test/public/api/v2/languages");
        return Reply{200, encodeJSON(c.offered)};
      };
      auto facade = makeFacade(fakes);
      Recorder recorder(fakes);
      if (awaited) {
        EXPECT_EQ(facade->getLanguages().get(), c.offered);
      } else {
        int answers = 0;
        facade->getLanguages([&](const ResponseMessage& m) {
          ++answers;
          EXPECT_EQ(m.code, 200);
        });
        fakes.queue->drain();
        EXPECT_EQ(answers, 1);
      }
      EXPECT_EQ(facade->availableLocalizations(), c.offered);
      EXPECT_EQ(facade->currentLocalization(), c.current);
      ASSERT_EQ(recorder.changes.size(), 1u);
      EXPECT_EQ(recorder.changes[0].current, c.current);
      // What the next start reads back.
      EXPECT_EQ(fakes.defaults->object("localizations"), encode(c.offered));
      EXPECT_EQ(fakes.defaults->object("current-localization"),
                c.current ? std::optional(encode(*c.current)) : std::nullopt);
      // The same list again is no news.
      facade->getLanguages().get();
      EXPECT_EQ(recorder.changes.size(), 1u);
    }
  }
}

TEST(Languages, ChangeTakesEffectOnlyWhenTheServerConfirmsIt) {
  const struct {
    const char* name;
    Reply reply;
    std::optional<SELanguage> current;
  } cases[] = {
      {"confirmed", {200, encodeJSON(kFrench)}, kFrench},
      {"refused", {404, R"({"code":404,"message":"Unknown language"})"}, kGerman},
      {"confirmation that is not a language", {200, R"({"code":200})"}, kGerman},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    FakePlatform fakes;
    enableLanguages(fakes, true);
    fakes.defaults->set("current-localization", encode(kGerman));
    std::string sent;
    fakes.transport->responder = [&](const HttpRequest& request) {
      sent = request.method + " " + request.url;
      return c.reply;
    };
    auto facade = makeFacade(fakes);
    Recorder recorder(fakes);
    try {
      facade->setLanguage("fr").get();
    } catch (const APIError&) {
    }
    EXPECT_EQ(sent, "POST http://platform.test/api/v2/setLanguage?language=fr");
    EXPECT_EQ(facade->currentLocalization(), c.current);
    EXPECT_EQ(fakes.defaults->object("current-localization"), encode(*c.current));
    EXPECT_EQ(recorder.changes.size(), c.current == kGerman ? 0u : 1u);
  }
}

}  // namespace
}  // namespace velora
