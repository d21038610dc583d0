#pragma once
// The HTTP transport the client hands the library.

#include <memory>
#include <string>

#include <velora/platform/HttpTransport.hpp>

namespace velora::cli {

/// `inner`, except that a redirect to `redirectUri` (query aside) is not followed: the request
/// completes with the redirect itself. The identity server sends the client there to hand control
/// back to the application (logout ends that way); outside a browser login nothing listens there,
/// and a custom scheme cannot be fetched at all, so following it would turn success into failure.
std::shared_ptr<HttpTransport> stopAtRedirectUri(std::shared_ptr<HttpTransport> inner, std::string redirectUri);

}  // namespace velora::cli
