// The ticket upload's multipart writer on arbitrary photos, voice notes and forms, with boundaries
// and file names of any length from the UUID source. Its body, read whole or piece by piece, must
// be the same bytes; and whenever the delimiter occurs in the body only where the writer put it,
// the sandbox's multipart reader must give back exactly the parts written: the files with their
// names and types, and the form as JSON that decodes to the same form.

#include <fuzzer/FuzzedDataProvider.h>

#include <velora/tickets/Tickets.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <variant>
#include <vector>

#include "Multipart.hpp"

namespace {

using velora::Bytes;
using velora::FormTicket;
using velora::SaveTicketRequest;
using velora::sandbox::detail::MultipartEntry;
using velora::sandbox::detail::readMultipart;

void check(bool condition) {
  if (!condition) std::abort();
}

/// Text as an application gets it: bytes above 0x7F become "é", so that it is valid UTF-8; control
/// characters, quotes and backslashes stay.
std::string text(FuzzedDataProvider& input, std::size_t maxLength) {
  std::string out;
  for (const unsigned char c : input.ConsumeRandomLengthString(maxLength)) {
    if (c < 0x80) {
      out.push_back(static_cast<char>(c));
    } else {
      out += "\xC3\xA9";
    }
  }
  return out;
}

std::optional<Bytes> file(FuzzedDataProvider& input) {
  if (!input.ConsumeBool()) return std::nullopt;
  const std::string bytes = input.ConsumeRandomLengthString(512);
  return Bytes(bytes.begin(), bytes.end());
}

std::string_view view(const Bytes& bytes) { return {reinterpret_cast<const char*>(bytes.data()), bytes.size()}; }

std::size_t occurrences(std::string_view haystack, std::string_view needle) {
  std::size_t count = 0;
  for (auto at = haystack.find(needle); at != std::string_view::npos; at = haystack.find(needle, at + 1)) ++count;
  return count;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider input(data, size);

  // Identifiers of 1 to 70 characters of the UUID alphabet: always a valid boundary and file name.
  std::vector<std::string> uuids;
  for (int i = 0; i < 3; ++i) {
    std::string uuid;
    const auto length = input.ConsumeIntegralInRange<std::size_t>(1, 70);
    for (std::size_t k = 0; k < length; ++k) uuid.push_back("0123456789ABCDEF-"[input.ConsumeIntegralInRange(0, 16)]);
    uuids.push_back(std::move(uuid));
  }
  std::size_t next = 0;
  const SaveTicketRequest::UUIDSource uuid = [&] { return uuids[next++ % uuids.size()]; };

  SaveTicketRequest request;
  request.image = file(input);
  request.sound = file(input);
  const int fields = input.ConsumeIntegralInRange(0, 3);
  for (int i = 0; i < fields; ++i) {
    FormTicket field;
    field.formName = text(input, 32);
    field.formAttribute = text(input, 32);
    field.formInputType = text(input, 16);
    if (input.ConsumeBool()) field.value = text(input, 64);
    if (input.ConsumeBool()) {
      velora::FormTicketSelectValue choice;
      choice.selectValueId = text(input, 16);
      choice.name = text(input, 16);
      choice.selected = input.ConsumeBool();
      field.values = {choice};
    }
    field.mandatory = input.ConsumeBool();
    request.form.push_back(std::move(field));
  }

  const auto written = request.formData(uuid);
  const std::string body = written.body.text();
  check(written.body.size() == body.size() && written.boundary == uuids[0]);
  // Read back in pieces of any size, from any offset, the body gives the same bytes.
  const auto piece = input.ConsumeIntegralInRange<std::size_t>(1, 97);
  std::string pieces(body.size(), '\0');
  for (std::size_t at = 0; at < body.size(); at += piece) {
    check(written.body.read(at, pieces.data() + at, std::min(piece, body.size() - at)) == std::min(piece, body.size() - at));
  }
  check(pieces == body && written.body.read(body.size(), pieces.data(), 1) == 0);

  const auto result = readMultipart(body, written.boundary);
  const std::size_t partCount = 1 + request.image.has_value() + request.sound.has_value();
  // The first part opens the body without a CRLF; the closing delimiter has one.
  if (occurrences(body, "\r\n--" + written.boundary) != partCount) return 0;

  const auto* parts = std::get_if<std::vector<MultipartEntry>>(&result);
  check(parts && parts->size() == partCount);
  std::size_t at = 0;
  for (const auto& [name, bytes, suffix, type] :
       {std::tuple{"image", &request.image, ".jpg", "image/jpeg"}, std::tuple{"sound", &request.sound, ".aac", "audio/x-aac"}}) {
    if (!*bytes) continue;
    const MultipartEntry& part = (*parts)[at++];
    check(part.name == name && part.filename && part.filename->ends_with(suffix) && part.mediaType == type &&
          part.content == view(**bytes));
  }
  const MultipartEntry& form = parts->back();
  check(form.name == "form" && !form.filename && form.mediaType == "application/json");
  check(velora::decodeJSON<std::vector<FormTicket>>(form.content) == request.form);
  return 0;
}
