// book, agenda, slots, favourite and locker: finding and booking desks, rooms, parking spaces and
// lockers.

#include <cctype>
#include <cstdio>
#include <ctime>
#include <memory>
#include <sstream>

#include <velora/booking/Booking.hpp>

#include "Command.hpp"
#include "Secrets.hpp"
#include "Session.hpp"

namespace velora::cli {
namespace {

// ---- days and times as typed --------------------------------------------------------------

/// Local midnight of "today", "tomorrow" or a "yyyy-MM-dd" day. A bad text is refused before
/// anything is sent.
Date parseDay(const std::string& text, const std::string& option) {
  std::time_t now = std::time(nullptr);
  std::tm day{};
  localtime_r(&now, &day);
  if (text == "tomorrow") {
    day.tm_mday += 1;
  } else if (text != "today") {
    unsigned year = 0, month = 0, dayOfMonth = 0;
    char tail = 0;
    if (text.size() != 10 || std::sscanf(text.c_str(), "%4u-%2u-%2u%c", &year, &month, &dayOfMonth, &tail) != 3 ||
        text[4] != '-' || text[7] != '-' || month < 1 || month > 12 || dayOfMonth < 1 || dayOfMonth > 31) {
      throw UsageError(option + " must be a day as yyyy-MM-dd, 'today' or 'tomorrow', not '" + text + "'");
    }
    day.tm_year = static_cast<int>(year) - 1900;
    day.tm_mon = static_cast<int>(month) - 1;
    day.tm_mday = static_cast<int>(dayOfMonth);
    // mktime would roll 2026-02-30 over into March; a typo should not book another day.
    std::tm check = day;
    check.tm_hour = 12;
    check.tm_isdst = -1;
    std::mktime(&check);
    if (check.tm_mday != day.tm_mday) throw UsageError(option + ": " + text + " is not a day of the calendar");
  }
  day.tm_hour = day.tm_min = day.tm_sec = 0;
  day.tm_isdst = -1;
  return std::chrono::system_clock::from_time_t(std::mktime(&day));
}

std::string dayText(Date date) {
  const std::time_t t = std::chrono::system_clock::to_time_t(date);
  std::tm day{};
  localtime_r(&t, &day);
  char text[11];
  std::strftime(text, sizeof text, "%Y-%m-%d", &day);
  return text;
}

/// "HH:mm", checked.
std::string parseTime(const std::string& text, const std::string& option) {
  const bool digits = text.size() == 5 && text[2] == ':' && std::isdigit(static_cast<unsigned char>(text[0])) &&
                      std::isdigit(static_cast<unsigned char>(text[1])) && std::isdigit(static_cast<unsigned char>(text[3])) &&
                      std::isdigit(static_cast<unsigned char>(text[4]));
  if (!digits || std::stoi(text.substr(0, 2)) > 23 || std::stoi(text.substr(3)) > 59) {
    throw UsageError(option + " must be a time as HH:mm, not '" + text + "'");
  }
  return text;
}

template <class E>
E parseEnum(const std::string& text, const std::string& option, std::initializer_list<E> allowed) {
  std::vector<std::string> names;
  for (E value : allowed) {
    if (text == rawValue(value)) return value;
    names.emplace_back(rawValue(value));
  }
  throw UsageError(option + " must be " + enumerate(names) + ", not '" + text + "'");
}

std::string timeRange(const std::optional<std::string>& start, const std::optional<std::string>& end) {
  if (!start && !end) return "all day";
  return start.value_or("…") + "-" + end.value_or("…");
}

std::string describeElement(const ScheduleElement& e) {
  std::string what = e.resource ? e.resource->name + " (" + std::string(rawValue(e.resource->type)) + ")" : "-";
  return e.day + (e.dayEnd && *e.dayEnd != e.day ? " to " + *e.dayEnd : "") + "  " + timeRange(e.start, e.end) + "  " + what;
}

// ---- book search -----------------------------------------------------------------------------

struct SearchOptions {
  std::string date = "today", from, to, text;
  std::vector<std::string> types, services;
  int map = 0;
  bool all = false;
  CLI::Option *fromOption = nullptr, *toOption = nullptr, *textOption = nullptr, *mapOption = nullptr;
};

std::string describeResources(const std::vector<Resource>& resources) {
  if (resources.empty()) return "(nothing free matches)";
  std::vector<std::vector<std::string>> rows;
  for (const auto& r : resources) {
    std::string where = r.position ? "map " + std::to_string(r.position->mapId) : "-";
    std::string extra = r.data && r.data->count("capacity") ? "seats " + r.data->at("capacity") : "";
    rows.push_back({r.id, std::string(rawValue(r.type)), r.name, where, r.favourite ? "*" : "", extra});
  }
  return table({"ID", "TYPE", "NAME", "WHERE", "FAV", ""}, rows);
}

void search(Context& ctx, const SearchOptions& o) {
  BookFilterModel filter;
  filter.date = dayText(parseDay(o.date, "--date"));
  if (o.fromOption->count() > 0) filter.start = parseTime(o.from, "--from");
  if (o.toOption->count() > 0) filter.end = parseTime(o.to, "--to");
  if (o.textOption->count() > 0) filter.search = o.text;
  if (o.mapOption->count() > 0) filter.mapId = o.map;
  if (!o.types.empty()) {
    filter.types.emplace();
    for (const auto& type : o.types) {
      filter.types->push_back(parseEnum(type, "--type", {BookFilterResourceType::DESK, BookFilterResourceType::MEETING,
                                                         BookFilterResourceType::PARK}));
    }
  }
  if (!o.services.empty()) filter.services = o.services;
  Orvane& orvane = connectWithSession(ctx);
  const auto found = ctx.await("Searching " + *filter.date, orvane.search(filter, !o.all));
  ctx.out.show<std::vector<Resource>>(found, describeResources);
}

// ---- book DESK|ROOM|PARK, book cancel --------------------------------------------------------

struct BookOptions {
  std::string resource, date = "today", endDate, from, to, name, note, repeat, edit;
  std::vector<std::string> invite, guests;
  bool video = false;
  CLI::Option *endDateOption = nullptr, *fromOption = nullptr, *toOption = nullptr, *nameOption = nullptr,
              *noteOption = nullptr, *repeatOption = nullptr, *editOption = nullptr;
};

ScheduleRequest bookingRequest(ResourceType type, const BookOptions& o) {
  ScheduleRequest request;
  request.elementId = o.resource;
  request.elementType = type;
  request.dayStart = dayText(parseDay(o.date, "--date"));
  if (o.endDateOption->count() > 0) request.dayEnd = dayText(parseDay(o.endDate, "--end-date"));
  if (o.fromOption->count() > 0) request.start = parseTime(o.from, "--from");
  if (o.toOption->count() > 0) request.end = parseTime(o.to, "--to");
  if (request.start.has_value() != request.end.has_value()) throw UsageError("--from and --to go together");
  if (o.nameOption->count() > 0) request.meetingName = o.name;
  if (o.noteOption->count() > 0) request.meetingNote = o.note;
  if (o.video) request.videoConference = true;
  if (o.editOption->count() > 0) request.bookingId = o.edit;
  if (o.repeatOption->count() > 0) {
    request._recurring = parseEnum(o.repeat, "--repeat", {RecurringType::DAILY, RecurringType::WEEKLY, RecurringType::MONTHLY});
  }
  if (!o.invite.empty()) {
    request._attendees.emplace();
    for (const auto& person : o.invite) {
      Resource attendee;
      attendee.id = person;
      attendee.name = person;
      attendee.type = ResourceType::PEOPLE;
      request._attendees->push_back(MeetingAttendee{MeetingAttendeeType::PHYSICAL, std::move(attendee)});
    }
  }
  if (!o.guests.empty()) request.externalAttendees = o.guests;
  return request;
}

void book(Context& ctx, ResourceType type, const BookOptions& o) {
  const ScheduleRequest request = bookingRequest(type, o);
  Orvane& orvane = connectWithSession(ctx);
  const auto booked = ctx.await("Booking " + o.resource, orvane.schedule(request));
  logEntry("velora book: " + booked.elementId + " on " + booked.dayStart + " as " + booked.bookingId.value_or("?"));
  ctx.out.show<ScheduleRequest>(booked, [](const ScheduleRequest& b) {
    return fieldLines({{"booking", b.bookingId.value_or("-")},
                       {"resource", b.elementId + " (" + std::string(rawValue(b.elementType)) + ")"},
                       {"day", b.dayStart + (b.dayEnd ? " to " + *b.dayEnd : "")},
                       {"time", timeRange(b.start, b.end)}});
  });
}

/// Commands whose reply is a plain ResponseMessage: its message, or the record with --json.
void showMessage(Context& ctx, const ResponseMessage& reply) {
  ctx.out.show<ResponseMessage>(reply, [](const ResponseMessage& m) { return m.message.value_or(std::to_string(m.code)); });
}

// ---- agenda, slots, favourite ----------------------------------------------------------------

struct AgendaOptions {
  std::string from = "today", to;
  bool all = false;
  CLI::Option* toOption = nullptr;
};

std::string describeAgenda(const std::vector<ScheduleElement>& elements) {
  if (elements.empty()) return "(nothing booked)";
  std::vector<std::vector<std::string>> rows;
  for (const auto& e : elements) {
    rows.push_back({e.day, timeRange(e.start, e.end), std::string(rawValue(e.type)),
                    e.resource ? e.resource->name : "-", e.label.value_or(""), e.id});
  }
  return table({"DAY", "TIME", "KIND", "RESOURCE", "LABEL", "BOOKING"}, rows);
}

void agenda(Context& ctx, const AgendaOptions& o) {
  const Date from = parseDay(o.from, "--from");
  std::optional<Date> to;
  if (o.toOption->count() > 0) to = parseDay(o.to, "--to");
  Orvane& orvane = connectWithSession(ctx);
  const auto elements = ctx.await("Reading your agenda", orvane.getAgendaMy(from, to, !o.all));
  ctx.out.show<std::vector<ScheduleElement>>(elements, describeAgenda);
}

struct SlotsOptions {
  std::string resource, type = "DESK", date = "today", booking;
  CLI::Option* bookingOption = nullptr;
};

void slots(Context& ctx, const SlotsOptions& o) {
  const ResourceType type = parseEnum(o.type, "--type", {ResourceType::DESK, ResourceType::ROOM, ResourceType::PARK,
                                                          ResourceType::EPARK, ResourceType::LOCKER});
  const Date day = parseDay(o.date, "--date");
  std::optional<std::string> booking;
  if (o.bookingOption->count() > 0) booking = o.booking;
  Orvane& orvane = connectWithSession(ctx);
  const auto free = ctx.await("Reading free slots", orvane.getAvailableSlots(o.resource, booking, type, day));
  ctx.out.show<std::vector<std::vector<std::string>>>(free, [](const auto& list) {
    if (list.empty()) return std::string("(no free slot)");
    std::ostringstream text;
    for (const auto& slot : list) {
      for (std::size_t i = 0; i < slot.size(); ++i) text << (i ? "-" : "") << slot[i];
      text << '\n';
    }
    return text.str();
  });
}

// ---- locker ----------------------------------------------------------------------------------

void showLockerBooking(Context& ctx, const ScheduleElement& booked) {
  logEntry("velora locker: booked " + booked.id);
  ctx.out.show<ScheduleElement>(booked, [](const ScheduleElement& e) {
    return fieldLines({{"booking", e.id}, {"locker", e.resource ? e.resource->name + " (" + e.resource->id + ")" : "-"},
                       {"size", e.resource ? e.resource->subtype.value_or("-") : "-"}, {"when", describeElement(e)}});
  });
}

}  // namespace

void addBookingCommands(CommandSet& commands) {
  CLI::App* bookGroup = commands.group("book", "Find and book desks, meeting rooms and parking spaces");

  auto s = std::make_shared<SearchOptions>();
  CLI::App* searchCommand = commands.add(*bookGroup, "search", "List what is free on a day", [s](Context& ctx) { search(ctx, *s); });
  searchCommand->add_option("--date", s->date, "yyyy-MM-dd, today or tomorrow (default today)");
  s->fromOption = searchCommand->add_option("--from", s->from, "Free from HH:mm");
  s->toOption = searchCommand->add_option("--to", s->to, "Free until HH:mm");
  searchCommand->add_option("--type", s->types, "DESK, MEETING or PARK (repeatable)");
  s->textOption = searchCommand->add_option("--text", s->text, "Name contains");
  s->mapOption = searchCommand->add_option("--map", s->map, "Only on this map (floor)");
  searchCommand->add_option("--service", s->services, "Offers this service (repeatable)");
  searchCommand->add_flag("--all", s->all, "Keep resources of kinds this client does not know");

  for (ResourceType type : {ResourceType::DESK, ResourceType::ROOM, ResourceType::PARK}) {
    auto o = std::make_shared<BookOptions>();
    const std::string name(rawValue(type));
    CLI::App* command = commands.add(*bookGroup, name, "Book this kind of resource, e.g. 'book " + name + " ID --date tomorrow'",
                                     [o, type](Context& ctx) { book(ctx, type, *o); });
    command->ignore_case();
    command->add_option("RESOURCE", o->resource, "Resource id (see book search)")->required();
    command->add_option("--date", o->date, "First day: yyyy-MM-dd, today or tomorrow (default today)");
    o->endDateOption = command->add_option("--end-date", o->endDate, "Last day");
    o->fromOption = command->add_option("--from", o->from, "Start, HH:mm (with --to; default all day)");
    o->toOption = command->add_option("--to", o->to, "End, HH:mm");
    o->nameOption = command->add_option("--name", o->name, "Meeting title");
    o->noteOption = command->add_option("--note", o->note, "Meeting note");
    command->add_flag("--video", o->video, "Ask for a video conference");
    command->add_option("--invite", o->invite, "Invite this person's id (repeatable)");
    command->add_option("--guest", o->guests, "Invite a guest by e-mail (repeatable)");
    o->repeatOption = command->add_option("--repeat", o->repeat, "DAILY, WEEKLY or MONTHLY");
    o->editOption = command->add_option("--edit", o->edit, "Change this booking instead of making a new one");
  }

  auto cancelId = std::make_shared<std::string>();
  CLI::App* cancel = commands.add(*bookGroup, "cancel", "Cancel a booking", [cancelId](Context& ctx) {
    Orvane& orvane = connectWithSession(ctx);
    showMessage(ctx, ctx.await("Cancelling " + *cancelId, orvane.deleteSchedule(*cancelId)));
  });
  cancel->add_option("BOOKING", *cancelId, "Booking id (see agenda)")->required();

  auto a = std::make_shared<AgendaOptions>();
  CLI::App* agendaCommand = commands.add("agenda", "Your next bookings and lockers", [a](Context& ctx) { agenda(ctx, *a); });
  agendaCommand->add_option("--from", a->from, "First day (default today)");
  a->toOption = agendaCommand->add_option("--to", a->to, "Last day");
  agendaCommand->add_flag("--all", a->all, "Keep entries of kinds this client does not know");

  auto sl = std::make_shared<SlotsOptions>();
  CLI::App* slotsCommand = commands.add("slots", "Free time slots of a resource on a day", [sl](Context& ctx) { slots(ctx, *sl); });
  slotsCommand->add_option("RESOURCE", sl->resource, "Resource id")->required();
  slotsCommand->add_option("--type", sl->type, "DESK, ROOM, PARK, EPARK or LOCKER (default DESK)");
  slotsCommand->add_option("--date", sl->date, "yyyy-MM-dd, today or tomorrow (default today)");
  sl->bookingOption = slotsCommand->add_option("--booking", sl->booking, "Count this booking's time as free (when editing it)");

  struct FavouriteOptions {
    std::string resource;
    bool off = false;
  };
  auto f = std::make_shared<FavouriteOptions>();
  CLI::App* favourite = commands.add("favourite", "Mark a resource as a favourite, or unmark it with --off", [f](Context& ctx) {
    Orvane& orvane = connectWithSession(ctx);
    showMessage(ctx, ctx.await("Saving the favourite", orvane.setFavorite(f->resource, !f->off)));
  });
  favourite->add_option("RESOURCE", f->resource, "Resource id")->required();
  favourite->add_flag("--off", f->off, "Remove it from the favourites");

  CLI::App* locker = commands.group("locker", "Book, open and release lockers");
  auto lockerArgument = std::make_shared<std::string>();
  commands.add(*locker, "book", "Book this locker for today", [lockerArgument](Context& ctx) {
    Orvane& orvane = connectWithSession(ctx);
    showLockerBooking(ctx, ctx.await("Booking the locker", orvane.bookLocker(*lockerArgument)));
  })->add_option("LOCKER", *lockerArgument, "Locker id")->required();
  commands.add(*locker, "nearest", "Book the free locker of a size nearest to your desk", [lockerArgument](Context& ctx) {
    Orvane& orvane = connectWithSession(ctx);
    showLockerBooking(ctx, ctx.await("Booking the nearest locker", orvane.bookNearestLocker(*lockerArgument)));
  })->add_option("SIZE", *lockerArgument, "S, M or L")->required();
  commands.add(*locker, "unlock", "Open your booked locker", [lockerArgument](Context& ctx) {
    Orvane& orvane = connectWithSession(ctx);
    const auto opened = ctx.await("Opening the locker", orvane.unlock(*lockerArgument));
    ctx.out.show<LockerResponse>(opened, [](const LockerResponse& r) { return "open for " + std::to_string(r.opentime) + " s"; });
  })->add_option("BOOKING", *lockerArgument, "Locker booking id")->required();
  commands.add(*locker, "release", "Give your locker back", [lockerArgument](Context& ctx) {
    Orvane& orvane = connectWithSession(ctx);
    showMessage(ctx, ctx.await("Releasing the locker", orvane.release(*lockerArgument)));
  })->add_option("BOOKING", *lockerArgument, "Locker booking id")->required();
}

}  // namespace velora::cli
