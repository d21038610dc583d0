#pragma once
// The observable base that every server-driven component record shares.
//
// Component records are reference objects: the library hands them out as std::shared_ptr, so
// the application's view and the library (which later posts the card back) work on the same
// instance. Fields are plain public members, so reading one costs nothing. A view that wants to
// follow changes calls observe() and keeps the returned Subscription; writes that should be seen
// go through set(), which assigns the member and, when the new value differs from the old one,
// tells every observer the JSON key of that field. Code that edits a member in place (say,
// appends to a list) calls notifyChanged() itself.
//
// Threading: the observer list is guarded by a mutex, so observing and unsubscribing are safe
// from any thread. Observers run on the thread that called set(), without the lock held, so an
// observer may itself unsubscribe or set other fields. Field values are not locked: one thread at
// a time (normally the UI thread) should write a given record.
//
// Copying or moving a record copies its field values only; the copy starts with no observers
// and observers stay with the instance they subscribed to. Equality compares field values only.

#include <concepts>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <vector>

#include <velora/core/AnyCodable.hpp>
#include <velora/core/Record.hpp>
#include <velora/widgets/ComponentEnumerations.hpp>

namespace velora {

namespace detail {

template <class T>
struct IsSharedPtr : std::false_type {};
template <class T>
struct IsSharedPtr<std::shared_ptr<T>> : std::true_type {};
template <class T>
struct IsVector : std::false_type {};
template <class T>
struct IsVector<std::vector<T>> : std::true_type {};

/// Value equality that looks through the shared pointers which hold nested component records.
template <class T>
bool sameValue(const T& a, const T& b) {
  if constexpr (IsSharedPtr<T>::value) {
    return a == b || (a && b && *a == *b);
  } else if constexpr (IsVector<T>::value) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
      if (!sameValue(a[i], b[i])) return false;
    }
    return true;
  } else if constexpr (IsOptional<T>::value) {
    return a.has_value() == b.has_value() && (!a || sameValue(*a, *b));
  } else {
    return a == b;
  }
}

/// The JSON key under which `fields` lists `member`; empty when it does not list it.
template <class Fields, class R, class M>
constexpr std::string_view keyOf(const Fields& fields, M R::*member) {
  std::string_view key;
  std::apply(
      [&](const auto&... f) {
        auto visit = [&](const auto& one) {
          if constexpr (std::is_same_v<std::remove_cvref_t<decltype(one)>, Field<R, M>>) {
            if (key.empty() && one.member == member) key = one.key;
          }
        };
        (visit(f), ...);
      },
      fields);
  return key;
}

}  // namespace detail

/// The fields every component record shares, and the observer list that lets a view follow them.
/// Records derive from it through ORVSComponentModel and are shared by std::shared_ptr. Fields are
/// plain members: write through set() (or call notifyChanged()) so that observers hear of a change.
/// Observing is thread-safe; writing a record's fields is for one thread at a time. Copies carry the
/// field values only, and equality compares field values only.
class ORVSBaseModel {
 public:
  /// The component's kind. A record starts with its own kind; decoding takes the "type" key
  /// (required), and an ORVSComponent writes its case's kind whatever this field holds.
  ORVSComponentType type = ORVSComponentType::unknown;
  /// The component's id on the server; widget cards are fetched and posted by it. Required in JSON.
  std::string componentId;
  /// Whether the user may interact with the component. Required in JSON.
  bool enabled = false;
  std::optional<std::string> name;  ///< The display name; absent for none.
  /// The localisation key of `name`, for applications that translate it themselves; absent for none.
  std::optional<std::string> i18n;
  /// The component's current value, whatever its shape (text, number, list, object...).
  std::optional<AnyCodable> value;

  /// Receives the JSON key of the field that changed; runs on the thread that made the change.
  using Observer = std::function<void(std::string_view fieldName)>;

  /// Keeps an observer registered; destroying or cancelling it unsubscribes. It may outlive the
  /// record it observes.
  class Subscription {
   public:
    /// An empty subscription that observes nothing; cancelling it does nothing.
    Subscription() = default;
    /// @{
    /// Takes over `other`'s observer, leaving `other` empty; assigning first cancels the observer
    /// this subscription held.
    Subscription(Subscription&& other) noexcept;
    Subscription& operator=(Subscription&& other) noexcept;
    /// @}
    Subscription(const Subscription&) = delete;
    Subscription& operator=(const Subscription&) = delete;
    ~Subscription() { cancel(); }

    /// Unregisters the observer, from any thread. Once it returns the observer is not called again,
    /// except by a notification already under way. Safe to call twice, or after the record is gone.
    void cancel() noexcept;
    /// Whether the subscription still holds an observer of a living record: false once cancelled,
    /// moved from, or after the record is destroyed.
    bool active() const { return !observers_.expired(); }

   private:
    friend class ORVSBaseModel;
    struct Observers;
    Subscription(std::weak_ptr<Observers> observers, std::uint64_t id) : observers_(std::move(observers)), id_(id) {}

    std::weak_ptr<Observers> observers_;
    std::uint64_t id_ = 0;
  };

  /// Calls `observer` with a field's JSON key ("enabled", "value", "placeholder"...) each time
  /// that field changes through set() or notifyChanged().
  [[nodiscard]] Subscription observe(Observer observer);

  /// Tells the observers that the field with JSON key `fieldName` changed.
  void notifyChanged(std::string_view fieldName) const;

  /// The JSON keys of the shared fields; every record's own table starts with these.
  static constexpr auto baseFields() {
    using T = ORVSBaseModel;
    return std::tuple{field("type", &T::type), field("componentId", &T::componentId), field("enabled", &T::enabled),
                      field("name", &T::name),  field("i18n", &T::i18n),               field("value", &T::value)};
  }

  /// Sets one of the shared fields, for code that only knows a component through its base.
  /// Returns whether the value changed (and observers were told).
  template <class M>
  bool set(M ORVSBaseModel::*member, std::type_identity_t<M> newValue) {
    return assign(this->*member, std::move(newValue), detail::keyOf(baseFields(), member));
  }

 protected:
  /// A record of kind `kind` with the other shared fields empty and no observers.
  explicit ORVSBaseModel(ORVSComponentType kind);
  /// @{
  /// Copy or move the shared field values only: a new record starts with no observers, and an
  /// assigned one keeps its own observers without telling them of the change.
  ORVSBaseModel(const ORVSBaseModel& other);
  ORVSBaseModel(ORVSBaseModel&& other) noexcept;
  ORVSBaseModel& operator=(const ORVSBaseModel& other);
  ORVSBaseModel& operator=(ORVSBaseModel&& other) noexcept;
  /// @}
  ~ORVSBaseModel();

  /// Stores `newValue` in `slot` and, when it differs from the old value, tells the observers
  /// `key`. Returns whether it changed. The step behind both set() functions.
  template <class M>
  bool assign(M& slot, M newValue, std::string_view key) {
    const bool changed = !(slot == newValue);
    slot = std::move(newValue);
    if (changed) notifyChanged(key);
    return changed;
  }

 private:
  using Observers = Subscription::Observers;
  std::shared_ptr<Observers> observers_;
};

/// The common ground of one component record `Derived` of kind `Kind`: the kind constant, a
/// default `type` matching it, the record's field table prefixed by the shared fields, the
/// observable setter and field-wise equality.
template <class Derived, ORVSComponentType Kind>
class ORVSComponentModel : public ORVSBaseModel {
 public:
  static constexpr ORVSComponentType kind = Kind;  ///< The component kind, and ORVSComponent case, of Derived.

  ORVSComponentModel() : ORVSBaseModel(Kind) {}

  /// Assigns `member` (one of Derived's fields, shared or own) and, when the value changed,
  /// notifies the observers with the field's JSON key. Returns whether it changed.
  template <class C, class M>
    requires std::is_base_of_v<C, Derived>
  bool set(M C::*member, std::type_identity_t<M> newValue) {
    auto* self = static_cast<Derived*>(this);
    return assign(self->*member, std::move(newValue),
                  detail::keyOf(Derived::fields(), static_cast<M Derived::*>(member)));
  }

  friend bool operator==(const Derived& a, const Derived& b) {
    return std::apply([&](const auto&... f) { return (detail::sameValue(a.*(f.member), b.*(f.member)) && ...); },
                      Derived::fields());
  }

  /// The shared fields followed by `own`, all keyed on Derived as the record layer expects (own
  /// fields may be declared on an intermediate base). The record layer calls it for every record
  /// declared on top of this class.
  template <class... Own>
  static constexpr auto withBaseFields(Own... own) {
    auto shared = std::apply([](auto... f) { return std::tuple{rebase(f)...}; }, ORVSBaseModel::baseFields());
    return std::tuple_cat(shared, std::tuple{rebase(own)...});
  }

 private:
  template <class B, class M>
    requires std::is_base_of_v<B, Derived>
  static constexpr Field<Derived, M> rebase(Field<B, M> f) {
    return {f.key, f.member};
  }
};

}  // namespace velora
