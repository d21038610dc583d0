// Reading and writing the day and time texts of the booking records.

#include <velora/booking/Booking.hpp>

#include <ctime>

namespace velora {
namespace {

/// The number written by `count` digits at `at`, or -1 when one of them is not a digit.
int digits(std::string_view text, std::size_t at, std::size_t count) {
  int value = 0;
  for (std::size_t i = at; i < at + count; ++i) {
    if (text[i] < '0' || text[i] > '9') return -1;
    value = value * 10 + (text[i] - '0');
  }
  return value;
}

int daysInMonth(int year, int month) {
  static constexpr int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
  return month == 2 && leap ? 29 : days[month - 1];
}

/// Local time; the zone decides whether daylight saving applies.
std::optional<Date> localDate(int year, int month, int day, int hour, int minute) {
  std::tm fields{};
  fields.tm_year = year - 1900;
  fields.tm_mon = month - 1;
  fields.tm_mday = day;
  fields.tm_hour = hour;
  fields.tm_min = minute;
  fields.tm_isdst = -1;
  const std::time_t seconds = std::mktime(&fields);
  if (seconds == static_cast<std::time_t>(-1)) return std::nullopt;
  return std::chrono::system_clock::from_time_t(seconds);
}

std::optional<Date> dayOf(const std::optional<std::string>& text) { return text ? dateFromDay(*text) : std::nullopt; }
std::optional<Date> timeOf(const std::optional<std::string>& text) { return text ? dateFromTime(*text) : std::nullopt; }

}  // namespace

std::string dayText(Date date) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(date);
  std::tm fields{};
  localtime_r(&seconds, &fields);
  char text[32];
  const auto length = std::strftime(text, sizeof text, "%Y-%m-%d", &fields);
  return std::string(text, length);
}

std::optional<Date> dateFromDay(std::string_view text) {
  if (text.size() != 10 || text[4] != '-' || text[7] != '-') return std::nullopt;
  const int year = digits(text, 0, 4);
  const int month = digits(text, 5, 2);
  const int day = digits(text, 8, 2);
  if (year < 0 || month < 1 || month > 12 || day < 1 || day > daysInMonth(year, month)) return std::nullopt;
  return localDate(year, month, day, 0, 0);
}

std::optional<Date> dateFromTime(std::string_view text) {
  if (text.size() != 5 || text[2] != ':') return std::nullopt;
  const int hour = digits(text, 0, 2);
  const int minute = digits(text, 3, 2);
  if (hour < 0 || hour > 23 || minute < 0 || minute > 59) return std::nullopt;
  return localDate(2000, 1, 1, hour, minute);
}

std::optional<Date> ScheduleElement::dayDate() const { return dateFromDay(day); }
std::optional<Date> ScheduleElement::dayEndDate() const { return dayOf(dayEnd); }
std::optional<Date> ScheduleElement::startDate() const { return timeOf(start); }
std::optional<Date> ScheduleElement::endDate() const { return timeOf(end); }

std::optional<Date> ScheduleRequest::dayStartDate() const { return dateFromDay(dayStart); }
std::optional<Date> ScheduleRequest::dayEndDate() const { return dayOf(dayEnd); }
std::optional<Date> ScheduleRequest::startDate() const { return timeOf(start); }
std::optional<Date> ScheduleRequest::endDate() const { return timeOf(end); }

std::optional<Date> DaySchedule::dateDate() const { return dateFromDay(date); }
std::optional<Date> DaySchedule::dayStartDate() const { return timeOf(dayStart); }
std::optional<Date> DaySchedule::dayEndDate() const { return timeOf(dayEnd); }

std::optional<Date> ResourceAgendaRequest::dateStartDate() const { return dateFromDay(dateStart); }
std::optional<Date> ResourceAgendaRequest::dateEndDate() const { return dayOf(dateEnd); }

std::optional<Date> ResourceAgenda::dateStartDate() const { return dateFromDay(dateStart); }
std::optional<Date> ResourceAgenda::dateEndDate() const { return dayOf(dateEnd); }

}  // namespace velora
