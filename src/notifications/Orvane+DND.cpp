// Do-not-disturb (out of office): the filter form of the periods, and setting them for a resource.

#include <velora/core/Orvane.hpp>
#include <velora/notifications/Notifications.hpp>

#include "core/Query.hpp"
#include "core/Operation.hpp"

namespace velora {
namespace {

struct GetDNDFilters {
  bool useTimeIntervals = false;
  static constexpr OperationInfo info{"getDNDFilters", "GET", "/api/v2/dnd/ooo/day/time[/interval]"};
  using Reply = std::vector<FilterElement>;
  std::string path() const { return useTimeIntervals ? "/api/v2/dnd/ooo/day/time/interval" : "/api/v2/dnd/ooo/day/time"; }
  VELORA_FIELDS(GetDNDFilters, useTimeIntervals);
};
VELORA_REGISTER_OPERATION(GetDNDFilters);

struct SetDNDFilters {
  SetDNDRequest request;
  static constexpr OperationInfo info{"setDNDFilters", "POST", "/api/v2/dnd/ooo/set"};
  using Reply = ResponseMessage;
  const SetDNDRequest& body(const Orvane&) const { return request; }
  VELORA_FIELDS(SetDNDFilters, request);
};
VELORA_REGISTER_OPERATION(SetDNDFilters);

bool isUnknownElement(const FilterElement& element) { return element.type == FilterElementType::UNKNOWN; }

}  // namespace

void Orvane::getDNDFilters(bool useTimeIntervals, ResponseCallback callback) {
  call(GetDNDFilters{useTimeIntervals}, std::move(callback));
}
Task<std::vector<FilterElement>> Orvane::getDNDFilters(bool useTimeIntervals, bool filterUnknownValues) {
  return detail::keepingKnown(call(GetDNDFilters{useTimeIntervals}), filterUnknownValues, &isUnknownElement);
}

void Orvane::setDNDFilters(SetDNDRequest request, ResponseCallback callback) { call(SetDNDFilters{std::move(request)}, std::move(callback)); }
Task<ResponseMessage> Orvane::setDNDFilters(SetDNDRequest request) { return call(SetDNDFilters{std::move(request)}); }

}  // namespace velora
