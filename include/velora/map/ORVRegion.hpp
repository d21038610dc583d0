#pragma once
// A named region of the building (a zone that tags enter and leave).

#include <optional>
#include <string>
#include <tuple>

#include <velora/core/Record.hpp>

namespace velora {

struct ORVRegion {
  std::string id;
  std::optional<std::string> name;
  std::optional<int> mapId;

  static constexpr std::string_view typeName = "ORVRegion";
  static constexpr auto fields() {
    using T = ORVRegion;
    return std::tuple{field("id", &T::id), field("name", &T::name), field("mapId", &T::mapId)};
  }
  friend bool operator==(const ORVRegion&, const ORVRegion&) = default;
};

}  // namespace velora
