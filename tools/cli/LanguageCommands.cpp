// languages [--set CODE]: the languages the platform offers, and changing the user's language.

#include <memory>

#include <velora/core/Language.hpp>

#include "Command.hpp"
#include "Session.hpp"

namespace velora::cli {
namespace {

std::string describeLanguages(const std::vector<SELanguage>& languages) {
  if (languages.empty()) return "(no languages)";
  std::vector<std::vector<std::string>> rows;
  for (const auto& l : languages) rows.push_back({l.code, l.name, l.isDefault.value_or(false) ? "default" : ""});
  return table({"CODE", "NAME", ""}, rows);
}

}  // namespace

void addLanguageCommands(CommandSet& commands) {
  auto code = std::make_shared<std::string>();
  commands.add("languages", "List the languages the platform offers, or set yours with --set CODE", [code](Context& ctx) {
    Orvane& orvane = connectWithSession(ctx);
    if (code->empty()) {
      const auto languages = ctx.await("Reading languages", orvane.getLanguages());
      ctx.out.show<std::vector<SELanguage>>(languages, describeLanguages);
    } else {
      const auto chosen = ctx.await("Setting the language", orvane.setLanguage(*code));
      ctx.out.show<SELanguage>(chosen, [](const SELanguage& l) { return "language set to " + l.code + " (" + l.name + ")"; });
    }
  })->add_option("--set", *code, "Language code to use from now on (see the list)");
}

}  // namespace velora::cli
