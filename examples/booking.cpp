// booking: finds a desk that is free tomorrow, books it for the whole day, finds the booking in
// the agenda and cancels it again.
//
//   booking [URL]
//
// Form: coroutines. main() blocks on one velora::Task with get(); inside it, co_await. Each
// operation's task is made on one line and awaited on the next: g++ 12 can destroy temporaries
// built inside a co_await expression twice.

#include <algorithm>
#include <chrono>
#include <iostream>

#include "Connect.hpp"

namespace {

bool holds(const std::vector<velora::ScheduleElement>& agenda, const std::string& bookingId) {
  return std::any_of(agenda.begin(), agenda.end(), [&](const velora::ScheduleElement& e) { return e.id == bookingId; });
}

velora::Task<int> run(velora::Orvane& orvane) {
  auto login = orvane.backgroundLogin(example::user(), example::password(), -1);
  co_await login;

  // Days travel as "yyyy-MM-dd" in the local time zone; dayText writes one.
  const velora::Date tomorrow = std::chrono::system_clock::now() + std::chrono::hours(24);
  velora::BookFilterModel filter;
  filter.date = velora::dayText(tomorrow);
  filter.types = std::vector{velora::BookFilterResourceType::DESK};
  auto search = orvane.search(filter, /*leave out kinds this library does not know*/ true);
  const std::vector<velora::Resource> free = co_await search;
  std::cout << free.size() << " desks free on " << *filter.date << ":";
  for (const auto& desk : free) std::cout << ' ' << desk.name;
  std::cout << '\n';
  if (free.empty()) co_return example::fail("booking", "no desk is free on " + *filter.date);

  velora::ScheduleRequest request;  // no start and end: the whole day
  request.elementId = free.front().id;
  request.elementType = velora::ResourceType::DESK;
  request.dayStart = *filter.date;
  auto schedule = orvane.schedule(request);
  const velora::ScheduleRequest booked = co_await schedule;
  const std::string bookingId = booked.bookingId.value_or("");
  std::cout << "booked " << free.front().name << " on " << booked.dayStart << " as " << bookingId << '\n';

  auto agendaRead = orvane.getAgendaMy(tomorrow, tomorrow);
  const std::vector<velora::ScheduleElement> agenda = co_await agendaRead;
  for (const auto& entry : agenda) {
    std::cout << "  agenda: " << entry.day << "  " << (entry.resource ? entry.resource->name : "-") << "  " << entry.id << '\n';
  }
  if (!holds(agenda, bookingId)) co_return example::fail("booking", "the agenda does not show booking " + bookingId);

  auto cancel = orvane.deleteSchedule(bookingId);
  const velora::ResponseMessage cancelled = co_await cancel;
  std::cout << "cancelled: " << cancelled.message.value_or("-") << '\n';
  auto agendaAfter = orvane.getAgendaMy(tomorrow, tomorrow);
  const std::vector<velora::ScheduleElement> remaining = co_await agendaAfter;
  if (holds(remaining, bookingId)) co_return example::fail("booking", "booking " + bookingId + " is still in the agenda");

  std::cout << "booking ok: booked, listed and cancelled " << free.front().name << " for " << *filter.date << '\n';
  co_return 0;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  try {
    velora::Orvane& orvane = example::connect(example::platform("booking"), example::platformUrl(args));
    example::forgetStoredSession(orvane);
    return run(orvane).get();
  } catch (...) {
    return example::fail("booking", example::describe(std::current_exception()));
  }
}
