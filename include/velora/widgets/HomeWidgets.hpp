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

/// The kind of a home widget, chosen by its "type" text. The do-not-disturb case DND travels as
/// "DND_OOO"; any other text, "DND" included, is UNSUPPORTED.
VELORA_ENUM(WidgetType, USER, BOOKING, LOCKER, WEB, ACTION, (DND, "DND_OOO"), UNSUPPORTED);
/// What an action widget's button starts. TICKET_ACTION opens a new ticket; any other text reads as
/// UNSUPPORTED, which an application should leave without an action.
VELORA_ENUM(WidgetActionType, TICKET_ACTION, UNSUPPORTED);
/// Where a home container sits: HEADER at the top of the screen, BODY below it. Any other text reads
/// as UNKNOWN, which Orvane::getMyHome() can drop on request.
VELORA_ENUM(ContainerType, HEADER, BODY, UNKNOWN);

/// The signed-in user as the home screen's user card shows them.
struct UserInfo {
  std::string username;  ///< The login name; the one required key.
  /// @{
  /// Picture URL (may be a path on the endpoint), icon name and display name; absent when the
  /// platform has none.
  std::optional<std::string> image;
  std::optional<std::string> icon;
  std::optional<std::string> name;
  /// @}
  /// The names of the profiles (roles) the user holds, such as "employee"; absent when not sent.
  std::optional<std::vector<std::string>> profiles;

  VELORA_RECORD(UserInfo, username, image, icon, name, profiles);
};

/// The resource whose do-not-disturb (out-of-office) state the DND widget shows and switches.
struct WidgetDNDResource {
  /// The resource's id on the platform, the one to give as SetDNDRequest::resourceId when
  /// changing its do-not-disturb periods.
  std::string id;
  std::string name;                 ///< The label shown on the switch.
  std::optional<std::string> icon;  ///< Icon name; absent for none.
  /// Whether do-not-disturb is on now; absent when the server does not say.
  std::optional<bool> dndEnable;
  /// The date shown with the do-not-disturb state, as text in the server's format (not parsed);
  /// absent when the server sends none.
  std::optional<std::string> dndDate;

  VELORA_RECORD(WidgetDNDResource, id, name, icon, dndEnable, dndDate);
};

// Each widget record carries an `id` made when the record is created, so that a list can tell its
// widgets apart; it never travels and two widgets with the same fields are equal whatever their id.
// `type` is the text received, written back as it is.

/// The user card: who is signed in, over a background picture; usually the HEADER container's widget.
struct WidgetUser {
  static constexpr WidgetType kind = WidgetType::USER;  ///< The Widget case this record fills.
  /// A fresh UUID made with the record, to tell widgets of a list apart; never sent, never compared.
  std::string id = detail::makeUUID();
  std::string type;  ///< The "type" text as received ("USER"), written back unchanged.
  /// URL of the card's background picture (may be a path on the endpoint); absent for none.
  std::optional<std::string> backgroundImage;
  UserInfo user;  ///< Required: a USER widget without "user" fails to decode.

  VELORA_FIELDS(WidgetUser, VELORA_NOT_CODED(id), type, backgroundImage, user);
  friend bool operator==(const WidgetUser& a, const WidgetUser& b) { return encode(a) == encode(b); }
};

/// The user's next bookings, with shortcuts to book more.
struct WidgetBooking {
  static constexpr WidgetType kind = WidgetType::BOOKING;  ///< The Widget case this record fills.
  /// A fresh UUID made with the record, to tell widgets of a list apart; never sent, never compared.
  std::string id = detail::makeUUID();
  std::string type;  ///< The "type" text as received ("BOOKING"), written back unchanged.
  std::optional<InfoIcon> nextBookingTitle;  ///< The heading above the list; absent for none.
  /// The user's coming bookings, in the order the server sends them; absent or empty when there are
  /// none. One element that fails to decode fails the widget, and so the whole home reply.
  std::optional<std::vector<ScheduleElement>> nextBookings;
  /// The shortcut buttons (such as "Book a desk"), each a filter choice with its id, label and icon.
  std::optional<std::vector<FilterValueElement>> actions;

  VELORA_FIELDS(WidgetBooking, VELORA_NOT_CODED(id), type, nextBookingTitle, nextBookings, actions);
  friend bool operator==(const WidgetBooking& a, const WidgetBooking& b) { return encode(a) == encode(b); }
};

/// The user's lockers, with shortcuts to get one.
struct WidgetLocker {
  static constexpr WidgetType kind = WidgetType::LOCKER;  ///< The Widget case this record fills.
  /// A fresh UUID made with the record, to tell widgets of a list apart; never sent, never compared.
  std::string id = detail::makeUUID();
  std::string type;  ///< The "type" text as received ("LOCKER"), written back unchanged.
  /// @{
  /// The heading and the line under it; absent for none.
  std::optional<InfoIcon> nextLockerTitle;
  std::optional<InfoIcon> nextLockerSubtitle;
  /// @}
  /// The user's locker bookings as schedule elements; absent or empty when there are none. One
  /// element that fails to decode fails the widget, and so the whole home reply.
  std::optional<std::vector<ScheduleElement>> nextLockers;
  /// The shortcut buttons (such as "Get a locker"), each a filter choice with its id, label and icon.
  std::optional<std::vector<FilterValueElement>> actions;

  VELORA_FIELDS(WidgetLocker, VELORA_NOT_CODED(id), type, nextLockerTitle, nextLockerSubtitle, nextLockers, actions);
  friend bool operator==(const WidgetLocker& a, const WidgetLocker& b) { return encode(a) == encode(b); }
};

/// A link to a web page (an intranet page, a menu, help), with a button to open it.
struct WidgetWeb {
  static constexpr WidgetType kind = WidgetType::WEB;  ///< The Widget case this record fills.
  /// A fresh UUID made with the record, to tell widgets of a list apart; never sent, never compared.
  std::string id = detail::makeUUID();
  std::string type;  ///< The "type" text as received ("WEB"), written back unchanged.
  std::optional<InfoIcon> title;  ///< The card's heading; absent for none.
  std::optional<std::string> url;  ///< The address of the page to open; absent when there is none.
  std::optional<InfoIcon> button;  ///< Label and icon of the open button; absent for no button.

  VELORA_FIELDS(WidgetWeb, VELORA_NOT_CODED(id), type, title, url, button);
  friend bool operator==(const WidgetWeb& a, const WidgetWeb& b) { return encode(a) == encode(b); }
};

/// A card whose button starts an in-app action, such as reporting a problem through a ticket.
struct WidgetAction {
  static constexpr WidgetType kind = WidgetType::ACTION;  ///< The Widget case this record fills.
  /// A fresh UUID made with the record, to tell widgets of a list apart; never sent, never compared.
  std::string id = detail::makeUUID();
  std::string type;  ///< The "type" text as received ("ACTION"), written back unchanged.
  std::optional<InfoIcon> title;  ///< The card's heading; absent for none.
  /// What the button starts; an action this library does not know reads as UNSUPPORTED.
  std::optional<WidgetActionType> action;
  std::optional<InfoIcon> button;  ///< Label and icon of the button; absent for no button.

  VELORA_FIELDS(WidgetAction, VELORA_NOT_CODED(id), type, title, action, button);
  friend bool operator==(const WidgetAction& a, const WidgetAction& b) { return encode(a) == encode(b); }
};

/// Do-not-disturb / out-of-office switch of the user. Its "type" is "DND_OOO".
struct WidgetDND {
  static constexpr WidgetType kind = WidgetType::DND;  ///< The Widget case this record fills.
  /// A fresh UUID made with the record, to tell widgets of a list apart; never sent, never compared.
  std::string id = detail::makeUUID();
  std::string type;  ///< The "type" text as received ("DND_OOO"), written back unchanged.
  /// The resource being switched and its current state; absent when the server sends none.
  std::optional<WidgetDNDResource> resource;
  /// Label and icon of the button that opens the do-not-disturb settings; absent for no button.
  std::optional<InfoIcon> button;

  VELORA_FIELDS(WidgetDND, VELORA_NOT_CODED(id), type, resource, button);
  friend bool operator==(const WidgetDND& a, const WidgetDND& b) { return encode(a) == encode(b); }
};

/// One widget of any kind.
class Widget {
 public:
  /// A kind this library does not know; only its "type" text is kept.
  struct Unsupported {
    std::string type;  ///< The "type" text received; the rest of the object was not read.
    friend bool operator==(const Unsupported&, const Unsupported&) = default;
  };

  /// The record of each supported kind, then Unsupported; visit it to handle every kind.
  using Case = std::variant<WidgetUser, WidgetBooking, WidgetLocker, WidgetWeb, WidgetAction, WidgetDND, Unsupported>;

  /// @{
  /// Wraps a widget record, or the text of an unknown kind. Implicit, so a record can go straight
  /// into a `std::vector<Widget>`.
  template <class M>
    requires(!std::is_same_v<M, Unsupported> && std::is_constructible_v<Case, M>)
  Widget(M model) : case_(std::move(model)) {}
  Widget(Unsupported unsupported) : case_(std::move(unsupported)) {}
  /// @}

  /// The case: the record's `kind`, or UNSUPPORTED. It does not look at the record's `type` text.
  WidgetType type() const;
  /// Whether the kind was unknown, so that only its "type" text is kept.
  bool isUnsupported() const { return std::holds_alternative<Unsupported>(case_); }

  /// @{
  /// The record when the case is M, else null.
  template <class M>
  const M* as() const { return std::get_if<M>(&case_); }
  template <class M>
  M* as() { return std::get_if<M>(&case_); }
  /// @}

  /// The record as JSON; nothing for UNSUPPORTED.
  std::optional<AnyCodable> wrappedObject() const;

  /// The case itself, for std::visit.
  const Case& value() const { return case_; }

  /// Same case with equal records (ids aside), or the same unknown "type" text.
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

/// One block of the home screen, as Orvane::getMyHome() lists them, top to bottom.
struct Container {
  std::optional<InfoIcon> title;  ///< The heading over the block; absent for none.
  /// Where the block sits; required in JSON, an unknown text reads as UNKNOWN.
  ContainerType type = ContainerType::UNKNOWN;
  /// The widgets in display order; required in JSON. Unknown kinds stay in the list as UNSUPPORTED,
  /// while a known kind whose record fails to decode fails the whole reply.
  std::vector<Widget> widgets;

  VELORA_RECORD(Container, title, type, widgets);
};

/// A filter saved with a profile action: the booking search form of one kind of resource.
struct ProfileFilter {
  std::optional<std::string> id;  ///< The saved filter's id, as text; absent when the server sends none.
  /// The kind of resource it searches (desk, meeting room, parking, locker); required in JSON, an
  /// unknown text reads as UNKNOWN.
  FilterType filterType = FilterType::UNKNOWN;
  Filter filter;  ///< The filter form, as the booking search uses it; required in JSON.

  VELORA_RECORD(ProfileFilter, id, filterType, filter);
};

/// The actions of the user's profile menu and the filters saved with them, as Orvane::getUserActions()
/// returns them.
struct ProfileAction {
  std::string profileId;  ///< The user's profile on the platform; required in JSON.
  /// The filters saved for the profile; absent when there are none.
  std::optional<std::vector<ProfileFilter>> profileFilter;

  VELORA_RECORD(ProfileAction, profileId, profileFilter);
};

}  // namespace velora
