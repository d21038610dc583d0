#pragma once
// Server-Sent-Events parsing in two layers: EventStreamParser cuts the byte stream of a response
// body into event blocks at blank-line delimiters, whatever the chunking of the bytes; Event reads
// one block into its fields.

#include <array>
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace velora {

struct Event;

/// One parser per connection attempt; a reconnect starts with a fresh parser so that bytes left
/// over from a broken connection never join the next connection's bytes.
/// Parsing is linear in the bytes received, whatever the chunk sizes.
class EventStreamParser {
 public:
  /// The line terminators. Their order is the delimiter precedence: each terminator written twice
  /// ("\r\n\r\n", "\n\n", "\r\r") is looked for in this order, and the first one present anywhere
  /// in the unconsumed bytes ends the block, even when a later one occurs earlier.
  static constexpr std::array<std::string_view, 3> validNewlineCharacters{"\r\n", "\n", "\r"};

  EventStreamParser() = default;

  /// Buffers `data` and returns the events it completes, in stream order. Comment blocks and
  /// blocks that are not valid UTF-8 yield nothing. A missing chunk changes nothing.
  std::vector<Event> append(std::optional<std::string_view> data);

  /// The buffered, not yet delimited bytes as text; nullopt when they are not valid UTF-8
  /// (which includes a multi-byte character cut by the end of the last chunk). For diagnostics.
  std::optional<std::string> currentBuffer() const;

 private:
  std::string buffer_;
  // buffer_[0, consumed_) has already been turned into events; it is dropped from the front only
  // when that is cheap relative to the bytes consumed, so that small events do not each cost a
  // move of the pending tail.
  std::size_t consumed_ = 0;
};

/// One event block read into its fields. Any field can be absent.
struct Event {
  /// The "id" field; the source's lastEventId becomes it, absent included.
  std::optional<std::string> id{};
  /// Absent means the default event name, "message".
  std::optional<std::string> event{};
  /// The "data" lines joined with "\n": what listeners decode (JSON on the platform's streams).
  std::optional<std::string> data{};
  /// The reconnection time as sent, in milliseconds; see retryTime().
  std::optional<std::string> retry{};

  /// Reads one block. No event when the text is absent or starts with ":" (a comment block).
  /// Lines are split at every newline character (LF, CR, U+0085, U+2028, U+2029), not only at
  /// `newLineCharacters`: a block cut at one delimiter may hold lines ended by the others.
  /// A key given several times has its values joined with "\n", for every key; a bare "event"
  /// line clears the name; a bare "data" line contributes an empty data line.
  static std::optional<Event> make(std::optional<std::string_view> eventString,
                                   std::span<const std::string_view> newLineCharacters =
                                       EventStreamParser::validNewlineCharacters);

  /// The retry text without surrounding spaces and tabs as a decimal integer; nullopt when absent
  /// or not an integer.
  std::optional<long long> retryTime() const;

  /// True when the event only carries a retry text: it changes the reconnection time and is not
  /// delivered to listeners.
  bool onlyRetryEvent() const { return !id && !event && !data && retry.has_value(); }

  friend bool operator==(const Event&, const Event&) = default;
};

}  // namespace velora
