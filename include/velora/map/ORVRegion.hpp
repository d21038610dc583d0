#pragma once
// A named region of the building (a zone that tags enter and leave).

#include <optional>
#include <string>

#include <velora/core/Record.hpp>

namespace velora {

/// A region to watch tags in. startNotifyRegionChanges takes a list of them, but the subscription
/// filters by tag only: the regions are not sent.
struct ORVRegion {
  /// The region's id on the platform.
  std::string id;
  /// Display name; absent when the platform gives none.
  std::optional<std::string> name;
  /// The floor map the region lies on.
  std::optional<int> mapId;

  VELORA_RECORD(ORVRegion, id, name, mapId);
};

}  // namespace velora
