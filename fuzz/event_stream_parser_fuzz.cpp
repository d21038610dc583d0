// The parser must survive any bytes and must cut a stream exactly like a literal reading of the
// cutting rules (every search covering the whole unconsumed buffer), whatever the chunking. With
// one delimiter kind in the input, where to cut the chunks cannot matter, so there the chunked run
// must also give the same events as the one-chunk run. (With several kinds, the first present in
// the buffer wins, so what is buffered when a chunk arrives legitimately changes the blocks.)

#include <velora/sse/EventStreamParser.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace {

using velora::Event;
using velora::EventStreamParser;

bool isUtf8(std::string_view s) {
  for (std::size_t i = 0; i < s.size();) {
    const auto lead = static_cast<unsigned char>(s[i]);
    const std::size_t length = lead < 0x80 ? 1 : (lead >> 5) == 0x6 ? 2 : (lead >> 4) == 0xE ? 3 : (lead >> 3) == 0x1E ? 4 : 0;
    if (length == 0 || i + length > s.size()) return false;
    std::uint32_t cp = length == 1 ? lead : lead & (0x7Fu >> length);
    for (std::size_t k = 1; k < length; ++k) {
      const auto c = static_cast<unsigned char>(s[i + k]);
      if ((c & 0xC0) != 0x80) return false;
      cp = (cp << 6) | (c & 0x3Fu);
    }
    const std::uint32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (cp < smallest[length] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return false;
    i += length;
  }
  return true;
}

struct NaiveParser {
  std::string buffer;
  std::vector<Event> append(std::optional<std::string_view> chunk) {
    std::vector<Event> events;
    if (!chunk) return events;
    buffer += *chunk;
    std::size_t start = 0;
    for (;;) {
      const std::string_view range = std::string_view(buffer).substr(start);
      std::size_t at = std::string_view::npos;
      std::size_t length = 0;
      for (std::string_view delimiter : {"\r\n\r\n", "\n\n", "\r\r"}) {
        if ((at = range.find(delimiter)) != std::string_view::npos) {
          length = delimiter.size();
          break;
        }
      }
      if (at == std::string_view::npos) break;
      if (isUtf8(range.substr(0, at))) {
        if (auto event = Event::make(range.substr(0, at))) events.push_back(*event);
      }
      start += at + length;
    }
    buffer.erase(0, start);
    return events;
  }
  std::optional<std::string> currentBuffer() const { return isUtf8(buffer) ? std::optional(buffer) : std::nullopt; }
};

struct Run {
  std::vector<std::vector<Event>> perAppend;
  std::optional<std::string> rest;
  std::vector<Event> all() const {
    std::vector<Event> events;
    for (const auto& batch : perAppend) events.insert(events.end(), batch.begin(), batch.end());
    return events;
  }
  friend bool operator==(const Run&, const Run&) = default;
};

template <class Parser>
Run feed(const std::vector<std::optional<std::string_view>>& chunks) {
  Parser parser;
  Run run;
  for (const auto& chunk : chunks) run.perAppend.push_back(parser.append(chunk));
  run.rest = parser.currentBuffer();
  return run;
}

void check(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(bytes), size);

  // Chunk sizes 0..23 taken from the bytes at the cut points, with a missing chunk now and then.
  std::vector<std::optional<std::string_view>> chunks;
  for (std::size_t at = 0, step = 0; at < size; ++step) {
    const unsigned selector = (bytes[at] * 7u + static_cast<unsigned>(step)) % 26u;
    if (selector == 25) {
      chunks.emplace_back(std::nullopt);
      continue;
    }
    const std::size_t length = std::min<std::size_t>(selector == 24 ? 0 : selector, size - at);
    chunks.emplace_back(input.substr(at, length));
    at += length;
  }

  const Run whole = feed<EventStreamParser>({input});
  const Run chunked = feed<EventStreamParser>(chunks);
  check(whole == feed<NaiveParser>({input}));
  check(chunked == feed<NaiveParser>(chunks));

  int kinds = 0;
  for (std::string_view delimiter : {"\r\n\r\n", "\n\n", "\r\r"}) kinds += input.find(delimiter) != std::string_view::npos;
  if (kinds <= 1) {
    check(whole.all() == chunked.all());
    check(whole.rest == chunked.rest);
  }

  for (const Event& event : whole.all()) {
    const auto retry = event.retryTime();
    check(!retry || event.retry.has_value());
    check(!event.onlyRetryEvent() || event.retry.has_value());
  }
  // Blocks handed over by the parser are valid UTF-8; a direct caller may pass anything.
  if (const auto event = Event::make(input)) (void)event->retryTime();
  return 0;
}
