#pragma once
// The preprocessor half of the record layer (see Record.hpp, which includes this file): the
// declaration macros and the few list-walking tools they are built from.

// ---- Declarations -----------------------------------------------------------------------------

/// Inside the body of `Type`, after its members: `typeName`, the field table `fields()` and the
/// member-wise `operator==`. Each entry is a member whose key is its own name, `(member, "key")`
/// for another key, or `VELORA_NOT_CODED(member)` for a member that never travels.
#define VELORA_RECORD(Type, ...)       \
  VELORA_FIELDS(Type, __VA_ARGS__);    \
  friend bool operator==(const Type&, const Type&) = default

/// VELORA_RECORD without the equality, for a record that compares in its own way.
#define VELORA_FIELDS(Type, ...)                       \
  [[maybe_unused]] static constexpr std::string_view typeName = #Type; \
  VELORA_FIELD_TABLE(Type, __VA_ARGS__)

/// Only the field table, for a base that lends its fields to records named elsewhere.
/// A forgotten member, or one named twice, stops the build here.
#define VELORA_FIELD_TABLE(Type, ...) \
  VELORA_DETAIL_FIELD_TABLE(Type, VELORA_PP_FOR_EACH(VELORA_DETAIL_ENTRY, Type, __VA_ARGS__))

/// A member the record keeps but never reads from or writes to JSON; it still counts as declared.
#define VELORA_NOT_CODED(member) (member, ::velora::detail::notCoded)

/// `enum class Name` with its cases and their raw texts, at namespace scope. Each case is a name,
/// whose raw text is the name itself, or `(name, "raw text")`. Unknown texts decode to the last case.
#define VELORA_ENUM(Name, ...)                                                            \
  enum class Name { VELORA_PP_FOR_EACH(VELORA_DETAIL_ENUMERATOR, Name, __VA_ARGS__) };    \
  constexpr auto enumCases(Name) {                                                        \
    return ::std::array{VELORA_PP_FOR_EACH(VELORA_DETAIL_ENUM_CASE, Name, __VA_ARGS__)};  \
  }                                                                                       \
  static_assert(true, "a use of the macro ends with a semicolon")

// ---- How the entries expand -------------------------------------------------------------------

#define VELORA_DETAIL_FIELD_TABLE(Type, ...)                                                   \
  static constexpr auto fields() {                                                             \
    static_assert(::velora::detail::declaresEachMemberOnce<Type>(__VA_ARGS__),                 \
                  #Type " must name each of its non-static data members exactly once "         \
                  "(VELORA_NOT_CODED(member) for one that never travels)");                    \
    return ::velora::detail::codedFields<Type>(__VA_ARGS__);                                   \
  }                                                                                            \
  static_assert(true, "a use of the macro ends with a semicolon")

#define VELORA_DETAIL_ENTRY(Type, e) VELORA_PP_CAT(VELORA_DETAIL_ENTRY_, VELORA_PP_IS_PAREN(e))(Type, e)
#define VELORA_DETAIL_ENTRY_0(Type, member) ::velora::detail::entry(#member, &Type::member)
#define VELORA_DETAIL_ENTRY_1(Type, keyed) VELORA_DETAIL_ENTRY_KEYED(Type, VELORA_PP_UNPAREN keyed)
#define VELORA_DETAIL_ENTRY_KEYED(Type, ...) VELORA_DETAIL_ENTRY_KEYED_I(Type, __VA_ARGS__)
#define VELORA_DETAIL_ENTRY_KEYED_I(Type, member, key) ::velora::detail::entry(key, &Type::member)

#define VELORA_DETAIL_ENUMERATOR(Name, c) VELORA_PP_CAT(VELORA_DETAIL_ENUMERATOR_, VELORA_PP_IS_PAREN(c))(c)
#define VELORA_DETAIL_ENUMERATOR_0(c) c
#define VELORA_DETAIL_ENUMERATOR_1(c) VELORA_PP_FIRST c

#define VELORA_DETAIL_ENUM_CASE(Name, c) VELORA_PP_CAT(VELORA_DETAIL_ENUM_CASE_, VELORA_PP_IS_PAREN(c))(Name, c)
#define VELORA_DETAIL_ENUM_CASE_0(Name, c) ::velora::EnumCase<Name>{Name::c, #c}
#define VELORA_DETAIL_ENUM_CASE_1(Name, c) VELORA_DETAIL_ENUM_CASE_RAW(Name, VELORA_PP_UNPAREN c)
#define VELORA_DETAIL_ENUM_CASE_RAW(Name, ...) VELORA_DETAIL_ENUM_CASE_RAW_I(Name, __VA_ARGS__)
#define VELORA_DETAIL_ENUM_CASE_RAW_I(Name, c, raw) ::velora::EnumCase<Name>{Name::c, raw}

// ---- List tools -------------------------------------------------------------------------------

#define VELORA_PP_CAT(a, b) VELORA_PP_CAT_I(a, b)
#define VELORA_PP_CAT_I(a, b) a##b
#define VELORA_PP_UNPAREN(...) __VA_ARGS__
#define VELORA_PP_FIRST(first, ...) first
#define VELORA_PP_SECOND(first, second, ...) second

/// 1 when `x` is wrapped in parentheses, else 0.
#define VELORA_PP_IS_PAREN(x) VELORA_PP_IS_PAREN_CHECK(VELORA_PP_IS_PAREN_PROBE x)
#define VELORA_PP_IS_PAREN_PROBE(...) ~, 1
#define VELORA_PP_IS_PAREN_CHECK(...) VELORA_PP_SECOND(__VA_ARGS__, 0, ~)

/// `macro(data, x)` for each further argument x, separated by commas. A macro cannot call itself,
/// so each step leaves the next one unexpanded for the following rescan of VELORA_PP_EXPAND, whose
/// nesting allows 342 arguments.
#define VELORA_PP_FOR_EACH(macro, data, ...) \
  __VA_OPT__(VELORA_PP_EXPAND(VELORA_PP_FOR_EACH_STEP(macro, data, __VA_ARGS__)))
#define VELORA_PP_FOR_EACH_STEP(macro, data, x, ...) \
  macro(data, x) __VA_OPT__(, VELORA_PP_FOR_EACH_AGAIN VELORA_PP_PARENS (macro, data, __VA_ARGS__))
#define VELORA_PP_FOR_EACH_AGAIN() VELORA_PP_FOR_EACH_STEP
#define VELORA_PP_PARENS ()

#define VELORA_PP_EXPAND(...) VELORA_PP_EXPAND3(VELORA_PP_EXPAND3(VELORA_PP_EXPAND3(VELORA_PP_EXPAND3(__VA_ARGS__))))
#define VELORA_PP_EXPAND3(...) VELORA_PP_EXPAND2(VELORA_PP_EXPAND2(VELORA_PP_EXPAND2(VELORA_PP_EXPAND2(__VA_ARGS__))))
#define VELORA_PP_EXPAND2(...) VELORA_PP_EXPAND1(VELORA_PP_EXPAND1(VELORA_PP_EXPAND1(VELORA_PP_EXPAND1(__VA_ARGS__))))
#define VELORA_PP_EXPAND1(...) VELORA_PP_EXPAND0(VELORA_PP_EXPAND0(VELORA_PP_EXPAND0(VELORA_PP_EXPAND0(__VA_ARGS__))))
#define VELORA_PP_EXPAND0(...) __VA_ARGS__
