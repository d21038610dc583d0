#include <velora/sse/EventStreamParser.hpp>

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <system_error>

namespace velora {
namespace {

constexpr std::size_t npos = std::string_view::npos;

// Word-at-a-time scanning. Bytes are read in memory order, so the first matching byte is the
// lowest one only on little-endian machines; elsewhere the byte loops alone are used.
constexpr bool kWordScan = std::endian::native == std::endian::little;
constexpr std::uint64_t kOnes = 0x0101010101010101ULL;
constexpr std::uint64_t kHighBits = 0x8080808080808080ULL;
constexpr std::uint64_t kLf = kOnes * '\n';
constexpr std::uint64_t kCr = kOnes * '\r';

std::uint64_t load64(const unsigned char* p) {
  std::uint64_t v;
  std::memcpy(&v, p, sizeof v);
  return v;
}

// Sets the high bit of the zero bytes of `v`. Borrows only run upwards, so the lowest flagged byte
// is always a true zero byte, which is all the callers look at.
constexpr std::uint64_t zeroBytes(std::uint64_t v) { return (v - kOnes) & ~v & kHighBits; }

std::size_t lowestFlaggedByte(std::uint64_t mask) { return static_cast<std::size_t>(std::countr_zero(mask)) / 8; }

const unsigned char* bytes(std::string_view s) { return reinterpret_cast<const unsigned char*>(s.data()); }

bool isContinuation(unsigned char c) { return (c & 0xC0) == 0x80; }

// Well-formed UTF-8 only: no overlong forms, no surrogates, nothing above U+10FFFF and no
// sequence cut short by the end of the range.
bool isValidUtf8(std::string_view text) {
  const unsigned char* p = bytes(text);
  const unsigned char* const end = p + text.size();
  while (p < end) {
    if constexpr (kWordScan) {
      // Payloads are mostly ASCII: step over 16 bytes at a time, then land on the first non-ASCII byte.
      while (end - p >= 16) {
        const std::uint64_t a = load64(p) & kHighBits;
        const std::uint64_t b = load64(p + 8) & kHighBits;
        if (a != 0) {
          p += lowestFlaggedByte(a);
          break;
        }
        if (b != 0) {
          p += 8 + lowestFlaggedByte(b);
          break;
        }
        p += 16;
      }
      if (p == end) break;
    }
    const unsigned char c = *p;
    const std::ptrdiff_t left = end - p;
    if (c < 0x80) {
      p += 1;
    } else if (c >= 0xC2 && c <= 0xDF) {
      if (left < 2 || !isContinuation(p[1])) return false;
      p += 2;
    } else if (c >= 0xE0 && c <= 0xEF) {
      const unsigned char lo = c == 0xE0 ? 0xA0 : 0x80;  // E0 80..9F would be overlong
      const unsigned char hi = c == 0xED ? 0x9F : 0xBF;  // ED A0..BF are surrogates
      if (left < 3 || p[1] < lo || p[1] > hi || !isContinuation(p[2])) return false;
      p += 3;
    } else if (c >= 0xF0 && c <= 0xF4) {
      const unsigned char lo = c == 0xF0 ? 0x90 : 0x80;  // F0 80..8F would be overlong
      const unsigned char hi = c == 0xF4 ? 0x8F : 0xBF;  // beyond F4 8F lies past U+10FFFF
      if (left < 4 || p[1] < lo || p[1] > hi || !isContinuation(p[2]) || !isContinuation(p[3])) return false;
      p += 4;
    } else {
      return false;
    }
  }
  return true;
}

bool containsCrOrLf(std::string_view chunk) {
  const unsigned char* p = bytes(chunk);
  const unsigned char* const end = p + chunk.size();
  if constexpr (kWordScan) {
    for (; end - p >= 8; p += 8) {
      const std::uint64_t v = load64(p);
      if ((zeroBytes(v ^ kLf) | zeroBytes(v ^ kCr)) != 0) return true;
    }
  }
  for (; p < end; ++p) {
    if (*p == '\n' || *p == '\r') return true;
  }
  return false;
}

// First start of `c c` in buffer[from, end), or npos.
std::size_t findPair(const char* buffer, std::size_t from, std::size_t end, char c) {
  if (end < 2) return npos;
  const std::size_t lastStart = end - 1;  // exclusive
  while (from < lastStart) {
    const void* hit = std::memchr(buffer + from, c, lastStart - from);
    if (hit == nullptr) return npos;
    const auto at = static_cast<std::size_t>(static_cast<const char*>(hit) - buffer);
    if (buffer[at + 1] == c) return at;
    from = at + 2;  // buffer[at + 1] != c, so no pair starts there either
  }
  return npos;
}

// First start of "\r\n\r\n" in buffer[from, end), or npos.
std::size_t findCrLfCrLf(const char* buffer, std::size_t from, std::size_t end) {
  if (end < 4) return npos;
  const std::size_t lastStart = end - 3;  // exclusive
  while (from < lastStart) {
    const void* hit = std::memchr(buffer + from, '\r', lastStart - from);
    if (hit == nullptr) return npos;
    const auto at = static_cast<std::size_t>(static_cast<const char*>(hit) - buffer);
    if (buffer[at + 1] == '\n' && buffer[at + 2] == '\r' && buffer[at + 3] == '\n') return at;
    from = at + 1;
  }
  return npos;
}

// The block delimiters in precedence order.
constexpr std::array<std::size_t, 3> kDelimiterLength{4, 2, 2};

std::size_t findDelimiter(std::size_t index, const char* buffer, std::size_t from, std::size_t end) {
  switch (index) {
    case 0: return findCrLfCrLf(buffer, from, end);
    case 1: return findPair(buffer, from, end, '\n');
    default: return findPair(buffer, from, end, '\r');
  }
}

struct LineBreak {
  const unsigned char* at;
  std::size_t length;  // 0 when the text ends without one
};

// The next newline character: LF, CR, U+0085 (C2 85), U+2028 (E2 80 A8) or U+2029 (E2 80 A9).
LineBreak nextLineBreak(const unsigned char* p, const unsigned char* end) {
  while (p < end) {
    if constexpr (kWordScan) {
      if (end - p >= 8) {
        const std::uint64_t v = load64(p);
        const std::uint64_t candidates = zeroBytes(v ^ kLf) | zeroBytes(v ^ kCr) | (v & kHighBits);
        if (candidates == 0) {
          p += 8;
          continue;
        }
        p += lowestFlaggedByte(candidates);
      }
    }
    const unsigned char c = *p;
    if (c == '\n' || c == '\r') return {p, 1};
    if (c == 0xC2 && end - p >= 2 && p[1] == 0x85) return {p, 2};
    if (c == 0xE2 && end - p >= 3 && p[1] == 0x80 && (p[2] == 0xA8 || p[2] == 0xA9)) return {p, 3};
    ++p;
  }
  return {end, 0};
}

bool isBlank(unsigned char c) { return c == ' ' || c == '\t'; }

std::optional<std::string>* fieldFor(Event& event, std::string_view key) {
  switch (key.size()) {
    case 2: return key == "id" ? &event.id : nullptr;
    case 4: return key == "data" ? &event.data : nullptr;
    case 5: return key == "event" ? &event.event : key == "retry" ? &event.retry : nullptr;
    default: return nullptr;
  }
}

// One "key: value" line. `blockEnd` bounds what later lines of the block can still add to a field,
// which sizes the first join of a field so that long multi-line data grows in one allocation.
void parseLine(const unsigned char* p, const unsigned char* lineEnd, const unsigned char* blockEnd, Event& event) {
  while (p < lineEnd && isBlank(*p)) ++p;
  if (p == lineEnd || *p == ':') return;  // no key: empty or blank line, or a comment line

  const auto* colon = static_cast<const unsigned char*>(std::memchr(p, ':', static_cast<std::size_t>(lineEnd - p)));
  const unsigned char* keyEnd = colon != nullptr ? colon : lineEnd;
  std::optional<std::string>* field =
      fieldFor(event, std::string_view(reinterpret_cast<const char*>(p), static_cast<std::size_t>(keyEnd - p)));
  if (field == nullptr) return;  // other keys are read and ignored

  const unsigned char* value = colon != nullptr ? colon + 1 : lineEnd;
  while (value < lineEnd && isBlank(*value)) ++value;
  if (value == lineEnd && field == &event.event) {
    field->reset();  // a bare "event" line falls back to the default name
    return;
  }
  // Any other key without a value counts as an empty value, so a bare "data" adds an empty line.
  const std::string_view text(reinterpret_cast<const char*>(value), static_cast<std::size_t>(lineEnd - value));
  if (!field->has_value()) {
    field->emplace(text);
    return;
  }
  std::string& joined = **field;
  if (joined.capacity() < joined.size() + 1 + text.size()) {
    joined.reserve(joined.size() + 1 + static_cast<std::size_t>(blockEnd - value));
  }
  joined += '\n';
  joined += text;
}

void parseBlock(std::string_view text, Event& event) {
  const unsigned char* p = bytes(text);
  const unsigned char* const end = p + text.size();
  for (;;) {
    const LineBreak lineBreak = nextLineBreak(p, end);
    parseLine(p, lineBreak.at, end, event);
    if (lineBreak.length == 0) return;
    p = lineBreak.at + lineBreak.length;
  }
}

bool isComment(std::string_view text) { return !text.empty() && text.front() == ':'; }

}  // namespace

std::vector<Event> EventStreamParser::append(std::optional<std::string_view> data) {
  std::vector<Event> events;
  if (!data) return events;

  // When the previous call returned, buffer_[consumed_, searchedEnd) held none of the delimiters.
  const std::size_t searchedEnd = buffer_.size();
  buffer_.append(*data);
  // Delimiters consist of CR and LF only, so a small chunk without them cannot complete one; large
  // chunks go straight to the search, which costs about as much as this check.
  if (data->size() <= 64 && !containsCrOrLf(*data)) return events;

  const char* const buffer = buffer_.data();
  const std::size_t end = buffer_.size();
  std::size_t start = consumed_;
  // Per delimiter: no occurrence lies wholly inside buffer[start, clearUpTo[k]). A search resumes
  // (length - 1) bytes before that point to catch an occurrence straddling it, and so finds the
  // same first occurrence as a search from `start` without reading any byte twice. Without this,
  // a "\r\n\r\n" known to be absent would be looked for again after every "\n\n" cut, and a large
  // event arriving in small chunks would be rescanned at every chunk.
  std::array<std::size_t, 3> clearUpTo{searchedEnd, searchedEnd, searchedEnd};
  for (;;) {
    std::size_t at = npos;
    std::size_t length = 0;
    for (std::size_t k = 0; k < kDelimiterLength.size(); ++k) {
      const std::size_t overlap = kDelimiterLength[k] - 1;
      const std::size_t from = std::max(start, clearUpTo[k] > overlap ? clearUpTo[k] - overlap : 0);
      at = findDelimiter(k, buffer, from, end);
      if (at != npos) {
        length = kDelimiterLength[k];
        break;
      }
      clearUpTo[k] = end;
    }
    if (at == npos) break;

    const std::string_view block(buffer + start, at - start);
    // A block that is not valid UTF-8 is dropped on its own; the stream goes on.
    if (!isComment(block) && isValidUtf8(block)) {
      parseBlock(block, events.emplace_back());
    }
    start = at + length;
  }

  consumed_ = start;
  // Drop the consumed bytes only when moving the pending tail costs no more than they did, which
  // keeps the total work linear however the bytes are cut.
  if (consumed_ == end) {
    buffer_.clear();
    consumed_ = 0;
  } else if (consumed_ >= end - consumed_) {
    buffer_.erase(0, consumed_);
    consumed_ = 0;
  }
  return events;
}

std::optional<std::string> EventStreamParser::currentBuffer() const {
  const std::string_view pending = std::string_view(buffer_).substr(consumed_);
  if (!isValidUtf8(pending)) return std::nullopt;
  return std::string(pending);
}

std::optional<Event> Event::make(std::optional<std::string_view> eventString,
                                 std::span<const std::string_view> /*newLineCharacters*/) {
  if (!eventString || isComment(*eventString)) return std::nullopt;
  Event event;
  parseBlock(*eventString, event);
  return event;
}

std::optional<long long> Event::retryTime() const {
  if (!retry) return std::nullopt;
  std::string_view text = *retry;
  while (!text.empty() && isBlank(static_cast<unsigned char>(text.front()))) text.remove_prefix(1);
  while (!text.empty() && isBlank(static_cast<unsigned char>(text.back()))) text.remove_suffix(1);
  // An optional sign, then decimal digits only, within range.
  if (!text.empty() && text.front() == '+') {
    text.remove_prefix(1);
    if (text.empty() || text.front() < '0' || text.front() > '9') return std::nullopt;
  }
  long long value = 0;
  const char* const last = text.data() + text.size();
  const auto [next, error] = std::from_chars(text.data(), last, value);
  if (error != std::errc{} || next != last) return std::nullopt;
  return value;
}

}  // namespace velora
