#pragma once
// A position on a floor of the building, as the map page and the position streams exchange it.

#include <optional>
#include <string>

#include <velora/core/Record.hpp>

namespace velora {

/// A point on one floor map: where a tag is, where the user tapped, where a route starts or ends.
/// Absent members are left out of the JSON.
struct MapPositionModel {
  /// The floor map the point is on; always present.
  int mapId = 0;
  /// The tag at this position, when the position is a tag's.
  std::optional<std::string> tagid;
  /// @{
  /// The room and area the point lies in, by the map's ids; absent when outside any or unknown.
  std::optional<int> roomId;
  std::optional<int> areaId;
  /// @}
  /// @{
  /// Coordinates on the floor plan, in metres.
  double x = 0;
  double y = 0;
  /// @}
  /// The floor level of `mapId`.
  std::optional<int> level;
  /// Free text the page or the application attaches to the position (a resource's id, say); passed
  /// on as it is.
  std::optional<std::string> data;

  // The page compares encoded positions as text, so the key order is fixed.
  VELORA_RECORD(MapPositionModel, mapId, tagid, roomId, areaId, x, y, data, level);
};

}  // namespace velora
