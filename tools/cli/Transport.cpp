#include "Transport.hpp"

namespace velora::cli {
namespace {

class Delegate : public HttpDelegate {
 public:
  Delegate(std::shared_ptr<HttpDelegate> inner, std::shared_ptr<const std::string> stop)
      : inner_(std::move(inner)), stop_(std::move(stop)) {}

  bool willRedirect(HttpRequest& next, const HttpResponseHead& redirect) override {
    const std::string_view target = std::string_view(next.url).substr(0, next.url.find('?'));
    if (target == *stop_) return false;
    return inner_->willRedirect(next, redirect);
  }
  void didReceiveResponse(const HttpResponseHead& head) override { inner_->didReceiveResponse(head); }
  void didReceiveData(std::string_view chunk) override { inner_->didReceiveData(chunk); }
  void didComplete(std::optional<TransportError> error) override { inner_->didComplete(std::move(error)); }

 private:
  std::shared_ptr<HttpDelegate> inner_;
  std::shared_ptr<const std::string> stop_;
};

class StopAtRedirectUri : public HttpTransport {
 public:
  StopAtRedirectUri(std::shared_ptr<HttpTransport> inner, std::string redirectUri)
      : inner_(std::move(inner)), stop_(std::make_shared<const std::string>(redirectUri.substr(0, redirectUri.find('?')))) {}

  std::shared_ptr<HttpCall> start(HttpRequest request, std::shared_ptr<HttpDelegate> delegate) override {
    return inner_->start(std::move(request), std::make_shared<Delegate>(std::move(delegate), stop_));
  }

 private:
  std::shared_ptr<HttpTransport> inner_;
  std::shared_ptr<const std::string> stop_;
};

}  // namespace

std::shared_ptr<HttpTransport> stopAtRedirectUri(std::shared_ptr<HttpTransport> inner, std::string redirectUri) {
  return std::make_shared<StopAtRedirectUri>(std::move(inner), std::move(redirectUri));
}

}  // namespace velora::cli
