// The slice of the platform's API that the SDK talks to.

#include <cstdio>

#include "DemoData.hpp"
#include "Realm.hpp"

namespace velora::sandbox::detail {
namespace {

using nlohmann::json;

constexpr std::string_view kPublicPrefix = "/api/v1/public/";

void serveImage(httplib::Response& res, const std::string& name) {
  const DemoImage* image = findDemoImage(name);
  if (image == nullptr) {
    sendMessage(res, 404, "No image named " + name);
    return;
  }
  res.status = 200;
  res.set_content(image->bytes.data(), image->bytes.size(), std::string(image->contentType));
}

// A device without a configured tag still gets a stable one, so repeated runs of the demo see
// the same advertising parameters for the same device.
std::string tagIdFor(const std::string& uuid) {
  char text[13];
  std::snprintf(text, sizeof text, "%012llx",
                static_cast<unsigned long long>(fnv1a64(uuid) & 0xffffffffffffULL));
  return text;
}

void deviceConfiguration(Exchange& x) {
  const httplib::Request& req = x.req;
  httplib::Response& res = x.res;
  const json body = json::parse(req.body, nullptr, /*allow_exceptions=*/false);
  if (body.is_discarded()) {
    sendMessage(res, 400, "Request body is not valid JSON");
    return;
  }
  if (!body.is_object()) {
    sendMessage(res, 400, "Request body must be a JSON object");
    return;
  }
  for (const char* field : {"appId", "uuid"}) {
    const auto it = body.find(field);
    if (it == body.end() || !it->is_string() || it->get_ref<const std::string&>().empty()) {
      sendMessage(res, 400, std::string(field) + " is required and must be a non-empty string");
      return;
    }
  }
  const auto tagField = body.find("tagid");
  if (tagField != body.end() && !tagField->is_null() && !tagField->is_string()) {
    sendMessage(res, 400, "tagid must be a string");
    return;
  }
  const auto& uuid = body["uuid"].get_ref<const std::string&>();
  const std::string tagId = (tagField != body.end() && tagField->is_string())
                                ? tagField->get<std::string>()
                                : tagIdFor(uuid);
  const std::uint64_t tagHash = fnv1a64(tagId);
  nlohmann::json advertising = {{"tagid", tagId}, {"byte1", tagHash & 0xff}, {"byte2", (tagHash >> 8) & 0xff}, {"tON", 0.1}, {"tOFF", 0.9}};
  // Tags installed for third-party sensors advertise the sensors' identity instead of their own.
  if (tagId.rfind("enlighted", 0) == 0) {
    advertising["enlightedConfig"] = {{"uuid", "5A4BCFCE-174E-4BAC-A814-092E77F6B7E5"}, {"major", 100}, {"minor", 7}, {"measuredPower", -62}};
  }
  sendJson(res, 200, {{"appId", body["appId"]}, {"uuid", uuid}, {"iosadvConf", std::move(advertising)}});
}

// QR codes that hand out a user's background-login credentials. An expiration of -1 never
// expires; 0 lies in the past, which lets the demo show what an app does with stale ones.
void scanLoginCode(Exchange& x) {
  const std::string code = x.req.get_param_value("code");
  for (const auto& entry : x.services.data.loginCodes) {
    if (entry.code == code) {
      sendJson(x.res, 200,
               {{"username", entry.username},
                {"password", std::string(demoPassword(entry.username))},
                {"expiration", entry.expiration}});
      return;
    }
  }
  sendMessage(x.res, 404, "Unknown login code");
}

void diagnosticCheck(Exchange& x) { sendMessage(x.res, 200, "Velora sandbox is up"); }

void image(Exchange& x) { serveImage(x.res, x.match[1].str()); }

void listItems(Exchange& x) {
  const json body = parseObjectBody(x.req.body);
  const json* filter = optionalMember(body, "filter", JsonKind::object, "filter");
  sendJson(x.res, 200, x.services.equipment.list(filter ? parseItemFilter(*filter, "filter.") : ItemFilter{}));
}

void setItem(Exchange& x) {
  const json body = parseObjectBody(x.req.body);
  const json* id = optionalMember(body, "id", JsonKind::integer, "id");
  if (id == nullptr) {
    throw RequestError(400, "id is required");
  }
  const json* value = optionalMember(body, "value", JsonKind::string, "value");
  StreamHub& hub = x.services.hub;
  const ValueChange change =
      x.services.equipment.set(id->get<int>(), value ? std::optional(value->get<std::string>()) : std::nullopt,
                               [&hub](const ValueChange& c) { hub.publish(c); });
  json stored = {{"id", change.valueId}};
  if (change.value) {
    stored["value"] = *change.value;
  }
  sendJson(x.res, 200, stored);
}

constexpr Route kPlatformRoutes[] = {
    {"GET",  "/api/v1/public/diagnostic/check", diagnosticCheck},
    {"POST", "/api/v1/device/ios/conf",         deviceConfiguration},
    {"GET",  "/api/v1/public/image/([^/]+)",    image},
    {"GET",  "/api/v1/image/([^/]+)",           image},
    {"GET",  "/api/lgnm/v1/scan",               scanLoginCode},
    {"POST", "/api/v1/item/list",               listItems},
    {"POST", "/api/v1/item/set",                setItem},
};

}  // namespace

// Like the platform's gateway, every route outside the public prefix checks the caller's token
// before anything else, so a route added later is guarded unless it is deliberately public.
bool requireLiveToken(Exchange& x) {
  if (x.req.path.starts_with(kPublicPrefix) || x.services.realm.isLiveAccessToken(bearerToken(x.req))) {
    return true;
  }
  sendMessage(x.res, 401, kUnauthorizedMessage);
  return false;
}

std::string bearerToken(const httplib::Request& req) {
  const std::string value = req.get_header_value("Authorization");
  constexpr std::size_t kSchemeLength = 7;  // "Bearer "
  if (lowerCase(value.substr(0, kSchemeLength)) != "bearer ") {
    return {};
  }
  const auto begin = value.find_first_not_of(" \t", kSchemeLength);
  if (begin == std::string::npos) {
    return {};
  }
  return value.substr(begin, value.find_last_not_of(" \t") + 1 - begin);
}

// The token may have expired since the guard let the request in; it then gets the same 401.
std::string requestUser(const Exchange& x) {
  auto user = x.services.realm.accessTokenUser(bearerToken(x.req));
  if (!user) {
    throw RequestError(401, kUnauthorizedMessage);
  }
  return std::move(*user);
}

RouteTable platformRoutes() { return kPlatformRoutes; }

}  // namespace velora::sandbox::detail
