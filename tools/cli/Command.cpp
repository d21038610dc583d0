#include "Command.hpp"

namespace velora::cli {

CLI::App* CommandSet::add(CLI::App& parent, const std::string& name, const std::string& description, Run run) {
  CLI::App* sub = parent.add_subcommand(name, description);
  sub->callback([this, run = std::move(run)] { selected_ = run; });
  return sub;
}

CLI::App* CommandSet::group(const std::string& name, const std::string& description) {
  CLI::App* sub = app_.add_subcommand(name, description);
  sub->require_subcommand(1);
  return sub;
}

}  // namespace velora::cli
