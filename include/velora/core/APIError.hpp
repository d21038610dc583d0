#pragma once
// The error of every awaitable REST operation: a ResponseMessage that can be thrown.

#include <exception>
#include <optional>
#include <string>

#include <velora/core/ResponseMessage.hpp>

namespace velora {

/// The error thrown by the awaitable form of every REST operation (the callback form passes the
/// ResponseMessage itself): a ResponseMessage from the server or made by the library, with helpers
/// for showing it to a user.
class APIError : public std::exception {
 public:
  /// Wraps `responseMessage`; `what()` becomes `"APIError <code>: <message>"`.
  explicit APIError(ResponseMessage responseMessage);

  /// What the server answered (status as code, its message, trace and alert), or what the library
  /// made for a failure of its own (negative code).
  ResponseMessage responseMessage;

  // Named constructors: code and message default to the case's own.
  /// @{
  /// Named constructors for the library's own failures, each with its code and message:
  /// requestFailed -27000 "Request failed", jsonConversionFailure -27001 "Invalid JSON Conversion",
  /// invalidData -27002 "Invalid data" (e.g. a URL that cannot be built), responseUnsuccessful -27003
  /// "Response Unsuccessful" (an unexpected status or reply), jsonParsingFailure -27004 "JSON Parsing
  /// Failure", noInternet -27005 "No internet connection", failedSerialization -27006 "Object
  /// serialization failed", refreshTokenFailed -27008 "Access token refresh failed",
  /// bluetoothDisabled -27009 "Bluetooth disabled" (-27007 is unused). `description` and `code`
  /// replace the message and code when given.
  static APIError requestFailed(std::optional<std::string> description = std::nullopt, std::optional<std::int64_t> code = std::nullopt);
  static APIError jsonConversionFailure(std::optional<std::string> description = std::nullopt, std::optional<std::int64_t> code = std::nullopt);
  static APIError invalidData(std::optional<std::string> description = std::nullopt, std::optional<std::int64_t> code = std::nullopt);
  static APIError responseUnsuccessful(std::optional<std::string> description = std::nullopt, std::optional<std::int64_t> code = std::nullopt);
  static APIError jsonParsingFailure(std::optional<std::string> description = std::nullopt, std::optional<std::int64_t> code = std::nullopt);
  static APIError noInternet(std::optional<std::string> description = std::nullopt, std::optional<std::int64_t> code = std::nullopt);
  static APIError failedSerialization(std::optional<std::string> description = std::nullopt, std::optional<std::int64_t> code = std::nullopt);
  static APIError refreshTokenFailed(std::optional<std::string> description = std::nullopt, std::optional<std::int64_t> code = std::nullopt);
  static APIError bluetoothDisabled(std::optional<std::string> description = std::nullopt, std::optional<std::int64_t> code = std::nullopt);
  /// @}

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

  /// `"APIError <code>: <message>"`, with an empty message when the ResponseMessage has none.
  const char* what() const noexcept override { return what_.c_str(); }

 private:
  std::string what_;
};

/// Translation of localisation keys used by APIError's localized texts. The default returns the
/// key itself; an application installs its own table look-up.
using Localizer = std::string (*)(const std::string& key);
/// Installs the process-wide translation of localisation keys; `nullptr` restores the default
/// (the key itself). Safe to call from any thread.
void setLocalizer(Localizer localizer);
/// `key` translated by the installed Localizer, or `key` itself when none is installed.
std::string localized(const std::string& key);

}  // namespace velora
