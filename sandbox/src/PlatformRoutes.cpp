// The slice of the platform's API that the SDK talks to.

#include <cstdio>

#include "SandboxInternal.hpp"

namespace velora::sandbox::detail {
namespace {

using nlohmann::json;

// Any non-empty token is accepted: the sandbox checks that the client sends one, not who it is.
bool hasBearerToken(const httplib::Request& req) {
  const std::string value = req.get_header_value("Authorization");
  constexpr std::size_t kSchemeLength = 7;  // "Bearer ", whose case does not matter
  return lowerCase(value.substr(0, kSchemeLength)) == "bearer " &&
         value.find_first_not_of(" \t", kSchemeLength) != std::string::npos;
}

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

void deviceConfiguration(const httplib::Request& req, httplib::Response& res) {
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
  sendJson(res, 200,
           {{"appId", body["appId"]},
            {"uuid", uuid},
            {"iosadvConf",
             {{"tagid", tagId},
              {"byte1", tagHash & 0xff},
              {"byte2", (tagHash >> 8) & 0xff},
              {"tON", 0.1},
              {"tOFF", 0.9}}}});
}

}  // namespace

void addPlatformRoutes(Router& router) {
  router.add("GET", "/api/v1/public/diagnostic/check",
             [](const httplib::Request&, httplib::Response& res, const std::smatch&) {
               sendMessage(res, 200, "Velora sandbox is up");
             });
  router.add("POST", "/api/v1/device/ios/conf",
             [](const httplib::Request& req, httplib::Response& res, const std::smatch&) {
               deviceConfiguration(req, res);
             });
  router.add("GET", "/api/v1/public/image/([^/]+)",
             [](const httplib::Request&, httplib::Response& res, const std::smatch& m) {
               serveImage(res, m[1].str());
             });
  router.add("GET", "/api/v1/image/([^/]+)",
             [](const httplib::Request& req, httplib::Response& res, const std::smatch& m) {
               if (!hasBearerToken(req)) {
                 sendMessage(res, 401, "Unauthorized");
                 return;
               }
               serveImage(res, m[1].str());
             });
}

}  // namespace velora::sandbox::detail
