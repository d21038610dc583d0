// Recognises an image by its header and reads its pixel size from it, without decoding pixels.

#include <velora/core/SdkImage.hpp>

#include <cstring>

namespace velora {
namespace {

std::uint32_t be16(const Bytes& b, std::size_t at) { return (b[at] << 8) | b[at + 1]; }
std::uint32_t be32(const Bytes& b, std::size_t at) { return (be16(b, at) << 16) | be16(b, at + 2); }
std::uint32_t le16(const Bytes& b, std::size_t at) { return b[at] | (b[at + 1] << 8); }
std::uint32_t le24(const Bytes& b, std::size_t at) { return le16(b, at) | (b[at + 2] << 16); }
bool startsWith(const Bytes& b, std::size_t at, const char* text) {
  const std::size_t n = std::strlen(text);
  return b.size() >= at + n && std::memcmp(b.data() + at, text, n) == 0;
}

struct Size {
  std::uint32_t width, height;
};

std::optional<Size> pngSize(const Bytes& b) {
  if (!startsWith(b, 0, "\x89PNG\r\n\x1a\n") || !startsWith(b, 12, "IHDR") || b.size() < 24) return std::nullopt;
  return Size{be32(b, 16), be32(b, 20)};
}

std::optional<Size> gifSize(const Bytes& b) {
  if ((!startsWith(b, 0, "GIF87a") && !startsWith(b, 0, "GIF89a")) || b.size() < 10) return std::nullopt;
  return Size{le16(b, 6), le16(b, 8)};
}

std::optional<Size> jpegSize(const Bytes& b) {
  if (b.size() < 4 || b[0] != 0xFF || b[1] != 0xD8) return std::nullopt;
  std::size_t at = 2;
  while (at + 4 <= b.size()) {
    if (b[at] != 0xFF) return std::nullopt;
    const std::uint8_t marker = b[at + 1];
    if (marker == 0xFF) {  // fill byte
      ++at;
      continue;
    }
    if (marker == 0xD8 || marker == 0x01 || (marker >= 0xD0 && marker <= 0xD7)) {  // no length
      at += 2;
      continue;
    }
    const std::uint32_t length = be16(b, at + 2);
    const bool startOfFrame = marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
    if (startOfFrame) {
      if (at + 9 > b.size()) return std::nullopt;
      return Size{be16(b, at + 7), be16(b, at + 5)};
    }
    if (marker == 0xD9 || marker == 0xDA || length < 2) return std::nullopt;
    at += 2 + length;
  }
  return std::nullopt;
}

std::optional<Size> webpSize(const Bytes& b) {
  if (!startsWith(b, 0, "RIFF") || !startsWith(b, 8, "WEBP") || b.size() < 30) return std::nullopt;
  if (startsWith(b, 12, "VP8 ")) {
    if (b[23] != 0x9D || b[24] != 0x01 || b[25] != 0x2A) return std::nullopt;
    return Size{le16(b, 26) & 0x3FFF, le16(b, 28) & 0x3FFF};
  }
  if (startsWith(b, 12, "VP8L")) {
    if (b[20] != 0x2F) return std::nullopt;
    const std::uint32_t bits = b[21] | (b[22] << 8) | (b[23] << 16) | (static_cast<std::uint32_t>(b[24]) << 24);
    return Size{(bits & 0x3FFF) + 1, ((bits >> 14) & 0x3FFF) + 1};
  }
  if (startsWith(b, 12, "VP8X")) return Size{le24(b, 24) + 1, le24(b, 27) + 1};
  return std::nullopt;
}

}  // namespace

std::optional<SdkImage> SdkImage::decode(Bytes data) {
  struct Reader {
    Format format;
    std::optional<Size> (*read)(const Bytes&);
  };
  static constexpr Reader readers[] = {{Format::png, pngSize}, {Format::jpeg, jpegSize}, {Format::gif, gifSize}, {Format::webp, webpSize}};
  for (const auto& reader : readers) {
    if (auto size = reader.read(data); size && size->width > 0 && size->height > 0) {
      return SdkImage{std::move(data), reader.format, static_cast<int>(size->width), static_cast<int>(size->height)};
    }
  }
  return std::nullopt;
}

}  // namespace velora
