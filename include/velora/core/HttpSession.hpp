#pragma once
// A session: a transport plus the additional headers every request sent on it carries.
// A request's own header of the same name wins, as does a redirect's re-applied header.

#include <functional>
#include <memory>

#include <velora/platform/HttpTransport.hpp>

namespace velora {

/// A transport plus the headers (such as the bearer token) that every request sent through it
/// carries unless the request sets a header of the same name itself. Immutable: the facade builds a
/// new one when its token changes.
class HttpSession {
 public:
  /// A session on `transport` that adds `additionalHeaders` (none by default) to each request.
  HttpSession(std::shared_ptr<HttpTransport> transport, HttpHeaders additionalHeaders = {})
      : transport_(std::move(transport)), additionalHeaders_(std::move(additionalHeaders)) {}

  /// Headers added to every request that does not set them itself.
  const HttpHeaders& additionalHeaders() const { return additionalHeaders_; }
  /// The transport the requests are sent on.
  const std::shared_ptr<HttpTransport>& transport() const { return transport_; }

  /// The request as it leaves: its own headers plus the session's missing ones.
  HttpRequest prepare(HttpRequest request) const {
    request.headers.mergeMissing(additionalHeaders_);
    return request;
  }
  /// Sends the prepared request on the transport; `delegate` hears of the response as it arrives.
  /// The returned call can cancel the transfer.
  std::shared_ptr<HttpCall> start(HttpRequest request, std::shared_ptr<HttpDelegate> delegate) const {
    return transport_->start(prepare(std::move(request)), std::move(delegate));
  }
  /// A data request; `completion` runs once on the transport's I/O thread.
  std::shared_ptr<HttpCall> data(HttpRequest request, std::function<void(DataResult)> completion,
                                 Redirects redirects = Redirects::follow) const {
    return startDataRequest(*transport_, prepare(std::move(request)), std::move(completion), redirects);
  }

 private:
  std::shared_ptr<HttpTransport> transport_;
  HttpHeaders additionalHeaders_;
};

}  // namespace velora
