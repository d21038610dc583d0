#pragma once
// The result record of every REST operation and the server's own error/acknowledgement body.

#include <cstdint>
#include <optional>
#include <string>

#include <velora/core/AnyCodable.hpp>
#include <velora/core/Record.hpp>

namespace velora {

struct ResponseMessageAlert {
  std::int64_t code = 0;
  std::optional<std::string> icon;
  std::string title;
  std::optional<std::string> i18nTitle;
  std::string description;
  std::optional<std::string> i18nDescription;

  VELORA_RECORD(ResponseMessageAlert, code, icon, title, i18nTitle, description, i18nDescription);
};

struct ResponseMessage {
  /// Server result code, HTTP status, or one of the library's negative codes.
  std::int64_t code = 0;
  std::optional<std::string> message;
  std::optional<std::string> trace;
  std::optional<ResponseMessageAlert> alert;
  /// The decoded reply of a successful request, or raw bytes as {"data": bytes}.
  std::optional<AnyCodable> payload;

  ResponseMessage() = default;
  explicit ResponseMessage(std::int64_t code, std::optional<std::string> message = std::nullopt,
                           std::optional<std::string> trace = std::nullopt,
                           std::optional<ResponseMessageAlert> alert = std::nullopt,
                           std::optional<AnyCodable> payload = std::nullopt)
      : code(code), message(std::move(message)), trace(std::move(trace)), alert(std::move(alert)),
        payload(std::move(payload)) {}

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
