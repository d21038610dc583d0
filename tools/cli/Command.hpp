#pragma once
// How command groups plug into the client. A group is one function that adds its subcommands to
// a CommandSet; the subcommand that the command line selects runs once parsing is over and the
// platform is installed, with a Context giving it the settings, the output and a way to wait.

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

#include <CLI/CLI.hpp>

#include <velora/core/Task.hpp>

#include "Output.hpp"
#include "Settings.hpp"
#include "Spinner.hpp"
#include "Window.hpp"

namespace velora::cli {

struct Context {
  const Settings& settings;
  const CLI::App& app;
  Output& out;
  bool spinner = false;
  /// Set when the command opens windows (CommandSet::needsWindow).
  std::shared_ptr<WindowLoop> window;

  /// The shared facade; throws UsageError when no endpoint is known.
  Orvane& orvane() const { return connect(settings, app); }

  /// Runs an awaitable operation to its end from this (the main) thread, with a spinner saying
  /// `label` meanwhile. Returns its result or rethrows its error, the spinner already erased. In a
  /// command that opens windows the thread turns the window loop meanwhile.
  template <class T>
  T await(std::string label, Task<T> task) const {
    Spinner shown(std::move(label), spinner);
    if (!window) return task.get();
    if constexpr (std::is_void_v<T>) {
      window->run(std::move(task));
    } else {
      std::optional<T> result;
      window->run(keepingResult(std::move(task), result));
      return std::move(*result);
    }
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

  /// Makes `command` open windows: its Context then has a window loop (see WindowLoop). With
  /// `when`, only if it holds once the command line is parsed (for a flag such as --custom).
  /// `purpose` names what needs the window in the error of a client built without windows.
  void needsWindow(const CLI::App* command, std::string purpose, std::function<bool()> when = {});

  /// What the command line selected; empty before parsing.
  const Run* selected() const { return selected_ ? &*selected_ : nullptr; }
  /// Why the selected command needs a window; empty when it needs none.
  std::optional<std::string> windowPurpose() const;

 private:
  struct WindowNeed {
    std::string purpose;
    std::function<bool()> when;
  };

  CLI::App& app_;
  std::optional<Run> selected_;
  const CLI::App* selectedCommand_ = nullptr;
  std::map<const CLI::App*, WindowNeed> windowNeeds_;
};

/// Command groups, in the order their commands appear in the help.
void addPlatformCommands(CommandSet& commands);  // check, device-config
void addAuthCommands(CommandSet& commands);      // login guest|password|browser [--custom]|qr, logout, status
void addItemCommands(CommandSet& commands);      // items list, items set
void addBookingCommands(CommandSet& commands);   // book, agenda, slots, favourite, locker
void addHomeCommands(CommandSet& commands);      // home
void addNotificationCommands(CommandSet& commands);  // notifications register|list|count|read|delete, dnd show|set
void addTicketCommands(CommandSet& commands);  // tickets managers|form|list|mine|show|delete|new
void addAdvertiseCommands(CommandSet& commands);  // advertise [--frequency] [--tagid] [--seconds] [--simulate]
void addLanguageCommands(CommandSet& commands);  // languages [--set CODE]
void addCallCommands(CommandSet& commands);      // call OPERATION, call --list
void addWatchCommands(CommandSet& commands);     // watch items|events|positions|diagnostic|home|group|widget
void addMapCommands(CommandSet& commands);       // map [--tag] [--floor] [--seconds] [--screenshot]
void addLogCommands(CommandSet& commands);       // log show, log clear

}  // namespace velora::cli
