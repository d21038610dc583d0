// Booking desks, rooms and parking spaces, agendas, and lockers.

#include <velora/booking/Booking.hpp>
#include <velora/core/Orvane.hpp>

#include "core/Query.hpp"
#include "core/Operation.hpp"

namespace velora {
namespace {

using detail::Query;

struct Search {
  BookFilterModel filter;
  static constexpr OperationInfo info{"search", "POST", "/api/v2/search"};
  using Reply = std::vector<Resource>;
  const BookFilterModel& body(const Orvane&) const { return filter; }
  VELORA_FIELDS(Search, filter);
};
VELORA_REGISTER_OPERATION(Search);

struct GetFiltersSection {
  std::vector<SectionType> sectionTypes;
  static constexpr OperationInfo info{"getFiltersSection", "GET", "/api/v2/filter/section?sectionTypes={sectionTypes}"};
  using Reply = std::vector<SectionFilter>;
  /// One "sectionTypes=" item per type; an empty list still ends the path with "?".
  std::string path() const {
    std::string path = "/api/v2/filter/section?";
    for (std::size_t i = 0; i < sectionTypes.size(); ++i) {
      if (i > 0) path += '&';
      path += "sectionTypes=" + detail::queryEscape(rawValue(sectionTypes[i]));
    }
    return path;
  }
  VELORA_FIELDS(GetFiltersSection, sectionTypes);
};
VELORA_REGISTER_OPERATION(GetFiltersSection);

struct GetFiltersByResource {
  FilterType type = FilterType::UNKNOWN;
  static constexpr OperationInfo info{"getFiltersByResource", "GET", "/api/v2/filter/resource?type={type}"};
  using Reply = Filter;
  std::string path() const { return Query("/api/v2/filter/resource").add("type", type).text(); }
  VELORA_FIELDS(GetFiltersByResource, type);
};
VELORA_REGISTER_OPERATION(GetFiltersByResource);

struct GetFilters {
  FilterType type = FilterType::UNKNOWN;
  static constexpr OperationInfo info{"getFilters", "GET", "/api/v2/filter?type={type}"};
  using Reply = Filter;
  std::string path() const { return Query("/api/v2/filter").add("type", type).text(); }
  VELORA_FIELDS(GetFilters, type);
};
VELORA_REGISTER_OPERATION(GetFilters);

struct Schedule {
  ScheduleRequest request;
  static constexpr OperationInfo info{"schedule", "POST", "/api/v2/schedule"};
  using Reply = ScheduleRequest;
  const ScheduleRequest& body(const Orvane&) const { return request; }
  VELORA_FIELDS(Schedule, request);
};
VELORA_REGISTER_OPERATION(Schedule);

struct DeleteSchedule {
  std::string bookingId;
  static constexpr OperationInfo info{"deleteSchedule", "DELETE", "/api/v2/schedule/{bookingId}"};
  using Reply = ResponseMessage;
  std::string path() const { return "/api/v2/schedule/" + bookingId; }
  VELORA_FIELDS(DeleteSchedule, bookingId);
};
VELORA_REGISTER_OPERATION(DeleteSchedule);

struct GetBookingFiltersBy {
  std::string bookingId;
  std::optional<ResourceType> type;
  std::optional<Date> date;
  static constexpr OperationInfo info{"getBookingFiltersBy", "GET", "/api/v2/booking/edit/{bookingId}?type={type}&date={date}"};
  using Reply = std::vector<FilterElement>;
  std::string path() const { return Query("/api/v2/booking/edit/" + bookingId).add("type", type).add("date", date).text(); }
  VELORA_FIELDS(GetBookingFiltersBy, bookingId, type, date);
};
VELORA_REGISTER_OPERATION(GetBookingFiltersBy);

struct GetElementResourceBy {
  std::string id;
  static constexpr OperationInfo info{"getElementResourceBy", "GET", "/api/v2/resource/{id}"};
  using Reply = Resource;
  std::string path() const { return "/api/v2/resource/" + id; }
  VELORA_FIELDS(GetElementResourceBy, id);
};
VELORA_REGISTER_OPERATION(GetElementResourceBy);

struct SetFavorite {
  std::string resourceId;
  bool favourite = false;
  static constexpr OperationInfo info{"setFavorite", "PUT", "/api/v2/favourite"};
  using Reply = ResponseMessage;
  FavouriteRequest body(const Orvane&) const { return {resourceId, favourite}; }
  VELORA_FIELDS(SetFavorite, resourceId, favourite);
};
VELORA_REGISTER_OPERATION(SetFavorite);

struct GetUsers {
  std::optional<std::string> search;
  static constexpr OperationInfo info{"getUsers", "GET", "/api/v2/booking/user/list?search={search}"};
  using Reply = std::vector<BookingUserInvite>;
  std::string path() const { return Query("/api/v2/booking/user/list").add("search", search).text(); }
  VELORA_FIELDS(GetUsers, search);
};
VELORA_REGISTER_OPERATION(GetUsers);

/// Built from its parts and checked before anything is sent, with a refusal of its own.
struct GetAvailableSlots {
  std::string resourceId;
  std::optional<std::string> bookingId;
  ResourceType resourceType = ResourceType::UNKNOWN;
  Date date;
  static constexpr OperationInfo info{"getAvailableSlots", "GET",
                                      "/api/v2/booking/slots?resourceType={resourceType}&resourceId={resourceId}"
                                      "&bookingId={bookingId}&date={date}"};
  using Reply = std::vector<std::vector<std::string>>;
  Target target(const Orvane& facade) const {
    std::string path = Query("/api/v2/booking/slots")
                           .add("resourceType", resourceType)
                           .add("resourceId", resourceId)
                           .add("bookingId", bookingId)
                           .add("date", date)
                           .text();
    if (!URL::safeInit(facade.sdkEndpoint() + path)) {
      throw APIError(ResponseMessage(-27000, "GetAvailableSlots - undefined URL"));
    }
    return {std::move(path), RequestAccess::pipeline};
  }
  VELORA_FIELDS(GetAvailableSlots, resourceId, bookingId, resourceType, date);
};
VELORA_REGISTER_OPERATION(GetAvailableSlots);

struct FindAgenda {
  ResourceAgendaRequest request;
  static constexpr OperationInfo info{"findAgenda", "POST", "/api/v2/agenda/find"};
  using Reply = std::vector<ResourceAgenda>;
  const ResourceAgendaRequest& body(const Orvane&) const { return request; }
  VELORA_FIELDS(FindAgenda, request);
};
VELORA_REGISTER_OPERATION(FindAgenda);

struct GetAgendaMy {
  Date dateStart;
  std::optional<Date> dateEnd;
  static constexpr OperationInfo info{"getAgendaMy", "GET", "/api/v2/agenda/next/my?dateStart={dateStart}&dateEnd={dateEnd}"};
  using Reply = std::vector<ScheduleElement>;
  std::string path() const { return Query("/api/v2/agenda/next/my").add("dateStart", dateStart).add("dateEnd", dateEnd).text(); }
  VELORA_FIELDS(GetAgendaMy, dateStart, dateEnd);
};
VELORA_REGISTER_OPERATION(GetAgendaMy);

struct GetAgendaDay {
  std::string id;
  std::optional<ScheduleType> type;
  std::optional<Date> date;
  static constexpr OperationInfo info{"getAgendaDay", "GET", "/api/v2/agenda/day?id={id}&type={type}&date={date}"};
  using Reply = DaySchedule;
  std::string path() const { return Query("/api/v2/agenda/day").add("id", id).add("type", type).add("date", date).text(); }
  VELORA_FIELDS(GetAgendaDay, id, type, date);
};
VELORA_REGISTER_OPERATION(GetAgendaDay);

struct BookLocker {
  std::string resourceId;
  static constexpr OperationInfo info{"bookLocker", "POST", "/api/v2/locker/booking"};
  using Reply = ScheduleElement;
  BookingLockerRequest body(const Orvane&) const { return {std::nullopt, resourceId}; }
  VELORA_FIELDS(BookLocker, resourceId);
};
VELORA_REGISTER_OPERATION(BookLocker);

struct BookNearestLocker {
  std::string size;
  static constexpr OperationInfo info{"bookNearestLocker", "POST", "/api/v2/locker/book/nearest"};
  using Reply = ScheduleElement;
  BookingLockerRequest body(const Orvane&) const { return {size, std::nullopt}; }
  VELORA_FIELDS(BookNearestLocker, size);
};
VELORA_REGISTER_OPERATION(BookNearestLocker);

struct GetLockerFilter {
  std::string size;
  static constexpr OperationInfo info{"getLockerFilter", "GET", "/api/v2/locker/filter?size={size}"};
  using Reply = Filter;
  std::string path() const { return Query("/api/v2/locker/filter").add("size", size).text(); }
  VELORA_FIELDS(GetLockerFilter, size);
};
VELORA_REGISTER_OPERATION(GetLockerFilter);

struct Unlock {
  std::string bookingId;
  static constexpr OperationInfo info{"unlock", "POST", "/api/v2/locker/unlock/{bookingId}"};
  using Reply = LockerResponse;
  std::string path() const { return "/api/v2/locker/unlock/" + bookingId; }
  VELORA_FIELDS(Unlock, bookingId);
};
VELORA_REGISTER_OPERATION(Unlock);

struct Release {
  std::string bookingId;
  static constexpr OperationInfo info{"release", "POST", "/api/v2/locker/release/{bookingId}"};
  using Reply = ResponseMessage;
  std::string path() const { return "/api/v2/locker/release/" + bookingId; }
  VELORA_FIELDS(Release, bookingId);
};
VELORA_REGISTER_OPERATION(Release);

// What filterUnknownValues drops.
bool isUnknownResource(const Resource& resource) { return resource.type == ResourceType::UNKNOWN; }
bool isUnknownAgenda(const ResourceAgenda& agenda) { return agenda.element.type == ResourceType::UNKNOWN; }
bool isUnknownEntry(const ScheduleElement& entry) {
  return entry.type == ScheduleElementType::UNKNOWN || entry.scheduleType == ScheduleType::UNKNOWN;
}

}  // namespace

void Orvane::search(BookFilterModel filter, ResponseCallback callback) { call(Search{std::move(filter)}, std::move(callback)); }
Task<std::vector<Resource>> Orvane::search(BookFilterModel filter, bool filterUnknownValues) {
  return detail::keepingKnown(call(Search{std::move(filter)}), filterUnknownValues, &isUnknownResource);
}

void Orvane::getFiltersSection(std::vector<SectionType> sectionTypes, ResponseCallback callback) {
  call(GetFiltersSection{std::move(sectionTypes)}, std::move(callback));
}
Task<std::vector<SectionFilter>> Orvane::getFiltersSection(std::vector<SectionType> sectionTypes) {
  return call(GetFiltersSection{std::move(sectionTypes)});
}

void Orvane::getFiltersByResource(FilterType type, ResponseCallback callback) { call(GetFiltersByResource{type}, std::move(callback)); }
Task<Filter> Orvane::getFiltersByResource(FilterType type) { return call(GetFiltersByResource{type}); }

void Orvane::getFilters(FilterType type, ResponseCallback callback) { call(GetFilters{type}, std::move(callback)); }
Task<Filter> Orvane::getFilters(FilterType type) { return call(GetFilters{type}); }

void Orvane::schedule(ScheduleRequest request, ResponseCallback callback) { call(Schedule{std::move(request)}, std::move(callback)); }
Task<ScheduleRequest> Orvane::schedule(ScheduleRequest request) { return call(Schedule{std::move(request)}); }

void Orvane::deleteSchedule(std::string bookingId, ResponseCallback callback) {
  call(DeleteSchedule{std::move(bookingId)}, std::move(callback));
}
Task<ResponseMessage> Orvane::deleteSchedule(std::string bookingId) { return call(DeleteSchedule{std::move(bookingId)}); }

void Orvane::getBookingFiltersBy(std::string bookingId, std::optional<ResourceType> type, std::optional<Date> date,
                                 ResponseCallback callback) {
  call(GetBookingFiltersBy{std::move(bookingId), type, date}, std::move(callback));
}
Task<std::vector<FilterElement>> Orvane::getBookingFiltersBy(std::string bookingId, std::optional<ResourceType> type,
                                                             std::optional<Date> date) {
  return call(GetBookingFiltersBy{std::move(bookingId), type, date});
}

void Orvane::getElementResourceBy(std::string id, ResponseCallback callback) {
  call(GetElementResourceBy{std::move(id)}, std::move(callback));
}
Task<Resource> Orvane::getElementResourceBy(std::string id) { return call(GetElementResourceBy{std::move(id)}); }

void Orvane::setFavorite(std::string resourceId, bool favourite, ResponseCallback callback) {
  call(SetFavorite{std::move(resourceId), favourite}, std::move(callback));
}
Task<ResponseMessage> Orvane::setFavorite(std::string resourceId, bool favourite) {
  return call(SetFavorite{std::move(resourceId), favourite});
}

void Orvane::getUsers(std::optional<std::string> search, ResponseCallback callback) {
  call(GetUsers{std::move(search)}, std::move(callback));
}
Task<std::vector<BookingUserInvite>> Orvane::getUsers(std::optional<std::string> search) { return call(GetUsers{std::move(search)}); }

void Orvane::getAvailableSlots(std::string resourceId, std::optional<std::string> bookingId, ResourceType resourceType, Date date,
                               ResponseCallback callback) {
  call(GetAvailableSlots{std::move(resourceId), std::move(bookingId), resourceType, date}, std::move(callback));
}
Task<std::vector<std::vector<std::string>>> Orvane::getAvailableSlots(std::string resourceId, std::optional<std::string> bookingId,
                                                                      ResourceType resourceType, Date date) {
  return call(GetAvailableSlots{std::move(resourceId), std::move(bookingId), resourceType, date});
}

void Orvane::findAgenda(ResourceAgendaRequest request, ResponseCallback callback) {
  call(FindAgenda{std::move(request)}, std::move(callback));
}
Task<std::vector<ResourceAgenda>> Orvane::findAgenda(ResourceAgendaRequest request, bool filterUnknownValues) {
  return detail::keepingKnown(call(FindAgenda{std::move(request)}), filterUnknownValues, &isUnknownAgenda);
}

void Orvane::getAgendaMy(Date dateStart, std::optional<Date> dateEnd, ResponseCallback callback) {
  call(GetAgendaMy{dateStart, dateEnd}, std::move(callback));
}
Task<std::vector<ScheduleElement>> Orvane::getAgendaMy(Date dateStart, std::optional<Date> dateEnd, bool filterUnknownValues) {
  return detail::keepingKnown(call(GetAgendaMy{dateStart, dateEnd}), filterUnknownValues, &isUnknownEntry);
}

void Orvane::getAgendaDay(std::string id, std::optional<ScheduleType> type, std::optional<Date> date, ResponseCallback callback) {
  call(GetAgendaDay{std::move(id), type, date}, std::move(callback));
}
Task<DaySchedule> Orvane::getAgendaDay(std::string id, std::optional<ScheduleType> type, std::optional<Date> date) {
  return call(GetAgendaDay{std::move(id), type, date});
}

void Orvane::bookLocker(std::string resourceId, ResponseCallback callback) { call(BookLocker{std::move(resourceId)}, std::move(callback)); }
Task<ScheduleElement> Orvane::bookLocker(std::string resourceId) { return call(BookLocker{std::move(resourceId)}); }

void Orvane::bookNearestLocker(std::string size, ResponseCallback callback) {
  call(BookNearestLocker{std::move(size)}, std::move(callback));
}
Task<ScheduleElement> Orvane::bookNearestLocker(std::string size) { return call(BookNearestLocker{std::move(size)}); }

void Orvane::getLockerFilter(std::string size, ResponseCallback callback) { call(GetLockerFilter{std::move(size)}, std::move(callback)); }
Task<Filter> Orvane::getLockerFilter(std::string size) { return call(GetLockerFilter{std::move(size)}); }

void Orvane::unlock(std::string bookingId, ResponseCallback callback) { call(Unlock{std::move(bookingId)}, std::move(callback)); }
Task<LockerResponse> Orvane::unlock(std::string bookingId) { return call(Unlock{std::move(bookingId)}); }

void Orvane::release(std::string bookingId, ResponseCallback callback) { call(Release{std::move(bookingId)}, std::move(callback)); }
Task<ResponseMessage> Orvane::release(std::string bookingId) { return call(Release{std::move(bookingId)}); }

}  // namespace velora
