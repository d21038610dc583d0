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

/// The kind of a resource (EPARK: a parking space with a charging point). Like every enumeration
/// here, a text the library does not know decodes as the last case, UNKNOWN, instead of failing the
/// record.
VELORA_ENUM(ResourceType, DESK, ROOM, PEOPLE, ASSET, TAG, PARK, EPARK, POI, LOCKER, GROUP_LOCKER, UNKNOWN);
/// Whether an agenda entry is a meeting (a room booked with attendees) or a booking for oneself.
VELORA_ENUM(ScheduleElementType, MEETING, PERSONAL, UNKNOWN);
/// How an entry takes up time: one whole day, a run of whole days (`dayEnd` set), or hours of a day
/// (`start` and `end` set).
VELORA_ENUM(ScheduleType, DAY, DAY_INTERVAL, INTERVAL, UNKNOWN);
/// How often a booking repeats; sent as "recurring" in a ScheduleRequest.
VELORA_ENUM(RecurringType, DAILY, WEEKLY, MONTHLY, UNKNOWN);
/// Whether an attendee joins the meeting remotely or in the room.
VELORA_ENUM(MeetingAttendeeType, VIRTUAL, PHYSICAL, UNKNOWN);
/// The screen a section filter belongs to; getFiltersSection asks for one or more of them.
VELORA_ENUM(SectionType, BOOKING, SEARCH, MAP, GROUP_LOCKER, UNKNOWN);
/// The input a filter criterion is drawn as: a day picker, hours, a number, free text, a
/// collapsible group, a single or multiple choice list, or radio buttons.
VELORA_ENUM(FilterElementType, CALENDAR, SCHEDULE, NUMBER, STRING, ACCORDION, LIST, LIST_MULTI, RADIO, UNKNOWN);
/// The kinds a search can be limited to: MEETING finds rooms, PARK parking spaces with or without a
/// charging point.
VELORA_ENUM(BookFilterResourceType, DESK, MEETING, PARK, UNKNOWN);
/// The group a person is listed under when choosing whom to invite.
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
  /// The label to show when `i18n` has no translation.
  std::string name;
  /// Localisation key of the label.
  std::optional<std::string> i18n;
  /// @{
  /// The icon's name and its CSS colour text; absent when the platform sends none.
  std::optional<std::string> icon;
  std::optional<std::string> color;
  /// @}

  VELORA_RECORD(InfoIcon, name, i18n, icon, color);
};

/// A service a resource offers; its `id` is what BookFilterModel::services asks for.
struct ResourceService {
  /// @{
  /// Identity and label of the service; `i18n` is the localisation key of the label and `icon` the
  /// icon's name, both absent when the platform sends none.
  std::string id;
  std::string name;
  std::optional<std::string> i18n;
  std::optional<std::string> icon;
  /// @}

  VELORA_RECORD(ResourceService, id, name, i18n, icon);
};

/// Equipment of a resource a user may operate; `type` names the kind of equipment.
struct ResourceControl {
  /// @{
  /// Identity, label and icon name of the equipment, as the platform names them; absent keys stay
  /// empty.
  std::string id;
  std::string name;
  std::optional<std::string> type;
  std::optional<std::string> icon;
  /// @}

  VELORA_RECORD(ResourceControl, id, name, type, icon);
};

/// A sensor reading of a resource (temperature, occupancy...) to show next to it.
struct ResourceSensor {
  /// @{
  /// Identity, label and icon name of the sensor; absent keys stay empty.
  std::string id;
  std::string name;
  /// @}
  /// @{
  /// The last reading and its unit, both as text ready to show; the library does not interpret
  /// them.
  std::optional<std::string> value;
  std::optional<std::string> unit;
  /// @}
  /// Icon name; absent when the platform sends none.
  std::optional<std::string> icon;

  VELORA_RECORD(ResourceSensor, id, name, value, unit, icon);
};

/// A service that can be ordered with a booking (catering, a projector...).
struct AdditionalService {
  /// @{
  /// Identity and label of the service; `i18n` is the localisation key of the label and `icon` the
  /// icon's name, both absent when the platform sends none.
  std::string id;
  std::string name;
  std::optional<std::string> i18n;
  std::optional<std::string> icon;
  /// @}
  /// How many are ordered (in a ScheduleRequest) or offered; absent when not counted.
  std::optional<int> quantity;

  VELORA_RECORD(AdditionalService, id, name, i18n, icon, quantity);
};

/// The bookable hours of one time slot; all texts are "HH:mm".
struct ScheduleTimeInterval {
  /// @{
  /// The hours of the slot; `end` is absent when the platform gives only the start.
  std::string start;
  std::optional<std::string> end;
  /// @}
  /// @{
  /// The earliest a booking in this slot may start and the latest it may end; absent when the
  /// platform sets no such bound.
  std::optional<std::string> minStart;
  std::optional<std::string> maxEnd;
  /// @}

  VELORA_RECORD(ScheduleTimeInterval, start, end, minStart, maxEnd);
};

/// The bookable hours of one day of the week.
struct WeekConstraint {
  /// Day of the week, numbered as in BookingConstraints::bookableDaysOfWeek.
  int day = 0;
  /// The bookable slots of that day; empty when none is bookable.
  std::vector<ScheduleTimeInterval> scheduleIntervals;

  VELORA_RECORD(WeekConstraint, day, scheduleIntervals);
};

/// The limits the platform sets on bookings of one resource, for the application to offer only what
/// can be booked; the library checks none of them. An absent limit does not apply.
struct BookingConstraints {
  /// @{
  /// Shortest and longest booking of hours, in minutes.
  std::optional<int> minTimeSlot;
  std::optional<int> maxTimeSlot;
  /// @}
  /// The most bookings allowed per day.
  std::optional<int> maxNumberOfBookingDay;
  /// The last bookable day, "yyyy-MM-dd".
  std::optional<std::string> dateLimit;
  /// How many days ahead a booking may be made.
  std::optional<int> bookableDaysLimit;
  /// The days of the week on which the resource can be booked, as numbers (1 is Monday).
  std::optional<std::vector<int>> bookableDaysOfWeek;
  /// Bookable hours per day of the week.
  std::optional<std::vector<WeekConstraint>> weekConstraints;

  VELORA_RECORD(BookingConstraints, minTimeSlot, maxTimeSlot, maxNumberOfBookingDay, dateLimit, bookableDaysLimit,
      bookableDaysOfWeek, weekConstraints);
};

/// How a resource can be booked: by whole days, by hours, with attendees, repeating.
struct BookingConfig {
  /// @{
  /// Whether whole-day bookings, bookings of hours, invited attendees and repeating bookings are
  /// offered for this resource.
  bool dailyBooking = false;
  bool timeBooking = false;
  bool attendeesPresent = false;
  bool hasRecurring = false;
  /// @}
  /// The limits on such bookings; absent when there are none.
  std::optional<BookingConstraints> constraints;

  VELORA_RECORD(BookingConfig, dailyBooking, timeBooking, attendeesPresent, hasRecurring, constraints);
};

/// Anything that can be booked or invited: a desk, a room, a parking space, a locker, a person.
struct Resource {
  /// The resource's id: what ScheduleRequest::elementId, FavouriteRequest and the agenda requests
  /// name it by.
  std::string id;
  /// Display name, shown when `i18n` has no translation.
  std::string name;
  /// The kind of resource; UNKNOWN for a kind this library does not know, which the awaitable
  /// search can drop with `filterUnknownValues`.
  ResourceType type = ResourceType::UNKNOWN;
  /// @{
  /// The finer kind ("STANDARD", a height-adjustable desk...), its label to show and the
  /// localisation key of that label; absent when the resource has no subtype.
  std::optional<std::string> subtype;
  std::optional<std::string> subtypeLabel;
  std::optional<std::string> i18nSubtype;
  /// @}
  /// The id of the positioning tag attached to the resource, if it has one.
  std::optional<std::string> tagid;
  /// Localisation key of the name.
  std::optional<std::string> i18n;
  /// @{
  /// Address of the main picture and of further pictures, as the platform gives them.
  std::optional<std::string> image;
  std::optional<std::vector<std::string>> images;
  /// @}
  /// Building, floor, room and area the resource belongs to.
  std::optional<BuildingPositionModel> buildingPosition;
  /// Where the map draws the resource; absent for resources without a place (a person, say).
  std::optional<MapPositionModel> position;
  /// How the resource can be booked; absent for resources that cannot be.
  std::optional<BookingConfig> bookingConfig;
  /// @{
  /// What the resource offers, the equipment a user may operate, its sensor readings and the
  /// services that can be ordered with a booking; absent when it has none.
  std::optional<std::vector<ResourceService>> services;
  std::optional<std::vector<ResourceControl>> controls;
  std::optional<std::vector<ResourceSensor>> sensors;
  std::optional<std::vector<AdditionalService>> additionalServices;
  /// @}
  /// Whether the user marked the resource as a favourite (see setFavorite).
  bool favourite = false;
  /// One highlighted property to show with the resource ("Quiet area").
  std::optional<InfoIcon> singleInfo;
  /// @{
  /// Free-form texts the platform attaches (a person's skills, the kinds of metadata the resource
  /// carries, the groups it belongs to); the library does not interpret them.
  std::optional<std::vector<std::string>> skills;
  std::optional<std::vector<std::string>> metadataTypes;
  std::optional<std::vector<std::string>> connectedGroupNames;
  /// @}
  /// Text to show as the resource's description.
  std::optional<std::string> description;
  /// The resource's id in an external system the platform is integrated with.
  std::optional<std::string> integrationKey;
  /// A person's user name, for resources of type PEOPLE.
  std::optional<std::string> username;
  /// Do-not-disturb state of a person.
  std::optional<int> dnd;
  /// Further properties as text pairs; the keys are the platform's.
  std::optional<std::map<std::string, std::string>> data;

  VELORA_RECORD(Resource, id, name, type, subtype, subtypeLabel, i18nSubtype, tagid, i18n, image, images,
      buildingPosition, position, bookingConfig, services, controls, sensors, additionalServices, favourite, singleInfo,
      skills, metadataTypes, connectedGroupNames, description, integrationKey, username, dnd, data);
};

// ---- Schedules ---------------------------------------------------------------------------------

/// Someone taking part in a meeting, and how they attend.
struct MeetingAttendee {
  /// Remote or in the room; UNKNOWN for a text this library does not know.
  MeetingAttendeeType type = MeetingAttendeeType::UNKNOWN;
  /// Who attends, as a resource (usually of type PEOPLE).
  Resource attendee;

  VELORA_RECORD(MeetingAttendee, type, attendee);
};

/// A booking as the platform stores it: a day (or span of days), optionally hours, and what is booked.
struct ScheduleElement {
  /// The booking's id: what deleteSchedule, getBooking, ScheduleRequest::bookingId and the locker
  /// operations take.
  std::string id;
  /// Title to show (a meeting's name, or the resource's).
  std::optional<std::string> label;
  /// Meeting or personal booking; UNKNOWN for a text this library does not know.
  ScheduleElementType type = ScheduleElementType::UNKNOWN;
  /// Whole day, run of days or hours; absent when the platform does not say.
  std::optional<ScheduleType> scheduleType;
  /// @{
  /// First and last day, "yyyy-MM-dd"; `dayEnd` is absent for a booking of one day.
  std::string day;
  std::optional<std::string> dayEnd;
  /// @}
  /// @{
  /// Start and end time, "HH:mm"; absent for a booking of whole days.
  std::optional<std::string> start;
  std::optional<std::string> end;
  /// @}
  /// The resource booked, as the platform describes it when it answers; absent when left out.
  std::optional<Resource> resource;
  /// Who is invited; absent for a personal booking.
  std::optional<std::vector<MeetingAttendee>> attendees;

  /// @{
  /// `day` and `dayEnd` as local midnight, `start` and `end` as that time on 2000-01-01 local;
  /// empty when the text is absent or not exactly of its pattern.
  std::optional<Date> dayDate() const;
  std::optional<Date> dayEndDate() const;
  std::optional<Date> startDate() const;
  std::optional<Date> endDate() const;
  /// @}

  VELORA_RECORD(ScheduleElement, id, label, type, scheduleType, day, dayEnd, start, end, resource, attendees);
};

/// Creates a booking (no `bookingId`) or changes one; the server answers with the request as stored.
struct ScheduleRequest {
  /// The booking being changed (ScheduleElement::id); absent to create a new one.
  std::optional<std::string> bookingId;
  /// The entry being edited, kept for the application; never sent, never read.
  std::optional<ScheduleElement> scheduleElement;
  /// @{
  /// The id and kind of the resource booked.
  std::string elementId;
  ResourceType elementType = ResourceType::UNKNOWN;
  /// @}
  /// @{
  /// Title and note of a meeting; left out for a personal booking.
  std::optional<std::string> meetingName;
  std::optional<std::string> meetingNote;
  /// @}
  /// Whether a video conference is asked for with the room; absent leaves it to the platform.
  std::optional<bool> videoConference;
  /// @{
  /// First and last day, "yyyy-MM-dd"; an absent `dayEnd` books one day.
  std::string dayStart;
  std::optional<std::string> dayEnd;
  /// @}
  /// @{
  /// Start and end time, "HH:mm"; absent to book whole days.
  std::optional<std::string> start;
  std::optional<std::string> end;
  /// @}
  /// The invited people; travels under the key "attendees".
  std::optional<std::vector<MeetingAttendee>> _attendees;
  /// How the booking repeats; travels under the key "recurring", absent for a single booking.
  std::optional<RecurringType> _recurring;
  /// E-mail addresses of guests from outside the organisation.
  std::optional<std::vector<std::string>> externalAttendees;
  /// Services ordered with the booking, each with its `quantity`.
  std::optional<std::vector<AdditionalService>> additionalServices;

  /// @{
  /// `dayStart` and `dayEnd` as local midnight, `start` and `end` as that time on 2000-01-01 local;
  /// empty when the text is absent or not exactly of its pattern.
  std::optional<Date> dayStartDate() const;
  std::optional<Date> dayEndDate() const;
  std::optional<Date> startDate() const;
  std::optional<Date> endDate() const;
  /// @}

  VELORA_RECORD(ScheduleRequest, bookingId, VELORA_NOT_CODED(scheduleElement), elementId, elementType, meetingName,
      meetingNote, videoConference, dayStart, dayEnd, start, end, (_attendees, "attendees"), (_recurring, "recurring"),
      externalAttendees, additionalServices);
};

/// One day of a resource's agenda: `date` is "yyyy-MM-dd", its opening hours "HH:mm".
struct DaySchedule {
  /// The id getAgendaDay was asked about: the resource whose day this is.
  std::string id;
  /// The day, "yyyy-MM-dd".
  std::string date;
  /// @{
  /// Opening and closing time of the resource that day, "HH:mm"; absent when not limited.
  std::optional<std::string> dayStart;
  std::optional<std::string> dayEnd;
  /// @}
  /// The bookings of that day, empty when there are none.
  std::vector<ScheduleElement> scheduleElements;

  /// `date` as local midnight; empty when it is not exactly "yyyy-MM-dd".
  std::optional<Date> dateDate() const;
  /// @{
  /// `dayStart` and `dayEnd` as that time on 2000-01-01 local; empty when the text is absent or not
  /// exactly "HH:mm".
  std::optional<Date> dayStartDate() const;
  std::optional<Date> dayEndDate() const;
  /// @}

  VELORA_RECORD(DaySchedule, id, date, dayStart, dayEnd, scheduleElements);
};

/// What findAgenda looks up: the agendas of some resources over a span of days.
struct ResourceAgendaRequest {
  /// Resource ids; absent for every resource the user may see.
  std::optional<std::vector<std::string>> elements;
  /// @{
  /// First and last day, "yyyy-MM-dd"; an absent `dateEnd` leaves the span's length to the server.
  std::string dateStart;
  std::optional<std::string> dateEnd;
  /// @}

  /// @{
  /// `dateStart` and `dateEnd` as local midnight; empty when the text is absent or not exactly
  /// "yyyy-MM-dd".
  std::optional<Date> dateStartDate() const;
  std::optional<Date> dateEndDate() const;
  /// @}

  VELORA_RECORD(ResourceAgendaRequest, elements, dateStart, dateEnd);
};

/// One resource's bookings over a span of days, as findAgenda answers.
struct ResourceAgenda {
  /// Identifies the agenda in the answer; usually the id of its resource, `element.id`.
  std::string id;
  /// The resource; an agenda whose resource's type is UNKNOWN can be dropped with
  /// `filterUnknownValues`.
  Resource element;
  /// @{
  /// First and last day covered, "yyyy-MM-dd".
  std::string dateStart;
  std::optional<std::string> dateEnd;
  /// @}
  /// One entry per day of the span; absent when the server sends no days.
  std::optional<std::vector<DaySchedule>> days;

  /// @{
  /// `dateStart` and `dateEnd` as local midnight; empty when the text is absent or not exactly
  /// "yyyy-MM-dd".
  std::optional<Date> dateStartDate() const;
  std::optional<Date> dateEndDate() const;
  /// @}

  VELORA_RECORD(ResourceAgenda, id, element, dateStart, dateEnd, days);
};

// ---- People, lockers, favourites ----------------------------------------------------------------

/// A person who can be invited to a meeting.
struct BookingUserInvite {
  /// The person's id on the platform.
  std::string id;
  /// @{
  /// The person's names and details to show, as the platform's directory gives them; `name` is the
  /// full name when the platform composes one. Absent keys stay empty.
  std::optional<std::string> firstName;
  std::optional<std::string> lastName;
  std::optional<std::string> name;
  /// @}
  /// E-mail address; always present.
  std::string email;
  /// @{
  /// Job title, department and the address of a portrait; absent when unknown.
  std::optional<std::string> jobTitle;
  std::optional<std::string> department;
  std::optional<std::string> imageUrl;
  /// @}
  /// The list the person is shown under (favourites, recent contacts, others).
  std::optional<BookingUserContactSection> section;

  VELORA_RECORD(BookingUserInvite, id, firstName, lastName, name, email, jobTitle, department, imageUrl, section);
};

/// A locker booking: a given locker (`resourceId`) or the nearest free one of a `size`.
struct BookingLockerRequest {
  /// The locker size to look for, as the platform names sizes; set by bookNearestLocker.
  std::optional<std::string> size;
  /// The locker to book; set by bookLocker.
  std::optional<std::string> resourceId;

  VELORA_RECORD(BookingLockerRequest, size, resourceId);
};

/// The answer to unlocking a booked locker.
struct LockerResponse {
  /// Seconds the door stays released.
  int opentime = 0;

  VELORA_RECORD(LockerResponse, opentime);
};

/// The body setFavorite sends: marks a resource as a favourite of the user, or unmarks it.
struct FavouriteRequest {
  /// The resource to mark (Resource::id).
  std::string resourceId;
  /// True to add to the favourites, false to remove.
  bool favourite = false;

  VELORA_RECORD(FavouriteRequest, resourceId, favourite);
};

// ---- Filters -----------------------------------------------------------------------------------

/// One criterion of a filter form; `value` and the `constraints` keep whatever JSON arrives.
struct FilterElement {
  /// @{
  /// The criterion's id and the id of the Filter it belongs to.
  std::string id;
  std::string filterId;
  /// @}
  /// The input to draw; UNKNOWN for a text this library does not know.
  FilterElementType type = FilterElementType::UNKNOWN;
  /// @{
  /// Label, localisation key of the label and icon name; absent keys stay empty.
  std::string name;
  std::optional<std::string> i18n;
  std::optional<std::string> icon;
  /// @}
  /// Whether the form needs a value here; absent means optional.
  std::optional<bool> required;
  /// The preselected value, of whatever JSON kind the input takes (a number, a text, a list of
  /// choices...).
  std::optional<AnyCodable> value;
  /// Limits of the input by name (such as "min", "max", "step"); the names are the platform's.
  std::optional<std::map<std::string, AnyCodable>> constraints;

  VELORA_RECORD(FilterElement, id, filterId, type, name, i18n, icon, required, value, constraints);
};

/// A choice of a filter section; choices may group further choices.
struct FilterValueElement {
  /// @{
  /// Id, label, localisation key of the label and icon name of the choice; absent keys stay empty.
  std::string id;
  std::string name;
  std::optional<std::string> i18n;
  std::optional<std::string> icon;
  /// @}
  /// Whether the choice is selected.
  bool value = false;
  /// A count that goes with the choice (how many lockers of a size, say); absent when none.
  std::optional<int> quantity;
  /// The name of the group the choice is shown in ("floors", say); absent for an ungrouped choice.
  std::optional<std::string> grouping;
  /// The choices nested under this one; absent for a leaf.
  std::optional<std::vector<FilterValueElement>> filterValueElements;

  VELORA_RECORD(FilterValueElement, id, name, i18n, icon, value, quantity, grouping, filterValueElements);
};

/// The choices offered on one screen (booking, search, map...), as getFiltersSection answers.
struct SectionFilter {
  /// Identifies the section ("sec-booking", say); the screen it serves is `sectionType`.
  std::string id;
  /// The screen the section belongs to; absent when the platform does not say.
  std::optional<SectionType> sectionType;
  /// The choices, in display order.
  std::vector<FilterValueElement> sectionValues;

  VELORA_RECORD(SectionFilter, id, sectionType, sectionValues);
};

/// The filter form of a kind of resource.
struct Filter {
  /// The filter's id: FilterElement::filterId of its criteria.
  std::string id;
  /// The kind of resource the form is for; absent when the platform does not say.
  std::optional<FilterType> type;
  /// The criteria, in display order.
  std::vector<FilterElement> filterElements;

  VELORA_RECORD(Filter, id, type, filterElements);
};

/// What `search` looks for; `date` is "yyyy-MM-dd", `start` and `end` "HH:mm".
struct BookFilterModel {
  /// The day the resources must be free; absent leaves the day to the server.
  std::optional<std::string> date;
  /// Free text the server matches against the resources (their names, at least); absent matches
  /// every resource.
  std::optional<std::string> search;
  /// @{
  /// The hours the resources must be free; give both or neither (neither: the whole day).
  std::optional<std::string> start;
  std::optional<std::string> end;
  /// @}
  /// The kinds of resource wanted; absent or empty for every kind.
  std::optional<std::vector<BookFilterResourceType>> types;
  /// Only resources on this floor map; absent for every floor.
  std::optional<int> mapId;
  /// Service ids the resource must offer.
  std::optional<std::vector<std::string>> services;
  /// Only resources that have a position on the map.
  bool hasPosition = false;

  VELORA_RECORD(BookFilterModel, date, search, start, end, types, mapId, services, hasPosition);
};

}  // namespace velora
