#pragma once
// The error of every awaitable REST operation: a ResponseMessage that can be thrown.

#include <exception>
#include <optional>
#include <string>

#include <velora/core/ResponseMessage.hpp>

namespace velora {

class APIError : public std::exception {
 public:
  explicit APIError(ResponseMessage responseMessage);

  ResponseMessage responseMessage;

  // Named constructors: code and message default to the case's own.
  static APIError requestFailed(std::optional<std::string> description = std::nullopt, std::optional<std::int64_t> code = std::nullopt);
  static APIError jsonConversionFailure(std::optional<std::string> description = std::nullopt, std::optional<std::int64_t> code = std::nullopt);
  static APIError invalidData(std::optional<std::string> description = std::nullopt, std::optional<std::int64_t> code = std::nullopt);
  static APIError responseUnsuccessful(std::optional<std::string> description = std::nullopt, std::optional<std::int64_t> code = std::nullopt);
  static APIError jsonParsingFailure(std::optional<std::string> description = std::nullopt, std::optional<std::int64_t> code = std::nullopt);
  static APIError noInternet(std::optional<std::string> description = std::nullopt, std::optional<std::int64_t> code = std::nullopt);
  static APIError failedSerialization(std::optional<std::string> description = std::nullopt, std::optional<std::int64_t> code = std::nullopt);
  static APIError refreshTokenFailed(std::optional<std::string> description = std::nullopt, std::optional<std::int64_t> code = std::nullopt);
  static APIError bluetoothDisabled(std::optional<std::string> description = std::nullopt, std::optional<std::int64_t> code = std::nullopt);

  /// The alert's code when there is an alert, else the message's code.
  std::int64_t alertCode() const;
  /// The alert's (translated) title, else "Warning".
  std::string localizedTitle() const;
  /// The alert's (translated) description, else the message, else "Unknown error occurred".
  std::string localizedDescription() const;

  /// An APIError stays as it is; any other error becomes one carrying `message` if given, else the
  /// error's own description.
  static APIError parseError(std::exception_ptr error, const std::string& title = "Warning",
                             std::optional<std::string> message = std::nullopt);

  const char* what() const noexcept override { return what_.c_str(); }

 private:
  std::string what_;
};

/// Translation of localisation keys used by APIError's localized texts. The default returns the
/// key itself; an application installs its own table look-up.
using Localizer = std::string (*)(const std::string& key);
void setLocalizer(Localizer localizer);
std::string localized(const std::string& key);

}  // namespace velora
