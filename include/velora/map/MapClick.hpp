#pragma once
// What the map answers for a tap on a bookable place: the place, and either its current booking or
// the reservation that may be made there (sent back as is with `submitBooking`).

#include <optional>
#include <string>
#include <vector>

#include <velora/core/Record.hpp>
#include <velora/map/MapPositionModel.hpp>

namespace velora {

/// Whether the tapped place can be booked on the given day. An unknown text reads as UNBOOKABLE.
VELORA_ENUM(ReservationBookableStatus, BOOKABLE, BOOKED_BY_ME, NOT_AVAILABLE, UNBOOKABLE);

/// The tapped resource as the booking layer describes it.
struct MapClickInfoBooking {
  /// The resource's id, as a number.
  std::optional<int> resId;
  /// @{
  /// Display name and picture address of the resource; absent when the page has none.
  std::optional<std::string> name;
  std::optional<std::string> imageUrl;
  /// @}
  /// Whether the user may book the place or change its booking.
  bool editable = false;
  /// The resource's kind, as a ResourceType text ("DESK", "PARK"...).
  std::optional<std::string> type;

  VELORA_RECORD(MapClickInfoBooking, resId, name, imageUrl, editable, type);
};

/// One day on which the tapped place may be reserved, and whether it can be.
struct MapClickInfoReservation {
  /// The entry's index among the days offered.
  int index = 0;
  /// "yyyy-MM-dd".
  std::string date;
  /// How many places are still free that day; absent when not counted.
  std::optional<int> availableQuantity;
  /// Whether the day can be booked; a text this library does not know reads as UNBOOKABLE.
  ReservationBookableStatus bookableStatus = ReservationBookableStatus::UNBOOKABLE;

  VELORA_RECORD(MapClickInfoReservation, index, date, availableQuantity, bookableStatus);
};

/// What the booking layer knows about a tapped place.
struct MapClickInfoModel {
  /// The place and whether it may be booked; absent when the page has no booking data for it.
  std::optional<MapClickInfoBooking> booking;
  /// One entry per day offered; a booking takes the days marked BOOKABLE.
  std::optional<std::vector<MapClickInfoReservation>> reservation;
  /// Where the place is on the map.
  std::optional<MapPositionModel> position;

  VELORA_RECORD(MapClickInfoModel, booking, reservation, position);
};

/// The payload of the page's "bookingResource" event: a tap on a bookable place. Sent back unchanged
/// with `submitBooking`, which books the days marked BOOKABLE.
struct MapClickResponse {
  /// @{
  /// The tapped resource's id (a number) and display name.
  int id = 0;
  std::string name;
  /// @}
  /// @{
  /// Where the resource sits on its floor plan, in metres.
  double x = 0;
  double y = 0;
  /// @}
  /// The booking data of the place; absent when the page sends none.
  std::optional<MapClickInfoModel> info;
  /// The CSS colour the booking layer draws the place in; absent when the page gives none.
  std::optional<std::string> color;

  VELORA_RECORD(MapClickResponse, id, name, x, y, info, color);
};

}  // namespace velora
