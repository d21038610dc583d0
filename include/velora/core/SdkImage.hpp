#pragma once
// An image the platform serves (logos, map backgrounds, icons).

#include <optional>

#include <velora/core/AnyCodable.hpp>
#include <velora/core/Record.hpp>

namespace velora {

/// Image bytes whose header is PNG, JPEG, GIF or WebP, with the pixel size read from the header.
struct SdkImage {
  enum class Format { png, jpeg, gif, webp };
  Bytes data;
  Format format = Format::png;
  int width = 0;
  int height = 0;

  /// nullopt when the bytes are not one of the four formats or their header is cut short.
  static std::optional<SdkImage> decode(Bytes data);

  static constexpr std::string_view typeName = "SdkImage";
  static constexpr auto fields() {
    using T = SdkImage;
    return std::tuple{field("data", &T::data), field("format", &T::format), field("width", &T::width), field("height", &T::height)};
  }
  friend bool operator==(const SdkImage&, const SdkImage&) = default;
};

constexpr auto enumCases(SdkImage::Format) {
  using E = SdkImage::Format;
  return std::array{EnumCase<E>{E::png, "png"}, EnumCase<E>{E::jpeg, "jpeg"}, EnumCase<E>{E::gif, "gif"}, EnumCase<E>{E::webp, "webp"}};
}

}  // namespace velora
