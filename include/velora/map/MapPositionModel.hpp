#pragma once
// A position on a floor of the building, as the map page and the position streams exchange it.

#include <optional>
#include <string>

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

  // The page compares encoded positions as text, so the key order is fixed.
  VELORA_RECORD(MapPositionModel, mapId, tagid, roomId, areaId, x, y, data, level);
};

}  // namespace velora
