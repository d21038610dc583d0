#pragma once
// Booking desks, meeting rooms, parking spaces and lockers: the resources, the filters that find
// them, the schedule entries that reserve them and the agendas that list those entries.
//
// Days travel as "yyyy-MM-dd" text and times of day as "HH:mm" text. Records keep the texts as
// received; their date accessors read them in the local time zone and are empty when the text is
// absent or does not match its pattern exactly. A time of day reads as that time on 2000-01-01.
// Where the platform leaves a member's shape open, ids, labels, icons and translations are text.

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <velora/building/ControllableItems.hpp>
#include <velora/core/AnyCodable.hpp>
#include <velora/core/Date.hpp>
#include <velora/core/Record.hpp>
#include <velora/map/MapPositionModel.hpp>

namespace velora {

VELORA_ENUM(ResourceType, DESK, ROOM, PEOPLE, ASSET, TAG, PARK, EPARK, POI, LOCKER, GROUP_LOCKER, UNKNOWN);
VELORA_ENUM(ScheduleElementType, MEETING, PERSONAL, UNKNOWN);
VELORA_ENUM(ScheduleType, DAY, DAY_INTERVAL, INTERVAL, UNKNOWN);
VELORA_ENUM(RecurringType, DAILY, WEEKLY, MONTHLY, UNKNOWN);
VELORA_ENUM(MeetingAttendeeType, VIRTUAL, PHYSICAL, UNKNOWN);
VELORA_ENUM(SectionType, BOOKING, SEARCH, MAP, GROUP_LOCKER, UNKNOWN);
VELORA_ENUM(FilterElementType, CALENDAR, SCHEDULE, NUMBER, STRING, ACCORDION, LIST, LIST_MULTI, RADIO, UNKNOWN);
VELORA_ENUM(BookFilterResourceType, DESK, MEETING, PARK, UNKNOWN);
VELORA_ENUM(BookingUserContactSection, FAVOURITE, RECENT, OTHER, UNKNOWN);
/// The kind of resource a filter set is for.
VELORA_ENUM(FilterType, DESK, MEETING, PARK, LOCKER, UNKNOWN);

// ---- Day and time texts -----------------------------------------------------------------------

/// `date` as "yyyy-MM-dd" in the local time zone: the form day arguments travel in.
std::string dayText(Date date);
/// Local midnight of a "yyyy-MM-dd" text; empty unless the text is exactly a valid day.
std::optional<Date> dateFromDay(std::string_view text);
/// A "HH:mm" text as that time on 2000-01-01 local; empty unless the text is exactly a valid time.
std::optional<Date> dateFromTime(std::string_view text);

// ---- Resources ---------------------------------------------------------------------------------

/// A named icon with its label, as shown next to a resource or above a home container.
struct InfoIcon {
  std::string name;
  std::optional<std::string> i18n;
  std::optional<std::string> icon;
  std::optional<std::string> color;

  VELORA_RECORD(InfoIcon, name, i18n, icon, color);
};

struct ResourceService {
  std::string id;
  std::string name;
  std::optional<std::string> i18n;
  std::optional<std::string> icon;

  VELORA_RECORD(ResourceService, id, name, i18n, icon);
};

/// Equipment of a resource a user may operate; `type` names the kind of equipment.
struct ResourceControl {
  std::string id;
  std::string name;
  std::optional<std::string> type;
  std::optional<std::string> icon;

  VELORA_RECORD(ResourceControl, id, name, type, icon);
};

struct ResourceSensor {
  std::string id;
  std::string name;
  std::optional<std::string> value;
  std::optional<std::string> unit;
  std::optional<std::string> icon;

  VELORA_RECORD(ResourceSensor, id, name, value, unit, icon);
};

/// A service that can be ordered with a booking (catering, a projector...).
struct AdditionalService {
  std::string id;
  std::string name;
  std::optional<std::string> i18n;
  std::optional<std::string> icon;
  std::optional<int> quantity;

  VELORA_RECORD(AdditionalService, id, name, i18n, icon, quantity);
};

/// The bookable hours of one time slot; all texts are "HH:mm".
struct ScheduleTimeInterval {
  std::string start;
  std::optional<std::string> end;
  std::optional<std::string> minStart;
  std::optional<std::string> maxEnd;

  VELORA_RECORD(ScheduleTimeInterval, start, end, minStart, maxEnd);
};

struct WeekConstraint {
  /// Day of the week.
  int day = 0;
  std::vector<ScheduleTimeInterval> scheduleIntervals;

  VELORA_RECORD(WeekConstraint, day, scheduleIntervals);
};

struct BookingConstraints {
  std::optional<int> minTimeSlot;
  std::optional<int> maxTimeSlot;
  std::optional<int> maxNumberOfBookingDay;
  /// The last bookable day, "yyyy-MM-dd".
  std::optional<std::string> dateLimit;
  /// How many days ahead a booking may be made.
  std::optional<int> bookableDaysLimit;
  std::optional<std::vector<int>> bookableDaysOfWeek;
  std::optional<std::vector<WeekConstraint>> weekConstraints;

  VELORA_RECORD(BookingConstraints, minTimeSlot, maxTimeSlot, maxNumberOfBookingDay, dateLimit, bookableDaysLimit,
      bookableDaysOfWeek, weekConstraints);
};

struct BookingConfig {
  bool dailyBooking = false;
  bool timeBooking = false;
  bool attendeesPresent = false;
  bool hasRecurring = false;
  std::optional<BookingConstraints> constraints;

  VELORA_RECORD(BookingConfig, dailyBooking, timeBooking, attendeesPresent, hasRecurring, constraints);
};

/// Anything that can be booked or invited: a desk, a room, a parking space, a locker, a person.
struct Resource {
  std::string id;
  std::string name;
  ResourceType type = ResourceType::UNKNOWN;
  std::optional<std::string> subtype;
  std::optional<std::string> subtypeLabel;
  std::optional<std::string> i18nSubtype;
  std::optional<std::string> tagid;
  std::optional<std::string> i18n;
  std::optional<std::string> image;
  std::optional<std::vector<std::string>> images;
  std::optional<BuildingPositionModel> buildingPosition;
  std::optional<MapPositionModel> position;
  std::optional<BookingConfig> bookingConfig;
  std::optional<std::vector<ResourceService>> services;
  std::optional<std::vector<ResourceControl>> controls;
  std::optional<std::vector<ResourceSensor>> sensors;
  std::optional<std::vector<AdditionalService>> additionalServices;
  bool favourite = false;
  std::optional<InfoIcon> singleInfo;
  std::optional<std::vector<std::string>> skills;
  std::optional<std::vector<std::string>> metadataTypes;
  std::optional<std::vector<std::string>> connectedGroupNames;
  std::optional<std::string> description;
  std::optional<std::string> integrationKey;
  std::optional<std::string> username;
  /// Do-not-disturb state of a person.
  std::optional<int> dnd;
  std::optional<std::map<std::string, std::string>> data;

  VELORA_RECORD(Resource, id, name, type, subtype, subtypeLabel, i18nSubtype, tagid, i18n, image, images,
      buildingPosition, position, bookingConfig, services, controls, sensors, additionalServices, favourite, singleInfo,
      skills, metadataTypes, connectedGroupNames, description, integrationKey, username, dnd, data);
};

// ---- Schedules ---------------------------------------------------------------------------------

struct MeetingAttendee {
  MeetingAttendeeType type = MeetingAttendeeType::UNKNOWN;
  Resource attendee;

  VELORA_RECORD(MeetingAttendee, type, attendee);
};

/// A booking as the platform stores it: a day (or span of days), optionally hours, and what is booked.
struct ScheduleElement {
  std::string id;
  std::optional<std::string> label;
  ScheduleElementType type = ScheduleElementType::UNKNOWN;
  std::optional<ScheduleType> scheduleType;
  std::string day;
  std::optional<std::string> dayEnd;
  std::optional<std::string> start;
  std::optional<std::string> end;
  std::optional<Resource> resource;
  std::optional<std::vector<MeetingAttendee>> attendees;

  std::optional<Date> dayDate() const;
  std::optional<Date> dayEndDate() const;
  std::optional<Date> startDate() const;
  std::optional<Date> endDate() const;

  VELORA_RECORD(ScheduleElement, id, label, type, scheduleType, day, dayEnd, start, end, resource, attendees);
};

/// Creates a booking (no `bookingId`) or changes one; the server answers with the request as stored.
struct ScheduleRequest {
  std::optional<std::string> bookingId;
  /// The entry being edited, kept for the application; never sent, never read.
  std::optional<ScheduleElement> scheduleElement;
  std::string elementId;
  ResourceType elementType = ResourceType::UNKNOWN;
  std::optional<std::string> meetingName;
  std::optional<std::string> meetingNote;
  std::optional<bool> videoConference;
  std::string dayStart;
  std::optional<std::string> dayEnd;
  std::optional<std::string> start;
  std::optional<std::string> end;
  std::optional<std::vector<MeetingAttendee>> _attendees;
  std::optional<RecurringType> _recurring;
  std::optional<std::vector<std::string>> externalAttendees;
  std::optional<std::vector<AdditionalService>> additionalServices;

  std::optional<Date> dayStartDate() const;
  std::optional<Date> dayEndDate() const;
  std::optional<Date> startDate() const;
  std::optional<Date> endDate() const;

  VELORA_RECORD(ScheduleRequest, bookingId, VELORA_NOT_CODED(scheduleElement), elementId, elementType, meetingName,
      meetingNote, videoConference, dayStart, dayEnd, start, end, (_attendees, "attendees"), (_recurring, "recurring"),
      externalAttendees, additionalServices);
};

/// One day of a resource's agenda: `date` is "yyyy-MM-dd", its opening hours "HH:mm".
struct DaySchedule {
  std::string id;
  std::string date;
  std::optional<std::string> dayStart;
  std::optional<std::string> dayEnd;
  std::vector<ScheduleElement> scheduleElements;

  std::optional<Date> dateDate() const;
  std::optional<Date> dayStartDate() const;
  std::optional<Date> dayEndDate() const;

  VELORA_RECORD(DaySchedule, id, date, dayStart, dayEnd, scheduleElements);
};

struct ResourceAgendaRequest {
  /// Resource ids; absent for every resource the user may see.
  std::optional<std::vector<std::string>> elements;
  std::string dateStart;
  std::optional<std::string> dateEnd;

  std::optional<Date> dateStartDate() const;
  std::optional<Date> dateEndDate() const;

  VELORA_RECORD(ResourceAgendaRequest, elements, dateStart, dateEnd);
};

struct ResourceAgenda {
  std::string id;
  Resource element;
  std::string dateStart;
  std::optional<std::string> dateEnd;
  std::optional<std::vector<DaySchedule>> days;

  std::optional<Date> dateStartDate() const;
  std::optional<Date> dateEndDate() const;

  VELORA_RECORD(ResourceAgenda, id, element, dateStart, dateEnd, days);
};

// ---- People, lockers, favourites ----------------------------------------------------------------

/// A person who can be invited to a meeting.
struct BookingUserInvite {
  std::string id;
  std::optional<std::string> firstName;
  std::optional<std::string> lastName;
  std::optional<std::string> name;
  std::string email;
  std::optional<std::string> jobTitle;
  std::optional<std::string> department;
  std::optional<std::string> imageUrl;
  std::optional<BookingUserContactSection> section;

  VELORA_RECORD(BookingUserInvite, id, firstName, lastName, name, email, jobTitle, department, imageUrl, section);
};

/// A locker booking: a given locker (`resourceId`) or the nearest free one of a `size`.
struct BookingLockerRequest {
  std::optional<std::string> size;
  std::optional<std::string> resourceId;

  VELORA_RECORD(BookingLockerRequest, size, resourceId);
};

struct LockerResponse {
  /// Seconds the door stays released.
  int opentime = 0;

  VELORA_RECORD(LockerResponse, opentime);
};

struct FavouriteRequest {
  std::string resourceId;
  bool favourite = false;

  VELORA_RECORD(FavouriteRequest, resourceId, favourite);
};

// ---- Filters -----------------------------------------------------------------------------------

/// One criterion of a filter form; `value` and the `constraints` keep whatever JSON arrives.
struct FilterElement {
  std::string id;
  std::string filterId;
  FilterElementType type = FilterElementType::UNKNOWN;
  std::string name;
  std::optional<std::string> i18n;
  std::optional<std::string> icon;
  std::optional<bool> required;
  std::optional<AnyCodable> value;
  std::optional<std::map<std::string, AnyCodable>> constraints;

  VELORA_RECORD(FilterElement, id, filterId, type, name, i18n, icon, required, value, constraints);
};

/// A choice of a filter section; choices may group further choices.
struct FilterValueElement {
  std::string id;
  std::string name;
  std::optional<std::string> i18n;
  std::optional<std::string> icon;
  bool value = false;
  std::optional<int> quantity;
  std::optional<std::string> grouping;
  std::optional<std::vector<FilterValueElement>> filterValueElements;

  VELORA_RECORD(FilterValueElement, id, name, i18n, icon, value, quantity, grouping, filterValueElements);
};

struct SectionFilter {
  std::string id;
  std::optional<SectionType> sectionType;
  std::vector<FilterValueElement> sectionValues;

  VELORA_RECORD(SectionFilter, id, sectionType, sectionValues);
};

/// The filter form of a kind of resource.
struct Filter {
  std::string id;
  std::optional<FilterType> type;
  std::vector<FilterElement> filterElements;

  VELORA_RECORD(Filter, id, type, filterElements);
};

/// What `search` looks for; `date` is "yyyy-MM-dd", `start` and `end` "HH:mm".
struct BookFilterModel {
  std::optional<std::string> date;
  std::optional<std::string> search;
  std::optional<std::string> start;
  std::optional<std::string> end;
  std::optional<std::vector<BookFilterResourceType>> types;
  std::optional<int> mapId;
  /// Service ids the resource must offer.
  std::optional<std::vector<std::string>> services;
  bool hasPosition = false;

  VELORA_RECORD(BookFilterModel, date, search, start, end, types, mapId, services, hasPosition);
};

}  // namespace velora
