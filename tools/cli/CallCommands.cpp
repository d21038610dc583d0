// call: any REST operation of the library, by name, with its arguments as JSON. The operations
// come from the library's registry, so one it gains is callable here without a change.

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>

#include <velora/core/OperationRegistry.hpp>

#include "Command.hpp"
#include "Secrets.hpp"
#include "Session.hpp"

namespace velora::cli {
namespace {

struct CallOptions {
  bool list = false;
  std::string operation;
  std::vector<std::string> pairs;
  std::string body;
  CLI::Option* bodyOption = nullptr;
};

// ---- names -------------------------------------------------------------------------------------

std::string lower(std::string_view text) {
  std::string out(text);
  std::transform(out.begin(), out.end(), out.begin(), [](unsigned char c) { return std::tolower(c); });
  return out;
}

/// Edits (insertions, deletions, substitutions) from one text to the other, ignoring case.
std::size_t editDistance(std::string_view from, std::string_view to) {
  const std::string a = lower(from), b = lower(to);
  std::vector<std::size_t> row(b.size() + 1);
  for (std::size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (std::size_t i = 1; i <= a.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const std::size_t above = row[j];
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] == b[j - 1] ? 0 : 1)});
      diagonal = above;
    }
  }
  return row[b.size()];
}

/// True when the letters of `abbreviation` appear in `name` in order ("getItems" in
/// "getControllableItems"), ignoring case.
bool abbreviates(std::string_view abbreviation, std::string_view name) {
  const std::string a = lower(abbreviation), n = lower(name);
  std::size_t at = 0;
  for (char c : n) {
    if (at < a.size() && a[at] == c) ++at;
  }
  return at == a.size();
}

/// Up to three of `names` that `wanted` is most likely a slip for, closest first.
std::vector<std::string> closestNames(std::string_view wanted, const std::vector<std::string>& names) {
  std::vector<std::pair<std::size_t, std::string>> near;
  for (const auto& name : names) {
    const std::size_t distance = editDistance(wanted, name);
    if (distance <= std::max<std::size_t>(2, wanted.size() / 3) || (wanted.size() >= 3 && abbreviates(wanted, name))) {
      near.emplace_back(distance, name);
    }
  }
  std::sort(near.begin(), near.end());
  std::vector<std::string> closest;
  for (std::size_t i = 0; i < near.size() && i < 3; ++i) closest.push_back(near[i].second);
  return closest;
}

std::string unknownOperation(const std::string& name) {
  std::vector<std::string> names;
  for (const auto& entry : operationRegistry()) names.push_back(entry.name);
  const auto closest = closestNames(name, names);
  return "unknown operation '" + name + "'; " + (closest.empty() ? "" : "did you mean " + enumerate(closest) + "? ") +
         "velora call --list shows every operation";
}

// ---- arguments ---------------------------------------------------------------------------------

/// "arguments of getLoginParameters: from (required)", for the end of every argument error.
std::string argumentHelp(const OperationEntry& operation) {
  if (operation.arguments.empty()) return operation.name + " takes no arguments";
  std::vector<std::string> names;
  for (const auto& argument : operation.arguments) names.push_back(argument.name + (argument.required ? " (required)" : ""));
  std::string text = "arguments of " + operation.name + ": ";
  for (std::size_t i = 0; i < names.size(); ++i) text += (i > 0 ? ", " : "") + names[i];
  return text;
}

std::string bodyText(const std::string& body) {
  if (!body.starts_with('@')) return body;
  const std::string path = body.substr(1);
  std::ifstream file(path);
  if (!file) throw UsageError("cannot read the --body file '" + path + "': " + std::strerror(errno));
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

/// The arguments object: --body, then each name=value over it. A value that is JSON is taken as
/// JSON, anything else as text, so that `tagid=demo-tag-01` needs no quotes.
AnyCodable argumentsFrom(const CallOptions& options, const OperationEntry& operation) {
  AnyCodable arguments{AnyCodable::Object{}};
  if (options.bodyOption->count() > 0) {
    std::string error;
    auto parsed = AnyCodable::tryParse(bodyText(options.body), &error);
    if (!parsed) throw UsageError("--body is not JSON: " + error);
    if (!parsed->isObject()) throw UsageError("--body must be a JSON object keyed by argument name; " + argumentHelp(operation));
    arguments = std::move(*parsed);
  }
  for (const auto& pair : options.pairs) {
    const auto equals = pair.find('=');
    if (equals == std::string::npos || equals == 0) {
      throw UsageError("arguments are written name=value, not '" + pair + "'; " + argumentHelp(operation));
    }
    const std::string value = pair.substr(equals + 1);
    arguments[pair.substr(0, equals)] = AnyCodable::tryParse(value).value_or(AnyCodable(value));
  }
  return arguments;
}

/// Names the library does not know would be dropped without a word, so they are refused here,
/// together with required ones left out.
void checkNames(const AnyCodable& arguments, const OperationEntry& operation) {
  std::vector<std::string> known;
  for (const auto& argument : operation.arguments) known.push_back(argument.name);
  for (const auto& [name, value] : *arguments.as<AnyCodable::Object>()) {
    if (std::find(known.begin(), known.end(), name) != known.end()) continue;
    const auto closest = closestNames(name, known);
    throw UsageError(operation.name + " has no argument '" + name + "'" +
                     (closest.empty() ? "" : " (did you mean " + enumerate(closest) + "?)") + "; " + argumentHelp(operation));
  }
  std::vector<std::string> missing;
  for (const auto& argument : operation.arguments) {
    const AnyCodable* given = arguments.find(argument.name);
    if (argument.required && (!given || given->isNull())) missing.push_back(argument.name);
  }
  if (!missing.empty()) {
    throw UsageError(operation.name + " needs " + (missing.size() == 1 ? "the argument " : "the arguments ") +
                     enumerate(missing, "and") + "; " + argumentHelp(operation));
  }
}

/// Decodes the arguments the way the call will, by building the request without sending it: a
/// value of the wrong shape is a usage error before the run contacts anyone.
void checkValues(Orvane& orvane, const AnyCodable& arguments, const OperationEntry& operation) {
  try {
    operation.request(orvane, arguments);
  } catch (const std::invalid_argument& e) {
    std::string message = e.what();
    if (message.find("expected a string") != std::string::npos) {
      message += " (a value that reads as JSON is taken as JSON; quote text such as 123 or true: name='\"123\"')";
    }
    throw UsageError(message + "; " + argumentHelp(operation));
  }
}

// ---- the command -------------------------------------------------------------------------------

void list(Context& ctx) {
  const auto& operations = operationRegistry();
  if (ctx.out.json()) {
    AnyCodable::Array records;
    for (const auto& operation : operations) {
      AnyCodable::Array arguments;
      for (const auto& argument : operation.arguments) {
        arguments.push_back(AnyCodable::object({{"name", argument.name}, {"required", argument.required}}));
      }
      records.push_back(AnyCodable::object({{"name", operation.name},
                                            {"method", operation.method},
                                            {"path", operation.path},
                                            {"replyType", operation.replyType},
                                            {"arguments", std::move(arguments)}}));
    }
    ctx.out.printJson(records);
    return;
  }
  std::vector<std::vector<std::string>> rows;
  for (const auto& operation : operations) {
    std::string arguments;
    for (const auto& argument : operation.arguments) {
      arguments += (arguments.empty() ? "" : " ") + argument.name + (argument.required ? "*" : "");
    }
    rows.push_back({operation.name, operation.method, operation.path, operation.replyType, arguments.empty() ? "-" : arguments});
  }
  ctx.out.printText(table({"OPERATION", "METHOD", "PATH", "REPLY", "ARGUMENTS"}, rows) + "\n* required");
}

void call(Context& ctx, const CallOptions& options) {
  if (options.list) return list(ctx);
  if (options.operation.empty()) {
    throw UsageError("name the operation to call, e.g. velora call checkConnection; velora call --list shows every operation");
  }
  const OperationEntry* operation = findOperation(options.operation);
  if (!operation) throw UsageError(unknownOperation(options.operation));
  const AnyCodable arguments = argumentsFrom(options, *operation);
  checkNames(arguments, *operation);
  Orvane& orvane = ctx.orvane();
  checkValues(orvane, arguments, *operation);
  resumeSession(ctx, orvane);
  const AnyCodable reply = ctx.await("Calling " + operation->name, operation->call(orvane, arguments));
  logEntry("velora call " + operation->name);
  if (ctx.out.json()) {
    ctx.out.printJson(reply);
  } else {
    ctx.out.printText(describeJson(redactSecrets(reply)));
  }
}

}  // namespace

void addCallCommands(CommandSet& commands) {
  auto options = std::make_shared<CallOptions>();
  CLI::App* command = commands.add("call", "Run any platform operation by name, its arguments as name=value or JSON",
                                    [options](Context& ctx) { call(ctx, *options); });
  CLI::Option* list = command->add_flag("--list", options->list, "List every operation: method, path, reply and arguments");
  CLI::Option* operation = command->add_option("OPERATION", options->operation, "The operation, e.g. getControllableItems");
  CLI::Option* pairs = command->add_option("ARGUMENTS", options->pairs,
                                           "name=value pairs; a value that is valid JSON is taken as JSON, else as text");
  options->bodyOption = command->add_option("--body", options->body,
                                            "All arguments as one JSON object, or @FILE to read it from a file; "
                                            "name=value pairs override its keys");
  options->bodyOption->type_name("JSON|@FILE");
  list->excludes(operation)->excludes(pairs)->excludes(options->bodyOption);
  command->footer(
      "Examples:\n"
      "  velora call --list\n"
      "  velora call getConfiguration tagid=demo-tag-01\n"
      "  velora call getControllableItems filter='{\"types\":[\"LIGHT\"],\"radius\":0,\"hasPosition\":false,\"widgetNames\":[]}'\n"
      "  velora call getControllableItems --body @arguments.json --json\n");
}

}  // namespace velora::cli
