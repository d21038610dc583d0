// Small utility operations: connectivity check, device configuration, images and raw resources.

#include <velora/core/DeviceConfiguration.hpp>
#include <velora/core/Orvane.hpp>
#include <velora/core/SdkImage.hpp>

#include "core/Operation.hpp"

namespace velora {
namespace {

bool isAbsolute(const std::string& path) {
  return path.find("http://") != std::string::npos || path.find("https://") != std::string::npos;
}

struct CheckConnection {
  static constexpr OperationInfo info{"checkConnection", "GET", "/api/v1/public/diagnostic/check"};
  using Reply = ResponseMessage;
  VELORA_FIELDS(CheckConnection);
};
VELORA_REGISTER_OPERATION(CheckConnection);

/// The device's own identity; getConfiguration and getOrCreateConfiguration send the same request.
template <const OperationInfo& Info>
struct ConfigurationRequest {
  std::optional<std::string> tagid;
  static constexpr OperationInfo info = Info;
  using Reply = NetworkResponseConfiguration;
  NetworkRequestConfiguration body(const Orvane& facade) const {
    const auto bundle = facade.platform().host->bundleIdentifier();
    if (!bundle) throw APIError(ResponseMessage(-9003, "Invalid Bundle Identifier Specified"));
    return {*bundle, facade.envUUID, tagid};
  }
  VELORA_FIELDS(ConfigurationRequest, tagid);
};
constexpr OperationInfo kGetConfiguration{"getConfiguration", "POST", "/api/v1/device/ios/conf"};
constexpr OperationInfo kGetOrCreateConfiguration{"getOrCreateConfiguration", "POST", "/api/v1/device/ios/conf"};
using GetConfiguration = ConfigurationRequest<kGetConfiguration>;
using GetOrCreateConfiguration = ConfigurationRequest<kGetOrCreateConfiguration>;
VELORA_REGISTER_OPERATION(GetConfiguration);
VELORA_REGISTER_OPERATION(GetOrCreateConfiguration);

/// Whole URLs are fetched as they are, other paths below the endpoint; never renewed.
struct DownloadSdkImage {
  std::string path;
  bool publicFlag = false;
  static constexpr OperationInfo info{"downloadSdkImage", "GET", "{path}"};
  using Reply = SdkImage;
  Target target(const Orvane& facade) const {
    auto url = URL::safeInit(isAbsolute(path) ? path : facade.sdkEndpoint() + path);
    if (!url) throw APIError(ResponseMessage(-27002, "downloadSdkImage Invalid URL specified"));
    return {url->absoluteString(), publicFlag ? RequestAccess::none : RequestAccess::sessionHeaders};
  }
  /// The bytes count whatever the status: an image is an image.
  static SdkImage decodeResponse(const HttpResponse& response) {
    if (auto image = SdkImage::decode(Bytes(response.body.begin(), response.body.end()))) return std::move(*image);
    throw APIError(ResponseMessage(-27000, "downloadSdkImage Unknown error occurred."));
  }
  VELORA_FIELDS(DownloadSdkImage, path, publicFlag);
};
VELORA_REGISTER_OPERATION(DownloadSdkImage);

/// Whole URLs are public resources fetched without the session; other paths take the pipeline.
struct FetchResource {
  std::string path;
  static constexpr OperationInfo info{"fetchResource", "GET", "{path}"};
  static constexpr std::string_view diagnosticName = "fetchResource(path:)";
  using Reply = Bytes;
  Target target(const Orvane&) const {
    if (!isAbsolute(path)) return {path, RequestAccess::pipeline};
    auto url = URL::safeInit(path);
    if (!url) throw APIError::invalidData();
    return {url->absoluteString(), RequestAccess::none};
  }
  VELORA_FIELDS(FetchResource, path);
};
VELORA_REGISTER_OPERATION(FetchResource);

}  // namespace

void Orvane::checkConnection(ResponseCallback callback) { call(CheckConnection{}, std::move(callback)); }
Task<ResponseMessage> Orvane::checkConnection() { return call(CheckConnection{}); }

void Orvane::getConfiguration(std::optional<std::string> tagid, ResponseCallback callback) {
  call(GetConfiguration{std::move(tagid)}, std::move(callback));
}
Task<NetworkResponseConfiguration> Orvane::getConfiguration(std::optional<std::string> tagid) {
  return call(GetConfiguration{std::move(tagid)});
}
void Orvane::getOrCreateConfiguration(std::optional<std::string> tagid, ResponseCallback callback) {
  call(GetOrCreateConfiguration{std::move(tagid)}, std::move(callback));
}
Task<NetworkResponseConfiguration> Orvane::getOrCreateConfiguration(std::optional<std::string> tagid) {
  return call(GetOrCreateConfiguration{std::move(tagid)});
}

void Orvane::downloadSdkImage(std::string path, bool publicFlag,
                              std::function<void(std::optional<SdkImage>, std::optional<PlatformError>)> completion) {
  call(DownloadSdkImage{std::move(path), publicFlag}, [completion = std::move(completion)](const ResponseMessage& reply) {
    if (!completion) return;
    if (reply.code != 200) return completion(std::nullopt, PlatformError(reply.message.value_or(""), reply.code));
    completion(reply.payloadAs<SdkImage>(), std::nullopt);
  });
}
Task<SdkImage> Orvane::downloadSdkImage(std::string path, bool publicFlag) { return call(DownloadSdkImage{std::move(path), publicFlag}); }

void Orvane::fetchResource(std::string path, ResponseCallback callback) { call(FetchResource{std::move(path)}, std::move(callback)); }
Task<Bytes> Orvane::fetchResource(std::string path) { return call(FetchResource{std::move(path)}); }

}  // namespace velora
