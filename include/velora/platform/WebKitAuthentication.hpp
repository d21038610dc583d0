#pragma once
// The login window of the CUSTOM authentication method and the web engine's shared caches, on
// WebKitGTK. Part of the optional `velora_webkit` library, like WebKitWebView.hpp.

#include <memory>

#include <velora/platform/BrowserAuthSession.hpp>
#include <velora/platform/MainQueue.hpp>
#include <velora/platform/WebView.hpp>

namespace velora {

/// The user agent the login window's pages see.
inline constexpr const char* kLoginWindowUserAgent = "Version/8.0.2 Safari/600.2.5";

/// A window with a "Cancel" button over an ephemeral web view that shows the identity server's
/// login (or end-session) page. `mainQueue` must run the GTK main loop (a GlibMainQueue); the
/// handler may be called on any thread and opens the window there.
///
/// - A presented URL whose query has `post_logout_redirect_uri` is a logout, any other a login;
///   the redirect URI is that parameter, or `redirect_uri`, percent-decoded.
/// - A navigation to the redirect URI (compared without query and fragment) is stopped before
///   anything loads. A login then completes with the code that
///   KeycloakManager::codeFromCallbackURL takes from that URL; a logout calls `onLogout(nullopt)`.
/// - A login whose navigation fails (other than a load cancelled on purpose) completes with the
///   code of the failing URL by the same rule: a redirect URI the presented URL does not name ends
///   that way. Without a failing URL it completes with the error. A logout that fails elsewhere
///   than at the redirect URI calls `onLogout` with the error.
/// - Cancel, closing the window, `cancelDidPress()` or a newer presentation complete with
///   PlatformError("CustomAuthenticationHandler: the login was cancelled", transport_error::kCancelled).
/// - HTTP authentication in the page: Basic, Digest and the engine's default scheme ask for a
///   user name and password ("Please Sign In"), kept for this answer only; any other scheme shows
///   "Authentication failed" and is declined; server trust is left to the engine.
///
/// The window closes, and exactly one callback runs once, on the main queue.
std::shared_ptr<CustomAuthenticationHandler> makeWebKitCustomAuthenticationHandler(std::shared_ptr<MainQueue> mainQueue);

/// The caches of the engine's default web context (the one non-ephemeral views share). Call
/// `removeCaches` on the thread that runs the GTK main loop; `done` runs there. Without a display
/// the engine cannot run, and `done` runs at once.
std::shared_ptr<WebsiteDataStore> makeWebKitWebsiteDataStore();

}  // namespace velora
