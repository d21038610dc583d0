// The languages the platform offers and the change of a user's language. The list is public (an
// application shows it before anyone logs in); a change needs a live token.

#include "SandboxInternal.hpp"

namespace velora::sandbox::detail {

using nlohmann::json;

namespace {

struct Language {
  const char* code;
  const char* name;
  bool isDefault;
};

constexpr Language kLanguages[] = {
    {"en", "English", true},
    {"de", "Deutsch", false},
    {"fr", "Français", false},
    {"it", "Italiano", false},
};

json record(const Language& language) {
  return {{"code", language.code}, {"name", language.name}, {"default", language.isDefault}};
}

void listLanguages(Exchange& x) {
  json list = json::array();
  for (const Language& language : kLanguages) list.push_back(record(language));
  sendJson(x.res, 200, list);
}

void setLanguage(Exchange& x) {
  if (!requireLiveToken(x)) return;
  if (!x.req.has_param("language") || x.req.get_param_value("language").empty()) {
    throw RequestError(400, "language is required");
  }
  const std::string code = x.req.get_param_value("language");
  for (const Language& language : kLanguages) {
    if (code == language.code) return sendJson(x.res, 200, record(language));
  }
  throw RequestError(404, "Unknown language " + code);
}

constexpr Route kLanguageRoutes[] = {
    {"GET",  "/public/api/v2/languages", listLanguages},
    {"POST", "/api/v2/setLanguage",      setLanguage},
};

}  // namespace

RouteTable languageRoutes() { return kLanguageRoutes; }

}  // namespace velora::sandbox::detail
