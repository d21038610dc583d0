// QR-code login: the platform hands out background-login credentials for a scanned code.

#include <velora/auth/KeychainHelper.hpp>
#include <velora/core/Orvane.hpp>

#include "core/Operation.hpp"

namespace velora {
namespace {

struct GetLoginParameters {
  std::string from;
  static constexpr OperationInfo info{"getLoginParameters", "GET", "/api/lgnm/v1/scan?code={from}"};
  static constexpr std::string_view diagnosticName = "getLoginParameters(from:_:)";
  using Reply = BackgroundLoginParameters;
  std::string path() const { return "/api/lgnm/v1/scan?code=" + from; }
  /// The credentials are only handed out once they are stored for background login.
  static void afterDecode(Reply& credentials, Orvane& facade) {
    if (!credentials.storeToKeychain(facade.keychain())) throw APIError::requestFailed("Unable to store credentials to keychain");
  }
  static std::string successMessage(const std::string& url) { return url + " completed successfully"; }
  VELORA_FIELDS(GetLoginParameters, from);
};
VELORA_REGISTER_OPERATION(GetLoginParameters);

}  // namespace

void Orvane::getLoginParameters(std::string from, std::function<void(std::optional<ResponseMessage>)> completion) {
  call(GetLoginParameters{std::move(from)}, [completion = std::move(completion)](const ResponseMessage& reply) {
    if (completion) completion(reply);
  });
}

Task<BackgroundLoginParameters> Orvane::getLoginParameters(std::string from) { return call(GetLoginParameters{std::move(from)}); }

}  // namespace velora
