// log show and log clear: the library's diagnostic log.

#include <memory>

#include <velora/core/ORVSLogManager.hpp>

#include "Command.hpp"

namespace velora::cli {

void addLogCommands(CommandSet& commands) {
  CLI::App* log = commands.group("log", "Read or clear the diagnostic log");

  auto full = std::make_shared<bool>(false);
  CLI::App* show = commands.add(*log, "show", "Print the log", [full](Context& ctx) {
    const std::string text = ORVSLogManager::readLog(*full);
    if (ctx.out.json()) {
      ctx.out.printJson(AnyCodable::object({{"log", text}}));
    } else if (text.empty()) {
      ctx.out.printText("(the log is empty)");
    } else {
      ctx.out.printText(text);
    }
  });
  show->add_flag("--full", *full, "Print the whole log, not only its last 15000 characters");

  commands.add(*log, "clear", "Delete the log", [](Context& ctx) {
    ORVSLogManager::clearLog();
    if (ctx.out.json()) {
      ctx.out.printJson(AnyCodable::object({{"cleared", true}}));
    } else {
      ctx.out.printText("log cleared");
    }
  });
}

}  // namespace velora::cli
