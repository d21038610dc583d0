#pragma once
// A plain-text diagnostic log, "console.log" in the application's documents folder. Every entry
// is also printed to the console. There are no levels: every call writes.

#include <ctime>
#include <string>
#include <string_view>
#include <vector>

namespace velora {

/// The diagnostic log, "console.log" in the application's documents folder (Platform::getDefault's).
/// Every entry is also printed to the console; there are no levels.
class ORVSLogManager {
 public:
  /// Appends `"dd/MM/yyyy - hh:mm - <message>\n"` (local time; the hour is on a 12-hour clock
  /// without an AM/PM marker, so 09:05 and 21:05 read alike).
  static void log(std::string_view message);
  /// The whole log, or with `fullOutput` false the last piece when the text is cut into pieces of
  /// 15000 characters from the beginning (1 to 15000 characters, not the last 15000).
  /// Empty when there is no log.
  static std::string readLog(bool fullOutput);
  /// Deletes the log file; a file that cannot be deleted, a missing one included, is reported on the
  /// console as `"Could not delete <file>: <reason>"`.
  static void clearLog();
};

/// Cuts `text` into consecutive pieces of `by` characters (Unicode scalar values of UTF-8 text),
/// from the beginning; the last piece holds the remainder.
std::vector<std::string> split(std::string_view text, std::size_t by);

/// The entry time stamp: "dd/MM/yyyy - hh:mm" of `time` in the local time zone.
std::string logTimestamp(std::time_t time);

}  // namespace velora
