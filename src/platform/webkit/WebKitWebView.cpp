// The WebView on WebKitGTK 4.1 (GTK 3). Everything here runs on the GTK main loop's thread.

#include <cairo.h>
#include <gtk/gtk.h>
#include <webkit2/webkit2.h>

#include <map>
#include <stdexcept>

#include <velora/platform/WebKitWebView.hpp>

#include "Gtk.hpp"

namespace velora {

void detail::ensureGtk(const char* who) {
  static const bool initialised = gtk_init_check(nullptr, nullptr) != FALSE;
  if (!initialised) throw std::runtime_error(std::string(who) + ": GTK cannot open a display (is DISPLAY set?)");
}

namespace {

struct Rendered {
  std::optional<std::string> text;
  std::optional<std::string> error;
};

std::string takeString(char* text) {
  std::string copy = text ? text : "";
  g_free(text);
  return copy;
}

Rendered render(JSCValue* value) {
  if (jsc_value_is_undefined(value)) return {};
  if (jsc_value_is_string(value)) return {takeString(jsc_value_to_string(value)), std::nullopt};
  char* json = jsc_value_to_json(value, 0);
  if (!json) {
    if (JSCException* exception = jsc_context_get_exception(jsc_value_get_context(value))) {
      std::string message = jsc_exception_get_message(exception);
      jsc_context_clear_exception(jsc_value_get_context(value));
      return {std::nullopt, message};
    }
    return {std::nullopt, std::string("the script's value has no JSON form")};
  }
  return {takeString(json), std::nullopt};
}

std::string takeError(GError* error) {
  std::string message = error->message;
  g_error_free(error);
  return message;
}

cairo_status_t appendPng(void* closure, const unsigned char* data, unsigned int length) {
  auto* png = static_cast<std::vector<std::uint8_t>*>(closure);
  png->insert(png->end(), data, data + length);
  return CAIRO_STATUS_SUCCESS;
}

class GtkWebView final : public WebView {
 public:
  explicit GtkWebView(const WebViewOptions& options) {
    detail::ensureGtk("WebView");
    content_ = webkit_user_content_manager_new();
    view_ = WEBKIT_WEB_VIEW(g_object_new(WEBKIT_TYPE_WEB_VIEW, "user-content-manager", content_, "is-ephemeral",
                                         options.ephemeral ? TRUE : FALSE, nullptr));
    // The window holds the floating reference; this one keeps the view for the destructor.
    g_object_ref_sink(view_);
    if (options.userAgent) webkit_settings_set_user_agent(webkit_web_view_get_settings(view_), options.userAgent->c_str());

    window_ = options.offscreen ? gtk_offscreen_window_new() : gtk_window_new(GTK_WINDOW_TOPLEVEL);
    gtk_window_set_default_size(GTK_WINDOW(window_), options.width, options.height);
    // An offscreen window takes the size its child asks for.
    if (options.offscreen) gtk_widget_set_size_request(GTK_WIDGET(view_), options.width, options.height);
    // Closing the window hides it, so the view stays usable until its owner lets it go.
    g_signal_connect(window_, "delete-event", G_CALLBACK(gtk_widget_hide_on_delete), nullptr);
    gtk_container_add(GTK_CONTAINER(window_), GTK_WIDGET(view_));
    gtk_widget_show_all(window_);

    g_signal_connect(view_, "load-changed", G_CALLBACK(onLoadChanged), this);
    g_signal_connect(view_, "load-failed", G_CALLBACK(onLoadFailed), this);
  }

  ~GtkWebView() override {
    // Completions still pending run with a cancellation error; they hold nothing of this object.
    g_cancellable_cancel(cancellable_);
    g_object_unref(cancellable_);
    g_signal_handlers_disconnect_by_data(view_, this);
    for (auto& [name, handler] : handlers_) {
      g_signal_handler_disconnect(content_, handler->signal);
      webkit_user_content_manager_unregister_script_message_handler(content_, name.c_str());
    }
    gtk_widget_destroy(window_);
    g_object_unref(view_);
    g_object_unref(content_);
  }

  GtkWebView(const GtkWebView&) = delete;
  GtkWebView& operator=(const GtkWebView&) = delete;

  void load(const std::string& url, const HttpHeaders& headers) override {
    WebKitURIRequest* request = webkit_uri_request_new(url.c_str());
    // Only HTTP requests have header fields; other schemes (data:, file:) ignore them.
    if (SoupMessageHeaders* fields = webkit_uri_request_get_http_headers(request)) {
      for (const auto& [name, value] : headers.fields()) soup_message_headers_append(fields, name.c_str(), value.c_str());
    }
    webkit_web_view_load_request(view_, request);
    g_object_unref(request);
  }

  void setNavigationObserver(NavigationObserver observer) override { observer_ = std::move(observer); }

  void evaluateScript(const std::string& script, ScriptCompletion completion) override {
    webkit_web_view_evaluate_javascript(view_, script.c_str(), static_cast<gssize>(script.size()), nullptr, nullptr,
                                        cancellable_, onScriptDone, new ScriptCompletion(std::move(completion)));
  }

  void addScriptMessageHandler(const std::string& name, MessageHandler handler) override {
    removeScriptMessageHandler(name);
    auto entry = std::make_unique<Handler>();
    entry->callback = std::move(handler);
    const std::string signal = "script-message-received::" + name;
    entry->signal = g_signal_connect(content_, signal.c_str(), G_CALLBACK(onScriptMessage), entry.get());
    webkit_user_content_manager_register_script_message_handler(content_, name.c_str());
    handlers_[name] = std::move(entry);
  }

  void removeScriptMessageHandler(const std::string& name) override {
    auto found = handlers_.find(name);
    if (found == handlers_.end()) return;
    g_signal_handler_disconnect(content_, found->second->signal);
    webkit_user_content_manager_unregister_script_message_handler(content_, name.c_str());
    handlers_.erase(found);
  }

  void setDeveloperExtrasEnabled(bool enabled) override {
    webkit_settings_set_enable_developer_extras(webkit_web_view_get_settings(view_), enabled ? TRUE : FALSE);
  }

  // GTK 3 has no per-view colour scheme: the preference is the application's, and every view
  // follows it.
  void setColorScheme(ColorScheme scheme) override {
    g_object_set(gtk_settings_get_default(), "gtk-application-prefer-dark-theme",
                 scheme == ColorScheme::dark ? TRUE : FALSE, nullptr);
  }

  void takeSnapshot(SnapshotCompletion completion) override {
    webkit_web_view_get_snapshot(view_, WEBKIT_SNAPSHOT_REGION_VISIBLE, WEBKIT_SNAPSHOT_OPTIONS_NONE, cancellable_,
                                 onSnapshotDone, new SnapshotCompletion(std::move(completion)));
  }

 private:
  struct Handler {
    MessageHandler callback;
    gulong signal = 0;
  };

  std::string currentUrl() const {
    const char* uri = webkit_web_view_get_uri(view_);
    return uri ? uri : "";
  }

  static void onLoadChanged(WebKitWebView*, WebKitLoadEvent event, gpointer data) {
    auto* self = static_cast<GtkWebView*>(data);
    if (event == WEBKIT_LOAD_STARTED) {
      self->failed_ = false;
      if (self->observer_.started) self->observer_.started(self->currentUrl());
    } else if (event == WEBKIT_LOAD_FINISHED && !self->failed_) {
      // A failed load reports FINISHED too, after load-failed.
      if (self->observer_.finished) self->observer_.finished(self->currentUrl());
    }
  }

  static gboolean onLoadFailed(WebKitWebView*, WebKitLoadEvent, gchar* uri, GError* error, gpointer data) {
    auto* self = static_cast<GtkWebView*>(data);
    self->failed_ = true;
    if (self->observer_.failed) self->observer_.failed(uri ? uri : "", error->message);
    // Handled: the engine's own error page would start a second navigation that "finishes"; the
    // observer decides what to show instead.
    return TRUE;
  }

  static void onScriptMessage(WebKitUserContentManager*, WebKitJavascriptResult* result, gpointer data) {
    Rendered body = render(webkit_javascript_result_get_js_value(result));
    static_cast<Handler*>(data)->callback(body.text.value_or(""));
  }

  static void onScriptDone(GObject* source, GAsyncResult* result, gpointer data) {
    std::unique_ptr<ScriptCompletion> completion(static_cast<ScriptCompletion*>(data));
    GError* error = nullptr;
    JSCValue* value = webkit_web_view_evaluate_javascript_finish(WEBKIT_WEB_VIEW(source), result, &error);
    if (!value) {
      (*completion)(std::nullopt, takeError(error));
      return;
    }
    Rendered rendered = render(value);
    g_object_unref(value);
    (*completion)(std::move(rendered.text), std::move(rendered.error));
  }

  static void onSnapshotDone(GObject* source, GAsyncResult* result, gpointer data) {
    std::unique_ptr<SnapshotCompletion> completion(static_cast<SnapshotCompletion*>(data));
    GError* error = nullptr;
    cairo_surface_t* surface = webkit_web_view_get_snapshot_finish(WEBKIT_WEB_VIEW(source), result, &error);
    if (!surface) {
      (*completion)(std::nullopt, takeError(error));
      return;
    }
    std::vector<std::uint8_t> png;
    const cairo_status_t status = cairo_surface_write_to_png_stream(surface, appendPng, &png);
    cairo_surface_destroy(surface);
    if (status != CAIRO_STATUS_SUCCESS) {
      (*completion)(std::nullopt, std::string("PNG encoding failed: ") + cairo_status_to_string(status));
      return;
    }
    (*completion)(std::move(png), std::nullopt);
  }

  WebKitUserContentManager* content_ = nullptr;
  WebKitWebView* view_ = nullptr;
  GtkWidget* window_ = nullptr;
  GCancellable* cancellable_ = g_cancellable_new();
  NavigationObserver observer_;
  std::map<std::string, std::unique_ptr<Handler>> handlers_;
  bool failed_ = false;
};

}  // namespace

std::shared_ptr<WebView> makeWebKitWebView(WebViewOptions options) { return std::make_shared<GtkWebView>(options); }

}  // namespace velora
