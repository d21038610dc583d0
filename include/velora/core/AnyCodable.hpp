#pragma once
// A free-form JSON value: the payload of unknown shape that records carry, and the tree every
// record is encoded to and decoded from. The JSON text parser lives in the library, so no
// third-party type appears here.

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace velora {

/// Raw bytes (images, downloaded resources); written to JSON as base64 text.
using Bytes = std::vector<std::uint8_t>;

/// Thrown when a value cannot be turned into JSON text or read from it.
class JsonError : public std::runtime_error {
 public:
  /// `message` is the fixed text callers match ("AnyDecodable value cannot be decoded" or
  /// "AnyEncodable value cannot be encoded"); `detail` what went wrong, empty when unknown.
  explicit JsonError(const std::string& message, std::string detail = {})
      : std::runtime_error(message), detail_(std::move(detail)) {}
  /// What the parser found and where, for logs; the message stays the fixed text callers match.
  const std::string& detail() const noexcept { return detail_; }

 private:
  std::string detail_;
};

/// A JSON value of any kind: null, boolean, integer, double, string, raw bytes, array or object.
/// Default-constructed it is null. Records are encoded to and decoded from it, and payloads of
/// unknown shape (ResponseMessage::payload) are kept as one.
class AnyCodable {
 public:
  /// A JSON array.
  using Array = std::vector<AnyCodable>;
  /// Keys keep their insertion order, so encoding a record is deterministic.
  using Object = std::vector<std::pair<std::string, AnyCodable>>;

  /// @{
  /// Implicit conversions from C++ values: null, a boolean, a number, text, bytes, an array or an
  /// object. Every integer type is stored as `std::int64_t` (an unsigned value above INT64_MAX wraps to
  /// a negative one); text of any kind is stored as `std::string`.
  AnyCodable() = default;
  AnyCodable(std::nullptr_t) {}
  AnyCodable(bool v) : value_(v) {}
  AnyCodable(int v) : value_(std::int64_t{v}) {}
  AnyCodable(unsigned v) : value_(std::int64_t{v}) {}
  AnyCodable(long v) : value_(std::int64_t{v}) {}
  AnyCodable(long long v) : value_(std::int64_t{v}) {}
  AnyCodable(unsigned long v) : value_(static_cast<std::int64_t>(v)) {}
  AnyCodable(unsigned long long v) : value_(static_cast<std::int64_t>(v)) {}
  AnyCodable(double v) : value_(v) {}
  AnyCodable(std::string v) : value_(std::move(v)) {}
  AnyCodable(std::string_view v) : value_(std::string(v)) {}
  AnyCodable(const char* v) : value_(std::string(v)) {}
  AnyCodable(Bytes v) : value_(std::move(v)) {}
  AnyCodable(Array v) : value_(std::move(v)) {}
  AnyCodable(Object v) : value_(std::move(v)) {}
  /// @}

  /// An object with `members` in the order given, e.g. `AnyCodable::object({{"data", bytes}})`.
  static AnyCodable object(std::initializer_list<std::pair<const char*, AnyCodable>> members);

  /// @{
  /// Which kind of value this holds: JSON null, an object, an array.
  bool isNull() const { return std::holds_alternative<std::nullptr_t>(value_); }
  bool isObject() const { return std::holds_alternative<Object>(value_); }
  bool isArray() const { return std::holds_alternative<Array>(value_); }
  /// @}

  /// @{
  /// The stored alternative, or null when the value holds another kind. T is one of `bool`,
  /// `std::int64_t`, `double`, `std::string`, `Bytes`, `Array` or `Object`; use number() to read a
  /// number of either kind.
  template <class T>
  const T* as() const { return std::get_if<T>(&value_); }
  template <class T>
  T* as() { return std::get_if<T>(&value_); }
  /// @}

  /// Integers are also readable as doubles, as JSON does not tell them apart.
  std::optional<double> number() const;

  /// Object member look-up; null when this is not an object or the key is absent.
  const AnyCodable* find(std::string_view key) const;
  /// Object member for writing; turns a null value into an empty object first.
  AnyCodable& operator[](std::string_view key);

  /// Parses JSON text. Throws JsonError("AnyDecodable value cannot be decoded") with the parser's
  /// finding in `detail()`.
  static AnyCodable parse(std::string_view text);
  /// Parses JSON text; nullopt and the reason in `error` instead of throwing.
  static std::optional<AnyCodable> tryParse(std::string_view text, std::string* error = nullptr);
  /// Compact JSON text. Bytes are written as base64 text. Throws JsonError("AnyEncodable value
  /// cannot be encoded") for a value JSON cannot hold (a non-finite number).
  std::string dump() const;

  /// Same kind and same content; an integer never equals a double, and object member order counts.
  friend bool operator==(const AnyCodable&, const AnyCodable&) = default;

 private:
  std::variant<std::nullptr_t, bool, std::int64_t, double, std::string, Bytes, Array, Object> value_;
};

/// Standard base64 (alphabet with '+' and '/') with '=' padding; empty for no bytes.
std::string base64Encode(const Bytes& bytes);
/// The bytes of padded standard base64 text; nullopt when its length is not a multiple of four or
/// it holds a character outside the alphabet.
std::optional<Bytes> base64Decode(std::string_view text);

}  // namespace velora
