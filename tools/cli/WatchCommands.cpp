// watch KIND: follows one of the platform's event streams, one line per event, until Ctrl-C,
// --count events or --seconds have passed.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <memory>
#include <mutex>
#include <sstream>

#include <velora/sse/SSERecords.hpp>

#include "Command.hpp"
#include "Session.hpp"
#include "Spinner.hpp"

namespace velora::cli {
namespace {

using Clock = std::chrono::steady_clock;

std::atomic<bool> interrupted{false};
extern "C" void onInterrupt(int) { interrupted = true; }

struct WatchOptions {
  int checkInterval = 10000;
  int count = 0;
  double seconds = 0;
  // Per kind; each kind reads the ones it needs.
  std::vector<std::string> tags, types, widgets;
  std::vector<int> items;
  int room = 0;
  CLI::Option* roomOption = nullptr;
  std::string streamType = "generic";
  double forgetMillis = 30000;
  std::string target;  // the room of "group", the tag of "home", the component of "widget"
};

/// What the callbacks (on the library's main queue) and the waiting command thread share.
class Watch : public std::enable_shared_from_this<Watch> {
 public:
  explicit Watch(Output& out) : out_(out) {}

  /// Prints one event: a line of text, or {"event", "data"} with --json.
  void print(const std::string& event, const AnyCodable& data, const std::string& text) {
    std::lock_guard lock(mutex_);
    if (closed_) return;
    if (out_.json()) {
      out_.printJson(AnyCodable::object({{"event", event}, {"data", data}}));
    } else {
      out_.printText(event + "  " + text);
    }
    ++events_;
    lastEvent_ = Clock::now();
    changed_.notify_all();
  }
  /// Raw data: parsed for --json when it is JSON, else kept as text.
  void printRaw(const std::optional<std::string>& name, const std::optional<std::string>& data) {
    AnyCodable value = data.value_or("");
    try {
      if (data) value = AnyCodable::parse(*data);
    } catch (const JsonError&) {
    }
    print(name.value_or("message"), value, data.value_or(""));
  }
  EventHandler raw() {
    return [self = shared_from_this()](auto, auto name, auto data) { self->printRaw(name, data); };
  }
  Orvane::CheckCallback check() {
    return [self = shared_from_this()](const std::string& data) { self->printRaw(std::string("check"), data); };
  }
  /// Events still queued when the command ends are not printed.
  void close() {
    std::lock_guard lock(mutex_);
    closed_ = true;
  }

  /// Waits until Ctrl-C, `count` events or `deadline`; `restart` runs when nothing (not even a
  /// check) arrived for `quiet`, the cue that the stream is gone.
  void run(int count, std::optional<Clock::time_point> deadline, Clock::duration quiet, const std::function<void()>& restart) {
    std::unique_lock lock(mutex_);
    lastEvent_ = Clock::now();
    while (!interrupted && (count <= 0 || events_ < count) && (!deadline || Clock::now() < *deadline)) {
      changed_.wait_for(lock, std::chrono::milliseconds(100));
      if (Clock::now() - lastEvent_ > quiet) {
        lastEvent_ = Clock::now();
        lock.unlock();
        writeDiagnostic("velora: no event within the check interval; starting the stream again");
        restart();
        lock.lock();
      }
    }
  }
  int events() const {
    std::lock_guard lock(mutex_);
    return events_;
  }

 private:
  Output& out_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  int events_ = 0;
  bool closed_ = false;
  Clock::time_point lastEvent_ = Clock::now();
};

using Starter = std::function<std::shared_ptr<SSEManager>(Orvane&, const WatchOptions&, const std::shared_ptr<Watch>&)>;

std::string joinPairs(const std::map<std::string, std::string>& pairs) {
  std::string text;
  for (const auto& [key, value] : pairs) text += (text.empty() ? "" : ", ") + key + "=" + value;
  return text.empty() ? "(none)" : text;
}

std::shared_ptr<SSEManager> watchItems(Orvane& orvane, const WatchOptions& o, const std::shared_ptr<Watch>& watch) {
  std::optional<std::vector<int>> ids;
  if (!o.items.empty()) ids = o.items;
  std::optional<ItemControllableFilter> filter;
  if (o.roomOption->count() > 0) {
    filter.emplace();
    filter->roomId = o.room;
  }
  return orvane.startControllableItems(
      ids, filter, o.checkInterval,
      [watch](const std::vector<ItemControllable>& items) {
        std::string names;
        for (const auto& item : items) names += (names.empty() ? "" : ", ") + item.name.value_or(item.logicName);
        watch->print("complete", encode(items), std::to_string(items.size()) + " items: " + names);
      },
      [watch](const std::vector<ItemCurrentValue>& values) {
        std::string text;
        for (const auto& v : values) text += (text.empty() ? "" : ", ") + std::to_string(v.id) + "=" + v.value.value_or("-");
        watch->print("value_change", encode(values), text);
      },
      watch->check());
}

std::shared_ptr<SSEManager> watchEvents(Orvane& orvane, const WatchOptions& o, const std::shared_ptr<Watch>& watch) {
  const auto type = o.streamType == "tagid" ? SSEStreamTypeEvent::tagid : SSEStreamTypeEvent::generic;
  return orvane.startNotifyEventChanges(type, o.types, o.checkInterval, watch->raw(), watch->raw(), watch->raw());
}

std::shared_ptr<SSEManager> watchPositions(Orvane& orvane, const WatchOptions& o, const std::shared_ptr<Watch>& watch) {
  return orvane.startNotifyRegionChanges(o.tags, {}, o.checkInterval, watch->raw(), watch->raw(), watch->raw());
}

std::shared_ptr<SSEManager> watchDiagnostic(Orvane& orvane, const WatchOptions& o, const std::shared_ptr<Watch>& watch) {
  return orvane.startDiagnostic(
      o.tags, o.forgetMillis,
      [watch](const DiagnosticCompleteResponse& r) {
        watch->print("complete", encode(r), joinPairs(r.tagTracking.value_or(std::map<std::string, std::string>{})));
      },
      [watch](const std::map<std::string, std::string>& states) { watch->print("tagTracking", encode(states), joinPairs(states)); },
      watch->check());
}

std::string describeWidgets(const SSEWidgetEventChange& change) {
  std::string text = change.container.value_or("-") + ":";
  const auto widgets = change.widgets.value_or(std::vector<ORVSComponent>{});
  if (widgets.empty()) return text + " (no widgets)";
  for (const auto& widget : widgets) {
    const auto json = encode(widget);
    const auto* type = json.find("type");
    const auto* id = json.find("componentId");
    text += " " + (type && type->as<std::string>() ? *type->as<std::string>() : std::string("?"));
    if (id && id->as<std::string>()) text += " " + *id->as<std::string>();
    text += ";";
  }
  text.pop_back();
  return text;
}

Orvane::WidgetSubscriptionCallback widgetSubscription(const std::shared_ptr<Watch>& watch) {
  return [watch](const SSEWidgetEventChange& c) { watch->print("subscription", encode(c), describeWidgets(c)); };
}
Orvane::WidgetEventCallback widgetChange(const std::shared_ptr<Watch>& watch) {
  return [watch](SSEWidgetEventsType type, const SSEWidgetEventChange& c) {
    watch->print(std::string(rawValue(type)), encode(c), describeWidgets(c));
  };
}

std::shared_ptr<SSEManager> watchHome(Orvane& orvane, const WatchOptions& o, const std::shared_ptr<Watch>& watch) {
  std::optional<std::vector<std::string>> widgets;
  if (!o.widgets.empty()) widgets = o.widgets;
  return orvane.startNotifyHomeEvents(o.target, widgets, o.checkInterval, widgetSubscription(watch), widgetChange(watch),
                                      watch->check());
}
std::shared_ptr<SSEManager> watchGroup(Orvane& orvane, const WatchOptions& o, const std::shared_ptr<Watch>& watch) {
  return orvane.startNotifyGroupEvents(o.target, o.checkInterval, widgetSubscription(watch), widgetChange(watch), watch->check());
}
std::shared_ptr<SSEManager> watchWidget(Orvane& orvane, const WatchOptions& o, const std::shared_ptr<Watch>& watch) {
  return orvane.startNotifyWidgetEvents(o.target, o.checkInterval, widgetSubscription(watch), widgetChange(watch),
                                        watch->check());
}

void follow(Context& ctx, const WatchOptions& options, const Starter& start) {
  // Caught from before the stream opens, so that Ctrl-C at any moment ends the command cleanly.
  interrupted = false;
  std::signal(SIGINT, onInterrupt);
  std::signal(SIGTERM, onInterrupt);
  Orvane& orvane = connectWithSession(ctx);
  auto watch = std::make_shared<Watch>(ctx.out);
  std::shared_ptr<SSEManager> manager = start(orvane, options, watch);
  if (!manager) throw UsageError("the stream request cannot be built from the endpoint " + orvane.sdkEndpoint());
  std::optional<Clock::time_point> deadline;
  if (options.seconds > 0) deadline = Clock::now() + std::chrono::milliseconds(static_cast<long long>(options.seconds * 1000));
  // Two check intervals and some slack: one late check is not yet a dead stream.
  const auto quiet = std::chrono::milliseconds(2LL * std::max(options.checkInterval, 1000) + 2000);
  watch->run(options.count, deadline, quiet, [&] {
    manager->removeAllListenersAndDisconnect();
    manager = start(orvane, options, watch);
  });
  manager->removeAllListenersAndDisconnect();
  watch->close();
  std::signal(SIGINT, SIG_DFL);
  std::signal(SIGTERM, SIG_DFL);
  writeDiagnostic("velora: stopped after " + std::to_string(watch->events()) + " events");
}

}  // namespace

void addWatchCommands(CommandSet& commands) {
  CLI::App* group = commands.group("watch", "Follow a real-time stream, one line per event, until Ctrl-C");
  const auto add = [&](const std::string& name, const std::string& description, Starter start) {
    auto options = std::make_shared<WatchOptions>();
    CLI::App* sub = commands.add(*group, name, description, [options, start](Context& ctx) { follow(ctx, *options, start); });
    sub->add_option("--check-interval", options->checkInterval, "Milliseconds between the server's check events (at most 60000)")
        ->capture_default_str();
    sub->add_option("--count", options->count, "Stop after this many events");
    sub->add_option("--seconds", options->seconds, "Stop after this many seconds");
    return std::pair{sub, options};
  };

  auto [items, itemOptions] = add("items", "Equipment values as they change", watchItems);
  items->add_option("--item", itemOptions->items, "Only these item ids");
  itemOptions->roomOption = items->add_option("--room", itemOptions->room, "Only items in this room");

  auto [events, eventOptions] = add("events", "The platform's generic events", watchEvents);
  events->add_option("--type", eventOptions->types, "Event types to receive (e.g. ITEM_VALUE_CHANGED)")->required();
  events->add_option("--stream-type", eventOptions->streamType, "generic or tagid")
      ->check(CLI::IsMember({"generic", "tagid"}))
      ->capture_default_str();

  auto [positions, positionOptions] = add("positions", "Positions of tags", watchPositions);
  positions->add_option("--tag", positionOptions->tags, "Tag ids (default: the platform's choice)");

  auto [diagnostic, diagnosticOptions] = add("diagnostic", "Whether the locators see the given tags", watchDiagnostic);
  diagnostic->add_option("--tag", diagnosticOptions->tags, "Tag ids")->required();
  diagnostic->add_option("--forget-ms", diagnosticOptions->forgetMillis, "Milliseconds after which an unseen tag is forgotten")
      ->capture_default_str();

  auto [home, homeOptions] = add("home", "Widgets of the home screen", watchHome);
  home->add_option("TAG", homeOptions->target, "Tag id of this user or device")->required();
  home->add_option("--widget", homeOptions->widgets, "Only these widget ids");

  auto [groupCommand, groupOptions] = add("group", "Widgets of a room", watchGroup);
  groupCommand->add_option("ROOM", groupOptions->target, "Room id")->required();

  auto [widget, widgetOptions] = add("widget", "Changes of one widget", watchWidget);
  widget->add_option("COMPONENT", widgetOptions->target, "Component id of the widget")->required();
}

}  // namespace velora::cli
