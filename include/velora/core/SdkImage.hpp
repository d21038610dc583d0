#pragma once
// An image the platform serves (logos, map backgrounds, icons).

#include <optional>

#include <velora/core/AnyCodable.hpp>
#include <velora/core/Record.hpp>

namespace velora {

/// The image formats SdkImage::decode recognises, by the bytes' header; JSON text is the case name.
VELORA_ENUM(SdkImageFormat, png, jpeg, gif, webp);

/// Image bytes whose header is PNG, JPEG, GIF or WebP, with the pixel size read from the header.
struct SdkImage {
  /// Shorthand for SdkImageFormat.
  using Format = SdkImageFormat;
  /// The image file's bytes as downloaded, undecoded; base64 text in JSON.
  Bytes data;
  /// The format the header showed.
  Format format = Format::png;
  /// @{
  /// Size in pixels as the header states it; always positive in an image from decode.
  int width = 0;
  int height = 0;
  /// @}

  /// nullopt when the bytes are not one of the four formats or their header is cut short.
  static std::optional<SdkImage> decode(Bytes data);

  VELORA_RECORD(SdkImage, data, format, width, height);
};

}  // namespace velora
