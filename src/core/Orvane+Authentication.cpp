// QR-code login: the platform hands out background-login credentials for a scanned code.

#include <velora/core/Orvane.hpp>

namespace velora {
namespace {
constexpr std::string_view kScanPath = "/api/lgnm/v1/scan?code=";
constexpr std::string_view kOperation = "getLoginParameters(from:_:)";
const char* const kStoreFailed = "Unable to store credentials to keychain";
}  // namespace

void Orvane::getLoginParameters(std::string from, std::function<void(std::optional<ResponseMessage>)> completion) {
  auto request = makeRequest(std::string(kScanPath) + from);
  if (!request) return completion(APIError::invalidData().responseMessage);
  const std::string target = request->url;
  auto self = shared_from_this();
  resumeSession(std::move(*request), BackgroundLoginParameters{}, [self, target, completion](const ResponseMessage& reply) {
    auto fail = [&](ResponseMessage message) {
      self->platform().print(std::string(kOperation) + " - " + message.message.value_or(""));
      completion(std::move(message));
    };
    if (reply.code != 200) return fail(reply);
    BackgroundLoginParameters credentials;
    try {
      credentials = reply.payloadAs<BackgroundLoginParameters>();
    } catch (const JsonError&) {
      return fail(APIError::jsonParsingFailure().responseMessage);
    }
    if (!credentials.storeToKeychain(self->keychain())) return fail(APIError::requestFailed(kStoreFailed).responseMessage);
    completion(ResponseMessage(reply.code, target + " completed successfully", std::nullopt, std::nullopt, encode(credentials)));
  });
}

Task<BackgroundLoginParameters> Orvane::getLoginParameters(std::string from) {
  auto request = makeRequest(std::string(kScanPath) + from);
  if (!request) throw APIError::invalidData();
  try {
    auto reply = resumeAsyncSession<BackgroundLoginParameters>(std::move(*request));
    auto credentials = co_await std::move(reply);
    if (!credentials.storeToKeychain(keychain())) throw APIError::requestFailed(kStoreFailed);
    co_return credentials;
  } catch (const APIError& e) {
    platform_.print(std::string(kOperation) + " - " + e.responseMessage.message.value_or(""));
    throw;
  }
}

}  // namespace velora
