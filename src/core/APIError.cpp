#include <velora/core/APIError.hpp>

#include <atomic>

#include <velora/core/PlatformError.hpp>

namespace velora {
namespace {

std::atomic<Localizer> currentLocalizer{nullptr};

APIError named(std::int64_t defaultCode, const char* defaultMessage, std::optional<std::string> description,
               std::optional<std::int64_t> code) {
  return APIError(ResponseMessage(code.value_or(defaultCode), description.value_or(defaultMessage)));
}

}  // namespace

void setLocalizer(Localizer localizer) { currentLocalizer = localizer; }

std::string localized(const std::string& key) {
  Localizer l = currentLocalizer;
  return l ? l(key) : key;
}

APIError::APIError(ResponseMessage message) : responseMessage(std::move(message)) {
  what_ = "APIError " + std::to_string(responseMessage.code) + ": " + responseMessage.message.value_or("");
}

APIError APIError::requestFailed(std::optional<std::string> d, std::optional<std::int64_t> c) { return named(-27000, "Request failed", std::move(d), c); }
APIError APIError::jsonConversionFailure(std::optional<std::string> d, std::optional<std::int64_t> c) { return named(-27001, "Invalid JSON Conversion", std::move(d), c); }
APIError APIError::invalidData(std::optional<std::string> d, std::optional<std::int64_t> c) { return named(-27002, "Invalid data", std::move(d), c); }
APIError APIError::responseUnsuccessful(std::optional<std::string> d, std::optional<std::int64_t> c) { return named(-27003, "Response Unsuccessful", std::move(d), c); }
APIError APIError::jsonParsingFailure(std::optional<std::string> d, std::optional<std::int64_t> c) { return named(-27004, "JSON Parsing Failure", std::move(d), c); }
APIError APIError::noInternet(std::optional<std::string> d, std::optional<std::int64_t> c) { return named(-27005, "No internet connection", std::move(d), c); }
APIError APIError::failedSerialization(std::optional<std::string> d, std::optional<std::int64_t> c) { return named(-27006, "Object serialization failed", std::move(d), c); }
// -27007 is deliberately unused.
APIError APIError::refreshTokenFailed(std::optional<std::string> d, std::optional<std::int64_t> c) { return named(-27008, "Access token refresh failed", std::move(d), c); }
APIError APIError::bluetoothDisabled(std::optional<std::string> d, std::optional<std::int64_t> c) { return named(-27009, "Bluetooth disabled", std::move(d), c); }

std::int64_t APIError::alertCode() const {
  return responseMessage.alert ? responseMessage.alert->code : responseMessage.code;
}

std::string APIError::localizedTitle() const {
  const auto& alert = responseMessage.alert;
  if (!alert) return "Warning";
  return alert->i18nTitle ? localized(*alert->i18nTitle) : alert->title;
}

std::string APIError::localizedDescription() const {
  const auto& alert = responseMessage.alert;
  if (alert) return alert->i18nDescription ? localized(*alert->i18nDescription) : alert->description;
  return responseMessage.message.value_or("Unknown error occurred");
}

APIError APIError::parseError(std::exception_ptr error, const std::string& title, std::optional<std::string> message) {
  std::string description = "Unknown error occurred";
  std::int64_t code = -27000;
  try {
    if (error) std::rethrow_exception(error);
  } catch (const APIError& e) {
    return e;
  } catch (const PlatformError& e) {
    description = e.domain;
    code = e.code;
  } catch (const std::exception& e) {
    description = e.what();
  } catch (...) {
  }
  const std::string text = message.value_or(description);
  ResponseMessageAlert alert{code, std::nullopt, title.empty() ? "Error" : title, std::nullopt, text, std::nullopt};
  return APIError(ResponseMessage(code, text, std::nullopt, alert));
}

}  // namespace velora
