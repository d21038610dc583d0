// Small utility operations: connectivity check, device configuration, images and raw resources.

#include <velora/core/Orvane.hpp>

#include <velora/core/DeviceConfiguration.hpp>
#include <velora/core/Fatal.hpp>
#include <velora/core/URL.hpp>

#include "core/Transfer.hpp"

namespace velora {
namespace {

constexpr std::string_view kCheckPath = "/api/v1/public/diagnostic/check";
constexpr std::string_view kConfigurationPath = "/api/v1/device/ios/conf";

bool isAbsolute(const std::string& path) {
  return path.find("http://") != std::string::npos || path.find("https://") != std::string::npos;
}

/// A plain GET: no session headers, the platform's default time-out.
HttpRequest plainRequest(const URL& url) {
  HttpRequest request;
  request.url = url.absoluteString();
  request.timeout = std::chrono::seconds(60);
  return request;
}

}  // namespace

void Orvane::checkConnection(ResponseCallback callback) {
  auto request = makeRequest(kCheckPath);
  if (!request) return deliver(std::move(callback), APIError::invalidData().responseMessage);
  resumeSession(std::move(*request), ResponseMessage{}, std::move(callback));
}

Task<ResponseMessage> Orvane::checkConnection() {
  auto request = makeRequest(kCheckPath);
  if (!request) throw APIError::invalidData();
  auto reply = resumeAsyncSession<ResponseMessage>(std::move(*request));
  co_return co_await std::move(reply);
}

void Orvane::postConfiguration(std::optional<std::string> tagid, ResponseCallback callback) {
  const auto bundle = platform_.host->bundleIdentifier();
  if (!bundle) return deliver(std::move(callback), ResponseMessage(-9003, "Invalid Bundle Identifier Specified"));
  std::string body;
  try {
    body = encodeJSON(NetworkRequestConfiguration{*bundle, envUUID, std::move(tagid)});
  } catch (const JsonError&) {
    return deliver(std::move(callback), ResponseMessage(-9004, "Invalid NetworkRequestConfiguration encoding format specified"));
  }
  auto request = makeRequest(kConfigurationPath, "POST", std::move(body));
  if (!request) return deliver(std::move(callback), APIError::invalidData().responseMessage);
  resumeSession(std::move(*request), NetworkResponseConfiguration{}, std::move(callback));
}

Task<NetworkResponseConfiguration> Orvane::postConfiguration(std::optional<std::string> tagid) {
  const auto bundle = platform_.host->bundleIdentifier();
  if (!bundle) throw APIError(ResponseMessage(-9003, "Invalid Bundle Identifier Specified"));
  std::string body;
  try {
    body = encodeJSON(NetworkRequestConfiguration{*bundle, envUUID, std::move(tagid)});
  } catch (const JsonError&) {
    throw APIError(ResponseMessage(-9004, "Invalid NetworkRequestConfiguration encoding format specified"));
  }
  auto request = makeRequest(kConfigurationPath, "POST", std::move(body));
  if (!request) throw APIError::invalidData();
  auto reply = resumeAsyncSession<NetworkResponseConfiguration>(std::move(*request));
  co_return co_await std::move(reply);
}

void Orvane::getConfiguration(std::optional<std::string> tagid, ResponseCallback callback) {
  postConfiguration(std::move(tagid), std::move(callback));
}
Task<NetworkResponseConfiguration> Orvane::getConfiguration(std::optional<std::string> tagid) {
  return postConfiguration(std::move(tagid));
}
void Orvane::getOrCreateConfiguration(std::optional<std::string> tagid, ResponseCallback callback) {
  postConfiguration(std::move(tagid), std::move(callback));
}
Task<NetworkResponseConfiguration> Orvane::getOrCreateConfiguration(std::optional<std::string> tagid) {
  return postConfiguration(std::move(tagid));
}

void Orvane::downloadSdkImage(std::string path, bool publicFlag,
                              std::function<void(std::optional<SdkImage>, std::optional<PlatformError>)> completion) {
  auto queue = platform_.mainQueue;
  auto finish = [queue, completion = std::move(completion)](std::optional<SdkImage> image, std::optional<PlatformError> error) {
    queue->post([completion, image = std::move(image), error = std::move(error)] {
      if (completion) completion(image, error);
    });
  };
  auto url = URL::safeInit(isAbsolute(path) ? path : sdkEndpoint() + path);
  if (!url) return finish(std::nullopt, PlatformError("downloadSdkImage Invalid URL specified", -27002));
  const auto chosen = publicFlag ? std::make_shared<const HttpSession>(platform_.transport) : session();
  if (!chosen) fatal("Orvane: downloadSdkImage needs a session (call Orvane::setupSDK first)");
  chosen->data(plainRequest(*url), [finish](DataResult result) {
    if (result.response) {
      const auto& body = result.response->body;
      if (auto image = SdkImage::decode(Bytes(body.begin(), body.end()))) return finish(std::move(image), std::nullopt);
    }
    if (result.error) return finish(std::nullopt, PlatformError(result.error->message, result.error->code));
    finish(std::nullopt, PlatformError("downloadSdkImage Unknown error occurred.", -27000));
  });
}

void Orvane::fetchResource(std::string path, ResponseCallback callback) {
  if (isAbsolute(path)) {
    auto url = URL::safeInit(path);
    if (!url) return deliver(std::move(callback), APIError::invalidData().responseMessage);
    HttpSession(platform_.transport).data(plainRequest(*url), [self = shared_from_this(), callback = std::move(callback)](DataResult result) mutable {
      if (result.error) return self->deliver(std::move(callback), ResponseMessage(result.error->code, result.error->message));
      const auto& response = *result.response;
      self->deliver(std::move(callback), ResponseMessage(response.head.status, std::nullopt, std::nullopt, std::nullopt,
                                                   detail::dataPayload(response.body)));
    });
    return;
  }
  auto request = makeRequest(path);
  if (!request) return deliver(std::move(callback), APIError::invalidData().responseMessage);
  resumeSession(std::move(*request), Bytes{}, std::move(callback));
}

Task<Bytes> Orvane::fetchResource(std::string path) {
  try {
    if (!isAbsolute(path)) {
      auto request = makeRequest(path);
      if (!request) throw APIError::invalidData();
      auto reply = resumeAsyncSession<Bytes>(std::move(*request));
      co_return co_await std::move(reply);
    }
    auto url = URL::safeInit(path);
    if (!url) throw APIError::invalidData();
    auto fetch = detail::transfer(std::make_shared<const HttpSession>(platform_.transport), plainRequest(*url));
    DataResult result = co_await fetch;
    if (result.error) throw APIError::responseUnsuccessful("Unknown error occurred");
    co_return detail::decodeAsyncReply<Bytes>(*result.response, platform_);
  } catch (const APIError& e) {
    platform_.print("fetchResource(path:) - " + e.responseMessage.message.value_or("Unknown error occurred"));
    throw;
  }
}

}  // namespace velora
