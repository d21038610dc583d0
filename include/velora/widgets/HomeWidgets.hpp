#pragma once
// The server-driven home screen: containers (a header, a body) holding widgets of a few kinds,
// and the profile actions offered from the user's menu.
//
// A widget is chosen by its "type" text. Kinds this library does not know decode as UNSUPPORTED,
// keeping only that text, so that a newer server never breaks the home screen. Where the platform
// leaves a member's shape open, buttons and actions keep whatever JSON arrives, as AnyCodable.

#include <optional>
#include <string>
#include <type_traits>
#include <variant>
#include <vector>

#include <velora/booking/Booking.hpp>
#include <velora/core/AnyCodable.hpp>
#include <velora/core/Record.hpp>

namespace velora {

VELORA_ENUM(WidgetType, USER, BOOKING, LOCKER, WEB, ACTION, (DND, "DND_OOO"), UNSUPPORTED);
VELORA_ENUM(WidgetActionType, TICKET_ACTION, UNSUPPORTED);
VELORA_ENUM(ContainerType, HEADER, BODY, UNKNOWN);

struct UserInfo {
  std::string username;
  std::optional<std::string> image;
  std::optional<std::string> icon;
  std::optional<std::string> name;
  std::optional<std::vector<std::string>> profiles;

  VELORA_RECORD(UserInfo, username, image, icon, name, profiles);
};

struct WidgetDNDResource {
  std::string id;
  std::string name;
  std::optional<std::string> icon;
  std::optional<bool> dndEnable;
  std::optional<std::string> dndDate;

  VELORA_RECORD(WidgetDNDResource, id, name, icon, dndEnable, dndDate);
};

// Each widget record carries an `id` made when the record is created, so that a list can tell its
// widgets apart; it never travels and two widgets with the same fields are equal whatever their id.
// `type` is the text received, written back as it is.

struct WidgetUser {
  static constexpr WidgetType kind = WidgetType::USER;
  std::string id = detail::makeUUID();
  std::string type;
  std::optional<std::string> backgroundImage;
  UserInfo user;

  VELORA_FIELDS(WidgetUser, VELORA_NOT_CODED(id), type, backgroundImage, user);
  friend bool operator==(const WidgetUser& a, const WidgetUser& b) { return encode(a) == encode(b); }
};

struct WidgetBooking {
  static constexpr WidgetType kind = WidgetType::BOOKING;
  std::string id = detail::makeUUID();
  std::string type;
  std::optional<InfoIcon> nextBookingTitle;
  std::optional<std::vector<ScheduleElement>> nextBookings;
  std::optional<std::vector<FilterValueElement>> actions;

  VELORA_FIELDS(WidgetBooking, VELORA_NOT_CODED(id), type, nextBookingTitle, nextBookings, actions);
  friend bool operator==(const WidgetBooking& a, const WidgetBooking& b) { return encode(a) == encode(b); }
};

struct WidgetLocker {
  static constexpr WidgetType kind = WidgetType::LOCKER;
  std::string id = detail::makeUUID();
  std::string type;
  std::optional<InfoIcon> nextLockerTitle;
  std::optional<InfoIcon> nextLockerSubtitle;
  std::optional<std::vector<ScheduleElement>> nextLockers;
  std::optional<std::vector<FilterValueElement>> actions;

  VELORA_FIELDS(WidgetLocker, VELORA_NOT_CODED(id), type, nextLockerTitle, nextLockerSubtitle, nextLockers, actions);
  friend bool operator==(const WidgetLocker& a, const WidgetLocker& b) { return encode(a) == encode(b); }
};

struct WidgetWeb {
  static constexpr WidgetType kind = WidgetType::WEB;
  std::string id = detail::makeUUID();
  std::string type;
  std::optional<InfoIcon> title;
  std::optional<std::string> url;
  std::optional<InfoIcon> button;

  VELORA_FIELDS(WidgetWeb, VELORA_NOT_CODED(id), type, title, url, button);
  friend bool operator==(const WidgetWeb& a, const WidgetWeb& b) { return encode(a) == encode(b); }
};

struct WidgetAction {
  static constexpr WidgetType kind = WidgetType::ACTION;
  std::string id = detail::makeUUID();
  std::string type;
  std::optional<InfoIcon> title;
  std::optional<WidgetActionType> action;
  std::optional<InfoIcon> button;

  VELORA_FIELDS(WidgetAction, VELORA_NOT_CODED(id), type, title, action, button);
  friend bool operator==(const WidgetAction& a, const WidgetAction& b) { return encode(a) == encode(b); }
};

/// Do-not-disturb / out-of-office switch of the user.
struct WidgetDND {
  static constexpr WidgetType kind = WidgetType::DND;
  std::string id = detail::makeUUID();
  std::string type;
  std::optional<WidgetDNDResource> resource;
  std::optional<InfoIcon> button;

  VELORA_FIELDS(WidgetDND, VELORA_NOT_CODED(id), type, resource, button);
  friend bool operator==(const WidgetDND& a, const WidgetDND& b) { return encode(a) == encode(b); }
};

/// One widget of any kind.
class Widget {
 public:
  /// A kind this library does not know; only its "type" text is kept.
  struct Unsupported {
    std::string type;
    friend bool operator==(const Unsupported&, const Unsupported&) = default;
  };

  using Case = std::variant<WidgetUser, WidgetBooking, WidgetLocker, WidgetWeb, WidgetAction, WidgetDND, Unsupported>;

  template <class M>
    requires(!std::is_same_v<M, Unsupported> && std::is_constructible_v<Case, M>)
  Widget(M model) : case_(std::move(model)) {}
  Widget(Unsupported unsupported) : case_(std::move(unsupported)) {}

  WidgetType type() const;
  bool isUnsupported() const { return std::holds_alternative<Unsupported>(case_); }

  /// The record when the case is M, else null.
  template <class M>
  const M* as() const { return std::get_if<M>(&case_); }
  template <class M>
  M* as() { return std::get_if<M>(&case_); }

  /// The record as JSON; nothing for UNSUPPORTED.
  std::optional<AnyCodable> wrappedObject() const;

  const Case& value() const { return case_; }

  friend bool operator==(const Widget&, const Widget&) = default;

 private:
  Case case_;
};

/// The records of the supported widgets, as JSON, in their order.
std::vector<AnyCodable> wrappedObjects(const std::vector<Widget>& widgets);

namespace detail {

/// Decodes by the "type" key (required text) and encodes as the case's record; UNSUPPORTED writes
/// only {"type": <the text received>}.
template <>
struct Codec<Widget> {
  static AnyCodable encode(const Widget& widget);
  static Widget decode(const AnyCodable& json, const JsonPath& path);
};

}  // namespace detail

struct Container {
  std::optional<InfoIcon> title;
  ContainerType type = ContainerType::UNKNOWN;
  std::vector<Widget> widgets;

  VELORA_RECORD(Container, title, type, widgets);
};

struct ProfileFilter {
  std::optional<std::string> id;
  FilterType filterType = FilterType::UNKNOWN;
  Filter filter;

  VELORA_RECORD(ProfileFilter, id, filterType, filter);
};

/// The actions of the user's profile menu and the filters saved with them.
struct ProfileAction {
  std::string profileId;
  std::optional<std::vector<ProfileFilter>> profileFilter;

  VELORA_RECORD(ProfileAction, profileId, profileFilter);
};

}  // namespace velora
