// notifications register|list|count|read|delete and dnd show|set: the device's notifications and
// the do-not-disturb periods.

#include <algorithm>
#include <cctype>
#include <memory>

#include <velora/notifications/Notifications.hpp>

#include "Command.hpp"
#include "Session.hpp"

namespace velora::cli {
namespace {

// ---- notifications -----------------------------------------------------------------------------

struct NotificationOptions {
  std::string token, type = "generic", project = "velora-demo";
  std::vector<std::string> statuses, ids;
};

/// A terminal has no push service: unless told otherwise, the token is the installation
/// identifier's hex digits, so that register and the later commands agree without naming one.
std::string pushToken(const Orvane& orvane, const NotificationOptions& o) {
  if (!o.token.empty()) return o.token;
  std::string token;
  for (const char c : orvane.envUUID) {
    if (std::isxdigit(static_cast<unsigned char>(c))) token.push_back(static_cast<char>(std::tolower(static_cast<unsigned char>(c))));
  }
  return token;
}

NTFMNotificationType notificationType(const std::string& text) {
  if (text == "generic" || text == rawValue(NTFMNotificationType::generic)) return NTFMNotificationType::generic;
  if (text == "pool" || text == rawValue(NTFMNotificationType::pool)) return NTFMNotificationType::pool;
  throw UsageError("--type must be generic or pool, not '" + text + "'");
}

NTFMNotificationStatus notificationStatus(const std::string& text) {
  std::vector<std::string> names;
  for (const auto status : {NTFMNotificationStatus::sent, NTFMNotificationStatus::read, NTFMNotificationStatus::deleted}) {
    if (text == rawValue(status)) return status;
    names.emplace_back(rawValue(status));
  }
  throw UsageError("--status must be " + enumerate(names) + ", not '" + text + "'");
}

std::string describeCount(const NTFMNotificationCount& count) {
  return std::to_string(count.toRead) + " to read, " + std::to_string(count.read) + " read";
}

std::string describeNotifications(const std::vector<NTFMNotification>& notifications) {
  if (notifications.empty()) return "(no notifications)";
  std::vector<std::vector<std::string>> rows;
  for (const auto& n : notifications) {
    rows.push_back({n.id, n.status, n.creationDate, n.message.title + ": " + n.message.body});
  }
  return table({"ID", "STATUS", "SENT", "MESSAGE"}, rows);
}

std::string describeUpdate(const UpdateNotificationResponse& update, const std::string& done) {
  const std::size_t changed = update.notifications ? update.notifications->size() : 0;
  std::string text = std::to_string(changed) + (changed == 1 ? " notification " : " notifications ") + done;
  if (update.count) text += "; " + describeCount(*update.count);
  return text;
}

void update(Context& ctx, const NotificationOptions& o, bool deleting) {
  Orvane& orvane = connectWithSession(ctx);
  const auto type = notificationType(o.type);
  const auto token = pushToken(orvane, o);
  const auto changed = deleting ? ctx.await("Deleting", orvane.deleteNotifications(o.ids, token, type))
                                : ctx.await("Marking read", orvane.readNotifications(o.ids, token, type));
  const std::string done = deleting ? "deleted" : "marked read";
  ctx.out.show<UpdateNotificationResponse>(changed, [&done](const UpdateNotificationResponse& u) { return describeUpdate(u, done); });
}

// ---- dnd -----------------------------------------------------------------------------------------

struct DndOptions {
  bool intervals = false, all = false;
  std::string resource;
  std::vector<std::string> values;
};

std::string describeForm(const std::vector<FilterElement>& form) {
  std::vector<std::vector<std::string>> rows;
  for (const auto& e : form) {
    rows.push_back({e.id, std::string(rawValue(e.type)), e.name, e.value ? e.value->dump() : "-"});
  }
  return table({"ID", "TYPE", "NAME", "VALUE"}, rows);
}

/// "ID=VALUE": VALUE as JSON when it parses as JSON, else as text, so that days need no quotes.
std::pair<std::string, AnyCodable> parseValue(const std::string& text) {
  const auto equals = text.find('=');
  if (equals == std::string::npos || equals == 0) throw UsageError("a value must be ID=VALUE, not '" + text + "'");
  const std::string raw = text.substr(equals + 1);
  std::optional<AnyCodable> value;
  try {
    value = AnyCodable::parse(raw);
  } catch (const JsonError&) {
    value = AnyCodable(raw);
  }
  return {text.substr(0, equals), std::move(*value)};
}

void setDnd(Context& ctx, const DndOptions& o) {
  Orvane& orvane = connectWithSession(ctx);
  auto form = ctx.await("Reading the form", orvane.getDNDFilters(o.intervals, true));
  for (const auto& text : o.values) {
    auto [id, value] = parseValue(text);
    const auto element = std::find_if(form.begin(), form.end(), [&wanted = id](const FilterElement& e) { return e.id == wanted; });
    if (element == form.end()) {
      std::vector<std::string> known;
      for (const auto& e : form) known.push_back(e.id);
      throw UsageError("the form has no field '" + id + "'; its fields are " + enumerate(known, "and"));
    }
    element->value = std::move(value);
  }
  const auto reply = ctx.await("Saving do-not-disturb", orvane.setDNDFilters(SetDNDRequest{o.resource, std::move(form)}));
  ctx.out.show<ResponseMessage>(reply, [](const ResponseMessage& m) { return m.message.value_or(std::to_string(m.code)); });
}

}  // namespace

void addNotificationCommands(CommandSet& commands) {
  CLI::App* group = commands.group("notifications", "This device's notifications");
  auto o = std::make_shared<NotificationOptions>();
  const auto common = [o](CLI::App* command) {
    command->add_option("--token", o->token, "Push token (default: from the installation identifier)");
    return command;
  };
  const auto typed = [o, common](CLI::App* command) {
    command->add_option("--type", o->type, "generic or pool (default generic)");
    return common(command);
  };

  common(commands.add(*group, "register", "Register this device for notifications", [o](Context& ctx) {
    Orvane& orvane = connectWithSession(ctx);
    const auto registered =
        ctx.await("Registering", orvane.ntfmRegister(orvane.registrationRequest(o->project, pushToken(orvane, *o))));
    ctx.out.show<RegistrationInfoResponse>(registered, [](const RegistrationInfoResponse& r) {
      return fieldLines({{"user", r.username.value_or("-")}, {"token", r.pushToken.value_or("-")},
                         {"device", r.uuid.value_or("-")}, {"platform", r.platform.value_or("-")}});
    });
  }))->add_option("--project", o->project, "Project id (default velora-demo)");

  typed(commands.add(*group, "list", "List notifications, newest first", [o](Context& ctx) {
    Orvane& orvane = connectWithSession(ctx);
    std::vector<NTFMNotificationStatus> statuses;
    for (const auto& text : o->statuses) statuses.push_back(notificationStatus(text));
    const auto found = ctx.await("Reading notifications", orvane.getNotifications(pushToken(orvane, *o), notificationType(o->type), statuses));
    ctx.out.show<std::vector<NTFMNotification>>(found, describeNotifications);
  }))->add_option("--status", o->statuses, "SENT, READ or DELETED (repeatable; default all but deleted)");

  typed(commands.add(*group, "count", "Count notifications to read and read", [o](Context& ctx) {
    Orvane& orvane = connectWithSession(ctx);
    const auto count = ctx.await("Counting", orvane.getNotificationsCount(pushToken(orvane, *o), notificationType(o->type)));
    ctx.out.show<NTFMNotificationCount>(count, describeCount);
  }));

  typed(commands.add(*group, "read", "Mark notifications read", [o](Context& ctx) { update(ctx, *o, false); }))
      ->add_option("ID", o->ids, "Notification ids (see notifications list)")
      ->required();
  typed(commands.add(*group, "delete", "Delete notifications", [o](Context& ctx) { update(ctx, *o, true); }))
      ->add_option("ID", o->ids, "Notification ids")
      ->required();

  CLI::App* dnd = commands.group("dnd", "Do-not-disturb periods");
  auto d = std::make_shared<DndOptions>();
  CLI::App* show = commands.add(*dnd, "show", "Show the do-not-disturb form and its values", [d](Context& ctx) {
    Orvane& orvane = connectWithSession(ctx);
    const auto form = ctx.await("Reading do-not-disturb", orvane.getDNDFilters(d->intervals, !d->all));
    ctx.out.show<std::vector<FilterElement>>(form, describeForm);
  });
  show->add_flag("--intervals", d->intervals, "The form with a span of days");
  show->add_flag("--all", d->all, "Keep fields of kinds this client does not know");
  CLI::App* set = commands.add(*dnd, "set", "Set do-not-disturb, e.g. 'dnd set --resource demo dnd-day=2026-05-04'",
                               [d](Context& ctx) { setDnd(ctx, *d); });
  set->add_flag("--intervals", d->intervals, "Fill the form with a span of days");
  set->add_option("--resource", d->resource, "Whose periods: your resource id")->required();
  set->add_option("VALUE", d->values, "ID=VALUE per field (see dnd show); fields not named are sent as they are")->required();
}

}  // namespace velora::cli
