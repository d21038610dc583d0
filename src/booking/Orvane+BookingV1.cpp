// Booking from a tap on the map, and reading one booking.

#include <velora/booking/Booking.hpp>
#include <velora/core/Orvane.hpp>
#include <velora/map/MapClick.hpp>

#include "core/Query.hpp"
#include "core/Operation.hpp"

namespace velora {
namespace {

/// The tapped place is sent back as the map answered it.
struct SubmitBooking {
  MapClickResponse place;
  static constexpr OperationInfo info{"submitBooking", "POST", "/api/v1/booking"};
  using Reply = ResponseMessage;
  const MapClickResponse& body(const Orvane&) const { return place; }
  VELORA_FIELDS(SubmitBooking, (place, "info"));
};
VELORA_REGISTER_OPERATION(SubmitBooking);

struct GetBooking {
  std::string bookingId;
  static constexpr OperationInfo info{"getBooking", "GET", "/api/v2/booking/info?bookingId={bookingId}"};
  using Reply = ScheduleElement;
  std::string path() const { return detail::Query("/api/v2/booking/info").add("bookingId", bookingId).text(); }
  VELORA_FIELDS(GetBooking, bookingId);
};
VELORA_REGISTER_OPERATION(GetBooking);

}  // namespace

void Orvane::submitBooking(MapClickResponse info, ResponseCallback callback) { call(SubmitBooking{std::move(info)}, std::move(callback)); }
Task<ResponseMessage> Orvane::submitBooking(MapClickResponse info) { return call(SubmitBooking{std::move(info)}); }

void Orvane::getBooking(std::string bookingId, ResponseCallback callback) { call(GetBooking{std::move(bookingId)}, std::move(callback)); }
Task<ScheduleElement> Orvane::getBooking(std::string bookingId) { return call(GetBooking{std::move(bookingId)}); }

}  // namespace velora
