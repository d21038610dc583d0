#include <velora/platform/HttpTransport.hpp>

#include <algorithm>
#include <charconv>

namespace velora {
namespace {

// A Content-Length is only a hint for the buffer; never trust it for more than this up front.
constexpr std::size_t kMaxReserve = 64u << 20;

class DataDelegate final : public HttpDelegate {
 public:
  DataDelegate(std::function<void(DataResult)> completion, Redirects redirects)
      : completion_(std::move(completion)), redirects_(redirects) {}

  bool willRedirect(HttpRequest&, const HttpResponseHead&) override { return redirects_ == Redirects::follow; }

  void didReceiveResponse(const HttpResponseHead& head) override {
    head_ = head;
    if (auto length = head.headers.get("Content-Length")) {
      std::size_t expected = 0;
      const auto [end, ec] = std::from_chars(length->data(), length->data() + length->size(), expected);
      if (ec == std::errc() && end == length->data() + length->size()) body_.reserve(std::min(expected, kMaxReserve));
    }
  }

  void didReceiveData(std::string_view chunk) override { body_.append(chunk); }

  void didComplete(std::optional<TransportError> error) override {
    auto completion = std::move(completion_);
    completion_ = nullptr;
    if (!completion) return;
    if (error) {
      completion(DataResult{std::nullopt, std::move(error)});
    } else if (head_) {
      completion(DataResult{HttpResponse{std::move(*head_), std::move(body_)}, std::nullopt});
    } else {
      completion(DataResult{std::nullopt, TransportError{transport_error::kBadServerResponse, "bad server response"}});
    }
  }

 private:
  std::function<void(DataResult)> completion_;
  Redirects redirects_;
  std::optional<HttpResponseHead> head_;
  std::string body_;
};

}  // namespace

std::shared_ptr<HttpCall> startDataRequest(HttpTransport& transport, HttpRequest request,
                                           std::function<void(DataResult)> completion, Redirects redirects) {
  return transport.start(std::move(request), std::make_shared<DataDelegate>(std::move(completion), redirects));
}

}  // namespace velora
