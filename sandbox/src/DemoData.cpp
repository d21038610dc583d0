// Reads the demo data files and checks them, so that a slip in a file stops the sandbox at
// start-up with the file and entry named, rather than surfacing as a type error inside a request.

#include "DemoData.hpp"

#include <algorithm>
#include <set>
#include <stdexcept>

#include "Realm.hpp"

namespace velora::sandbox::detail {
namespace {

using nlohmann::json;

// A reader of one file that names the file and the entry in every complaint.
class Reader {
 public:
  Reader(const DataFiles& files, std::string file) : file_(std::move(file)), root_(files[file_]) {}

  const json& root() const { return root_; }

  [[noreturn]] void fail(const std::string& where, const std::string& what) const {
    throw std::runtime_error("velora-sandbox: demo data " + file_ + ": " + where + " " + what);
  }

  const json& member(const json& object, const std::string& where, const char* key) const {
    if (!object.is_object()) {
      fail(where, "must be an object");
    }
    const auto it = object.find(key);
    if (it == object.end()) {
      fail(where, std::string("needs \"") + key + "\"");
    }
    return *it;
  }
  const json& array(const json& object, const std::string& where, const char* key) const {
    const json& value = member(object, where, key);
    if (!value.is_array()) {
      fail(where + "." + key, "must be an array");
    }
    return value;
  }
  int integer(const json& object, const std::string& where, const char* key) const {
    const json& value = member(object, where, key);
    if (!value.is_number_integer()) {
      fail(where + "." + key, "must be an integer");
    }
    return value.get<int>();
  }
  double number(const json& object, const std::string& where, const char* key) const {
    const json& value = member(object, where, key);
    if (!value.is_number()) {
      fail(where + "." + key, "must be a number");
    }
    return value.get<double>();
  }
  std::string text(const json& object, const std::string& where, const char* key) const {
    const json& value = member(object, where, key);
    if (!value.is_string()) {
      fail(where + "." + key, "must be a string");
    }
    return value.get<std::string>();
  }

 private:
  std::string file_;
  const json& root_;
};

std::string at(const std::string& where, std::size_t index) { return where + "[" + std::to_string(index) + "]"; }

std::vector<Floor> readFloors(const Reader& r) {
  std::vector<Floor> floors;
  const json& list = r.array(r.root(), "the file", "floors");
  for (std::size_t f = 0; f < list.size(); ++f) {
    const std::string where = at("floors", f);
    Floor floor{r.integer(list[f], where, "mapId"), r.integer(list[f], where, "level"),
                r.integer(list[f], where, "width"), r.integer(list[f], where, "depth"), {}};
    if (floor.width < 1 || floor.depth < 1) {
      r.fail(where, "needs a positive width and depth");
    }
    const json& rooms = r.array(list[f], where, "rooms");
    for (std::size_t i = 0; i < rooms.size(); ++i) {
      const std::string roomWhere = at(where + ".rooms", i);
      Room room{r.integer(rooms[i], roomWhere, "id"), r.text(rooms[i], roomWhere, "name"),
                r.integer(rooms[i], roomWhere, "areaId"), r.integer(rooms[i], roomWhere, "xFrom")};
      const int previous = floor.rooms.empty() ? -1 : floor.rooms.back().xFrom;
      if ((i == 0 && room.xFrom != 0) || room.xFrom <= previous || room.xFrom >= floor.width) {
        r.fail(roomWhere, "must start where the rooms before it end: the first at x 0, each further along, "
                          "all within the floor's width");
      }
      floor.rooms.push_back(std::move(room));
    }
    if (floor.rooms.empty()) {
      r.fail(where, "needs at least one room");
    }
    floors.push_back(std::move(floor));
  }
  if (floors.empty()) {
    r.fail("floors", "needs at least one floor");
  }
  return floors;
}

std::vector<std::string> readTags(const Reader& r) {
  const json& tags = r.array(r.root(), "the file", "tags");
  if (tags.empty() || !std::all_of(tags.begin(), tags.end(), [](const json& t) { return t.is_string(); })) {
    r.fail("tags", "must be a non-empty array of strings");
  }
  return tags.get<std::vector<std::string>>();
}

const Room* findRoom(const std::vector<Floor>& floors, int mapId, int roomId) {
  for (const auto& floor : floors) {
    for (const auto& room : floor.rooms) {
      if (floor.mapId == mapId && room.id == roomId) {
        return &room;
      }
    }
  }
  return nullptr;
}

void checkPosition(const Reader& r, const json& position, const std::string& where, const std::vector<Floor>& floors) {
  for (const char* key : {"x", "y"}) {
    r.number(position, where, key);
  }
  r.integer(position, where, "level");
  const Room* room = findRoom(floors, r.integer(position, where, "mapId"), r.integer(position, where, "roomId"));
  if (room == nullptr || r.integer(position, where, "areaId") != room->areaId) {
    r.fail(where, "names no room of the floors, or the room's area differs");
  }
}

// What Equipment relies on: unique item ids and value ids, and the fields each control kind is
// validated against.
void checkControl(const Reader& r, const json& control, const std::string& where, std::set<int>& valueIds) {
  r.text(control, where, "name");
  const std::string type = r.text(control, where, "type");
  const json& current = r.member(control, where, "currentValue");
  if (!valueIds.insert(r.integer(current, where + ".currentValue", "id")).second) {
    r.fail(where + ".currentValue.id", "is used by another control");
  }
  if (current.contains("value") && !current["value"].is_string()) {
    r.fail(where + ".currentValue.value", "must be a string");
  }
  if (type == "CTRL_SLIDER") {
    if (r.number(control, where, "min") > r.number(control, where, "max")) {
      r.fail(where, "has min above max");
    }
    r.number(control, where, "step");
  } else if (type == "CTRL_TOGGLE") {
    r.text(control, where, "toggleOnValue");
    r.text(control, where, "toggleOffValue");
  } else if (type == "CTRL_CHOICE") {
    const json& options = r.array(control, where, "choiceOptions");
    for (std::size_t o = 0; o < options.size(); ++o) {
      r.text(options[o], at(where + ".choiceOptions", o), "optionValue");
    }
  }
}

json readItems(const Reader& r, const std::vector<Floor>& floors) {
  const json& items = r.array(r.root(), "the file", "items");
  std::set<int> itemIds;
  std::set<int> valueIds;
  int previousId = 0;
  for (std::size_t i = 0; i < items.size(); ++i) {
    const std::string where = at("items", i);
    const int id = r.integer(items[i], where, "id");
    if (id <= previousId) {
      r.fail(where + ".id", "must be above the id of the item before it");
    }
    previousId = id;
    for (const char* key : {"logicName", "widgetName", "name", "type"}) {
      r.text(items[i], where, key);
    }
    if (const auto position = items[i].find("position"); position != items[i].end()) {
      checkPosition(r, *position, where + ".position", floors);
    }
    if (items[i].contains("controls")) {
      const json& controls = r.array(items[i], where, "controls");
      for (std::size_t c = 0; c < controls.size(); ++c) {
        checkControl(r, controls[c], at(where + ".controls", c), valueIds);
      }
    }
  }
  return items;
}

std::vector<LoginCode> readLoginCodes(const Reader& r, const std::function<bool(std::string_view)>& isUser) {
  std::vector<LoginCode> codes;
  const json& list = r.array(r.root(), "the file", "codes");
  for (std::size_t i = 0; i < list.size(); ++i) {
    const std::string where = at("codes", i);
    LoginCode code{r.text(list[i], where, "code"), r.text(list[i], where, "user"),
                   r.integer(list[i], where, "expiration")};
    if (!isUser(code.username)) {
      r.fail(where + ".user", "is no user of the realm");
    }
    codes.push_back(std::move(code));
  }
  return codes;
}

LiveWidget readLiveWidget(const Reader& r, const char* key, std::size_t minReadings) {
  const json& live = r.member(r.root(), "the file", key);
  LiveWidget widget{r.member(live, key, "widget"), {}};
  const json& readings = r.array(live, key, "readings");
  if (readings.size() < minReadings ||
      !std::all_of(readings.begin(), readings.end(), [](const json& n) { return n.is_number(); })) {
    r.fail(std::string(key) + ".readings", "must be an array of at least " + std::to_string(minReadings) + " numbers");
  }
  widget.readings = readings.get<std::vector<double>>();
  return widget;
}

// Members that hold lists of objects with at least an id and a name.
void checkNamedList(const Reader& r, const json& object, const std::string& where, const char* key) {
  if (!object.contains(key)) {
    return;
  }
  const json& list = r.array(object, where, key);
  for (std::size_t i = 0; i < list.size(); ++i) {
    r.text(list[i], at(where + "." + key, i), "id");
    r.text(list[i], at(where + "." + key, i), "name");
  }
}

void checkFilterElements(const Reader& r, const json& list, const std::string& where) {
  if (!list.is_array()) {
    r.fail(where, "must be an array");
  }
  for (std::size_t i = 0; i < list.size(); ++i) {
    for (const char* key : {"id", "filterId", "type", "name"}) {
      r.text(list[i], at(where, i), key);
    }
  }
}

// What the booking engine relies on: unique ids, lockers with a size and a place, rooms with a
// capacity, and positions on a floor the building has.
json readResources(const Reader& r, const std::vector<Floor>& floors) {
  const json& resources = r.array(r.root(), "the file", "resources");
  std::set<std::string> ids;
  for (std::size_t i = 0; i < resources.size(); ++i) {
    const std::string where = at("resources", i);
    const json& resource = resources[i];
    if (!ids.insert(r.text(resource, where, "id")).second) {
      r.fail(where + ".id", "is used by another resource");
    }
    r.text(resource, where, "name");
    const std::string type = r.text(resource, where, "type");
    if (resource.contains("favourite")) {
      r.fail(where, "must not hold \"favourite\": it is each user's own");
    }
    for (const char* key : {"position", "buildingPosition"}) {
      if (resource.contains(key)) {
        checkPosition(r, resource[key], where + "." + key, floors);
      }
    }
    for (const char* key : {"services", "controls", "sensors", "additionalServices"}) {
      checkNamedList(r, resource, where, key);
    }
    if (const auto data = resource.find("data"); data != resource.end()) {
      if (!data->is_object() || !std::all_of(data->begin(), data->end(), [](const json& v) { return v.is_string(); })) {
        r.fail(where + ".data", "must be an object of strings");
      }
    }
    if (const auto config = resource.find("bookingConfig"); config != resource.end()) {
      for (const char* key : {"dailyBooking", "timeBooking", "attendeesPresent", "hasRecurring"}) {
        if (!r.member(*config, where + ".bookingConfig", key).is_boolean()) {
          r.fail(where + ".bookingConfig." + key, "must be a boolean");
        }
      }
    }
    if (type == "LOCKER") {
      const std::string size = r.text(resource, where, "subtype");
      if (size != "S" && size != "M" && size != "L") {
        r.fail(where + ".subtype", "must be a locker size: S, M or L");
      }
      r.member(resource, where, "position");
    } else if (type == "ROOM") {
      r.text(r.member(resource, where, "data"), where + ".data", "capacity");
    }
  }
  return resources;
}

std::vector<AgendaExtra> readAgenda(const Reader& r, const json& resources,
                                    const std::function<bool(std::string_view)>& isUser) {
  std::vector<AgendaExtra> agenda;
  const json& list = r.array(r.root(), "the file", "agenda");
  for (std::size_t i = 0; i < list.size(); ++i) {
    const std::string where = at("agenda", i);
    AgendaExtra extra{r.text(list[i], where, "user"), r.integer(list[i], where, "dayOffset"),
                      r.member(list[i], where, "element"), r.text(list[i], where, "resourceId")};
    if (!isUser(extra.user)) {
      r.fail(where + ".user", "is no user of the realm");
    }
    r.text(extra.element, where + ".element", "id");
    r.text(extra.element, where + ".element", "type");
    if (std::none_of(resources.begin(), resources.end(),
                     [&extra](const json& resource) { return resource["id"] == extra.resourceId; })) {
      r.fail(where + ".resourceId", "names no resource");
    }
    agenda.push_back(std::move(extra));
  }
  return agenda;
}

BookingData readBooking(const Reader& r, std::vector<Floor>& floors,
                        const std::function<bool(std::string_view)>& isUser) {
  for (Floor& floor : readFloors(r)) {
    for (const Floor& known : floors) {
      if (known.mapId == floor.mapId) {
        r.fail("floors", "repeats map id " + std::to_string(floor.mapId) + " of another floor");
      }
    }
    floors.push_back(std::move(floor));
  }
  BookingData booking;
  booking.resources = readResources(r, floors);
  booking.people = r.array(r.root(), "the file", "people");
  std::set<std::string> personIds;
  for (std::size_t i = 0; i < booking.people.size(); ++i) {
    if (!personIds.insert(r.text(booking.people[i], at("people", i), "id")).second) {
      r.fail(at("people", i) + ".id", "is used by another person");
    }
    r.text(booking.people[i], at("people", i), "email");
  }
  booking.filters = r.array(r.root(), "the file", "filters");
  std::set<std::string> filterTypes;
  for (std::size_t i = 0; i < booking.filters.size(); ++i) {
    const std::string where = at("filters", i);
    r.text(booking.filters[i], where, "id");
    if (!filterTypes.insert(r.text(booking.filters[i], where, "type")).second) {
      r.fail(where + ".type", "has a filter already");
    }
    checkFilterElements(r, r.array(booking.filters[i], where, "filterElements"), where + ".filterElements");
  }
  booking.sections = r.array(r.root(), "the file", "sections");
  for (std::size_t i = 0; i < booking.sections.size(); ++i) {
    r.text(booking.sections[i], at("sections", i), "id");
    r.array(booking.sections[i], at("sections", i), "sectionValues");
  }
  booking.editFilters = r.member(r.root(), "the file", "editFilters");
  if (!booking.editFilters.is_object()) {
    r.fail("editFilters", "must be an object");
  }
  for (const auto& [type, elements] : booking.editFilters.items()) {
    checkFilterElements(r, elements, "editFilters." + type);
  }
  booking.lockerFilter = r.member(r.root(), "the file", "lockerFilter");
  r.text(booking.lockerFilter, "lockerFilter", "id");
  checkFilterElements(r, r.array(booking.lockerFilter, "lockerFilter", "filterElements"), "lockerFilter.filterElements");
  booking.agenda = readAgenda(r, booking.resources, isUser);
  return booking;
}

// Widgets are read by their "type" alone, so that is all a template must have.
json readHomeContainers(const Reader& r) {
  const json& containers = r.array(r.root(), "the file", "containers");
  for (std::size_t i = 0; i < containers.size(); ++i) {
    const std::string where = at("containers", i);
    r.text(containers[i], where, "type");
    const json& widgets = r.array(containers[i], where, "widgets");
    for (std::size_t w = 0; w < widgets.size(); ++w) {
      r.text(widgets[w], at(where + ".widgets", w), "type");
    }
  }
  return containers;
}

std::string fillText(std::string_view text, const std::vector<std::pair<std::string, std::string>>& values) {
  std::string out;
  for (std::size_t i = 0; i < text.size();) {
    bool replaced = false;
    if (text[i] == '{') {
      for (const auto& [name, value] : values) {
        if (text.substr(i + 1).starts_with(name) && text.substr(i + 1 + name.size()).starts_with('}')) {
          out += value;
          i += name.size() + 2;
          replaced = true;
          break;
        }
      }
    }
    if (!replaced) {
      out += text[i++];
    }
  }
  return out;
}

NotificationData readNotifications(const Reader& r, const std::function<bool(std::string_view)>& isUser) {
  NotificationData data;
  const json& list = r.array(r.root(), "the file", "notifications");
  std::set<std::string> ids;
  for (std::size_t i = 0; i < list.size(); ++i) {
    const std::string where = at("notifications", i);
    SeededNotification seed{r.text(list[i], where, "user"), r.integer(list[i], where, "minutesAgo"), json::object()};
    if (!isUser(seed.user)) {
      r.fail(where + ".user", "names no demo user");
    }
    if (seed.minutesAgo < 0) {
      r.fail(where + ".minutesAgo", "must not be negative");
    }
    const std::string id = r.text(list[i], where, "id");
    if (!ids.insert(id).second) {
      r.fail(where, "repeats the id " + id);
    }
    const std::string type = r.text(list[i], where, "type");
    if (type != "POOL_NOTIFICATION" && type != "GENERIC_NOTIFICATION") {
      r.fail(where + ".type", "must be POOL_NOTIFICATION or GENERIC_NOTIFICATION");
    }
    const std::string status = r.text(list[i], where, "status");
    if (status != "SENT" && status != "READ" && status != "DELETED") {
      r.fail(where + ".status", "must be SENT, READ or DELETED");
    }
    const json& message = r.member(list[i], where, "message");
    r.text(message, where + ".message", "title");
    r.text(message, where + ".message", "body");
    seed.notification = {{"id", id}, {"type", type}, {"status", status}, {"message", message}};
    data.seeds.push_back(std::move(seed));
  }
  const json& forms = r.member(r.root(), "the file", "dnd");
  for (const char* form : {"day/time", "day/time/interval"}) {
    const json& elements = r.member(forms, "dnd", form);
    checkFilterElements(r, elements, std::string("dnd.") + form);
    data.dndForms.emplace(form, elements);
  }
  return data;
}

// A FormTicket template; its attribute must be new to `attributes`.
void checkFormField(const Reader& r, const json& field, const std::string& where, std::set<std::string>& attributes) {
  r.text(field, where, "formName");
  if (!attributes.insert(r.text(field, where, "formAttribute")).second) {
    r.fail(where + ".formAttribute", "is used by another field of the form");
  }
  if (!r.member(field, where, "mandatory").is_boolean()) {
    r.fail(where + ".mandatory", "must be a boolean");
  }
  if (r.text(field, where, "formInputType") == "select") {
    const json& choices = r.array(field, where, "values");
    std::set<std::string> ids;
    for (std::size_t i = 0; i < choices.size(); ++i) {
      if (!ids.insert(r.text(choices[i], at(where + ".values", i), "selectValueId")).second) {
        r.fail(at(where + ".values", i), "repeats a choice of the select");
      }
      r.text(choices[i], at(where + ".values", i), "name");
      if (r.member(choices[i], at(where + ".values", i), "selected") != false) {
        r.fail(at(where + ".values", i) + ".selected", "must be false in a blank form");
      }
    }
  }
}

TicketForm readTicketForm(const Reader& r, const json& manager, const std::string& where,
                          const std::function<bool(std::string_view)>& isUser) {
  TicketForm form{r.array(manager, where, "fields"), r.text(manager, where, "decidedBy"), {}, false, {}, {}};
  std::set<std::string> attributes;
  const json* decider = nullptr;
  for (std::size_t i = 0; i < form.fields.size(); ++i) {
    checkFormField(r, form.fields[i], at(where + ".fields", i), attributes);
    if (form.fields[i]["formAttribute"] == form.decidedBy && form.fields[i]["formInputType"] == "select") {
      decider = &form.fields[i];
    }
  }
  if (decider == nullptr) {
    r.fail(where + ".decidedBy", "names no select of the form");
  }
  if (!attributes.contains("description")) {
    r.fail(where + ".fields", "needs the field \"description\", which tickets take their description from");
  }
  for (const auto& extra : r.member(manager, where, "extraFields").items()) {
    const std::string& choice = extra.key();
    const json& fields = extra.value();
    const std::string extraWhere = where + ".extraFields." + choice;
    const json& choices = (*decider)["values"];
    if (std::none_of(choices.begin(), choices.end(), [&](const json& c) { return c["selectValueId"] == choice; })) {
      r.fail(extraWhere, "is no choice of " + form.decidedBy);
    }
    if (!fields.is_array()) {
      r.fail(extraWhere, "must be an array");
    }
    std::set<std::string> withExtra = attributes;
    for (std::size_t i = 0; i < fields.size(); ++i) {
      checkFormField(r, fields[i], at(extraWhere, i), withExtra);
    }
    form.extraFields.emplace(choice, fields);
  }
  if (const auto external = manager.find("external"); external != manager.end()) {
    form.external = true;
    form.integrationIdPrefix = r.text(*external, where + ".external", "integrationIdPrefix");
    for (const auto& [user, info] : r.member(*external, where + ".external", "requesters").items()) {
      if (!isUser(user)) {
        r.fail(where + ".external.requesters." + user, "names no demo user");
      }
      if (!info.is_object()) {
        r.fail(where + ".external.requesters." + user, "must be an object");
      }
      form.requesters.emplace(user, info);
    }
  }
  return form;
}

// The seeded tickets' values are checked against their forms when the ticket service starts.
TicketData readTickets(const Reader& r, const std::function<bool(std::string_view)>& isUser) {
  TicketData data;
  const json& types = r.array(r.root(), "the file", "managerTypes");
  if (!std::all_of(types.begin(), types.end(), [](const json& t) { return t.is_string(); })) {
    r.fail("managerTypes", "must be an array of strings");
  }
  data.managerTypes = types.get<std::vector<std::string>>();
  for (const auto& [name, manager] : r.member(r.root(), "the file", "managers").items()) {
    if (std::find(data.managerTypes.begin(), data.managerTypes.end(), name) == data.managerTypes.end()) {
      r.fail("managers." + name, "is not listed in managerTypes");
    }
    data.forms.emplace(name, readTicketForm(r, manager, "managers." + name, isUser));
  }
  const json& list = r.array(r.root(), "the file", "tickets");
  std::set<std::string> ids;
  for (std::size_t i = 0; i < list.size(); ++i) {
    const std::string where = at("tickets", i);
    SeededTicket seed{r.text(list[i], where, "id"),         r.text(list[i], where, "user"),
                      r.text(list[i], where, "manager"),    r.text(list[i], where, "status"),
                      r.integer(list[i], where, "minutesAgo"), r.integer(list[i], where, "updatedMinutesAgo"), {}};
    if (!ids.insert(seed.id).second) {
      r.fail(where, "repeats the id " + seed.id);
    }
    if (!isUser(seed.user)) {
      r.fail(where + ".user", "names no demo user");
    }
    if (!data.forms.contains(seed.manager)) {
      r.fail(where + ".manager", "names no manager with a form");
    }
    if (seed.updatedMinutesAgo < 0 || seed.updatedMinutesAgo > seed.minutesAgo) {
      r.fail(where, "must have 0 <= updatedMinutesAgo <= minutesAgo");
    }
    for (const auto& [attribute, value] : r.member(list[i], where, "values").items()) {
      if (!value.is_string()) {
        r.fail(where + ".values." + attribute, "must be a string");
      }
      seed.values.emplace(attribute, value.get<std::string>());
    }
    data.seeds.push_back(std::move(seed));
  }
  return data;
}

}  // namespace

DataFiles::DataFiles(std::span<const EmbeddedFile> files) {
  for (const auto& file : files) {
    json parsed;
    try {
      parsed = json::parse(file.text);
    } catch (const json::parse_error& e) {
      throw std::runtime_error("velora-sandbox: demo data " + std::string(file.name) + " is not valid JSON: " +
                               e.what());
    }
    files_.emplace(std::string(file.name), std::move(parsed));
  }
}

const json& DataFiles::operator[](std::string_view name) const {
  const auto it = files_.find(name);
  if (it == files_.end()) {
    throw std::runtime_error("velora-sandbox: demo data " + std::string(name) + " is missing");
  }
  return it->second;
}

const Room& Floor::roomAt(int x) const {
  const auto after = std::upper_bound(rooms.begin(), rooms.end(), x,
                                      [](int value, const Room& room) { return value < room.xFrom; });
  return after == rooms.begin() ? rooms.front() : *std::prev(after);
}

std::string DemoData::roomName(const std::string& roomId) const {
  for (const auto& floor : floors) {
    for (const auto& room : floor.rooms) {
      if (std::to_string(room.id) == roomId) {
        return room.name;
      }
    }
  }
  return "Room " + roomId;
}

DemoData loadDemoData(const DataFiles& files, const std::function<bool(std::string_view)>& isUser) {
  DemoData data;
  const Reader building(files, "building.json");
  data.floors = readFloors(building);
  data.defaultTags = readTags(building);
  data.items = readItems(Reader(files, "equipment.json"), data.floors);
  data.loginCodes = readLoginCodes(Reader(files, "login-codes.json"), isUser);
  const Reader widgets(files, "widgets.json");
  data.homeWidgets = widgets.array(widgets.root(), "the file", "home");
  data.roomWidgets = widgets.array(widgets.root(), "the file", "room");
  data.scriptedWidget = readLiveWidget(widgets, "scripted", 2);
  data.singleWidget = readLiveWidget(widgets, "single", 1);
  data.booking = readBooking(Reader(files, "booking.json"), data.floors, isUser);
  data.booking.homeContainers = readHomeContainers(Reader(files, "home.json"));
  data.notifications = readNotifications(Reader(files, "notifications.json"), isUser);
  data.tickets = readTickets(Reader(files, "tickets.json"), isUser);
  return data;
}

const DemoData& demoData() {
  static const DemoData data = loadDemoData(DataFiles(embeddedDataFiles()), isDemoUser);
  return data;
}

json fillTemplate(const json& value, const std::vector<std::pair<std::string, std::string>>& values) {
  if (value.is_string()) {
    return fillText(value.get_ref<const std::string&>(), values);
  }
  if (!value.is_structured()) {
    return value;
  }
  json filled = value;
  for (auto& element : filled) {
    element = fillTemplate(element, values);
  }
  return filled;
}

}  // namespace velora::sandbox::detail
