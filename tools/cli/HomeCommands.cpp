// home: the home screen the platform composes for the user, container by container.

#include <memory>
#include <sstream>

#include <velora/widgets/HomeWidgets.hpp>

#include "Command.hpp"
#include "Session.hpp"

namespace velora::cli {
namespace {

std::string label(const std::optional<InfoIcon>& icon, const std::string& otherwise) {
  return icon ? icon->name : otherwise;
}

std::string when(const ScheduleElement& e) {
  std::string text = e.day;
  if (e.start || e.end) text += " " + e.start.value_or("…") + "-" + e.end.value_or("…");
  return text;
}

void listElements(std::ostringstream& text, const std::optional<std::vector<ScheduleElement>>& elements) {
  if (!elements || elements->empty()) {
    text << "      (none)\n";
    return;
  }
  for (const auto& e : *elements) {
    text << "      " << when(e) << "  " << (e.resource ? e.resource->name : e.label.value_or("-")) << "  [" << e.id << "]\n";
  }
}

/// One widget: a headline, and for the booking and locker widgets one line per element.
void describeWidget(std::ostringstream& text, const Widget& widget) {
  if (const auto* w = widget.as<WidgetUser>()) {
    text << "    user      " << w->user.name.value_or(w->user.username) << " (" << w->user.username << ")\n";
  } else if (const auto* w = widget.as<WidgetBooking>()) {
    text << "    bookings  " << label(w->nextBookingTitle, "Next bookings") << '\n';
    listElements(text, w->nextBookings);
  } else if (const auto* w = widget.as<WidgetLocker>()) {
    text << "    lockers   " << label(w->nextLockerTitle, "Next lockers") << '\n';
    listElements(text, w->nextLockers);
  } else if (const auto* w = widget.as<WidgetWeb>()) {
    text << "    link      " << label(w->title, "Link") << "  " << w->url.value_or("-") << '\n';
  } else if (const auto* w = widget.as<WidgetAction>()) {
    text << "    action    " << label(w->title, "Action") << "  (" << (w->action ? std::string(rawValue(*w->action)) : std::string("-")) << ")\n";
  } else if (const auto* w = widget.as<WidgetDND>()) {
    const bool on = w->resource && w->resource->dndEnable.value_or(false);
    text << "    dnd       " << (w->resource ? w->resource->name : "Do not disturb") << ": " << (on ? "on" : "off");
    if (on && w->resource->dndDate) text << " until " << *w->resource->dndDate;
    text << '\n';
  } else if (const auto* unknown = std::get_if<Widget::Unsupported>(&widget.value())) {
    text << "    (a \"" << unknown->type << "\" widget, unknown to this client)\n";
  }
}

std::string describeHome(const std::vector<Container>& containers) {
  if (containers.empty()) return "(the home screen is empty)";
  std::ostringstream text;
  for (const auto& container : containers) {
    text << rawValue(container.type) << (container.title ? "  " + container.title->name : "") << '\n';
    for (const auto& widget : container.widgets) describeWidget(text, widget);
  }
  return text.str();
}

struct HomeOptions {
  std::string building;
  bool all = false;
  CLI::Option* buildingOption = nullptr;
};

void home(Context& ctx, const HomeOptions& o) {
  std::optional<std::string> building;
  if (o.buildingOption->count() > 0) building = o.building;
  Orvane& orvane = connectWithSession(ctx);
  const auto containers = ctx.await("Reading the home screen", orvane.getMyHome(building, !o.all));
  ctx.out.show<std::vector<Container>>(containers, describeHome);
}

}  // namespace

void addHomeCommands(CommandSet& commands) {
  auto options = std::make_shared<HomeOptions>();
  CLI::App* command = commands.add("home", "Show your home screen: next bookings, lockers, links and switches",
                                   [options](Context& ctx) { home(ctx, *options); });
  options->buildingOption = command->add_option("--building", options->building, "The home screen of this building");
  command->add_flag("--all", options->all, "Keep containers of kinds this client does not know");
}

}  // namespace velora::cli
