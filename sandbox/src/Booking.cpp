// The booking engine and the routes on top of it: search, schedule, agendas, lockers, filters,
// the home screen and its widgets. Resources, people, filters and home templates come from
// booking.json and home.json; bookings live only as long as the sandbox.

#include "Booking.hpp"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <tuple>

namespace velora::sandbox::detail {

using nlohmann::json;

namespace {

bool isDigits(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

int digits(std::string_view text) {
  int value = 0;
  for (const char c : text) {
    value = value * 10 + (c - '0');
  }
  return value;
}

}  // namespace

std::optional<Day> parseDay(std::string_view text) {
  if (text.size() != 10 || text[4] != '-' || text[7] != '-' || !isDigits(text.substr(0, 4)) ||
      !isDigits(text.substr(5, 2)) || !isDigits(text.substr(8, 2))) {
    return std::nullopt;
  }
  const std::chrono::year_month_day date{std::chrono::year(digits(text.substr(0, 4))),
                                         std::chrono::month(static_cast<unsigned>(digits(text.substr(5, 2)))),
                                         std::chrono::day(static_cast<unsigned>(digits(text.substr(8, 2))))};
  if (!date.ok()) {
    return std::nullopt;
  }
  return std::chrono::sys_days(date).time_since_epoch().count();
}

std::string formatDay(Day day) {
  const std::chrono::year_month_day date{std::chrono::sys_days(std::chrono::days(day))};
  char text[40];
  std::snprintf(text, sizeof text, "%04d-%02u-%02u", static_cast<int>(date.year()),
                static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()));
  return text;
}

std::optional<int> parseTime(std::string_view text) {
  if (text.size() != 5 || text[2] != ':' || !isDigits(text.substr(0, 2)) || !isDigits(text.substr(3, 2))) {
    return std::nullopt;
  }
  const int hours = digits(text.substr(0, 2));
  const int minutes = digits(text.substr(3, 2));
  if (hours > 23 || minutes > 59) {
    return std::nullopt;
  }
  return hours * 60 + minutes;
}

std::string formatTime(int minutes) {
  char text[32];
  std::snprintf(text, sizeof text, "%02d:%02d", minutes / 60, minutes % 60);
  return text;
}

// A whole-day booking covers every hour of its days.
bool Span::overlaps(const Span& other) const {
  if (dayStart > other.dayEnd || other.dayStart > dayEnd) {
    return false;
  }
  return !start || !other.start || (*start < *other.end && *other.start < *end);
}

Bookings::Bookings(const DemoData& data) : data_(data) {}

Day Bookings::today() const {
  std::chrono::system_clock::duration skew;
  {
    const std::lock_guard lock(mutex_);
    skew = skew_;
  }
  const std::time_t now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now() + skew);
  std::tm local{};
  localtime_r(&now, &local);
  const std::chrono::year_month_day date{std::chrono::year(local.tm_year + 1900),
                                         std::chrono::month(static_cast<unsigned>(local.tm_mon + 1)),
                                         std::chrono::day(static_cast<unsigned>(local.tm_mday))};
  return std::chrono::sys_days(date).time_since_epoch().count();
}

void Bookings::advanceClock(std::chrono::seconds by) {
  const std::lock_guard lock(mutex_);
  skew_ += by;
}

const json* Bookings::resource(const std::string& id) const {
  for (const json& resource : data_.booking.resources) {
    if (resource["id"] == id) {
      return &resource;
    }
  }
  return nullptr;
}

json Bookings::resourceFor(const json& resource, const std::string& user) const {
  json seen = resource;
  const std::lock_guard lock(mutex_);
  const auto mine = favourites_.find(user);
  seen["favourite"] = mine != favourites_.end() && mine->second.contains(resource["id"].get<std::string>());
  return seen;
}

const Booking* Bookings::conflict(const Booking& candidate, const std::string& ignoring) const {
  for (const auto& [id, stored] : bookings_) {
    if (id != ignoring && stored.elementId == candidate.elementId && stored.span.overlaps(candidate.span)) {
      return &stored;
    }
  }
  return nullptr;
}

// Names the first day both share, and the hours the existing booking holds when it has some.
std::string Bookings::conflictMessage(const Booking& wanted, const Booking& existing) const {
  const json* booked = resource(existing.elementId);
  std::string message = (booked ? (*booked)["name"].get<std::string>() : existing.elementId) +
                        " is already booked on " + formatDay(std::max(wanted.span.dayStart, existing.span.dayStart));
  if (existing.span.start) {
    message += " from " + formatTime(*existing.span.start) + " to " + formatTime(*existing.span.end);
  }
  return message;
}

std::vector<Booking> Bookings::add(std::vector<Booking> bookings, const std::optional<std::string>& replacing) {
  const std::lock_guard lock(mutex_);
  for (std::size_t i = 0; i < bookings.size(); ++i) {
    if (const Booking* taken = conflict(bookings[i], replacing.value_or(""))) {
      throw RequestError(409, conflictMessage(bookings[i], *taken));
    }
    for (std::size_t j = 0; j < i; ++j) {
      if (bookings[j].elementId == bookings[i].elementId && bookings[j].span.overlaps(bookings[i].span)) {
        throw RequestError(409, conflictMessage(bookings[i], bookings[j]));
      }
    }
  }
  for (auto& booking : bookings) {
    booking.id = replacing ? *replacing : "b-" + std::to_string(nextId_++);
    booking.request["bookingId"] = booking.id;
    bookings_[booking.id] = booking;
  }
  return bookings;
}

Booking Bookings::bookNearestLocker(const std::string& user, const std::string& size) {
  const Day day = today();
  const std::lock_guard lock(mutex_);
  json reference = {{"mapId", data_.floors.front().mapId}, {"x", 0.0}, {"y", 0.0}};
  for (const auto& [id, booking] : bookings_) {
    const json* desk = resource(booking.elementId);
    if (booking.user == user && booking.span.dayStart <= day && day <= booking.span.dayEnd && desk != nullptr &&
        (*desk)["type"] == "DESK" && desk->contains("position")) {
      reference = (*desk)["position"];
      break;
    }
  }
  const auto rank = [&reference](const json& locker) {
    const json& at = locker["position"];
    return std::tuple(at["mapId"] != reference["mapId"],
                      std::hypot(at["x"].get<double>() - reference["x"].get<double>(),
                                 at["y"].get<double>() - reference["y"].get<double>()));
  };
  const json* best = nullptr;
  for (const json& locker : data_.booking.resources) {
    if (locker["type"] != "LOCKER" || locker["subtype"] != size) {
      continue;
    }
    Booking candidate{{}, user, locker["id"].get<std::string>(), Span{day, day, {}, {}}, {}};
    if (conflict(candidate, {}) == nullptr && (best == nullptr || rank(locker) < rank(*best))) {
      best = &locker;
    }
  }
  if (best == nullptr) {
    throw RequestError(409, "No locker of size " + size + " is free on " + formatDay(day));
  }
  Booking booking{"b-" + std::to_string(nextId_++), user, (*best)["id"].get<std::string>(), Span{day, day, {}, {}},
                  {{"elementId", (*best)["id"]}, {"elementType", "LOCKER"}, {"dayStart", formatDay(day)}}};
  booking.request["bookingId"] = booking.id;
  bookings_[booking.id] = booking;
  return booking;
}

std::optional<Booking> Bookings::find(const std::string& id, const std::string& user) const {
  const std::lock_guard lock(mutex_);
  const auto it = bookings_.find(id);
  if (it == bookings_.end() || it->second.user != user) {
    return std::nullopt;
  }
  return it->second;
}

bool Bookings::remove(const std::string& id, const std::string& user) {
  const std::lock_guard lock(mutex_);
  const auto it = bookings_.find(id);
  if (it == bookings_.end() || it->second.user != user) {
    return false;
  }
  bookings_.erase(it);
  return true;
}

bool Bookings::isFree(const std::string& elementId, const Span& span, const std::string& ignoring) const {
  const std::lock_guard lock(mutex_);
  return conflict(Booking{{}, {}, elementId, span, {}}, ignoring) == nullptr;
}

std::vector<Booking> Bookings::list(const std::string& elementId, const std::string& user, Day from, Day to) const {
  std::vector<Booking> found;
  {
    const std::lock_guard lock(mutex_);
    for (const auto& [id, booking] : bookings_) {
      if ((elementId.empty() || booking.elementId == elementId) && (user.empty() || booking.user == user) &&
          booking.span.dayStart <= to && booking.span.dayEnd >= from) {
        found.push_back(booking);
      }
    }
  }
  std::sort(found.begin(), found.end(), [](const Booking& a, const Booking& b) {
    return std::tuple(a.span.dayStart, a.span.start.value_or(-1), a.id.size(), a.id) <
           std::tuple(b.span.dayStart, b.span.start.value_or(-1), b.id.size(), b.id);
  });
  return found;
}

void Bookings::setFavourite(const std::string& user, const std::string& resourceId, bool favourite) {
  const std::lock_guard lock(mutex_);
  if (favourite) {
    favourites_[user].insert(resourceId);
  } else {
    favourites_[user].erase(resourceId);
  }
}

namespace {

// The tail of every day's bookable hours, for the slot list.
constexpr int kFirstSlotHour = 8;
constexpr int kLastSlotHour = 18;
// How long a released locker door stays open, in seconds.
constexpr int kLockerOpenSeconds = 15;
// Agendas longer than this are refused rather than built.
constexpr int kMaxAgendaDays = 366;
constexpr int kDefaultAgendaDays = 7;
constexpr std::size_t kHomeBookings = 3;

Bookings& engine(const Exchange& x) { return x.services.bookings; }
const BookingData& bookingData(const Exchange& x) { return x.services.data.booking; }

std::optional<std::string> queryValue(const Exchange& x, const char* key) {
  if (!x.req.has_param(key)) {
    return std::nullopt;
  }
  return x.req.get_param_value(key);
}

std::string requiredQuery(const Exchange& x, const char* key) {
  auto value = queryValue(x, key);
  if (!value || value->empty()) {
    throw RequestError(400, std::string(key) + " is required");
  }
  return std::move(*value);
}

Day dayOf(const std::string& text, const std::string& name) {
  const auto day = parseDay(text);
  if (!day) {
    throw RequestError(400, name + " must be a day as yyyy-MM-dd, not \"" + text + "\"");
  }
  return *day;
}

Day optionalDay(const Exchange& x, const char* key) {
  const auto text = queryValue(x, key);
  return text ? dayOf(*text, key) : engine(x).today();
}

std::optional<std::string> optionalText(const json& body, const char* key) {
  const json* value = optionalMember(body, key, JsonKind::string, key);
  return value ? std::optional(value->get<std::string>()) : std::nullopt;
}

std::string requiredText(const json& body, const char* key) {
  auto value = optionalText(body, key);
  if (!value) {
    throw RequestError(400, std::string(key) + " is required");
  }
  return std::move(*value);
}

// The hours of a request: both "start" and "end" or neither, the end after the start.
void readHours(const json& body, Span& span) {
  const auto start = optionalText(body, "start");
  const auto end = optionalText(body, "end");
  if (start.has_value() != end.has_value()) {
    throw RequestError(400, "start and end go together");
  }
  if (!start) {
    return;
  }
  span.start = parseTime(*start);
  span.end = parseTime(*end);
  if (!span.start || !span.end) {
    throw RequestError(400, "start and end must be times as HH:mm");
  }
  if (*span.end <= *span.start) {
    throw RequestError(400, "end must be after start");
  }
}

const json& knownResource(const Exchange& x, const std::string& id) {
  const json* resource = engine(x).resource(id);
  if (resource == nullptr) {
    throw RequestError(404, "No resource with id " + id);
  }
  return *resource;
}

Booking ownBooking(const Exchange& x, const std::string& id, const std::string& user) {
  auto booking = engine(x).find(id, user);
  if (!booking) {
    throw RequestError(404, "No booking with id " + id);
  }
  return std::move(*booking);
}

bool isLocker(const Exchange& x, const Booking& booking) {
  const json* resource = engine(x).resource(booking.elementId);
  return resource != nullptr && (*resource)["type"] == "LOCKER";
}

Booking ownLockerBooking(const Exchange& x, const std::string& id, const std::string& user) {
  Booking booking = ownBooking(x, id, user);
  if (!isLocker(x, booking)) {
    throw RequestError(404, "No locker booking with id " + id);
  }
  return booking;
}

json scheduleElement(const Exchange& x, const Booking& booking, const std::string& user) {
  const json& resource = knownResource(x, booking.elementId);
  const Span& span = booking.span;
  json element = {{"id", booking.id},
                  {"label", booking.request.value("meetingName", resource["name"].get<std::string>())},
                  {"type", resource["type"] == "ROOM" ? "MEETING" : "PERSONAL"},
                  {"scheduleType", span.start ? "INTERVAL" : span.dayEnd > span.dayStart ? "DAY_INTERVAL" : "DAY"},
                  {"day", formatDay(span.dayStart)},
                  {"resource", engine(x).resourceFor(resource, user)}};
  if (span.dayEnd > span.dayStart) {
    element["dayEnd"] = formatDay(span.dayEnd);
  }
  if (span.start) {
    element["start"] = formatTime(*span.start);
    element["end"] = formatTime(*span.end);
  }
  if (const auto attendees = booking.request.find("attendees"); attendees != booking.request.end()) {
    element["attendees"] = *attendees;
  }
  return element;
}

json daySchedule(const Exchange& x, const std::string& resourceId, Day day, const std::string& user) {
  json elements = json::array();
  for (const Booking& booking : engine(x).list(resourceId, {}, day, day)) {
    elements.push_back(scheduleElement(x, booking, user));
  }
  return {{"id", resourceId}, {"date", formatDay(day)}, {"scheduleElements", std::move(elements)}};
}

// The resource types each kind of search covers.
std::vector<std::string> searchedTypes(const std::string& kind) {
  if (kind == "DESK") {
    return {"DESK"};
  }
  if (kind == "MEETING") {
    return {"ROOM"};
  }
  if (kind == "PARK") {
    return {"PARK", "EPARK"};
  }
  return {};
}

bool isKnownResourceType(const json& type) {
  static const std::set<std::string> kKnown = {"DESK", "ROOM", "PEOPLE", "ASSET",  "TAG",
                                               "PARK", "EPARK", "POI",   "LOCKER", "GROUP_LOCKER"};
  return kKnown.contains(type.get<std::string>());
}

bool hasServices(const json& resource, const std::vector<std::string>& wanted) {
  const json services = resource.value("services", json::array());
  return std::all_of(wanted.begin(), wanted.end(), [&services](const std::string& id) {
    return std::any_of(services.begin(), services.end(), [&id](const json& s) { return s["id"] == id; });
  });
}

// Kinds of resource the platform does not know yet are passed on whatever the types asked for,
// so that clients show or drop them themselves.
void search(Exchange& x) {
  const std::string user = requestUser(x);
  const json body = parseObjectBody(x.req.body);
  const auto date = optionalText(body, "date");
  const Day day = date ? dayOf(*date, "date") : engine(x).today();
  Span span{day, day, {}, {}};
  readHours(body, span);
  std::set<std::string> types;
  if (const json* kinds = optionalList(body, "types", JsonKind::string, "types")) {
    for (const json& kind : *kinds) {
      for (auto& type : searchedTypes(kind.get<std::string>())) {
        types.insert(std::move(type));
      }
    }
  }
  std::string text = lowerCase(optionalText(body, "search").value_or(""));
  // Map ids are numbers in positions; a client may send one as text.
  std::optional<json> mapId;
  if (const auto it = body.find("mapId"); it != body.end() && !it->is_null()) {
    long long number = 0;
    if (it->is_number_integer()) {
      mapId = *it;
    } else if (it->is_string() && parseInt(it->get<std::string>(), 0, INT_MAX, number)) {
      mapId = number;
    } else {
      throw RequestError(400, "mapId must be a map id");
    }
  }
  std::vector<std::string> services;
  if (const json* list = optionalList(body, "services", JsonKind::string, "services")) {
    services = list->get<std::vector<std::string>>();
  }
  const json* hasPosition = optionalMember(body, "hasPosition", JsonKind::boolean, "hasPosition");
  const bool needsPosition = hasPosition != nullptr && hasPosition->get<bool>();

  json found = json::array();
  for (const json& resource : bookingData(x).resources) {
    const bool typeFits = !isKnownResourceType(resource["type"]) || types.empty() ||
                          types.contains(resource["type"].get<std::string>());
    const bool placed = resource.contains("position");
    if (!typeFits || (needsPosition && !placed) || (mapId && (!placed || resource["position"]["mapId"] != *mapId)) ||
        lowerCase(resource["name"].get<std::string>()).find(text) == std::string::npos ||
        !hasServices(resource, services) || !engine(x).isFree(resource["id"].get<std::string>(), span)) {
      continue;
    }
    found.push_back(engine(x).resourceFor(resource, user));
  }
  sendJson(x.res, 200, found);
}

// Creates a booking, or edits the caller's own when the request names one.
void schedule(Exchange& x) {
  const std::string user = requestUser(x);
  json body = parseObjectBody(x.req.body);
  body.erase("scheduleElement");
  const std::string elementId = requiredText(body, "elementId");
  requiredText(body, "elementType");
  Span span;
  span.dayStart = dayOf(requiredText(body, "dayStart"), "dayStart");
  const auto dayEnd = optionalText(body, "dayEnd");
  span.dayEnd = dayEnd ? dayOf(*dayEnd, "dayEnd") : span.dayStart;
  if (span.dayEnd < span.dayStart) {
    throw RequestError(400, "dayEnd must not be before dayStart");
  }
  readHours(body, span);
  const auto bookingId = optionalText(body, "bookingId");
  knownResource(x, elementId);
  if (bookingId) {
    ownBooking(x, *bookingId, user);
  }
  const Booking stored = engine(x).add({Booking{{}, user, elementId, span, body}}, bookingId).front();
  sendJson(x.res, 200, stored.request);
}

void deleteSchedule(Exchange& x) {
  const std::string id = x.match[1].str();
  if (!engine(x).remove(id, requestUser(x))) {
    throw RequestError(404, "No booking with id " + id);
  }
  sendMessage(x.res, 200, "Booking " + id + " deleted");
}

void bookingEditFilters(Exchange& x) {
  const Booking booking = ownBooking(x, x.match[1].str(), requestUser(x));
  const std::string type = queryValue(x, "type").value_or(knownResource(x, booking.elementId)["type"].get<std::string>());
  const auto date = queryValue(x, "date");
  const json& templates = bookingData(x).editFilters;
  if (!templates.contains(type)) {
    throw RequestError(404, "No booking filters for type " + type);
  }
  const Span& span = booking.span;
  sendJson(x.res, 200,
           fillTemplate(templates[type],
                        {{"day", date ? formatDay(dayOf(*date, "date")) : formatDay(span.dayStart)},
                         {"start", span.start ? formatTime(*span.start) : ""},
                         {"end", span.end ? formatTime(*span.end) : ""},
                         {"meetingName", booking.request.value("meetingName", "")}}));
}

void getResource(Exchange& x) {
  sendJson(x.res, 200, engine(x).resourceFor(knownResource(x, x.match[1].str()), requestUser(x)));
}

void setFavourite(Exchange& x) {
  const std::string user = requestUser(x);
  const json body = parseObjectBody(x.req.body);
  const std::string id = requiredText(body, "resourceId");
  const json* favourite = optionalMember(body, "favourite", JsonKind::boolean, "favourite");
  if (favourite == nullptr) {
    throw RequestError(400, "favourite is required");
  }
  knownResource(x, id);
  engine(x).setFavourite(user, id, favourite->get<bool>());
  sendMessage(x.res, 200, favourite->get<bool>() ? id + " is a favourite" : id + " is no longer a favourite");
}

void listUsers(Exchange& x) {
  const std::string text = lowerCase(queryValue(x, "search").value_or(""));
  json found = json::array();
  for (const json& person : bookingData(x).people) {
    if (lowerCase(person.value("name", "")).find(text) != std::string::npos ||
        lowerCase(person["email"].get<std::string>()).find(text) != std::string::npos) {
      found.push_back(person);
    }
  }
  sendJson(x.res, 200, found);
}

// One-hour slots of the working day that no booking holds; the booking being edited does not
// count.
void availableSlots(Exchange& x) {
  const std::string id = requiredQuery(x, "resourceId");
  knownResource(x, id);
  const Day day = dayOf(requiredQuery(x, "date"), "date");
  const std::string ignoring = queryValue(x, "bookingId").value_or("");
  json slots = json::array();
  for (int hour = kFirstSlotHour; hour < kLastSlotHour; ++hour) {
    if (engine(x).isFree(id, Span{day, day, hour * 60, (hour + 1) * 60}, ignoring)) {
      slots.push_back({formatTime(hour * 60), formatTime((hour + 1) * 60)});
    }
  }
  sendJson(x.res, 200, slots);
}

std::pair<Day, Day> dayRange(const std::string& start, const std::optional<std::string>& end, int defaultDays) {
  const Day from = dayOf(start, "dateStart");
  const Day to = end ? dayOf(*end, "dateEnd") : from + defaultDays - 1;
  if (to < from || to - from >= kMaxAgendaDays) {
    throw RequestError(400, "dateEnd must be from dateStart to " + std::to_string(kMaxAgendaDays) + " days after it");
  }
  return {from, to};
}

void findAgenda(Exchange& x) {
  const std::string user = requestUser(x);
  const json body = parseObjectBody(x.req.body);
  const auto dateEnd = optionalText(body, "dateEnd");
  const auto [from, to] = dayRange(requiredText(body, "dateStart"), dateEnd, 1);
  std::vector<std::string> ids;
  if (const json* elements = optionalList(body, "elements", JsonKind::string, "elements")) {
    ids = elements->get<std::vector<std::string>>();
  } else {
    for (const json& resource : bookingData(x).resources) {
      ids.push_back(resource["id"].get<std::string>());
    }
  }
  json agendas = json::array();
  for (const std::string& id : ids) {
    json days = json::array();
    for (Day day = from; day <= to; ++day) {
      days.push_back(daySchedule(x, id, day, user));
    }
    agendas.push_back({{"id", id},
                       {"element", engine(x).resourceFor(knownResource(x, id), user)},
                       {"dateStart", formatDay(from)},
                       {"dateEnd", formatDay(to)},
                       {"days", std::move(days)}});
  }
  sendJson(x.res, 200, agendas);
}

// The user's bookings and lockers, with the demo data's own entries for that user among them.
json myAgenda(const Exchange& x, const std::string& user, Day from, Day to, bool lockers, bool others) {
  std::vector<std::pair<std::tuple<Day, int, std::string>, json>> entries;
  for (const Booking& booking : engine(x).list({}, user, from, to)) {
    if (isLocker(x, booking) ? lockers : others) {
      entries.push_back({{booking.span.dayStart, booking.span.start.value_or(-1), booking.id},
                         scheduleElement(x, booking, user)});
    }
  }
  const Day today = engine(x).today();
  for (const AgendaExtra& extra : bookingData(x).agenda) {
    const Day day = today + extra.dayOffset;
    if (others && extra.user == user && from <= day && day <= to) {
      json element = extra.element;
      element["day"] = formatDay(day);
      element["resource"] = engine(x).resourceFor(knownResource(x, extra.resourceId), user);
      const auto start = parseTime(element.value("start", ""));
      entries.push_back({{day, start.value_or(-1), element["id"].get<std::string>()}, std::move(element)});
    }
  }
  std::stable_sort(entries.begin(), entries.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  json elements = json::array();
  for (auto& entry : entries) {
    elements.push_back(std::move(entry.second));
  }
  return elements;
}

void agendaMy(Exchange& x) {
  const auto [from, to] = dayRange(requiredQuery(x, "dateStart"), queryValue(x, "dateEnd"), kDefaultAgendaDays);
  sendJson(x.res, 200, myAgenda(x, requestUser(x), from, to, true, true));
}

void agendaDay(Exchange& x) {
  const std::string id = requiredQuery(x, "id");
  knownResource(x, id);
  sendJson(x.res, 200, daySchedule(x, id, optionalDay(x, "date"), requestUser(x)));
}

void bookingInfo(Exchange& x) {
  const std::string user = requestUser(x);
  sendJson(x.res, 200, scheduleElement(x, ownBooking(x, requiredQuery(x, "bookingId"), user), user));
}

// A booking made on the map: the resource for each reservation day marked bookable, all of
// them or none.
void submitMapBooking(Exchange& x) {
  const std::string user = requestUser(x);
  const json body = parseObjectBody(x.req.body);
  const json* id = optionalMember(body, "id", JsonKind::integer, "id");
  if (id == nullptr) {
    throw RequestError(400, "id is required");
  }
  const std::string elementId = std::to_string(id->get<int>());
  const json& resource = knownResource(x, elementId);
  std::vector<Booking> wanted;
  if (const json* info = optionalMember(body, "info", JsonKind::object, "info")) {
    if (const json* reservations = optionalList(*info, "reservation", JsonKind::object, "info.reservation")) {
      for (const json& reservation : *reservations) {
        if (optionalText(reservation, "bookableStatus") != "BOOKABLE") {
          continue;
        }
        const std::string date = requiredText(reservation, "date");
        const Day day = dayOf(date, "date");
        wanted.push_back(Booking{{}, user, elementId, Span{day, day, {}, {}},
                                 {{"elementId", elementId}, {"elementType", resource["type"]}, {"dayStart", date}}});
      }
    }
  }
  if (wanted.empty()) {
    throw RequestError(400, "No reservation of " + resource["name"].get<std::string>() + " is bookable");
  }
  engine(x).add(std::move(wanted));
  sendMessage(x.res, 200, resource["name"].get<std::string>() + " booked");
}

void bookLocker(Exchange& x) {
  const std::string user = requestUser(x);
  const std::string id = requiredText(parseObjectBody(x.req.body), "resourceId");
  const json* locker = engine(x).resource(id);
  if (locker == nullptr || (*locker)["type"] != "LOCKER") {
    throw RequestError(404, "No locker with id " + id);
  }
  const Day day = engine(x).today();
  const Booking booking =
      engine(x)
          .add({Booking{{}, user, id, Span{day, day, {}, {}},
                        {{"elementId", id}, {"elementType", "LOCKER"}, {"dayStart", formatDay(day)}}}})
          .front();
  sendJson(x.res, 200, scheduleElement(x, booking, user));
}

void bookNearestLocker(Exchange& x) {
  const std::string user = requestUser(x);
  const Booking booking = engine(x).bookNearestLocker(user, requiredText(parseObjectBody(x.req.body), "size"));
  sendJson(x.res, 200, scheduleElement(x, booking, user));
}

void lockerFilter(Exchange& x) {
  sendJson(x.res, 200, fillTemplate(bookingData(x).lockerFilter, {{"size", requiredQuery(x, "size")}}));
}

void unlockLocker(Exchange& x) {
  ownLockerBooking(x, x.match[1].str(), requestUser(x));
  sendJson(x.res, 200, {{"opentime", kLockerOpenSeconds}});
}

void releaseLocker(Exchange& x) {
  const std::string user = requestUser(x);
  const Booking booking = ownLockerBooking(x, x.match[1].str(), user);
  engine(x).remove(booking.id, user);
  sendMessage(x.res, 200, knownResource(x, booking.elementId)["name"].get<std::string>() + " released");
}

void sectionFilters(Exchange& x) {
  std::set<std::string> wanted;
  for (std::size_t i = 0; i < x.req.get_param_value_count("sectionTypes"); ++i) {
    wanted.insert(x.req.get_param_value("sectionTypes", i));
  }
  json found = json::array();
  for (const json& section : bookingData(x).sections) {
    if (wanted.empty() || wanted.contains(section.value("sectionType", ""))) {
      found.push_back(section);
    }
  }
  sendJson(x.res, 200, found);
}

void filterOfType(Exchange& x) {
  const std::string type = requiredQuery(x, "type");
  for (const json& filter : bookingData(x).filters) {
    if (filter["type"] == type) {
      sendJson(x.res, 200, filter);
      return;
    }
  }
  throw RequestError(404, "No filter of type " + type);
}

std::string displayName(const Exchange& x, const std::string& user) {
  for (const json& person : bookingData(x).people) {
    if (person["id"] == user) {
      return person.value("name", user);
    }
  }
  return user;
}

// The home screen of the user as things stand: their next bookings and today's lockers.
void myHome(Exchange& x) {
  const std::string user = requestUser(x);
  const Day today = engine(x).today();
  json bookings = myAgenda(x, user, today, today + kMaxAgendaDays - 1, false, true);
  if (bookings.size() > kHomeBookings) {
    bookings.erase(bookings.begin() + kHomeBookings, bookings.end());
  }
  const json lockers = myAgenda(x, user, today, today, true, false);
  json containers = fillTemplate(bookingData(x).homeContainers, {{"username", user}, {"name", displayName(x, user)}});
  for (json& container : containers) {
    for (json& widget : container["widgets"]) {
      if (widget["type"] == "BOOKING") {
        widget["nextBookings"] = bookings;
      } else if (widget["type"] == "LOCKER") {
        widget["nextLockers"] = lockers;
      }
    }
  }
  sendJson(x.res, 200, containers);
}

void myProfile(Exchange& x) {
  json filters = json::array();
  for (const json& filter : bookingData(x).filters) {
    filters.push_back({{"id", filter["id"]}, {"filterType", filter["type"]}, {"filter", filter}});
  }
  sendJson(x.res, 200, {{"profileId", "profile-" + requestUser(x)}, {"profileFilter", std::move(filters)}});
}

void homeWidgets(Exchange& x) { sendJson(x.res, 200, x.services.data.homeWidgets); }

const json* findComponent(const json& components, const std::string& id) {
  for (const json& component : components) {
    if (component.value("componentId", "") == id) {
      return &component;
    }
    if (const auto inner = component.find("components"); inner != component.end() && inner->is_array()) {
      if (const json* found = findComponent(*inner, id)) {
        return found;
      }
    }
  }
  return nullptr;
}

void widgetCard(Exchange& x) {
  const std::string id = requiredQuery(x, "componentId");
  const json* component = findComponent(x.services.data.homeWidgets, id);
  if (component == nullptr) {
    throw RequestError(404, "No component with id " + id);
  }
  sendJson(x.res, 200, *component);
}

// A card made from what was posted, so that a client sees its body arrived as sent.
void postWidgetCard(Exchange& x) {
  const json body = json::parse(x.req.body, nullptr, /*allow_exceptions=*/false);
  if (body.is_discarded()) {
    throw RequestError(400, "Request body is not valid JSON");
  }
  const json id = body.is_object() ? body.value("componentId", json()) : json();
  sendJson(x.res, 200,
           {{"type", "WIDGET_BLUR"},
            {"componentId", id.is_string() ? id : json("card")},
            {"enabled", true},
            {"name", "Posted card"},
            {"mainValue", body.dump()},
            {"subValueText", "What the request carried"},
            {"radius", 12}});
}

void roomWidgets(Exchange& x) {
  const std::string roomId = x.match[1].str();
  const auto& floors = x.services.data.floors;
  const bool known = std::any_of(floors.begin(), floors.end(), [&roomId](const Floor& floor) {
    return std::any_of(floor.rooms.begin(), floor.rooms.end(),
                       [&roomId](const Room& room) { return std::to_string(room.id) == roomId; });
  });
  if (!known) {
    throw RequestError(404, "No room with id " + roomId);
  }
  const std::string name = x.services.data.roomName(roomId);
  sendJson(x.res, 200,
           {{"type", "WIDGET_SECTION"},
            {"componentId", "room-" + roomId},
            {"enabled", true},
            {"name", name},
            {"components", fillTemplate(x.services.data.roomWidgets, {{"roomId", roomId}, {"roomName", name}})}});
}

constexpr Route kBookingRoutes[] = {
    {"POST",   "/api/v2/search",                    search},
    {"POST",   "/api/v2/schedule",                  schedule},
    {"DELETE", "/api/v2/schedule/([^/]+)",          deleteSchedule},
    {"GET",    "/api/v2/booking/edit/([^/]+)",      bookingEditFilters},
    {"GET",    "/api/v2/resource/([^/]+)",          getResource},
    {"PUT",    "/api/v2/favourite",                 setFavourite},
    {"GET",    "/api/v2/booking/user/list",         listUsers},
    {"GET",    "/api/v2/booking/slots",             availableSlots},
    {"POST",   "/api/v2/agenda/find",               findAgenda},
    {"GET",    "/api/v2/agenda/next/my",            agendaMy},
    {"GET",    "/api/v2/agenda/day",                agendaDay},
    {"GET",    "/api/v2/booking/info",              bookingInfo},
    {"POST",   "/api/v1/booking",                   submitMapBooking},
    {"POST",   "/api/v2/locker/booking",            bookLocker},
    {"POST",   "/api/v2/locker/book/nearest",       bookNearestLocker},
    {"GET",    "/api/v2/locker/filter",             lockerFilter},
    {"POST",   "/api/v2/locker/unlock/([^/]+)",     unlockLocker},
    {"POST",   "/api/v2/locker/release/([^/]+)",    releaseLocker},
    {"GET",    "/api/v2/filter/section",            sectionFilters},
    {"GET",    "/api/v2/filter/resource",           filterOfType},
    {"GET",    "/api/v2/filter",                    filterOfType},
    {"GET",    "/api/v2/home/my",                   myHome},
    {"GET",    "/api/v2/profile/my",                myProfile},
    {"GET",    "/api/v2/widget/home",               homeWidgets},
    {"GET",    "/api/v2/widget/card",               widgetCard},
    {"POST",   "/api/v2/widget/card",               postWidgetCard},
    {"GET",    "/api/v2/widget/room/([^/]+)",       roomWidgets},
};

}  // namespace

RouteTable bookingRoutes() { return kBookingRoutes; }

}  // namespace velora::sandbox::detail
