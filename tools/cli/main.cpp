// velora: command-line client for the Velora platform.
//
// Exit codes: 0 success, 1 the operation failed, 2 the command line or settings are unusable.

#include <iostream>
#include <string>
#include <vector>

#include <velora/core/APIError.hpp>
#include <velora/core/PlatformError.hpp>
#include <velora/core/Version.hpp>

#include "Command.hpp"
#include "Failure.hpp"
#include "Secrets.hpp"

namespace {

constexpr int kFailed = 1;
constexpr int kUsage = 2;

int fail(int code, const std::string& message, const std::vector<std::string>& hints = {}) {
  std::cerr << "velora: " << velora::cli::maskSecrets(message) << '\n';
  for (const auto& hint : hints) std::cerr << "velora: " << velora::cli::maskSecrets(hint) << '\n';
  // The library's errors are terse ("Unknown error occurred"); its diagnostics say what happened.
  if (velora::cli::diagnosticsDropped()) std::cerr << "velora: run again with --verbose for details\n";
  return code;
}

}  // namespace

int main(int argc, char** argv) {
  using namespace velora::cli;
  CLI::App app{"Command-line client for the Velora platform", "velora"};
  app.set_version_flag("--version", "velora " + std::string(velora::version()), "print the version and exit");
  app.require_subcommand(1);
  app.fallthrough();  // global settings may also follow the subcommand
  Settings settings;
  addSettings(app, settings);
  CommandSet commands(app);
  addPlatformCommands(commands);
  addAuthCommands(commands);
  addItemCommands(commands);
  addBookingCommands(commands);
  addHomeCommands(commands);
  addNotificationCommands(commands);
  addTicketCommands(commands);
  addAdvertiseCommands(commands);
  addLanguageCommands(commands);
  addCallCommands(commands);
  addWatchCommands(commands);
  addMapCommands(commands);
  addLogCommands(commands);

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return app.exit(e) == 0 ? 0 : kUsage;
  }

  try {
    std::shared_ptr<WindowLoop> window = installPlatform(settings, commands.windowPurpose());
    Output out(settings.json, std::cout);
    Context ctx{settings, app, out, Spinner::wanted(), window};
    const Run* run = commands.selected();
    if (!run) return fail(kUsage, "no command given; see velora --help");
    (*run)(ctx);
    return 0;
  } catch (const UsageError& e) {
    return fail(kUsage, e.what());
  } catch (const velora::APIError& e) {
    const Failure failure = describeFailure(e, app);
    return fail(kFailed, failure.message, failure.hints);
  } catch (const velora::PlatformError& e) {
    const Failure failure = describeFailure(e);
    return fail(kFailed, failure.message, failure.hints);
  } catch (const std::exception& e) {
    return fail(kFailed, e.what());
  }
}
