#pragma once
// The result record of every REST operation and the server's own error/acknowledgement body.

#include <cstdint>
#include <optional>
#include <string>

#include <velora/core/AnyCodable.hpp>
#include <velora/core/Record.hpp>

namespace velora {

/// A message the server wants shown to the user, inside a ResponseMessage. JSON keys are the member
/// names. APIError::localizedTitle and localizedDescription pick the texts to show.
struct ResponseMessageAlert {
  /// The alert's own code (APIError::alertCode), which may differ from the message's.
  std::int64_t code = 0;
  /// Icon to show with it, as the server names it; absent for none.
  std::optional<std::string> icon;
  /// Title to show, in the server's language.
  std::string title;
  /// Localisation key of the title; when present, its translation by the installed Localizer is
  /// shown instead of `title`.
  std::optional<std::string> i18nTitle;
  /// Text to show under the title, in the server's language.
  std::string description;
  /// Localisation key of the description; when present, its translation is shown instead of
  /// `description`.
  std::optional<std::string> i18nDescription;

  VELORA_RECORD(ResponseMessageAlert, code, icon, title, i18nTitle, description, i18nDescription);
};

/// What every REST operation's callback receives and APIError carries: the server's own JSON
/// error/acknowledgement body, or one the library builds from the status or a failure of its own.
/// JSON keys are the member names.
struct ResponseMessage {
  /// Server result code, HTTP status, or one of the library's negative codes.
  std::int64_t code = 0;
  /// Human-readable text, e.g. the server's message or the status's reason phrase ("not found").
  std::optional<std::string> message;
  /// Diagnostic text: the server's trace, or the transport's reason for an awaited request's failure.
  std::optional<std::string> trace;
  /// Text the server wants shown to the user; absent for most replies.
  std::optional<ResponseMessageAlert> alert;
  /// The decoded reply of a successful request, or raw bytes as {"data": bytes}.
  std::optional<AnyCodable> payload;

  /// @{
  /// A message with `code`; everything else absent unless given.
  ResponseMessage() = default;
  explicit ResponseMessage(std::int64_t code, std::optional<std::string> message = std::nullopt,
                           std::optional<std::string> trace = std::nullopt,
                           std::optional<ResponseMessageAlert> alert = std::nullopt,
                           std::optional<AnyCodable> payload = std::nullopt)
      : code(code), message(std::move(message)), trace(std::move(trace)), alert(std::move(alert)),
        payload(std::move(payload)) {}
  /// @}

  /// The payload decoded as T (the record an operation's callback form delivers).
  /// Throws DecodingError when there is none or it has another shape.
  template <class T>
  T payloadAs() const {
    if (!payload) throw DecodingError("$", "the response carries no payload");
    return decode<T>(*payload);
  }

  VELORA_RECORD(ResponseMessage, code, message, trace, alert, payload);
  /// The constructors keep the record layer from counting the members of this class.
  static constexpr bool uncountedMembers = true;
};

}  // namespace velora
