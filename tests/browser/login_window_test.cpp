// The CUSTOM login window on WebKitGTK against the sandbox's realm, driven the way a person would:
// the test finds the window and its dialogs among GTK's toplevels, fills in the page's form by
// script and presses the dialogs' buttons.

#include <gtest/gtest.h>
#include <gtk/gtk.h>
#include <webkit2/webkit2.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <exception>
#include <type_traits>

#include <velora/platform/WebKitAuthentication.hpp>
#include <velora/platform/WebKitWebView.hpp>

#include "BrowserSupport.hpp"
#include "integration/OverHttp.hpp"

namespace velora {
namespace {

namespace demo = sandbox::demo;

constexpr auto kPatience = std::chrono::seconds(30);

using testing::percentEncode;

// ---- finding and driving widgets -------------------------------------------------------------

void collect(GtkWidget* widget, gpointer found) {
  static_cast<std::vector<GtkWidget*>*>(found)->push_back(widget);
  // forall, not foreach: a dialog's buttons and a window's title bar are internal children.
  if (GTK_IS_CONTAINER(widget)) gtk_container_forall(GTK_CONTAINER(widget), collect, found);
}

std::vector<GtkWidget*> widgetsIn(GtkWidget* root) {
  std::vector<GtkWidget*> found;
  collect(root, &found);
  return found;
}

std::vector<GtkWidget*> shownWindows() {
  std::vector<GtkWidget*> windows;
  GList* toplevels = gtk_window_list_toplevels();
  for (GList* item = toplevels; item; item = item->next) {
    if (gtk_widget_get_visible(GTK_WIDGET(item->data))) windows.push_back(GTK_WIDGET(item->data));
  }
  g_list_free(toplevels);
  return windows;
}

/// The shown window whose title is `title` (dialogs), or null.
GtkWidget* windowTitled(const std::string& title) {
  for (GtkWidget* window : shownWindows()) {
    const char* text = gtk_window_get_title(GTK_WINDOW(window));
    if (text && text == title) return window;
  }
  return nullptr;
}

/// The web view of the shown login window, or null.
WebKitWebView* loginView() {
  for (GtkWidget* window : shownWindows()) {
    for (GtkWidget* widget : widgetsIn(window)) {
      if (WEBKIT_IS_WEB_VIEW(widget)) return WEBKIT_WEB_VIEW(widget);
    }
  }
  return nullptr;
}

GtkWidget* loginWindow() {
  WebKitWebView* view = loginView();
  return view ? gtk_widget_get_toplevel(GTK_WIDGET(view)) : nullptr;
}

std::vector<std::string> buttonLabels(GtkWidget* root) {
  std::vector<std::string> labels;
  for (GtkWidget* widget : widgetsIn(root)) {
    if (GTK_IS_BUTTON(widget) && gtk_widget_get_visible(widget) && gtk_button_get_label(GTK_BUTTON(widget))) {
      labels.emplace_back(gtk_button_get_label(GTK_BUTTON(widget)));
    }
  }
  return labels;
}

void press(GtkWidget* root, const std::string& label) {
  for (GtkWidget* widget : widgetsIn(root)) {
    if (GTK_IS_BUTTON(widget) && gtk_button_get_label(GTK_BUTTON(widget)) && label == gtk_button_get_label(GTK_BUTTON(widget))) {
      return gtk_button_clicked(GTK_BUTTON(widget));
    }
  }
  ADD_FAILURE() << "no button " << label;
}

GtkEntry* entryWithPlaceholder(GtkWidget* root, const std::string& placeholder) {
  for (GtkWidget* widget : widgetsIn(root)) {
    if (GTK_IS_ENTRY(widget)) {
      const char* text = gtk_entry_get_placeholder_text(GTK_ENTRY(widget));
      if (text && text == placeholder) return GTK_ENTRY(widget);
    }
  }
  return nullptr;
}

std::vector<std::string> labelTexts(GtkWidget* root) {
  std::vector<std::string> texts;
  for (GtkWidget* widget : widgetsIn(root)) {
    if (GTK_IS_LABEL(widget) && gtk_widget_get_visible(widget)) texts.emplace_back(gtk_label_get_text(GTK_LABEL(widget)));
  }
  return texts;
}

bool contains(const std::vector<std::string>& texts, const std::string& text) {
  return std::find(texts.begin(), texts.end(), text) != texts.end();
}

// ---- the fixture -------------------------------------------------------------------------------

// What the handler reported for one presentation. Callbacks share it with the test, so a case
// that stops early leaves nothing dangling behind.
struct Reports {
  int completions = 0;
  int logouts = 0;
  std::optional<std::string> code;
  std::optional<PlatformError> error;
};

/// A task of the library running while the test drives the loop; `done` is set on the loop's
/// thread.
template <class T>
struct Running {
  bool done = false;
  std::exception_ptr error;
  std::optional<std::conditional_t<std::is_void_v<T>, bool, T>> value;
};

template <class T>
Task<void> keep(Task<T> task, std::shared_ptr<Running<T>> into) {
  if constexpr (std::is_void_v<T>) {
    co_await std::move(task);
    into->value = true;
  } else {
    into->value = co_await std::move(task);
  }
}

class LoginWindowTest : public ::testing::Test {
 protected:
  bool waitFor(const std::function<bool()>& done) { return queue->runUntil(done, kPatience); }

  /// Runs everything the queue holds now, and what that posts before it.
  void settle() {
    bool reached = false;
    queue->post([&] { reached = true; });
    ASSERT_TRUE(waitFor([&] { return reached; }));
  }

  template <class T>
  std::shared_ptr<Running<T>> start(Task<T> task) {
    auto running = std::make_shared<Running<T>>();
    detachTask(keep(std::move(task), running), [queue = queue, running](std::exception_ptr error) {
      queue->post([running, error] {
        running->error = error;
        running->done = true;
      });
    });
    return running;
  }

  std::shared_ptr<Reports> present(const std::string& url) {
    auto reports = std::make_shared<Reports>();
    handler->presentAuthentication(
        url,
        [queue = queue, reports](std::optional<std::string> code, std::optional<PlatformError> error) {
          EXPECT_TRUE(queue->isCurrent());
          ++reports->completions;
          reports->code = std::move(code);
          reports->error = std::move(error);
        },
        [queue = queue, reports](std::optional<PlatformError>) {
          EXPECT_TRUE(queue->isCurrent());
          ++reports->logouts;
        });
    return reports;
  }

  /// Runs `script` in the login window's page; its value as text.
  std::optional<std::string> script(const std::string& text) {
    WebKitWebView* view = loginView();
    if (!view) return std::nullopt;
    struct Outcome {
      bool done = false;
      std::optional<std::string> value;
    };
    // Shared with the callback, which may come after a wait that gave up.
    auto outcome = std::make_shared<Outcome>();
    webkit_web_view_evaluate_javascript(
        view, text.c_str(), -1, nullptr, nullptr, nullptr,
        [](GObject* source, GAsyncResult* result, gpointer data) {
          std::unique_ptr<std::shared_ptr<Outcome>> out(static_cast<std::shared_ptr<Outcome>*>(data));
          if (JSCValue* value = webkit_web_view_evaluate_javascript_finish(WEBKIT_WEB_VIEW(source), result, nullptr)) {
            char* string = jsc_value_to_string(value);
            (*out)->value = string;
            g_free(string);
            g_object_unref(value);
          }
          (*out)->done = true;
        },
        new std::shared_ptr<Outcome>(outcome));
    EXPECT_TRUE(waitFor([&] { return outcome->done; })) << text;
    return outcome->value;
  }

  /// Whether the login window shows the realm's form, loaded to its end.
  bool formShown() { return script("document.readyState === 'complete' && document.getElementById('login') !== null") == "true"; }

  /// Waits for the realm's form in the login window and signs in with it.
  void signInWithForm(const std::string& user, const std::string& password) {
    ASSERT_TRUE(waitFor([&] { return formShown(); })) << "no login form shown";
    script("document.querySelector('[name=username]').value = '" + user + "';"
           "document.querySelector('[name=password]').value = '" + password + "';"
           "document.getElementById('login').submit(); 'sent'");
  }

  KeycloakEnvironment identity(KeycloakLoginMode mode, const std::string& redirect) const {
    KeycloakEnvironment env;
    env.authMethod = KeycloakAuthenticationMethod::CUSTOM;
    env.loginMode = mode;
    env.discoverURL = sandbox.realmUrl() + "/.well-known/openid-configuration";
    env.clientId = demo::kPublicClient;
    env.guestClientId = demo::kGuestClient;
    env.guestSecretKey = demo::kGuestSecret;
    env.redirectURI = redirect;
    return env;
  }

  std::shared_ptr<Orvane> facadeWith(const KeycloakEnvironment& env) {
    testing::HttpPlatform http;
    http.queue = queue;
    Platform platform = http.platform();
    platform.customAuthentication = handler;
    platform.websiteData = makeWebKitWebsiteDataStore();
    return testing::sandboxFacade(sandbox, platform, false, env);
  }

  std::shared_ptr<GlibMainQueue> queue = std::make_shared<GlibMainQueue>();
  std::shared_ptr<CustomAuthenticationHandler> handler = makeWebKitCustomAuthenticationHandler(queue);
  sandbox::Sandbox sandbox{testing::browserSandboxOptions()};
};

TEST_F(LoginWindowTest, LoginThroughTheRealmFormEndsWithAToken) {
  sandbox::Sandbox closed;
  closed.stop();
  struct Case {
    const char* name;
    std::string redirect;
  };
  // The engine fails a redirect to a custom scheme or a closed port, and shows one that a server
  // answers: the window must take the code before either happens.
  const std::vector<Case> cases = {
      {"custom scheme", demo::kAppRedirectUri},
      {"loopback page that answers", sandbox.baseUrl() + "/test/echo"},
      {"closed loopback port", closed.baseUrl() + "/callback"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    sandbox.clearRecordedRequests();
    auto facade = facadeWith(identity(KeycloakLoginMode::USER, c.redirect));
    auto login = start(facade->keycloakLogin());
    signInWithForm(demo::kUser, demo::kPassword);
    ASSERT_TRUE(waitFor([&] { return login->done; })) << "the login never finished";
    ASSERT_FALSE(login->error) << "the login failed";
    ASSERT_TRUE(login->value.has_value());
    EXPECT_FALSE(login->value->access_token.value_or("").empty());
    EXPECT_EQ(facade->authStatus(), AuthenticationStatus::authenticated);

    const auto exchanges = sandbox.requests("/realms/velora/protocol/openid-connect/token");
    ASSERT_EQ(exchanges.size(), 1u);
    EXPECT_NE(exchanges[0].body.find("grant_type=authorization_code"), std::string::npos) << exchanges[0].body;
    EXPECT_EQ(sandbox.requestCount("/test/echo"), 0u) << "the redirect's page was loaded";
    const auto pages = sandbox.requests("/realms/velora/protocol/openid-connect/auth");
    ASSERT_EQ(pages.size(), 1u);
    const auto agent = pages[0].headers.find("user-agent");
    ASSERT_NE(agent, pages[0].headers.end());
    EXPECT_EQ(agent->second, kLoginWindowUserAgent);
    settle();
    EXPECT_EQ(loginWindow(), nullptr) << "the window stayed open";
  }
}

TEST_F(LoginWindowTest, LogoutThroughTheWindowClearsTheToken) {
  for (const KeycloakLoginMode mode : {KeycloakLoginMode::USER, KeycloakLoginMode::GUEST}) {
    SCOPED_TRACE(std::string(rawValue(mode)));
    sandbox.clearRecordedRequests();
    auto facade = facadeWith(identity(mode, demo::kAppRedirectUri));
    auto login = start(mode == KeycloakLoginMode::USER ? facade->keycloakLogin() : facade->keycloakGuestLogin());
    if (mode == KeycloakLoginMode::USER) signInWithForm(demo::kAliceUser, demo::kAlicePassword);
    ASSERT_TRUE(waitFor([&] { return login->done; }));
    ASSERT_FALSE(login->error);
    ASSERT_TRUE(facade->keycloakManager()->currentTokenPayload().has_value());

    auto logout = start(facade->logout());
    ASSERT_TRUE(waitFor([&] { return logout->done; })) << "the logout never finished";
    EXPECT_FALSE(logout->error) << "the logout failed";
    EXPECT_FALSE(facade->keycloakManager()->currentTokenPayload().has_value());
    EXPECT_EQ(sandbox.requestCount("/realms/velora/protocol/openid-connect/logout"), 1u);
    // The end-session request names the public client, whose sessions the realm ends; a guest's
    // tokens belong to the guest client and stay live there.
    if (mode == KeycloakLoginMode::USER) {
      EXPECT_EQ(sandbox.liveTokenCount(), 0u);
    }
    settle();
    EXPECT_EQ(loginWindow(), nullptr);
  }
}

TEST_F(LoginWindowTest, AFailedNavigationEndsTheLoginWithTheCodeOfItsUrl) {
  sandbox::Sandbox closed;
  closed.stop();
  struct Case {
    const char* name;
    std::string redirectTo;
    std::string code;
  };
  // No redirect_uri in the presented URL: only the failed navigation tells where it went.
  const std::vector<Case> cases = {
      {"custom scheme", "app://cb?code=abc&state=STATE", "abc&state=STATE"},
      {"closed port", closed.baseUrl() + "/cb/?state=S&code=xyz", "xyz"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    auto reports = present(sandbox.baseUrl() + "/test/redirect?to=" + percentEncode(c.redirectTo));
    ASSERT_TRUE(waitFor([&] { return reports->completions > 0; }));
    settle();
    EXPECT_EQ(reports->completions, 1);
    EXPECT_EQ(reports->logouts, 0);
    EXPECT_EQ(reports->code, c.code);
    EXPECT_FALSE(reports->error.has_value());
    EXPECT_EQ(loginWindow(), nullptr);
  }
}

TEST_F(LoginWindowTest, CancellingReportsOnceWhicheverWayItComes) {
  struct Case {
    const char* name;
    std::function<void()> cancel;
  };
  const std::vector<Case> cases = {
      {"Cancel button", [] { press(loginWindow(), "Cancel"); }},
      {"closing the window", [] { gtk_window_close(GTK_WINDOW(loginWindow())); }},
      {"cancelDidPress", [this] { handler->cancelDidPress(); }},
  };
  const std::string page = sandbox.realmUrl() + "/protocol/openid-connect/auth?client_id=" + demo::kPublicClient +
                           "&response_type=code&redirect_uri=" + percentEncode(demo::kAppRedirectUri);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    auto reports = present(page);
    ASSERT_TRUE(waitFor([&] { return formShown(); }));
    EXPECT_TRUE(contains(buttonLabels(loginWindow()), "Cancel"));
    c.cancel();
    ASSERT_TRUE(waitFor([&] { return reports->completions > 0; }));
    // Later cancellations find nothing to cancel.
    handler->cancelDidPress();
    settle();
    EXPECT_EQ(reports->completions, 1);
    EXPECT_EQ(reports->logouts, 0);
    EXPECT_FALSE(reports->code.has_value());
    ASSERT_TRUE(reports->error.has_value());
    EXPECT_EQ(reports->error->code, transport_error::kCancelled);
    EXPECT_NE(std::string(reports->error->what()).find("cancelled"), std::string::npos) << reports->error->what();
    EXPECT_EQ(loginWindow(), nullptr);
  }

  // A newer presentation cancels the window still shown, and shows its own.
  auto first = present(page);
  auto second = present(page);
  ASSERT_TRUE(waitFor([&] { return first->completions > 0 && loginView() != nullptr; }));
  EXPECT_EQ(first->error ? first->error->code : 0, transport_error::kCancelled);
  EXPECT_EQ(second->completions, 0);
  handler->cancelDidPress();
  ASSERT_TRUE(waitFor([&] { return second->completions > 0; }));
  settle();
  EXPECT_EQ(first->completions, 1);
  EXPECT_EQ(second->completions, 1);
}

TEST_F(LoginWindowTest, PasswordChallengesAskForCredentials) {
  struct Case {
    const char* name;
    std::string challenge;
    const char* press;
    std::string pageTitle;
  };
  const std::vector<Case> cases = {
      {"Basic, logged in", R"(Basic realm="x")", "Log In", "Signed in"},
      {"Basic, cancelled", R"(Basic realm="x")", "Cancel", ""},
      {"Digest, cancelled", R"(Digest realm="x", nonce="n0", qop="auth")", "Cancel", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    sandbox.clearRecordedRequests();
    auto reports = present(sandbox.baseUrl() + "/test/challenge?www-authenticate=" + percentEncode(c.challenge) +
                           "&user=ann&password=s%3Acret");
    GtkWidget* dialog = nullptr;
    ASSERT_TRUE(waitFor([&] { return (dialog = windowTitled("Please Sign In")) != nullptr; })) << "no credentials dialog";
    const auto texts = labelTexts(dialog);
    EXPECT_TRUE(contains(texts, "Please Sign In"));
    EXPECT_TRUE(contains(texts, "Fill in the following"));
    EXPECT_EQ(buttonLabels(dialog), (std::vector<std::string>{"Cancel", "Log In"}));
    GtkEntry* user = entryWithPlaceholder(dialog, "Email");
    GtkEntry* password = entryWithPlaceholder(dialog, "Password");
    ASSERT_TRUE(user && password);
    EXPECT_TRUE(gtk_entry_get_visibility(user));
    EXPECT_FALSE(gtk_entry_get_visibility(password));
    gtk_entry_set_text(user, "ann");
    gtk_entry_set_text(password, "s:cret");
    press(dialog, c.press);

    ASSERT_TRUE(waitFor([] { return windowTitled("Please Sign In") == nullptr; }));
    if (!c.pageTitle.empty()) {
      EXPECT_TRUE(waitFor([&] { return script("document.title") == c.pageTitle; }));
      const auto requests = sandbox.requests("/test/challenge");
      ASSERT_FALSE(requests.empty());
      const auto authorization = requests.back().headers.find("authorization");
      ASSERT_NE(authorization, requests.back().headers.end());
      EXPECT_EQ(authorization->second, "Basic YW5uOnM6Y3JldA==");
    }
    // Whatever the dialog's answer, the login window stays.
    settle();
    EXPECT_EQ(reports->completions, 0);
    ASSERT_NE(loginWindow(), nullptr);
    handler->cancelDidPress();
    ASSERT_TRUE(waitFor([&] { return reports->completions == 1; }));
  }
}

// WebKitGTK hands NTLM challenges to the page's handler but answers Negotiate ones itself (its
// network stack has no Negotiate support enabled), so NTLM stands for the unsupported schemes.
TEST_F(LoginWindowTest, OtherChallengesShowAnAlertAndAreDeclined) {
  sandbox.clearRecordedRequests();
  auto reports = present(sandbox.baseUrl() + "/test/challenge?www-authenticate=NTLM");
  GtkWidget* alert = nullptr;
  ASSERT_TRUE(waitFor([&] { return (alert = windowTitled("Authentication failed")) != nullptr; })) << "no alert";
  const auto texts = labelTexts(alert);
  EXPECT_TRUE(contains(texts, "Authentication failed"));
  EXPECT_TRUE(contains(texts, "Unsupported Authentication Method\nNTLM"));
  EXPECT_EQ(buttonLabels(alert), std::vector<std::string>{"Cancel"});
  EXPECT_EQ(entryWithPlaceholder(alert, "Email"), nullptr);
  press(alert, "Cancel");
  ASSERT_TRUE(waitFor([] { return windowTitled("Authentication failed") == nullptr; }));
  settle();
  EXPECT_EQ(sandbox.requestCount("/test/challenge"), 1u) << "the challenge was answered";
  EXPECT_EQ(reports->completions, 0);
  handler->cancelDidPress();
  ASSERT_TRUE(waitFor([&] { return reports->completions == 1; }));
}

TEST_F(LoginWindowTest, RemovingCachesEmptiesTheSharedCaches) {
  const auto caches = static_cast<WebKitWebsiteDataTypes>(WEBKIT_WEBSITE_DATA_DISK_CACHE | WEBKIT_WEBSITE_DATA_MEMORY_CACHE);
  WebKitWebsiteDataManager* manager = webkit_web_context_get_website_data_manager(webkit_web_context_get_default());
  const auto cachedOrigins = [&] {
    struct Outcome {
      bool done = false;
      std::size_t count = 0;
    } outcome;
    webkit_website_data_manager_fetch(
        manager, caches, nullptr,
        [](GObject* source, GAsyncResult* result, gpointer data) {
          auto* out = static_cast<Outcome*>(data);
          GList* records = webkit_website_data_manager_fetch_finish(WEBKIT_WEBSITE_DATA_MANAGER(source), result, nullptr);
          out->count = g_list_length(records);
          g_list_free_full(records, reinterpret_cast<GDestroyNotify>(webkit_website_data_unref));
          out->done = true;
        },
        &outcome);
    EXPECT_TRUE(waitFor([&] { return outcome.done; }));
    return outcome.count;
  };

  WebViewOptions options;
  options.offscreen = true;
  options.ephemeral = false;
  auto view = makeWebKitWebView(options);
  bool loaded = false;
  view->setNavigationObserver({{}, [&](const std::string&) { loaded = true; }, {}});
  view->load(sandbox.baseUrl() + "/map/");
  ASSERT_TRUE(waitFor([&] { return loaded; }));
  ASSERT_TRUE(waitFor([&] { return cachedOrigins() > 0; })) << "the page left nothing in the caches";

  bool removed = false;
  makeWebKitWebsiteDataStore()->removeCaches([&] {
    EXPECT_TRUE(queue->isCurrent());
    removed = true;
  });
  ASSERT_TRUE(waitFor([&] { return removed; }));
  EXPECT_EQ(cachedOrigins(), 0u);
}

}  // namespace
}  // namespace velora
