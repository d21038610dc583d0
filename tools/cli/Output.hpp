#pragma once
// Results on standard output: a JSON record with --json, a few lines of text otherwise.

#include <functional>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <velora/core/AnyCodable.hpp>
#include <velora/core/Record.hpp>

namespace velora::cli {

class Output {
 public:
  Output(bool json, std::ostream& out) : json_(json), out_(out) {}

  bool json() const { return json_; }

  /// The record as one line of JSON, or the text `describe` makes of it.
  template <class T>
  void show(const T& record, const std::function<std::string(const T&)>& describe) {
    if (json_) {
      printJson(encode(record));
    } else {
      printText(describe(record));
    }
  }

  /// Compact JSON with secret-bearing members masked, then a newline.
  void printJson(const AnyCodable& value);
  /// The text, ending in exactly one newline.
  void printText(std::string_view text);

 private:
  bool json_;
  std::ostream& out_;
};

/// "name   value" lines with the names padded to one column.
std::string fieldLines(const std::vector<std::pair<std::string, std::string>>& rows);

/// "a", "a or b", "a, b or c"; "and" instead of "or" with that conjunction.
std::string enumerate(const std::vector<std::string>& items, std::string_view conjunction = "or");

/// A number as a person would write it: 0.1, 90, 1.5e-07.
std::string formatNumber(double value);

/// Columns padded to their widest cell under a header row; the last column is not padded.
std::string table(const std::vector<std::string>& header, const std::vector<std::vector<std::string>>& rows);

/// Any JSON value as text a person reads: an object as "name  value" lines, a list of objects as
/// a table of their plain members with each row's nested members indented below it, other lists
/// one element a line. Nested values read as compact JSON, text without quotes, null as "-".
std::string describeJson(const AnyCodable& value);

/// A copy of `value` whose members named like tokens, passwords or secrets read "<redacted>", and
/// whose texts are masked like any other output (see maskSecrets), so that results can be pasted
/// into a ticket.
AnyCodable redactSecrets(const AnyCodable& value);

}  // namespace velora::cli
