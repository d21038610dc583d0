#pragma once
// An image the platform serves (logos, map backgrounds, icons).

#include <optional>

#include <velora/core/AnyCodable.hpp>
#include <velora/core/Record.hpp>

namespace velora {

VELORA_ENUM(SdkImageFormat, png, jpeg, gif, webp);

/// Image bytes whose header is PNG, JPEG, GIF or WebP, with the pixel size read from the header.
struct SdkImage {
  using Format = SdkImageFormat;
  Bytes data;
  Format format = Format::png;
  int width = 0;
  int height = 0;

  /// nullopt when the bytes are not one of the four formats or their header is cut short.
  static std::optional<SdkImage> decode(Bytes data);

  VELORA_RECORD(SdkImage, data, format, width, height);
};

}  // namespace velora
