#include <velora/sse/EventStreamParser.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace velora {
namespace {

using Events = std::vector<Event>;
using Chunks = std::vector<std::optional<std::string>>;

struct Fed {
  Events events;
  std::vector<std::size_t> eventsPerAppend;
  std::optional<std::string> rest;
};

template <class Parser>
Fed feed(const Chunks& chunks) {
  Parser parser;
  Fed fed;
  for (const auto& chunk : chunks) {
    Events events = parser.append(chunk ? std::optional<std::string_view>(*chunk) : std::nullopt);
    fed.eventsPerAppend.push_back(events.size());
    fed.events.insert(fed.events.end(), events.begin(), events.end());
  }
  fed.rest = parser.currentBuffer();
  return fed;
}

Event data(const char* text) { return Event{.data = text}; }

// Streams whose events do not depend on where the chunks are cut.
struct StreamCase {
  std::string stream;
  Events expected;
};

const std::vector<StreamCase> kStreams = {
    {"", {}},
    {"data: a\n\n", {data("a")}},
    {"data: a\ndata: b\n\n", {data("a\nb")}},
    {"data: a\n\ndata: b\n\n", {data("a"), data("b")}},
    {"id: 7\r\nevent: e\r\ndata: d\r\nretry: 9\r\n\r\n", {{.id = "7", .event = "e", .data = "d", .retry = "9"}}},
    {"data: a\r\rdata: b\r\r", {data("a"), data("b")}},
    {": keep-alive\n\ndata: a\n\n", {data("a")}},
    {"retry: 5000\n\n", {{.retry = "5000"}}},
    {"event\n\n", {Event{}}},
    {"event: a\nevent\nevent: b\n\n", {{.event = "b"}}},
    {"event: a\nevent:  \n\n", {Event{}}},
    {"data\n\n", {data("")}},
    {"data:\ndata\ndata: x\n\n", {data("\n\nx")}},
    {"id: 1\nid: 2\n\n", {{.id = "1\n2"}}},
    {"\n\n\n\n", {Event{}, Event{}}},
    {"data: a\xC2\x85" "data: b\xE2\x80\xA8" "data: c\xE2\x80\xA9" "data: d\n\n", {data("a\nb\nc\nd")}},
    {"data: \xE2\x82\xAC \xF0\x9F\x98\x80\n\n", {data("\xE2\x82\xAC \xF0\x9F\x98\x80")}},
    {"data: \xFF\n\ndata: ok\n\n", {data("ok")}},
    {"data: \xC0\xAF\n\ndata: \xED\xA0\x80\n\ndata: \xF4\x90\x80\x80\n\ndata: \xE2\x82\n\ndata: \xC3(\n\n", {}},
    {"data:hello\n\n", {data("hello")}},
    {"data: a: b \t\n\n", {data("a: b \t")}},
    {"data : x\n\n", {Event{}}},
    {" \tdata:\t x\n\n", {data("x")}},
    {"foo: bar\nData: no\n:data: no\ndata: x\n\n", {data("x")}},
    {"data: pending\n", {}},
};

TEST(EventStreamParserTest, StreamsGiveTheirEventsWhereverTheyAreCut) {
  for (const auto& [stream, expected] : kStreams) {
    SCOPED_TRACE(testing::PrintToString(stream));
    const Fed whole = feed<EventStreamParser>({stream});
    EXPECT_EQ(whole.events, expected);
    for (std::size_t cut = 0; cut <= stream.size(); ++cut) {
      const Fed split = feed<EventStreamParser>({stream.substr(0, cut), stream.substr(cut)});
      EXPECT_EQ(split.events, expected) << "cut at " << cut;
      EXPECT_EQ(split.rest, whole.rest) << "cut at " << cut;
    }
    Chunks bytes;
    for (char c : stream) bytes.emplace_back(std::string(1, c));
    EXPECT_EQ(feed<EventStreamParser>(bytes).events, expected);
  }
}

TEST(EventStreamParserTest, FirstDelimiterInPrecedenceOrderPresentInTheBufferEndsTheBlock) {
  const std::vector<std::pair<Chunks, Events>> cases = {
      {{"data: a\n\ndata: b\r\n\r\n"}, {data("a\nb")}},
      {{"data: a\n\n", "data: b\r\n\r\n"}, {data("a"), data("b")}},
      {{"data: a\n\ndata: b\r\n", "\r\n"}, {data("a"), data("b")}},
      {{"data: a\n", "\ndata: b\r\n\r\n"}, {data("a\nb")}},
      {{"data: a\r\rdata: b\n\n"}, {data("a\nb")}},
      {{"data: a\r\r", "data: b\n\n"}, {data("a"), data("b")}},
      {{"data: a\n\n\r\n\r\n"}, {data("a")}},
      {{": c\n\ndata: x\r\n\r\n"}, {}},
  };
  for (const auto& [chunks, expected] : cases) {
    EXPECT_EQ(feed<EventStreamParser>(chunks).events, expected) << testing::PrintToString(chunks);
  }
}

TEST(EventStreamParserTest, MissingChunkLeavesTheBufferAndPartialCharactersAreNotText) {
  EventStreamParser parser;
  EXPECT_TRUE(parser.append("data: \xE2\x82").empty());
  EXPECT_EQ(parser.currentBuffer(), std::nullopt);
  EXPECT_TRUE(parser.append(std::nullopt).empty());
  EXPECT_TRUE(parser.append("\xAC").empty());
  EXPECT_EQ(parser.currentBuffer(), "data: \xE2\x82\xAC");
  EXPECT_EQ(parser.append("\n\n"), Events{data("\xE2\x82\xAC")});
  EXPECT_EQ(parser.currentBuffer(), "");
  EXPECT_EQ(Event::make(std::nullopt), std::nullopt);
  EXPECT_EQ(Event::make(": x\ndata: y"), std::nullopt);
}

TEST(EventTest, RetryTimeAndRetryOnlyEvents) {
  const std::vector<std::pair<const char*, std::optional<long long>>> cases = {
      {"5000", 5000}, {" \t42 \t", 42}, {"+7", 7}, {"-5", -5}, {"9223372036854775807", std::numeric_limits<long long>::max()},
      {"abc", std::nullopt}, {"", std::nullopt}, {"1\n2", std::nullopt}, {"12a", std::nullopt}, {"1 2", std::nullopt},
      {"+-7", std::nullopt}, {"+", std::nullopt}, {"9223372036854775808", std::nullopt}};
  for (const auto& [text, expected] : cases) {
    EXPECT_EQ(Event{.retry = text}.retryTime(), expected) << text;
  }
  EXPECT_EQ(Event{}.retryTime(), std::nullopt);
  EXPECT_TRUE(Event{.retry = "x"}.onlyRetryEvent());
  EXPECT_FALSE(Event{}.onlyRetryEvent());
  EXPECT_FALSE((Event{.id = "", .retry = "1"}.onlyRetryEvent()));
  EXPECT_FALSE((Event{.event = "", .retry = "1"}.onlyRetryEvent()));
  EXPECT_FALSE((Event{.data = "", .retry = "1"}.onlyRetryEvent()));
}

// A literal reading of the cutting rules: every search covers the whole unconsumed buffer.
bool naiveIsUtf8(std::string_view s) {
  for (std::size_t i = 0; i < s.size();) {
    const auto lead = static_cast<unsigned char>(s[i]);
    const int length = lead < 0x80 ? 1 : (lead >> 5) == 0x6 ? 2 : (lead >> 4) == 0xE ? 3 : (lead >> 3) == 0x1E ? 4 : 0;
    if (length == 0 || i + static_cast<std::size_t>(length) > s.size()) return false;
    std::uint32_t cp = length == 1 ? lead : lead & (0x7F >> length);
    for (int k = 1; k < length; ++k) {
      const auto c = static_cast<unsigned char>(s[i + static_cast<std::size_t>(k)]);
      if ((c & 0xC0) != 0x80) return false;
      cp = (cp << 6) | (c & 0x3F);
    }
    const std::uint32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (cp < smallest[length] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return false;
    i += static_cast<std::size_t>(length);
  }
  return true;
}

struct NaiveParser {
  std::string buffer;
  Events append(std::optional<std::string_view> chunk) {
    Events events;
    if (!chunk) return events;
    buffer += *chunk;
    std::size_t start = 0;
    for (;;) {
      const std::string_view range = std::string_view(buffer).substr(start);
      std::size_t at = std::string_view::npos;
      std::size_t length = 0;
      for (std::string_view newline : EventStreamParser::validNewlineCharacters) {
        const std::string delimiter = std::string(newline) + std::string(newline);
        if ((at = range.find(delimiter)) != std::string_view::npos) {
          length = delimiter.size();
          break;
        }
      }
      if (at == std::string_view::npos) break;
      if (naiveIsUtf8(range.substr(0, at))) {
        if (auto event = Event::make(range.substr(0, at))) events.push_back(*event);
      }
      start += at + length;
    }
    buffer.erase(0, start);
    return events;
  }
  std::optional<std::string> currentBuffer() const { return naiveIsUtf8(buffer) ? std::optional(buffer) : std::nullopt; }
};

TEST(EventStreamParserTest, MatchesTheNaiveParserOnRandomStreamsAndChunkings) {
  const std::vector<std::string> pieces = {
      "\n", "\n", "\r", "\r", "\r\n", "\n\n", "\r\n\r\n", "data", "data: ", ":", " ", "\t", "id:", "event",
      "retry: 3", "x", "y z", "\xC2\x85", "\xE2\x80\xA8", "\xE2\x80\xA9", "\xE2\x82\xAC", "\xFF", "\xE2\x82", "\x80", "\xC3"};
  std::mt19937 random(20240611);
  for (int round = 0; round < 3000; ++round) {
    std::string stream;
    const int pieceCount = std::uniform_int_distribution<int>(0, 120)(random);
    for (int i = 0; i < pieceCount; ++i) stream += pieces[random() % pieces.size()];
    const std::size_t maxChunk = std::size_t{1} << (random() % 8);
    Chunks chunks;
    for (std::size_t at = 0; at < stream.size();) {
      if (random() % 16 == 0) chunks.emplace_back(std::nullopt);
      const std::size_t size = std::min(stream.size() - at, static_cast<std::size_t>(random() % (maxChunk + 1)));
      chunks.emplace_back(stream.substr(at, size));
      at += size;
    }
    const Fed fast = feed<EventStreamParser>(chunks);
    const Fed naive = feed<NaiveParser>(chunks);
    ASSERT_EQ(fast.events, naive.events) << testing::PrintToString(chunks);
    ASSERT_EQ(fast.eventsPerAppend, naive.eventsPerAppend) << testing::PrintToString(chunks);
    ASSERT_EQ(fast.rest, naive.rest) << testing::PrintToString(chunks);
  }
}

}  // namespace
}  // namespace velora
