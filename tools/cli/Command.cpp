#include "Command.hpp"

namespace velora::cli {

CLI::App* CommandSet::add(CLI::App& parent, const std::string& name, const std::string& description, Run run) {
  CLI::App* sub = parent.add_subcommand(name, description);
  sub->callback([this, sub, run = std::move(run)] {
    selected_ = run;
    selectedCommand_ = sub;
  });
  return sub;
}

void CommandSet::needsWindow(const CLI::App* command, std::string purpose, std::function<bool()> when) {
  windowNeeds_[command] = WindowNeed{std::move(purpose), std::move(when)};
}

std::optional<std::string> CommandSet::windowPurpose() const {
  const auto need = windowNeeds_.find(selectedCommand_);
  if (need == windowNeeds_.end() || (need->second.when && !need->second.when())) return std::nullopt;
  return need->second.purpose;
}

CLI::App* CommandSet::group(const std::string& name, const std::string& description) {
  CLI::App* sub = app_.add_subcommand(name, description);
  sub->require_subcommand(1);
  return sub;
}

}  // namespace velora::cli
