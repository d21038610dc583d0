// The notification service and the do-not-disturb settings, with their routes. The seeded
// inboxes and the do-not-disturb forms come from notifications.json; everything a client changes
// lives only as long as the sandbox.

#include "Notifications.hpp"

#include <algorithm>
#include <chrono>
#include <ctime>

namespace velora::sandbox::detail {

using nlohmann::json;

namespace {

/// "yyyy-MM-ddTHH:mm:ssZ", the platform's way of writing a moment.
std::string isoText(std::chrono::system_clock::time_point when) {
  const std::time_t t = std::chrono::system_clock::to_time_t(when);
  std::tm utc{};
  gmtime_r(&t, &utc);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
  return text;
}

void checkType(const std::string& type) {
  if (type != "POOL_NOTIFICATION" && type != "GENERIC_NOTIFICATION") {
    throw RequestError(400, "type must be POOL_NOTIFICATION or GENERIC_NOTIFICATION, not \"" + type + "\"");
  }
}

std::string requiredText(const json& object, const char* key) {
  const json* value = optionalMember(object, key, JsonKind::string, key);
  if (value == nullptr || value->get_ref<const std::string&>().empty()) {
    throw RequestError(400, std::string(key) + " is required");
  }
  return value->get<std::string>();
}

}  // namespace

Notifications::Notifications(const DemoData& data) : data_(data) {}

json Notifications::registerDevice(const std::string& user, const json& request) {
  const std::string token = requiredText(request, "pushToken");
  for (const char* key : {"projectId", "appId", "uuid", "platform"}) {
    requiredText(request, key);
  }
  const std::lock_guard lock(mutex_);
  Device& device = devices_[token];
  if (device.user != user) {
    device = Device{user, {}};
    const auto now = std::chrono::system_clock::now();
    std::vector<const SeededNotification*> seeds;
    for (const SeededNotification& seed : data_.notifications.seeds) {
      if (seed.user == user) {
        seeds.push_back(&seed);
      }
    }
    std::stable_sort(seeds.begin(), seeds.end(), [](auto a, auto b) { return a->minutesAgo < b->minutesAgo; });
    for (const SeededNotification* seed : seeds) {
      json notification = seed->notification;
      notification["creationDate"] = notification["lastModificationDate"] =
          isoText(now - std::chrono::minutes(seed->minutesAgo));
      device.inbox.push_back(std::move(notification));
    }
  }
  return {{"username", user}, {"pushToken", token}, {"uuid", request["uuid"]}, {"platform", request["platform"]}};
}

template <class Self>
auto& Notifications::owned(Self& self, const std::string& user, const std::string& token) {
  const auto it = self.devices_.find(token);
  // Someone else's token reads as unknown: the answer tells nothing about other users' devices.
  if (it == self.devices_.end() || it->second.user != user) {
    throw RequestError(404, "No device registered with push token " + token);
  }
  return it->second;
}

json Notifications::counts(const Device& device, const std::string& type) {
  int toRead = 0, read = 0;
  for (const json& notification : device.inbox) {
    if (notification["type"] == type) {
      toRead += notification["status"] == "SENT";
      read += notification["status"] == "READ";
    }
  }
  return {{"toRead", toRead}, {"read", read}};
}

json Notifications::list(const std::string& user, const std::string& token, const std::string& type,
                         const std::set<std::string>& statuses) const {
  checkType(type);
  const std::lock_guard lock(mutex_);
  json found = json::array();
  for (const json& notification : owned(*this, user, token).inbox) {
    const std::string& status = notification["status"].get_ref<const std::string&>();
    if (notification["type"] == type && (statuses.empty() ? status != "DELETED" : statuses.contains(status))) {
      found.push_back(notification);
    }
  }
  return found;
}

json Notifications::count(const std::string& user, const std::string& token, const std::string& type) const {
  checkType(type);
  const std::lock_guard lock(mutex_);
  return counts(owned(*this, user, token), type);
}

json Notifications::update(const std::string& user, const std::string& token, const std::string& type,
                           const std::optional<std::vector<std::string>>& ids, const std::string& status) {
  checkType(type);
  const std::lock_guard lock(mutex_);
  Device& device = owned(*this, user, token);
  std::vector<json*> chosen;
  for (json& notification : device.inbox) {
    if (notification["type"] != type || notification["status"] == "DELETED") {
      continue;
    }
    if (!ids || std::find(ids->begin(), ids->end(), notification["id"]) != ids->end()) {
      chosen.push_back(&notification);
    }
  }
  if (ids) {
    for (const std::string& id : *ids) {
      if (std::none_of(chosen.begin(), chosen.end(), [&id](const json* n) { return (*n)["id"] == id; })) {
        throw RequestError(404, "No notification " + id + " of type " + type);
      }
    }
  }
  const std::string now = isoText(std::chrono::system_clock::now());
  json changed = json::array();
  for (json* notification : chosen) {
    if ((*notification)["status"] != status) {
      (*notification)["status"] = status;
      (*notification)["lastModificationDate"] = now;
      changed.push_back(*notification);
    }
  }
  return {{"notifications", std::move(changed)}, {"count", counts(device, type)}};
}

void Notifications::post(const std::string& user, const std::string& type, const std::string& title,
                         const std::string& body) {
  checkType(type);
  const std::lock_guard lock(mutex_);
  // Seeded ids are "n-" and a number as well; a posted one skips those.
  std::string id;
  do {
    id = "n-" + std::to_string(data_.notifications.seeds.size() + static_cast<std::size_t>(++posted_));
  } while (std::any_of(data_.notifications.seeds.begin(), data_.notifications.seeds.end(),
                       [&id](const SeededNotification& seed) { return seed.notification["id"] == id; }));
  const std::string now = isoText(std::chrono::system_clock::now());
  const json notification = {{"id", id},
                             {"type", type},
                             {"status", "SENT"},
                             {"message", {{"title", title}, {"body", body}}},
                             {"creationDate", now},
                             {"lastModificationDate", now}};
  for (auto& [token, device] : devices_) {
    if (device.user == user) {
      device.inbox.insert(device.inbox.begin(), notification);
    }
  }
}

std::map<std::string, json> Notifications::dndValues(const std::string& resourceId) const {
  const std::lock_guard lock(mutex_);
  const auto it = dnd_.find(resourceId);
  return it == dnd_.end() ? std::map<std::string, json>{} : it->second;
}

void Notifications::setDnd(const std::string& resourceId, const json& elements) {
  std::map<std::string, json> values;
  for (const json& element : elements) {
    if (const auto value = element.find("value"); value != element.end() && !value->is_null()) {
      values[element["id"].get<std::string>()] = *value;
    }
  }
  const std::lock_guard lock(mutex_);
  dnd_[resourceId] = std::move(values);
}

namespace {

Notifications& service(const Exchange& x) { return x.services.notifications; }

std::string requiredQuery(const Exchange& x, const char* key) {
  const std::string value = x.req.has_param(key) ? x.req.get_param_value(key) : std::string();
  if (value.empty()) {
    throw RequestError(400, std::string(key) + " is required");
  }
  return value;
}

void registerDevice(Exchange& x) {
  sendJson(x.res, 200, service(x).registerDevice(requestUser(x), parseObjectBody(x.req.body)));
}

void listNotifications(Exchange& x) {
  std::set<std::string> statuses;
  for (std::size_t i = 0; i < x.req.get_param_value_count("status"); ++i) {
    const std::string status = x.req.get_param_value("status", i);
    if (status != "SENT" && status != "READ" && status != "DELETED") {
      throw RequestError(400, "status must be SENT, READ or DELETED, not \"" + status + "\"");
    }
    statuses.insert(status);
  }
  sendJson(x.res, 200,
           service(x).list(requestUser(x), requiredQuery(x, "pushToken"), requiredQuery(x, "type"), statuses));
}

void countNotifications(Exchange& x) {
  sendJson(x.res, 200, service(x).count(requestUser(x), requiredQuery(x, "pushToken"), requiredQuery(x, "type")));
}

void updateNotifications(Exchange& x, const std::string& status) {
  const json body = parseObjectBody(x.req.body);
  std::optional<std::vector<std::string>> ids;
  if (const json* list = optionalList(body, "notificationIds", JsonKind::string, "notificationIds")) {
    ids = list->get<std::vector<std::string>>();
  }
  sendJson(x.res, 200, service(x).update(requestUser(x), requiredText(body, "pushToken"), requiredQuery(x, "type"), ids, status));
}

void readNotifications(Exchange& x) { updateNotifications(x, "READ"); }
void deleteNotifications(Exchange& x) { updateNotifications(x, "DELETED"); }

// The user's own do-not-disturb resource is named after them, as the home screen's widget says.
void dndForm(Exchange& x) {
  json form = x.services.data.notifications.dndForms.at(x.match[1].str());
  const auto values = service(x).dndValues(requestUser(x));
  for (json& element : form) {
    if (const auto value = values.find(element["id"].get<std::string>()); value != values.end()) {
      element["value"] = value->second;
    }
  }
  sendJson(x.res, 200, form);
}

void setDnd(Exchange& x) {
  const json body = parseObjectBody(x.req.body);
  const std::string resourceId = requiredText(body, "resourceId");
  const json* elements = optionalList(body, "datetime", JsonKind::object, "datetime");
  if (elements == nullptr) {
    throw RequestError(400, "datetime is required");
  }
  for (const json& element : *elements) {
    requiredText(element, "id");
  }
  if (resourceId != requestUser(x)) {
    throw RequestError(403, "The do-not-disturb periods of " + resourceId + " are not yours to set");
  }
  service(x).setDnd(resourceId, *elements);
  sendMessage(x.res, 200, "Do not disturb set for " + resourceId);
}

constexpr Route kNotificationRoutes[] = {
    {"POST", "/api/ntfm/v1/device/register",              registerDevice},
    {"GET",  "/api/ntfm/v1/notification/list",            listNotifications},
    {"GET",  "/api/ntfm/v1/notification/count",           countNotifications},
    {"POST", "/api/ntfm/v1/notification/read",            readNotifications},
    {"POST", "/api/ntfm/v1/notification/delete",          deleteNotifications},
    {"GET",  "/api/v2/dnd/ooo/(day/time(?:/interval)?)",  dndForm},
    {"POST", "/api/v2/dnd/ooo/set",                       setDnd},
};

}  // namespace

RouteTable notificationRoutes() { return kNotificationRoutes; }

}  // namespace velora::sandbox::detail
