#pragma once
// How command groups plug into the client. A group is one function that adds its subcommands to
// a CommandSet; the subcommand that the command line selects runs once parsing is over and the
// platform is installed, with a Context giving it the settings, the output and a way to wait.

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include <CLI/CLI.hpp>

#include <velora/core/Task.hpp>

#include "Output.hpp"
#include "Settings.hpp"
#include "Spinner.hpp"

namespace velora::cli {

struct Context {
  const Settings& settings;
  const CLI::App& app;
  Output& out;
  bool spinner = false;

  /// The shared facade; throws UsageError when no endpoint is known.
  Orvane& orvane() const { return connect(settings, app); }

  /// Runs an awaitable operation to its end from this (the main) thread, with a spinner saying
  /// `label` meanwhile. Returns its result or rethrows its error, the spinner already erased.
  template <class T>
  T await(std::string label, Task<T> task) const {
    Spinner shown(std::move(label), spinner);
    return task.get();
  }
};

using Run = std::function<void(Context&)>;

class CommandSet {
 public:
  explicit CommandSet(CLI::App& app) : app_(app) {}

  CLI::App& app() { return app_; }

  /// A subcommand of `parent` that runs `run` when the command line selects it.
  CLI::App* add(CLI::App& parent, const std::string& name, const std::string& description, Run run);
  CLI::App* add(const std::string& name, const std::string& description, Run run) {
    return add(app_, name, description, std::move(run));
  }
  /// A subcommand that only holds others ("log" for "log show"); one of them must be given.
  CLI::App* group(const std::string& name, const std::string& description);

  /// What the command line selected; empty before parsing.
  const Run* selected() const { return selected_ ? &*selected_ : nullptr; }

 private:
  CLI::App& app_;
  std::optional<Run> selected_;
};

/// Command groups, in the order their commands appear in the help.
void addPlatformCommands(CommandSet& commands);  // check, device-config
void addAuthCommands(CommandSet& commands);      // login guest|password|browser|qr, logout, status
void addItemCommands(CommandSet& commands);      // items list, items set
void addBookingCommands(CommandSet& commands);   // book, agenda, slots, favourite, locker
void addHomeCommands(CommandSet& commands);      // home
void addNotificationCommands(CommandSet& commands);  // notifications register|list|count|read|delete, dnd show|set
void addCallCommands(CommandSet& commands);      // call OPERATION, call --list
void addWatchCommands(CommandSet& commands);     // watch items|events|positions|diagnostic|home|group|widget
void addLogCommands(CommandSet& commands);       // log show, log clear

}  // namespace velora::cli
