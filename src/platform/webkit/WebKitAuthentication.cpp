// The login window of the CUSTOM authentication method, and the default web context's caches.
// Everything but the handler's two entry points runs on the GTK main loop's thread.

#include <gtk/gtk.h>
#include <webkit2/webkit2.h>

#include <stdexcept>

#include <velora/auth/KeycloakManager.hpp>
#include <velora/platform/WebKitAuthentication.hpp>

#include "Gtk.hpp"

namespace velora {
namespace {

using OnCompletion = CustomAuthenticationHandler::OnCompletion;
using OnLogout = CustomAuthenticationHandler::OnLogout;

constexpr std::int64_t kWindowError = -23001;
constexpr int kWindowWidth = 480;
constexpr int kWindowHeight = 720;

PlatformError windowError(const std::string& message) { return PlatformError("CustomAuthenticationHandler: " + message, kWindowError); }

std::string withoutQuery(const std::string& url) { return url.substr(0, url.find_first_of("?#")); }

/// Where the presented page hands control back to the application, and whether it ends a session.
struct Destination {
  bool logout = false;
  /// Without query and fragment; empty when the URL names none.
  std::string redirect;
};

Destination destinationOf(const std::string& url) {
  const auto query = url.find('?');
  if (query == std::string::npos) return {};
  const std::string text = url.substr(query + 1, url.find('#', query) - query - 1);
  GHashTable* params = g_uri_parse_params(text.c_str(), -1, "&", G_URI_PARAMS_NONE, nullptr);
  if (!params) return {};
  Destination destination;
  const auto* value = static_cast<const char*>(g_hash_table_lookup(params, "post_logout_redirect_uri"));
  destination.logout = value != nullptr;
  if (!value) value = static_cast<const char*>(g_hash_table_lookup(params, "redirect_uri"));
  if (value) destination.redirect = withoutQuery(value);
  g_hash_table_unref(params);
  return destination;
}

const char* schemeName(WebKitAuthenticationScheme scheme) {
  switch (scheme) {
    case WEBKIT_AUTHENTICATION_SCHEME_DEFAULT: return "Default";
    case WEBKIT_AUTHENTICATION_SCHEME_HTTP_BASIC: return "Basic";
    case WEBKIT_AUTHENTICATION_SCHEME_HTTP_DIGEST: return "Digest";
    case WEBKIT_AUTHENTICATION_SCHEME_HTML_FORM: return "HTML Form";
    case WEBKIT_AUTHENTICATION_SCHEME_NTLM: return "NTLM";
    case WEBKIT_AUTHENTICATION_SCHEME_NEGOTIATE: return "Negotiate";
    case WEBKIT_AUTHENTICATION_SCHEME_CLIENT_CERTIFICATE_REQUESTED: return "Client Certificate";
    case WEBKIT_AUTHENTICATION_SCHEME_SERVER_TRUST_EVALUATION_REQUESTED: return "Server Trust";
    case WEBKIT_AUTHENTICATION_SCHEME_CLIENT_CERTIFICATE_PIN_REQUESTED: return "Client Certificate PIN";
    case WEBKIT_AUTHENTICATION_SCHEME_UNKNOWN: break;
  }
  return "Unknown";
}

/// An HTTP challenge of the page waiting in a dialog. Freed with the dialog's response handler,
/// so a dialog destroyed unanswered (with its window) declines the challenge.
struct Challenge {
  WebKitAuthenticationRequest* request = nullptr;
  GtkEntry* user = nullptr;
  GtkEntry* password = nullptr;
  bool answered = false;
};

void onChallengeResponse(GtkDialog* dialog, gint response, gpointer data) {
  auto* challenge = static_cast<Challenge*>(data);
  if (response == GTK_RESPONSE_OK && challenge->user) {
    WebKitCredential* credential = webkit_credential_new(gtk_entry_get_text(challenge->user), gtk_entry_get_text(challenge->password),
                                                         WEBKIT_CREDENTIAL_PERSISTENCE_NONE);
    webkit_authentication_request_authenticate(challenge->request, credential);
    webkit_credential_free(credential);
  } else {
    webkit_authentication_request_cancel(challenge->request);
  }
  challenge->answered = true;
  gtk_widget_destroy(GTK_WIDGET(dialog));
}

void releaseChallenge(gpointer data, GClosure*) {
  auto* challenge = static_cast<Challenge*>(data);
  if (!challenge->answered) webkit_authentication_request_cancel(challenge->request);
  g_object_unref(challenge->request);
  delete challenge;
}

GtkEntry* addEntry(GtkWidget* box, const char* placeholder, GtkInputPurpose purpose) {
  GtkWidget* entry = gtk_entry_new();
  gtk_entry_set_placeholder_text(GTK_ENTRY(entry), placeholder);
  gtk_entry_set_input_purpose(GTK_ENTRY(entry), purpose);
  gtk_entry_set_activates_default(GTK_ENTRY(entry), TRUE);
  gtk_container_add(GTK_CONTAINER(box), entry);
  return GTK_ENTRY(entry);
}

/// One presentation: the window, its view and the callbacks it owes an answer. A shown screen
/// keeps itself alive until it has reported, whoever else lets it go.
class LoginScreen : public std::enable_shared_from_this<LoginScreen> {
 public:
  LoginScreen(std::shared_ptr<MainQueue> queue, Destination destination, OnCompletion onCompletion, OnLogout onLogout)
      : queue_(std::move(queue)), destination_(std::move(destination)), onCompletion_(std::move(onCompletion)), onLogout_(std::move(onLogout)) {}

  void show(const std::string& url) {
    try {
      detail::ensureGtk("CustomAuthenticationHandler");
    } catch (const std::runtime_error& e) {
      ended_ = true;
      if (onCompletion_) onCompletion_(std::nullopt, PlatformError(e.what(), kWindowError));
      return;
    }
    window_ = gtk_window_new(GTK_WINDOW_TOPLEVEL);
    gtk_window_set_modal(GTK_WINDOW(window_), TRUE);
    gtk_window_set_type_hint(GTK_WINDOW(window_), GDK_WINDOW_TYPE_HINT_DIALOG);
    gtk_window_set_position(GTK_WINDOW(window_), GTK_WIN_POS_CENTER);
    gtk_window_set_default_size(GTK_WINDOW(window_), kWindowWidth, kWindowHeight);

    GtkWidget* header = gtk_header_bar_new();
    gtk_header_bar_set_title(GTK_HEADER_BAR(header), destination_.logout ? "Log Out" : "Log In");
    cancelButton_ = gtk_button_new_with_label("Cancel");
    gtk_header_bar_pack_end(GTK_HEADER_BAR(header), cancelButton_);
    gtk_window_set_titlebar(GTK_WINDOW(window_), header);

    view_ = WEBKIT_WEB_VIEW(g_object_new(WEBKIT_TYPE_WEB_VIEW, "is-ephemeral", TRUE, nullptr));
    webkit_settings_set_user_agent(webkit_web_view_get_settings(view_), kLoginWindowUserAgent);
    gtk_container_add(GTK_CONTAINER(window_), GTK_WIDGET(view_));

    g_signal_connect(cancelButton_, "clicked", G_CALLBACK(onCancelClicked), this);
    g_signal_connect(window_, "delete-event", G_CALLBACK(onDelete), this);
    g_signal_connect(view_, "decide-policy", G_CALLBACK(onDecidePolicy), this);
    g_signal_connect(view_, "load-failed", G_CALLBACK(onLoadFailed), this);
    g_signal_connect(view_, "authenticate", G_CALLBACK(onAuthenticate), this);
    keepAlive_ = shared_from_this();
    gtk_widget_show_all(window_);
    webkit_web_view_load_uri(view_, url.c_str());
  }

  void cancel() {
    end([onCompletion = onCompletion_] {
      if (onCompletion) onCompletion(std::nullopt, PlatformError("CustomAuthenticationHandler: the login was cancelled", transport_error::kCancelled));
    });
  }

 private:
  bool isRedirect(const std::string& url) const { return !destination_.redirect.empty() && withoutQuery(url) == destination_.redirect; }

  void reached(const std::string& url) {
    if (destination_.logout) {
      return end([onLogout = onLogout_] {
        if (onLogout) onLogout(std::nullopt);
      });
    }
    end([onCompletion = onCompletion_, code = KeycloakManager::codeFromCallbackURL(url)] {
      if (onCompletion) onCompletion(code, std::nullopt);
    });
  }

  void failed(const std::string& url, const std::string& message) {
    if (destination_.logout && !isRedirect(url)) {
      return end([onLogout = onLogout_, error = windowError("the logout page failed to load: " + message)] {
        if (onLogout) onLogout(error);
      });
    }
    if (url.empty()) {
      return end([onCompletion = onCompletion_, error = windowError("the login page failed to load: " + message)] {
        if (onCompletion) onCompletion(std::nullopt, error);
      });
    }
    reached(url);
  }

  /// Stops listening to the window at once; closes it and reports on the main queue, outside the
  /// signal that ended it.
  void end(std::function<void()> report) {
    if (ended_) return;
    ended_ = true;
    g_signal_handlers_disconnect_by_data(view_, this);
    g_signal_handlers_disconnect_by_data(window_, this);
    g_signal_handlers_disconnect_by_data(cancelButton_, this);
    queue_->post([self = std::move(keepAlive_), report = std::move(report)] {
      gtk_widget_destroy(self->window_);
      report();
    });
  }

  void ask(WebKitAuthenticationRequest* request) {
    const WebKitAuthenticationScheme scheme = webkit_authentication_request_get_scheme(request);
    const bool credentials = scheme == WEBKIT_AUTHENTICATION_SCHEME_DEFAULT || scheme == WEBKIT_AUTHENTICATION_SCHEME_HTTP_BASIC ||
                             scheme == WEBKIT_AUTHENTICATION_SCHEME_HTTP_DIGEST;
    const char* title = credentials ? "Please Sign In" : "Authentication failed";
    GtkWidget* dialog = gtk_message_dialog_new(GTK_WINDOW(window_), static_cast<GtkDialogFlags>(GTK_DIALOG_MODAL | GTK_DIALOG_DESTROY_WITH_PARENT),
                                               credentials ? GTK_MESSAGE_QUESTION : GTK_MESSAGE_ERROR, GTK_BUTTONS_NONE, "%s", title);
    gtk_window_set_title(GTK_WINDOW(dialog), title);
    auto* challenge = new Challenge;
    challenge->request = WEBKIT_AUTHENTICATION_REQUEST(g_object_ref(request));
    if (credentials) {
      gtk_message_dialog_format_secondary_text(GTK_MESSAGE_DIALOG(dialog), "%s", "Fill in the following");
      GtkWidget* area = gtk_message_dialog_get_message_area(GTK_MESSAGE_DIALOG(dialog));
      challenge->user = addEntry(area, "Email", GTK_INPUT_PURPOSE_EMAIL);
      challenge->password = addEntry(area, "Password", GTK_INPUT_PURPOSE_PASSWORD);
      gtk_entry_set_visibility(challenge->password, FALSE);
      gtk_dialog_add_buttons(GTK_DIALOG(dialog), "Cancel", GTK_RESPONSE_CANCEL, "Log In", GTK_RESPONSE_OK, nullptr);
      gtk_dialog_set_default_response(GTK_DIALOG(dialog), GTK_RESPONSE_OK);
    } else {
      gtk_message_dialog_format_secondary_text(GTK_MESSAGE_DIALOG(dialog), "Unsupported Authentication Method\n%s", schemeName(scheme));
      gtk_dialog_add_button(GTK_DIALOG(dialog), "Cancel", GTK_RESPONSE_CANCEL);
    }
    g_signal_connect_data(dialog, "response", G_CALLBACK(onChallengeResponse), challenge, releaseChallenge, static_cast<GConnectFlags>(0));
    gtk_widget_show_all(dialog);
  }

  static void onCancelClicked(GtkButton*, gpointer data) { static_cast<LoginScreen*>(data)->cancel(); }

  static gboolean onDelete(GtkWidget*, GdkEvent*, gpointer data) {
    static_cast<LoginScreen*>(data)->cancel();
    return TRUE;
  }

  // The engine asks here about the redirect to the application's URI before it tries to load it,
  // so the redirect is caught whether the engine would fail it (a custom scheme, a closed port) or
  // show it (a loopback port that something serves).
  static gboolean onDecidePolicy(WebKitWebView*, WebKitPolicyDecision* decision, WebKitPolicyDecisionType type, gpointer data) {
    if (type != WEBKIT_POLICY_DECISION_TYPE_NAVIGATION_ACTION) return FALSE;
    auto* self = static_cast<LoginScreen*>(data);
    WebKitNavigationAction* action = webkit_navigation_policy_decision_get_navigation_action(WEBKIT_NAVIGATION_POLICY_DECISION(decision));
    const std::string url = webkit_uri_request_get_uri(webkit_navigation_action_get_request(action));
    if (!self->isRedirect(url)) return FALSE;
    webkit_policy_decision_ignore(decision);
    self->reached(url);
    return TRUE;
  }

  static gboolean onLoadFailed(WebKitWebView*, WebKitLoadEvent, gchar* uri, GError* error, gpointer data) {
    // A declined challenge cancels its load; the page stays, and so does the window.
    if (g_error_matches(error, WEBKIT_NETWORK_ERROR, WEBKIT_NETWORK_ERROR_CANCELLED)) return FALSE;
    static_cast<LoginScreen*>(data)->failed(uri ? uri : "", error->message);
    return TRUE;
  }

  static gboolean onAuthenticate(WebKitWebView*, WebKitAuthenticationRequest* request, gpointer data) {
    if (webkit_authentication_request_get_scheme(request) == WEBKIT_AUTHENTICATION_SCHEME_SERVER_TRUST_EVALUATION_REQUESTED) return FALSE;
    static_cast<LoginScreen*>(data)->ask(request);
    return TRUE;
  }

  std::shared_ptr<MainQueue> queue_;
  Destination destination_;
  OnCompletion onCompletion_;
  OnLogout onLogout_;
  GtkWidget* window_ = nullptr;
  GtkWidget* cancelButton_ = nullptr;
  WebKitWebView* view_ = nullptr;
  std::shared_ptr<LoginScreen> keepAlive_;
  bool ended_ = false;
};

class WebKitCustomAuthentication final : public CustomAuthenticationHandler, public std::enable_shared_from_this<WebKitCustomAuthentication> {
 public:
  explicit WebKitCustomAuthentication(std::shared_ptr<MainQueue> queue) : queue_(std::move(queue)) {}

  void presentAuthentication(const std::string& url, OnCompletion onCompletion, OnLogout onLogout) override {
    queue_->post([self = shared_from_this(), url, onCompletion = std::move(onCompletion), onLogout = std::move(onLogout)]() mutable {
      // One window at a time: a newer presentation cancels the one still shown.
      if (auto shown = self->current_.lock()) shown->cancel();
      auto screen = std::make_shared<LoginScreen>(self->queue_, destinationOf(url), std::move(onCompletion), std::move(onLogout));
      screen->show(url);
      self->current_ = screen;
    });
  }

  void cancelDidPress() override {
    queue_->post([self = shared_from_this()] {
      if (auto shown = self->current_.lock()) shown->cancel();
    });
  }

 private:
  std::shared_ptr<MainQueue> queue_;
  // Read and written on the main queue only.
  std::weak_ptr<LoginScreen> current_;
};

class WebKitWebsiteData final : public WebsiteDataStore {
 public:
  void removeCaches(std::function<void()> done) override {
    // Without a display the engine cannot start (GTK aborts the process), and nothing can have
    // been shown in this process either.
    try {
      detail::ensureGtk("WebsiteDataStore");
    } catch (const std::runtime_error&) {
      if (done) done();
      return;
    }
    WebKitWebsiteDataManager* manager = webkit_web_context_get_website_data_manager(webkit_web_context_get_default());
    // WebKitGTK 2.50 crashes clearing a manager whose data store nothing has set up yet (no view
    // has used it); asking for one of its settings sets the store up.
    webkit_website_data_manager_get_persistent_credential_storage_enabled(manager);
    const auto caches = static_cast<WebKitWebsiteDataTypes>(WEBKIT_WEBSITE_DATA_DISK_CACHE | WEBKIT_WEBSITE_DATA_MEMORY_CACHE);
    webkit_website_data_manager_clear(manager, caches, 0, nullptr, onCleared, new std::function<void()>(std::move(done)));
  }

 private:
  static void onCleared(GObject* source, GAsyncResult* result, gpointer data) {
    std::unique_ptr<std::function<void()>> done(static_cast<std::function<void()>*>(data));
    // A failure leaves nothing to retry: the caches are as clean as the engine could make them.
    webkit_website_data_manager_clear_finish(WEBKIT_WEBSITE_DATA_MANAGER(source), result, nullptr);
    if (*done) (*done)();
  }
};

}  // namespace

std::shared_ptr<CustomAuthenticationHandler> makeWebKitCustomAuthenticationHandler(std::shared_ptr<MainQueue> mainQueue) {
  return std::make_shared<WebKitCustomAuthentication>(std::move(mainQueue));
}

std::shared_ptr<WebsiteDataStore> makeWebKitWebsiteDataStore() { return std::make_shared<WebKitWebsiteData>(); }

}  // namespace velora
