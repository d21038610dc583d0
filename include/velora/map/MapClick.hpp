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

struct MapClickInfoBooking {
  std::optional<int> resId;
  std::optional<std::string> name;
  std::optional<std::string> imageUrl;
  bool editable = false;
  std::optional<std::string> type;

  VELORA_RECORD(MapClickInfoBooking, resId, name, imageUrl, editable, type);
};

struct MapClickInfoReservation {
  int index = 0;
  /// "yyyy-MM-dd".
  std::string date;
  std::optional<int> availableQuantity;
  ReservationBookableStatus bookableStatus = ReservationBookableStatus::UNBOOKABLE;

  VELORA_RECORD(MapClickInfoReservation, index, date, availableQuantity, bookableStatus);
};

struct MapClickInfoModel {
  std::optional<MapClickInfoBooking> booking;
  /// One entry per day offered; a booking takes the days marked BOOKABLE.
  std::optional<std::vector<MapClickInfoReservation>> reservation;
  std::optional<MapPositionModel> position;

  VELORA_RECORD(MapClickInfoModel, booking, reservation, position);
};

struct MapClickResponse {
  int id = 0;
  std::string name;
  double x = 0;
  double y = 0;
  std::optional<MapClickInfoModel> info;
  std::optional<std::string> color;

  VELORA_RECORD(MapClickResponse, id, name, x, y, info, color);
};

}  // namespace velora
