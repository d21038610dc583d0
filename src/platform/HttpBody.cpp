#include <algorithm>
#include <cstring>

#include <velora/platform/HttpTransport.hpp>

namespace velora {

void HttpBody::append(std::string text) {
  if (text.empty()) return;
  auto owned = std::make_shared<const std::string>(std::move(text));
  const std::string_view bytes = *owned;
  append(std::move(owned), bytes);
}

void HttpBody::append(std::shared_ptr<const void> owner, std::string_view bytes) {
  if (bytes.empty()) return;
  size_ += bytes.size();
  segments_.push_back({std::move(owner), bytes});
}

std::string HttpBody::text() const {
  std::string joined;
  joined.reserve(size_);
  for (const auto& segment : segments_) joined.append(segment.bytes);
  return joined;
}

std::size_t HttpBody::read(std::size_t offset, char* out, std::size_t length) const {
  std::size_t copied = 0;
  for (const auto& segment : segments_) {
    if (copied == length) break;
    const std::size_t size = segment.bytes.size();
    if (offset >= size) {
      offset -= size;
      continue;
    }
    const std::size_t n = std::min(size - offset, length - copied);
    std::memcpy(out + copied, segment.bytes.data() + offset, n);
    copied += n;
    offset = 0;
  }
  return copied;
}

bool operator==(const HttpBody& body, std::string_view text) {
  if (body.size() != text.size()) return false;
  for (const auto& segment : body.segments()) {
    if (text.substr(0, segment.bytes.size()) != segment.bytes) return false;
    text.remove_prefix(segment.bytes.size());
  }
  return true;
}

}  // namespace velora
