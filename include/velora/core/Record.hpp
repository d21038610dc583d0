#pragma once
// The record layer. A record declares its JSON shape once, after its members:
//
//   struct Badge {
//     std::string holder;
//     std::optional<int> floor;
//     std::optional<std::string> note;  // the application's own, never sent
//     VELORA_RECORD(Badge, holder, (floor, "floor-level"), VELORA_NOT_CODED(note));
//   };
//
// which defines `typeName` ("Badge"), the field table `fields()` (each key is the member's name
// unless given) and the member-wise `operator==`; VELORA_FIELDS leaves the equality to the record.
// Each non-static data member is named once, so adding a member without declaring it stops the
// build. encode/decode follow from the table: absent optionals are left out, `null` reads as
// absent, every other key is required, and a failure names the JSON path of the offending value.
//
// A text-backed enumeration declares its cases with their raw texts, `VELORA_ENUM(Lock, open,
// (closed, "CLOSED"), unknown);`, and decodes tolerantly: the first case with that raw text, else
// the last declared case.

#include <array>
#include <chrono>
#include <algorithm>
#include <cmath>
#include <concepts>
#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include <velora/core/AnyCodable.hpp>
#include <velora/core/Date.hpp>
#include <velora/core/RecordMacros.hpp>

namespace velora {

/// A value that does not have the shape its record declares. `path` is a JSON path such as
/// "$.iosadvConf.tagid"; `what()` reads `"<path>: <reason>"`.
class DecodingError : public JsonError {
 public:
  /// `reason` says what was expected and found, e.g. "required key is missing".
  DecodingError(std::string path, const std::string& reason)
      : JsonError(path + ": " + reason), path_(std::move(path)) {}
  /// JSON path of the offending value, "$" for the top level and "$[3].name" inside a list.
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

/// One entry of a record's field table: the JSON key a member travels under.
template <class R, class M>
struct Field {
  std::string_view key;  ///< JSON key; the member's own name unless the declaration gives another.
  M R::*member;          ///< The member of record R that the key reads into and writes from.
};

/// A Field, with its types deduced from `member`.
template <class R, class M>
constexpr Field<R, M> field(std::string_view key, M R::*member) { return {key, member}; }

/// One case of a text-backed enumeration and the text it travels as in JSON.
template <class E>
struct EnumCase {
  E value;               ///< The C++ case.
  std::string_view raw;  ///< Its JSON text: the case's name unless the declaration gives another.
};

template <class T>
concept Record = requires { T::fields(); };

namespace detail {

/// The key VELORA_NOT_CODED gives a member that never travels.
struct NotCoded {};
inline constexpr NotCoded notCoded{};

template <class R, class M>
struct NotCodedMember {
  M R::*member;
};

/// One entry of a record's declaration.
template <class R, class M>
constexpr Field<R, M> entry(std::string_view key, M R::*member) { return field(key, member); }
template <class R, class M>
constexpr NotCodedMember<R, M> entry(NotCoded, M R::*member) { return {member}; }

/// Converts to anything, so `R{AnyMember{}, ...}` compiles as long as there are no more values than
/// R has aggregate elements. Only ever named in unevaluated code.
struct AnyMember {
  template <class T>
  operator T() const;
};
template <std::size_t>
using AnyMemberAt = AnyMember;

template <class R, std::size_t... I>
constexpr bool bracesFit(std::index_sequence<I...>) { return requires { R{AnyMemberAt<I>{}...}; }; }

/// Whether the aggregate R has exactly N elements (its direct bases, then its non-static data
/// members): N values initialise it and N + 1 are too many.
template <class R, std::size_t N>
constexpr bool hasAggregateElements() {
  return bracesFit<R>(std::make_index_sequence<N>{}) && !bracesFit<R>(std::make_index_sequence<N + 1>{});
}

/// A record whose JSON object also holds fields its base declares inherits a public static
/// `withBaseFields(own...)` that puts those in front of its own; that base is then the record's one
/// aggregate element besides its members.
template <class R>
concept ExtendsRecord = requires { R::withBaseFields(); };

template <class A, class B>
constexpr bool sameMember(const A& a, const B& b) {
  if constexpr (std::is_same_v<decltype(a.member), decltype(b.member)>) {
    return a.member == b.member;
  } else {
    return false;
  }
}

template <class A, class... E>
constexpr std::size_t timesNamed(const A& a, const E&... entries) {
  return (std::size_t{sameMember(a, entries)} + ...);
}

/// Whether `declared` names each non-static data member of R once. Members of a non-aggregate
/// cannot be counted, only checked for repeats; such a record says so with
/// `static constexpr bool uncountedMembers = true;` next to the reason.
template <class R, class... E>
constexpr bool declaresEachMemberOnce(const E&... declared) {
  const bool noRepeats = ((timesNamed(declared, declared...) == 1) && ...);
  if constexpr (std::is_aggregate_v<R>) {
    static_assert(!requires { R::uncountedMembers; }, "the members of an aggregate record are counted");
    return noRepeats && hasAggregateElements<R, std::size_t{ExtendsRecord<R>} + sizeof...(E)>();
  } else {
    static_assert(requires { requires R::uncountedMembers; },
                  "a record that is not an aggregate declares `static constexpr bool uncountedMembers = true;`");
    return noRepeats;
  }
}

template <class E>
inline constexpr bool isNotCoded = false;
template <class R, class M>
inline constexpr bool isNotCoded<NotCodedMember<R, M>> = true;

template <class E>
constexpr auto codedOnly(const E& e) {
  if constexpr (isNotCoded<E>) {
    return std::tuple<>{};
  } else {
    return std::tuple<E>{e};
  }
}

/// The field table of R: its coded entries, behind its base's fields when it extends a record.
template <class R, class... E>
constexpr auto codedFields(const E&... declared) {
  if constexpr ((isNotCoded<E> || ...)) {
    return std::apply([](const auto&... f) { return codedFields<R>(f...); }, std::tuple_cat(codedOnly(declared)...));
  } else if constexpr (ExtendsRecord<R>) {
    return R::withBaseFields(declared...);
  } else {
    return std::tuple<E...>{declared...};
  }
}

}  // namespace detail

template <class E>
concept TolerantEnum = std::is_enum_v<E> && requires(E e) { enumCases(e); };

/// The raw text of an enumeration case.
template <TolerantEnum E>
std::string_view rawValue(E value) {
  for (const auto& c : enumCases(E{})) {
    if (c.value == value) return c.raw;
  }
  return {};
}

/// The first case whose raw text equals `raw` exactly, else the last declared case.
template <TolerantEnum E>
E enumFromRaw(std::string_view raw) {
  const auto cases = enumCases(E{});
  for (const auto& c : cases) {
    if (c.raw == raw) return c.value;
  }
  return cases.back().value;
}

namespace detail {

/// One step of the path to the value being decoded; the chain lives on the stack and is only
/// turned into text when decoding fails.
struct JsonPath {
  const JsonPath* parent = nullptr;
  std::string_view key;
  std::size_t index = 0;
  bool isIndex = false;
  std::string text() const;
};

[[noreturn]] void throwDecoding(const JsonPath& path, const std::string& reason);
std::string_view kindName(const AnyCodable& value);

template <class T>
struct Codec;

template <class T>
struct IsOptional : std::false_type {};
template <class T>
struct IsOptional<std::optional<T>> : std::true_type {};

}  // namespace detail

/// `value` as a JSON tree: records become objects in field-table order with absent optionals left
/// out, enumerations their raw text, Date seconds since 2001-01-01, Bytes base64 text.
template <class T>
AnyCodable encode(const T& value) { return detail::Codec<T>::encode(value); }

/// A T read from a JSON tree. Throws DecodingError, naming the JSON path, when a required key is
/// missing or null, a value has the wrong kind, or an integer is out of T's range; unknown keys are
/// ignored and an unknown enumeration text reads as the enumeration's last case.
template <class T>
T decode(const AnyCodable& json) { return detail::Codec<T>::decode(json, detail::JsonPath{}); }

namespace detail {

/// A random (version 4) UUID in upper-case canonical text: installation identifiers and the
/// identities records get when they are created.
std::string makeUUID();

/// Receives each element of a top-level JSON array with its index.
using ElementSink = std::function<void(AnyCodable&&, std::size_t)>;

/// Parses `text`, handing each element of a top-level array to `each` as soon as it is whole
/// instead of keeping the whole tree; returns the tree when the top level is not an array. Text
/// that is not JSON throws JsonError even when `each` threw earlier: what `each` threw first is
/// rethrown only once the whole text has parsed.
std::optional<AnyCodable> parseElements(std::string_view text, const ElementSink& each);

/// How many elements the top-level array of `text` holds, by a scan that builds nothing; 0 when
/// the text is not an array or ends early. Sizes a decoded list once instead of by doubling.
std::size_t countTopLevelElements(std::string_view text);

template <class T>
inline constexpr bool isList = false;
template <class T>
inline constexpr bool isList<std::vector<T>> = !std::same_as<std::vector<T>, Bytes>;

}  // namespace detail

/// Decodes a record from JSON text; DecodingError or JsonError on failure. A list is decoded one
/// element at a time while the text is read, so a long reply never exists whole as a tree.
template <class T>
T decodeJSON(std::string_view text) {
  if constexpr (detail::isList<T>) {
    T out;
    // Bounded by the text, so that a malformed reply cannot make it reserve more than a real one.
    out.reserve(std::min(detail::countTopLevelElements(text), text.size() / 16));
    const detail::JsonPath root{};
    auto whole = detail::parseElements(text, [&](AnyCodable&& element, std::size_t index) {
      out.push_back(detail::Codec<typename T::value_type>::decode(element, detail::JsonPath{&root, {}, index, true}));
    });
    if (whole) return detail::Codec<T>::decode(*whole, root);
    return out;
  } else {
    return decode<T>(AnyCodable::parse(text));
  }
}

/// `value` as compact JSON text (encode, then AnyCodable::dump); JsonError for a non-finite number.
template <class T>
std::string encodeJSON(const T& value) { return encode(value).dump(); }

namespace detail {

template <>
struct Codec<AnyCodable> {
  static AnyCodable encode(const AnyCodable& v) { return v; }
  static AnyCodable decode(const AnyCodable& j, const JsonPath&) { return j; }
};

template <>
struct Codec<bool> {
  static AnyCodable encode(bool v) { return v; }
  static bool decode(const AnyCodable& j, const JsonPath& p) {
    if (auto b = j.as<bool>()) return *b;
    throwDecoding(p, std::string("expected a boolean, found ") + std::string(kindName(j)));
  }
};

template <>
struct Codec<std::string> {
  static AnyCodable encode(const std::string& v) { return v; }
  static std::string decode(const AnyCodable& j, const JsonPath& p) {
    if (auto s = j.as<std::string>()) return *s;
    throwDecoding(p, std::string("expected a string, found ") + std::string(kindName(j)));
  }
};

template <std::integral T>
  requires(!std::same_as<T, bool>)
struct Codec<T> {
  static AnyCodable encode(T v) { return static_cast<long long>(v); }
  static T decode(const AnyCodable& j, const JsonPath& p) {
    std::int64_t v = 0;
    if (auto i = j.as<std::int64_t>()) {
      v = *i;
    } else if (auto d = j.as<double>(); d && std::trunc(*d) == *d && std::abs(*d) < 9.2e18) {
      v = static_cast<std::int64_t>(*d);
    } else {
      throwDecoding(p, std::string("expected an integer, found ") + std::string(kindName(j)));
    }
    if (v < static_cast<std::int64_t>(std::numeric_limits<T>::min()) ||
        (v > 0 && static_cast<std::uint64_t>(v) > static_cast<std::uint64_t>(std::numeric_limits<T>::max()))) {
      throwDecoding(p, "integer " + std::to_string(v) + " out of range");
    }
    return static_cast<T>(v);
  }
};

template <>
struct Codec<double> {
  static AnyCodable encode(double v) { return v; }
  static double decode(const AnyCodable& j, const JsonPath& p) {
    if (auto n = j.number()) return *n;
    throwDecoding(p, std::string("expected a number, found ") + std::string(kindName(j)));
  }
};

template <>
struct Codec<Date> {
  static AnyCodable encode(Date v) { return secondsSinceReferenceDate(v); }
  static Date decode(const AnyCodable& j, const JsonPath& p) {
    return dateFromReferenceSeconds(Codec<double>::decode(j, p));
  }
};

/// Raw bytes travel as base64 text inside JSON.
template <>
struct Codec<Bytes> {
  static AnyCodable encode(const Bytes& v) { return v; }
  static Bytes decode(const AnyCodable& j, const JsonPath& p) {
    if (auto b = j.as<Bytes>()) return *b;
    if (auto s = j.as<std::string>()) {
      if (auto b = base64Decode(*s)) return *b;
    }
    throwDecoding(p, std::string("expected base64 data, found ") + std::string(kindName(j)));
  }
};

template <TolerantEnum E>
struct Codec<E> {
  static AnyCodable encode(E v) { return std::string(rawValue(v)); }
  static E decode(const AnyCodable& j, const JsonPath& p) {
    return enumFromRaw<E>(Codec<std::string>::decode(j, p));
  }
};

template <class T>
struct Codec<std::optional<T>> {
  static AnyCodable encode(const std::optional<T>& v) { return v ? Codec<T>::encode(*v) : AnyCodable{}; }
  static std::optional<T> decode(const AnyCodable& j, const JsonPath& p) {
    if (j.isNull()) return std::nullopt;
    return Codec<T>::decode(j, p);
  }
};

template <class T>
struct Codec<std::vector<T>> {
  static AnyCodable encode(const std::vector<T>& v) {
    AnyCodable::Array out;
    out.reserve(v.size());
    for (const auto& e : v) out.push_back(Codec<T>::encode(e));
    return out;
  }
  static std::vector<T> decode(const AnyCodable& j, const JsonPath& p) {
    const auto* array = j.as<AnyCodable::Array>();
    if (!array) throwDecoding(p, std::string("expected an array, found ") + std::string(kindName(j)));
    std::vector<T> out;
    out.reserve(array->size());
    for (std::size_t i = 0; i < array->size(); ++i) {
      out.push_back(Codec<T>::decode((*array)[i], JsonPath{&p, {}, i, true}));
    }
    return out;
  }
};

template <class T>
struct Codec<std::map<std::string, T>> {
  static AnyCodable encode(const std::map<std::string, T>& v) {
    AnyCodable::Object out;
    out.reserve(v.size());
    for (const auto& [k, e] : v) out.emplace_back(k, Codec<T>::encode(e));
    return out;
  }
  static std::map<std::string, T> decode(const AnyCodable& j, const JsonPath& p) {
    const auto* object = j.as<AnyCodable::Object>();
    if (!object) throwDecoding(p, std::string("expected an object, found ") + std::string(kindName(j)));
    std::map<std::string, T> out;
    for (const auto& [k, e] : *object) out.insert_or_assign(k, Codec<T>::decode(e, JsonPath{&p, k}));
    return out;
  }
};

template <Record R>
struct Codec<R> {
  static AnyCodable encode(const R& record) {
    AnyCodable::Object out;
    std::apply([&](const auto&... f) { (encodeField(out, record, f), ...); }, R::fields());
    return out;
  }

  static R decode(const AnyCodable& j, const JsonPath& p) {
    const auto* object = j.as<AnyCodable::Object>();
    if (!object) throwDecoding(p, std::string("expected an object, found ") + std::string(kindName(j)));
    R record{};
    std::apply([&](const auto&... f) { (decodeField(j, p, record, f), ...); }, R::fields());
    if constexpr (requires { record.didDecode(); }) record.didDecode();
    return record;
  }

 private:
  template <class M>
  static void encodeField(AnyCodable::Object& out, const R& record, const Field<R, M>& f) {
    const M& value = record.*(f.member);
    if constexpr (IsOptional<M>::value) {
      if (!value) return;
    }
    out.emplace_back(std::string(f.key), Codec<M>::encode(value));
  }

  template <class M>
  static void decodeField(const AnyCodable& j, const JsonPath& p, R& record, const Field<R, M>& f) {
    const AnyCodable* member = j.find(f.key);
    JsonPath here{&p, f.key};
    if constexpr (IsOptional<M>::value) {
      // A missing key is absent even where the record's constructor would fill in a value:
      // decoding reads what was sent and applies no defaults.
      record.*(f.member) = member ? Codec<M>::decode(*member, here) : M{};
    } else {
      if (!member) throwDecoding(here, "required key is missing");
      if (member->isNull()) throwDecoding(here, "required value is null");
      record.*(f.member) = Codec<M>::decode(*member, here);
    }
  }
};

/// Records shared by reference (components, item controls) travel by shared pointer. An empty
/// pointer is an absent value: a member left out of the object, or a JSON null.
template <Record T>
struct IsOptional<std::shared_ptr<T>> : std::true_type {};

template <Record T>
struct Codec<std::shared_ptr<T>> {
  static AnyCodable encode(const std::shared_ptr<T>& v) { return v ? Codec<T>::encode(*v) : AnyCodable{}; }
  static std::shared_ptr<T> decode(const AnyCodable& j, const JsonPath& p) {
    if (j.isNull()) return nullptr;
    return std::make_shared<T>(Codec<T>::decode(j, p));
  }
};

template <class T>
struct TypeName {
  static std::string get() {
    if constexpr (Record<T>) return std::string(T::typeName);
    else if constexpr (std::same_as<T, std::string>) return "String";
    else if constexpr (std::same_as<T, bool>) return "Bool";
    else if constexpr (std::same_as<T, double>) return "Double";
    else if constexpr (std::integral<T>) return "Int";
    else if constexpr (std::same_as<T, AnyCodable>) return "AnyCodable";
    else return "Value";
  }
};
template <class T>
struct TypeName<std::vector<T>> {
  static std::string get() { return "Array<" + TypeName<T>::get() + ">"; }
};
template <class T>
struct TypeName<std::optional<T>> {
  static std::string get() { return "Optional<" + TypeName<T>::get() + ">"; }
};
/// Raw bytes are a vector too, but not a list of numbers.
template <>
struct TypeName<Bytes> {
  static std::string get() { return "Data"; }
};

}  // namespace detail

/// The name a reply type goes by in messages such as `"<Type> completed successfully"`.
template <class T>
std::string typeName() { return detail::TypeName<T>::get(); }

}  // namespace velora
