// The maintenance tickets and their routes. The managers, their forms and the seeded tickets come
// from tickets.json; the tickets filed and their files live only as long as the sandbox.

#include "Tickets.hpp"

#include <algorithm>
#include <chrono>
#include <climits>
#include <set>
#include <variant>
#include <vector>

#include "Multipart.hpp"
#include "Notifications.hpp"

namespace velora::sandbox::detail {

using nlohmann::json;

namespace {

// What each part of a ticket upload is and must be declared as.
const std::map<std::string, std::string>& partTypes() {
  static const std::map<std::string, std::string> kTypes = {
      {"image", "image/jpeg"}, {"sound", "audio/x-aac"}, {"form", "application/json"}};
  return kTypes;
}

double secondsSinceEpoch(std::chrono::system_clock::time_point when) {
  return std::chrono::duration<double>(when.time_since_epoch()).count();
}

const json& requiredMember(const json& object, const char* key, JsonKind kind, const std::string& where) {
  const json* value = optionalMember(object, key, kind, where + "." + key);
  if (value == nullptr) {
    throw RequestError(400, where + "." + key + " is required");
  }
  return *value;
}

// Field attribute -> the value posted for it; a select's is the id of its selected choice, or
// its "value" when none is selected. Fields without a value are left out.
std::map<std::string, std::string> postedValues(const json& posted) {
  if (posted.is_discarded()) {
    throw RequestError(400, "The form is not valid JSON");
  }
  if (!posted.is_array()) {
    throw RequestError(400, "The form must be a JSON array of FormTicket objects");
  }
  std::map<std::string, std::string> values;
  std::set<std::string> attributes;
  for (std::size_t i = 0; i < posted.size(); ++i) {
    const std::string where = "form[" + std::to_string(i) + "]";
    const json& field = posted[i];
    if (!field.is_object()) {
      throw RequestError(400, where + " must be a FormTicket object");
    }
    requiredMember(field, "formName", JsonKind::string, where);
    requiredMember(field, "formInputType", JsonKind::string, where);
    requiredMember(field, "mandatory", JsonKind::boolean, where);
    optionalMember(field, "formNameI18n", JsonKind::string, where + ".formNameI18n");
    const std::string attribute = requiredMember(field, "formAttribute", JsonKind::string, where).get<std::string>();
    if (!attributes.insert(attribute).second) {
      throw RequestError(400, where + " repeats the field " + attribute);
    }
    std::optional<std::string> chosen;
    if (const json* choices = optionalList(field, "values", JsonKind::object, where + ".values")) {
      for (std::size_t c = 0; c < choices->size(); ++c) {
        const std::string choiceWhere = where + ".values[" + std::to_string(c) + "]";
        const json& choice = (*choices)[c];
        const std::string id = requiredMember(choice, "selectValueId", JsonKind::string, choiceWhere).get<std::string>();
        requiredMember(choice, "name", JsonKind::string, choiceWhere);
        if (requiredMember(choice, "selected", JsonKind::boolean, choiceWhere).get<bool>()) {
          if (chosen) {
            throw RequestError(400, where + " (" + attribute + ") has more than one choice selected");
          }
          chosen = id;
        }
      }
    }
    if (!chosen) {
      if (const json* value = optionalMember(field, "value", JsonKind::string, where + ".value")) {
        chosen = value->get<std::string>();
      }
    }
    if (chosen && !chosen->empty()) {
      values.emplace(attribute, std::move(*chosen));
    }
  }
  return values;
}

// A field as clients see it: the external manager's members stay in the data.
json shown(json field) {
  if (const auto choices = field.find("values"); choices != field.end()) {
    for (json& choice : *choices) {
      choice.erase("managerInfo");
    }
  }
  return field;
}

std::optional<std::string> selectedChoice(const json& field) {
  for (const json& choice : field.value("values", json::array())) {
    if (choice["selected"] == true) {
      return choice["selectValueId"].get<std::string>();
    }
  }
  return std::nullopt;
}

json fillForm(const TicketForm& form, const std::map<std::string, std::string>& values) {
  json filled = json::array();
  const auto fill = [&](json field) {
    const auto given = values.find(field["formAttribute"].get<std::string>());
    if (given != values.end() && field["formInputType"] == "select") {
      bool known = false;
      for (json& choice : field["values"]) {
        choice["selected"] = choice["selectValueId"] == given->second;
        known = known || choice["selected"] == true;
      }
      if (!known) {
        throw RequestError(400, given->first + " has no choice \"" + given->second + "\"");
      }
    } else if (given != values.end()) {
      field["value"] = given->second;
    }
    filled.push_back(shown(std::move(field)));
  };
  for (const json& field : form.fields) {
    fill(field);
    if (field["formAttribute"] == form.decidedBy) {
      const auto chosen = values.find(form.decidedBy);
      const auto extra = chosen == values.end() ? form.extraFields.end() : form.extraFields.find(chosen->second);
      if (extra != form.extraFields.end()) {
        for (const json& added : extra->second) {
          fill(added);
        }
      }
    }
  }
  return filled;
}

json* fieldOf(json& form, const char* key, const std::string& value) {
  const auto it = std::find_if(form.begin(), form.end(), [&](const json& field) { return field[key] == value; });
  return it == form.end() ? nullptr : &*it;
}

std::string valueOf(json& form, const char* key, const std::string& value) {
  const json* field = fieldOf(form, key, value);
  return field == nullptr ? std::string() : field->value("value", "");
}

void requireMandatory(const json& form) {
  for (const json& field : form) {
    const bool filled = field["formInputType"] == "select" ? selectedChoice(field).has_value()
                                                           : !field.value("value", "").empty();
    if (field["mandatory"] == true && !filled) {
      throw RequestError(400, field["formAttribute"].get<std::string>() + " (" + field["formName"].get<std::string>() +
                                  ") is mandatory");
    }
  }
}

// The requester of `user`, then what the data says about each choice made in the form.
json managerInfo(const TicketForm& form, json& filled, const std::string& user) {
  json info = form.requesters.contains(user) ? form.requesters.at(user) : json::object();
  const auto merge = [&](const json& field) {
    const json* chosenField = fieldOf(filled, "formAttribute", field["formAttribute"].get<std::string>());
    const auto chosen = chosenField == nullptr ? std::nullopt : selectedChoice(*chosenField);
    for (const json& choice : field.value("values", json::array())) {
      if (chosen && choice["selectValueId"] == *chosen && choice.contains("managerInfo")) {
        info.update(choice["managerInfo"]);
      }
    }
  };
  for (const json& field : form.fields) {
    merge(field);
  }
  for (const auto& [choice, fields] : form.extraFields) {
    for (const json& field : fields) {
      merge(field);
    }
  }
  return info;
}

// The image or sound field shows where the stored file is served; a value the app posted for it
// (a path on the phone) says nothing here.
void attach(json& form, const std::string& manager, const std::string& id, const char* kind,
            const std::optional<std::string>& bytes) {
  json* field = fieldOf(form, "formInputType", kind);
  if (field == nullptr) {
    if (bytes) {
      throw RequestError(400, "The " + manager + " form takes no " + kind);
    }
    return;
  }
  if (bytes) {
    (*field)["value"] = "/api/ticket/" + id + "/" + kind;
  } else {
    field->erase("value");
  }
}

}  // namespace

Tickets::Tickets(const DemoData& data) : data_(data) {
  const auto now = std::chrono::system_clock::now();
  const std::lock_guard lock(mutex_);
  for (const SeededTicket& seed : data_.tickets.seeds) {
    try {
      store(seed.id, seed.user, seed.manager, seed.values, {}, seed.status,
            secondsSinceEpoch(now - std::chrono::minutes(seed.minutesAgo)),
            secondsSinceEpoch(now - std::chrono::minutes(seed.updatedMinutesAgo)));
    } catch (const RequestError& e) {
      throw std::runtime_error("velora-sandbox: demo data tickets.json: ticket " + seed.id + ": " + e.what());
    }
  }
}

const TicketForm& Tickets::formOf(const std::string& manager) const {
  const auto it = data_.tickets.forms.find(manager);
  if (it == data_.tickets.forms.end()) {
    throw RequestError(404, "No ticket manager " + manager);
  }
  return it->second;
}

json Tickets::blankForm(const std::string& manager) const { return fillForm(formOf(manager), {}); }

json Tickets::recompute(const std::string& manager, const json& posted) const {
  const TicketForm& form = formOf(manager);
  return fillForm(form, postedValues(posted));
}

std::string Tickets::newId() {
  // Monotonic, and past the seeds' ids, so that a deleted ticket's id never comes back.
  const auto seeded = [this](const std::string& id) {
    return std::any_of(data_.tickets.seeds.begin(), data_.tickets.seeds.end(),
                       [&id](const SeededTicket& seed) { return seed.id == id; });
  };
  std::string id;
  do {
    id = "t-" + std::to_string(nextNumber_++);
  } while (tickets_.contains(id) || seeded(id));
  return id;
}

Tickets::Filed Tickets::store(const std::string& id, const std::string& user, const std::string& manager,
                              const Values& values, TicketFiles files, const std::string& status, double created,
                              double updated) {
  const TicketForm& form = formOf(manager);
  json filled = fillForm(form, values);
  attach(filled, manager, id, "image", files.image);
  attach(filled, manager, id, "sound", files.sound);
  requireMandatory(filled);
  json ticket = {{"ticketId", id},
                 {"description", valueOf(filled, "formAttribute", "description")},
                 {"creationTimestamp", created},
                 {"lastUpdateTimestamp", updated},
                 {"manager", manager},
                 {"status", status}};
  if (const std::string resourceId = valueOf(filled, "formInputType", "resource"); !resourceId.empty()) {
    ticket["resourceId"] = resourceId;
    for (const json& resource : data_.booking.resources) {
      if (resource["id"] == resourceId && resource.contains("position")) {
        ticket["position"] = resource["position"];
      }
    }
  }
  if (form.external) {
    ticket["integrationId"] = form.integrationIdPrefix + id;
    ticket["managerInfo"] = managerInfo(form, filled, user);
  }
  for (const char* kind : {"image", "sound"}) {
    if (const std::string path = valueOf(filled, "formInputType", kind); !path.empty()) {
      ticket[kind] = path;
    }
  }
  tickets_[id] = Stored{user, ticket, filled, std::move(files), ++sequence_};
  return {std::move(ticket), std::move(filled)};
}

Tickets::Filed Tickets::submit(const std::string& user, const std::string& manager, const json& posted,
                               TicketFiles files) {
  formOf(manager);
  const Values values = postedValues(posted);
  const double now = secondsSinceEpoch(std::chrono::system_clock::now());
  const std::lock_guard lock(mutex_);
  return store(newId(), user, manager, values, std::move(files), "OPEN", now, now);
}

json Tickets::list(const std::optional<std::string>& user) const {
  std::vector<const Stored*> found;
  const std::lock_guard lock(mutex_);
  for (const auto& [id, stored] : tickets_) {
    if (!user || stored.user == *user) {
      found.push_back(&stored);
    }
  }
  std::sort(found.begin(), found.end(), [](const Stored* a, const Stored* b) {
    const double ta = a->ticket["creationTimestamp"].get<double>();
    const double tb = b->ticket["creationTimestamp"].get<double>();
    return ta != tb ? ta > tb : a->sequence > b->sequence;
  });
  json tickets = json::array();
  for (const Stored* stored : found) {
    tickets.push_back(stored->ticket);
  }
  return tickets;
}

json Tickets::find(const std::string& id) const {
  const std::lock_guard lock(mutex_);
  const auto it = tickets_.find(id);
  if (it == tickets_.end()) {
    throw RequestError(404, "No ticket " + id);
  }
  return it->second.ticket;
}

json Tickets::remove(const std::string& id, const std::string& user) {
  const std::lock_guard lock(mutex_);
  const auto it = tickets_.find(id);
  if (it == tickets_.end()) {
    throw RequestError(404, "No ticket " + id);
  }
  if (it->second.user != user) {
    throw RequestError(403, "Ticket " + id + " is not yours to delete");
  }
  json ticket = std::move(it->second.ticket);
  tickets_.erase(it);
  return ticket;
}

json Tickets::filedForm(const std::string& manager, const std::string& id, const std::string& user) const {
  const std::lock_guard lock(mutex_);
  const auto it = tickets_.find(id);
  // Someone else's ticket reads as unknown, as its form holds what they wrote.
  if (it == tickets_.end() || it->second.user != user || it->second.ticket["manager"] != manager) {
    throw RequestError(404, "No ticket " + id + " of yours filed with " + manager);
  }
  return it->second.form;
}

std::string Tickets::attachment(const std::string& id, const std::string& kind) const {
  const std::lock_guard lock(mutex_);
  const auto it = tickets_.find(id);
  if (it == tickets_.end()) {
    throw RequestError(404, "No ticket " + id);
  }
  const auto& bytes = kind == "image" ? it->second.files.image : it->second.files.sound;
  if (!bytes) {
    throw RequestError(404, "Ticket " + id + " has no " + kind);
  }
  return *bytes;
}

namespace {

Tickets& service(const Exchange& x) { return x.services.tickets; }

void managerTypes(Exchange& x) { sendJson(x.res, 200, x.services.data.tickets.managerTypes); }

void blankForm(Exchange& x) { sendJson(x.res, 200, service(x).blankForm(x.match[1].str())); }

void filedForm(Exchange& x) {
  sendJson(x.res, 200, service(x).filedForm(x.match[1].str(), x.match[2].str(), requestUser(x)));
}

void recomputeForm(Exchange& x) {
  sendJson(x.res, 200, service(x).recompute(x.match[1].str(), json::parse(x.req.body, nullptr, false)));
}

// The parts: the form as JSON (required; empty means an empty form), the photo and the voice note.
void saveTicket(Exchange& x) {
  const std::string manager = x.match[1].str();
  service(x).formOf(manager);
  const auto boundary = multipartBoundary(x.req.get_header_value("Content-Type"));
  if (!boundary) {
    throw RequestError(400, "Content-Type must be multipart/form-data with a boundary");
  }
  long long declared = 0;
  if (x.req.has_header("Content-Length") && !x.req.has_header("Content-Encoding") &&
      (!parseInt(x.req.get_header_value("Content-Length"), 0, LLONG_MAX, declared) ||
       static_cast<std::size_t>(declared) != x.req.body.size())) {
    throw RequestError(400, "Content-Length does not match the body's " + std::to_string(x.req.body.size()) + " bytes");
  }
  const MultipartResult read = readMultipart(x.req.body, *boundary);
  if (const auto* error = std::get_if<std::string>(&read)) {
    throw RequestError(400, "Malformed multipart body: " + *error);
  }
  TicketFiles files;
  std::optional<std::string_view> form;
  std::set<std::string> seen;
  for (const MultipartEntry& part : std::get<std::vector<MultipartEntry>>(read)) {
    const auto type = partTypes().find(part.name);
    if (type == partTypes().end()) {
      throw RequestError(400, "Unknown part \"" + part.name + "\": the parts are image, sound and form");
    }
    if (!seen.insert(part.name).second) {
      throw RequestError(400, "The part " + part.name + " is given twice");
    }
    if (part.mediaType != type->second) {
      throw RequestError(400, "The part " + part.name + " must be " + type->second + ", not " +
                                  (part.mediaType.empty() ? "undeclared" : part.mediaType));
    }
    if (part.name == "image") {
      files.image.emplace(part.content);
    } else if (part.name == "sound") {
      files.sound.emplace(part.content);
    } else {
      form = part.content;
    }
  }
  if (!form) {
    throw RequestError(400, "The part form is missing");
  }
  const json posted = form->empty() ? json::array() : json::parse(*form, nullptr, false);
  const std::string user = requestUser(x);
  const Tickets::Filed filed = service(x).submit(user, manager, posted, std::move(files));
  x.services.notifications.post(user, "GENERIC_NOTIFICATION", "Ticket " + filed.ticket["ticketId"].get<std::string>() + " filed",
                                filed.ticket["description"].get<std::string>());
  sendJson(x.res, 200, filed.form);
}

void listTickets(Exchange& x) { sendJson(x.res, 200, service(x).list(std::nullopt)); }
void myTickets(Exchange& x) { sendJson(x.res, 200, service(x).list(requestUser(x))); }
void getTicket(Exchange& x) { sendJson(x.res, 200, service(x).find(x.match[1].str())); }
void deleteTicket(Exchange& x) { sendJson(x.res, 200, service(x).remove(x.match[1].str(), requestUser(x))); }

void ticketFile(Exchange& x, const char* kind) {
  x.res.status = 200;
  x.res.set_content(service(x).attachment(x.match[1].str(), kind), partTypes().at(kind));
}
void ticketImage(Exchange& x) { ticketFile(x, "image"); }
void ticketSound(Exchange& x) { ticketFile(x, "sound"); }

constexpr Route kTicketRoutes[] = {
    {"GET",    "/api/ticket/manager/types",        managerTypes},
    {"GET",    "/api/ticket/form/([^/]+)",          blankForm},
    {"GET",    "/api/ticket/form/([^/]+)/([^/]+)",  filedForm},
    {"POST",   "/api/ticket/form/([^/]+)",          recomputeForm},
    {"POST",   "/api/ticket/save/([^/]+)",          saveTicket},
    {"GET",    "/api/ticket",                       listTickets},
    {"GET",    "/api/ticket/my",                    myTickets},
    {"GET",    "/api/ticket/([^/]+)/image",         ticketImage},
    {"GET",    "/api/ticket/([^/]+)/sound",         ticketSound},
    {"GET",    "/api/ticket/([^/]+)",               getTicket},
    {"DELETE", "/api/ticket/([^/]+)",               deleteTicket},
};

}  // namespace

RouteTable ticketRoutes() { return kTicketRoutes; }

}  // namespace velora::sandbox::detail
