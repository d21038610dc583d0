// The reply of every operation in the registry, decoded from arbitrary bytes as the pipeline decodes
// a 200 response: the first byte picks the reply type, the rest is the body. Decoding gives the
// record or a JsonError / APIError, nothing else. A JSON reply that decodes must give the same record
// again when its encoding is decoded, and must still decode when every text in it is replaced by
// one that no enumeration declares: unknown enumeration values never make a reply fail.

#include <velora/velora.hpp>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace {

using velora::AnyCodable;

struct ReplyType {
  std::string name;
  const velora::OperationEntry* entry;
};

/// Each reply type once, with the first operation that answers with it.
std::vector<ReplyType> replyTypes() {
  std::vector<ReplyType> types;
  for (const auto& entry : velora::operationRegistry()) {
    bool seen = false;
    for (const auto& type : types) seen = seen || type.name == entry.replyType;
    if (!seen) types.push_back({entry.replyType, &entry});
  }
  return types;
}

std::optional<AnyCodable> decoded(const ReplyType& type, std::string_view body) {
  try {
    return type.entry->decodeReply(body);
  } catch (const velora::JsonError&) {
  } catch (const velora::APIError&) {
  }
  return std::nullopt;
}

/// Every text value replaced by one no enumeration declares (and valid base64, for byte fields).
void replaceTexts(AnyCodable& value) {
  if (value.as<std::string>()) {
    value = "Zm9v";
  } else if (auto* array = value.as<AnyCodable::Array>()) {
    for (auto& element : *array) replaceTexts(element);
  } else if (auto* object = value.as<AnyCodable::Object>()) {
    for (auto& member : *object) replaceTexts(member.second);
  }
}

void check(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::vector<ReplyType> types = replyTypes();
  if (size == 0 || types.empty()) return 0;
  const ReplyType& type = types[data[0] % types.size()];
  const std::string_view body(reinterpret_cast<const char*>(data + 1), size - 1);

  const auto reply = decoded(type, body);
  // Only replies read from JSON come back from their encoding: raw bytes and images do not.
  auto json = AnyCodable::tryParse(body);
  if (!reply || !json || reply->as<velora::Bytes>()) return 0;

  const auto again = decoded(type, reply->dump());
  check(again && *again == *reply);

  replaceTexts(*json);
  check(decoded(type, json->dump()).has_value());
  return 0;
}
