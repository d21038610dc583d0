#pragma once
// The booking engine behind the booking, locker and home routes: who has booked which resource
// on which days and hours, and each user's favourites. Kept in memory per sandbox.

#include <chrono>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "DemoData.hpp"
#include "SandboxInternal.hpp"

namespace velora::sandbox::detail {

/// A calendar day as days since 1970-01-01.
using Day = int;
/// The day a "yyyy-MM-dd" text names; nullopt unless the whole text is a valid date.
std::optional<Day> parseDay(std::string_view text);
std::string formatDay(Day day);
/// Minutes after midnight of a "HH:mm" text; nullopt unless the whole text is a valid time.
std::optional<int> parseTime(std::string_view text);
std::string formatTime(int minutes);

/// A span of days and, unless it takes whole days, the same hours on each of them.
struct Span {
  Day dayStart = 0;
  Day dayEnd = 0;
  std::optional<int> start;  // minutes; both or neither
  std::optional<int> end;

  bool overlaps(const Span& other) const;
};

struct Booking {
  std::string id;  // "b-N", given when it is stored
  std::string user;
  std::string elementId;
  Span span;
  /// The ScheduleRequest the booking was made with, "bookingId" included once stored.
  nlohmann::json request;
};

class Bookings {
 public:
  explicit Bookings(const DemoData& data);

  /// Today in the local time zone on the sandbox's clock.
  Day today() const;
  void advanceClock(std::chrono::seconds by);

  /// The demo resource with that id, without "favourite"; nullptr for none.
  const nlohmann::json* resource(const std::string& id) const;
  /// The resource as `user` sees it, "favourite" included.
  nlohmann::json resourceFor(const nlohmann::json& resource, const std::string& user) const;

  /// Stores every booking or none: RequestError 409 naming the resource and the day when one
  /// overlaps a stored booking of the same resource (the one named `replacing` aside, which it
  /// replaces and whose id it keeps) or another of `bookings`. Returns them with their ids.
  std::vector<Booking> add(std::vector<Booking> bookings, const std::optional<std::string>& replacing = {});
  /// Books the free locker of `size` nearest to the desk `user` has booked today (its floor
  /// first, then by distance), or to the entrance of the first floor; RequestError 409 for none.
  Booking bookNearestLocker(const std::string& user, const std::string& size);
  /// The booking `id` of `user`; nullopt when there is none or it is someone else's.
  std::optional<Booking> find(const std::string& id, const std::string& user) const;
  /// false when `user` has no booking `id`.
  bool remove(const std::string& id, const std::string& user);
  /// Whether `span` on resource `elementId` is free, the booking `ignoring` not counted.
  bool isFree(const std::string& elementId, const Span& span, const std::string& ignoring = {}) const;
  /// Bookings of the resource (empty: any) or of the user (empty: anyone) that touch the days,
  /// ordered by day and start.
  std::vector<Booking> list(const std::string& elementId, const std::string& user, Day from, Day to) const;

  void setFavourite(const std::string& user, const std::string& resourceId, bool favourite);

 private:
  // Needs mutex_ held.
  const Booking* conflict(const Booking& candidate, const std::string& ignoring) const;
  std::string conflictMessage(const Booking& wanted, const Booking& existing) const;

  const DemoData& data_;
  mutable std::mutex mutex_;
  std::chrono::system_clock::duration skew_{};
  std::map<std::string, Booking> bookings_;  // by id
  int nextId_ = 1;
  std::map<std::string, std::set<std::string>> favourites_;  // user -> resource ids
};

}  // namespace velora::sandbox::detail
