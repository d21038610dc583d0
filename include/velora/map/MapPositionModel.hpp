#pragma once
// A position on a floor of the building, as the map page and the position streams exchange it.

#include <optional>
#include <string>
#include <tuple>

#include <velora/core/Record.hpp>

namespace velora {

struct MapPositionModel {
  int mapId = 0;
  std::optional<std::string> tagid;
  std::optional<int> roomId;
  std::optional<int> areaId;
  double x = 0;
  double y = 0;
  std::optional<int> level;
  std::optional<std::string> data;

  static constexpr std::string_view typeName = "MapPositionModel";
  // The page compares encoded positions as text, so the key order is fixed.
  static constexpr auto fields() {
    using T = MapPositionModel;
    return std::tuple{field("mapId", &T::mapId), field("tagid", &T::tagid), field("roomId", &T::roomId),
                      field("areaId", &T::areaId), field("x", &T::x),         field("y", &T::y),
                      field("data", &T::data),     field("level", &T::level)};
  }
  friend bool operator==(const MapPositionModel&, const MapPositionModel&) = default;
};

}  // namespace velora
