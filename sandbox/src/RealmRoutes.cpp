// The realm's endpoints: discovery, the login page, the token endpoint and logout. Browser
// pages are plain HTML that a person can use from a real browser during the demo.

#include <optional>

#include "Realm.hpp"

namespace velora::sandbox::detail {
namespace {

// What the login page needs to carry from the app's request to its answer.
struct LoginRequest {
  std::string clientId;
  std::string redirectUri;
  std::optional<std::string> state;  // sent back only when the app sent one
};

// The query's parameters, decoded. Not httplib's: it splits a pair at every '=', which cuts a
// redirect URI that carries its own query ("...?x=1") down to its last piece.
FormFields queryFields(const httplib::Request& req) { return parseForm(rawQuery(req)); }

std::optional<std::string> formValue(const FormFields& form, const char* name) {
  const auto it = form.find(name);
  return it == form.end() ? std::nullopt : std::optional(it->second);
}

void sendPage(httplib::Response& res, int status, const std::string& title,
              const std::string& bodyHtml) {
  res.status = status;
  res.set_header("Cache-Control", "no-store");
  // Sized for the small embedded login window of a phone as well as a desktop browser.
  res.set_content("<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\">\n"
                  "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
                  "<title>" + htmlEscape(title) + "</title>\n"
                  "<style>body{font-family:sans-serif;max-width:22em;margin:2em auto;padding:0 1em}"
                  "label,input{display:block;width:100%;box-sizing:border-box}"
                  "input{margin:.3em 0 1em;padding:.5em}#error{color:#b00020}</style>\n"
                  "</head>\n<body>\n" + bodyHtml + "</body></html>\n",
                  "text/html;charset=utf-8");
}

void sendErrorPage(httplib::Response& res, const std::string& message) {
  sendPage(res, 400, "We are sorry...",
           "<h1>We are sorry...</h1>\n<p id=\"error\">" + htmlEscape(message) + "</p>\n");
}

// Errors the page shows itself: until the client and its redirect URI check out, the realm
// must not send the browser anywhere the request names.
std::optional<std::string> loginRequestError(const LoginRequest& login) {
  if (login.clientId.empty()) {
    return "Missing parameter: client_id";
  }
  const DemoClient* client = findDemoClient(login.clientId);
  if (client == nullptr) {
    return "Client not found.";
  }
  if (!client->browserLogin) {
    return "Client is not allowed to initiate browser login.";
  }
  if (!acceptsRedirect(*client, login.redirectUri)) {
    return "Invalid parameter: redirect_uri";
  }
  return std::nullopt;
}

void sendLoginForm(httplib::Response& res, const Realm& realm, const LoginRequest& login,
                   const std::string& username, const std::string& error) {
  const auto hidden = [](const char* name, const std::string& value) {
    return "<input type=\"hidden\" name=\"" + std::string(name) + "\" value=\"" +
           htmlEscape(value) + "\">\n";
  };
  std::string html = "<h1>Sign in to " + htmlEscape(realm.name()) + "</h1>\n";
  if (!error.empty()) {
    html += "<p id=\"error\" role=\"alert\">" + htmlEscape(error) + "</p>\n";
  }
  // A path, not the issuer's URL: the browser may know the server by another host name.
  html += "<form id=\"login\" method=\"post\" action=\"/realms/" + htmlEscape(realm.name()) +
          "/login-actions/authenticate\">\n"
          "<label for=\"username\">Username</label>\n"
          "<input id=\"username\" name=\"username\" type=\"text\" autocomplete=\"username\" required "
          "autofocus value=\"" +
          htmlEscape(username) +
          "\">\n"
          "<label for=\"password\">Password</label>\n"
          "<input id=\"password\" name=\"password\" type=\"password\" "
          "autocomplete=\"current-password\" required>\n" +
          hidden("client_id", login.clientId) + hidden("redirect_uri", login.redirectUri);
  if (login.state) {
    html += hidden("state", *login.state);
  }
  html += "<input type=\"submit\" value=\"Sign In\">\n</form>\n";
  sendPage(res, 200, "Sign in to " + realm.name(), html);
}

// Apps take the code from the end of the URL, so it comes last.
void redirectWithCode(httplib::Response& res, Realm& realm, const LoginRequest& login,
                      const std::string& username) {
  const Authorization granted = realm.authorize(login.clientId, login.redirectUri, username);
  std::string location =
      login.redirectUri + (login.redirectUri.find('?') == std::string::npos ? "?" : "&");
  if (login.state) {
    location += "state=" + percentEncode(*login.state) + "&";
  }
  location += "session_state=" + granted.sessionState + "&code=" + granted.code;
  res.status = 302;
  res.set_header("Location", location);
}

LoginRequest loginRequest(const FormFields& fields) {
  return {formValue(fields, "client_id").value_or(""),
          formValue(fields, "redirect_uri").value_or(""), formValue(fields, "state")};
}

void authorizationPage(Exchange& x) {
  const httplib::Request& req = x.req;
  httplib::Response& res = x.res;
  Realm& realm = x.services.realm;
  const FormFields query = queryFields(req);
  const LoginRequest login = loginRequest(query);
  const std::optional<std::string> responseType = formValue(query, "response_type");
  std::optional<std::string> error = loginRequestError(login);
  if (!error && !responseType) {
    error = "Missing parameter: response_type";
  } else if (!error && *responseType != "code") {
    error = "Unsupported response_type";
  }
  if (error) {
    sendErrorPage(res, *error);
    return;
  }
  if (const auto user = realm.autoLoginUser()) {
    redirectWithCode(res, realm, login, *user);
    return;
  }
  sendLoginForm(res, realm, login, "", "");
}

void authenticate(Exchange& x) {
  const httplib::Request& req = x.req;
  httplib::Response& res = x.res;
  Realm& realm = x.services.realm;
  const FormFields form = formBody(req);
  const LoginRequest login = loginRequest(form);
  if (const auto error = loginRequestError(login)) {
    sendErrorPage(res, *error);
    return;
  }
  const std::string username = formValue(form, "username").value_or("");
  if (!checkDemoPassword(username, formValue(form, "password").value_or(""))) {
    sendLoginForm(res, realm, login, username, "Invalid username or password.");
    return;
  }
  redirectWithCode(res, realm, login, username);
}

void logout(Exchange& x) {
  const httplib::Request& req = x.req;
  httplib::Response& res = x.res;
  Realm& realm = x.services.realm;
  const FormFields query = queryFields(req);
  const std::string clientId = formValue(query, "client_id").value_or("");
  const std::optional<std::string> redirectUri = formValue(query, "post_logout_redirect_uri");
  if (clientId.empty()) {
    sendErrorPage(res, "Missing parameters: client_id");
    return;
  }
  const DemoClient* client = findDemoClient(clientId);
  if (client == nullptr) {
    sendErrorPage(res, "Client not found.");
    return;
  }
  if (redirectUri && !acceptsRedirect(*client, *redirectUri)) {
    sendErrorPage(res, "Invalid redirect uri");
    return;
  }
  // The SDK sends no id_token_hint to say which session ends, so every session of the client
  // does.
  realm.logout(clientId);
  if (redirectUri) {
    res.status = 302;
    res.set_header("Location", *redirectUri);
    return;
  }
  sendPage(res, 200, "Logging out", "<h1>You are logged out</h1>\n");
}

void discovery(Exchange& x) { sendJson(x.res, 200, discoveryDocument(x.services.realm.url())); }

void token(Exchange& x) {
  const TokenReply reply = x.services.realm.token(formBody(x.req));
  x.res.set_header("Cache-Control", "no-store");
  x.res.set_header("Pragma", "no-cache");
  sendJson(x.res, reply.status, reply.body);
}

// Anything else under /realms/: the realm's own 404 for another realm's name.
void otherRealmPath(Exchange& x) {
  if (x.match[1].str() != x.services.realm.name()) {
    sendJson(x.res, 404, {{"error", "Realm does not exist"}});
    return;
  }
  sendMessage(x.res, 404, "No route for " + x.req.method + " " + x.req.path);
}

// "{realm}" stands for the realm's name, escaped when the table is installed.
constexpr Route kRealmRoutes[] = {
    {"GET",  "/realms/{realm}/\\.well-known/openid-configuration", discovery},
    {"GET",  "/realms/{realm}/protocol/openid-connect/auth",        authorizationPage},
    {"POST", "/realms/{realm}/login-actions/authenticate",          authenticate},
    {"POST", "/realms/{realm}/protocol/openid-connect/token",       token},
    {"GET",  "/realms/{realm}/protocol/openid-connect/logout",      logout},
    {"",     "/realms/([^/]+)(/.*)?",                               otherRealmPath},
};

}  // namespace

RouteTable realmRoutes() { return kRealmRoutes; }

}  // namespace velora::sandbox::detail
