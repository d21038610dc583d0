#pragma once
// A named region of the building (a zone that tags enter and leave).

#include <optional>
#include <string>

#include <velora/core/Record.hpp>

namespace velora {

struct ORVRegion {
  std::string id;
  std::optional<std::string> name;
  std::optional<int> mapId;

  VELORA_RECORD(ORVRegion, id, name, mapId);
};

}  // namespace velora
