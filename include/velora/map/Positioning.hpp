#pragma once
// Where the device (or a followed tag) is and which way it faces, as whatever tracks it announces
// them on the platform's notification centre. A map view shows each one as it arrives.

#include <optional>
#include <string>

#include <velora/core/Record.hpp>

namespace velora {

/// A position for the map's marker: on a floor plan (`mapId`, `x`, `y` in metres) as the position
/// stream gives it, or outdoors (`latitude`, `longitude`) as a satellite fix gives it. Absent
/// members are left out of what the page receives.
struct ORVGPSPosition {
  std::optional<int> mapId;
  std::optional<double> x;
  std::optional<double> y;
  std::optional<int> level;
  std::optional<double> latitude;
  std::optional<double> longitude;
  /// Radius of uncertainty in metres.
  std::optional<double> accuracy;
  std::optional<std::string> tagid;

  VELORA_RECORD(ORVGPSPosition, mapId, x, y, level, latitude, longitude, accuracy, tagid);
};

/// The direction the device faces, in degrees clockwise from north.
struct ORVSPositionHeadingModel {
  double heading = 0;
  std::optional<double> accuracy;

  VELORA_RECORD(ORVSPositionHeadingModel, heading, accuracy);
};

/// Notification names. Each carries its record under the user-info key "payload": an
/// ORVGPSPosition, an ORVSPositionHeadingModel; the map-resources one carries nothing and tells
/// map views that custom floor backgrounds can now be loaded.
inline constexpr const char* kGPSPositionAvailable = "gpsPositionAvailable";
inline constexpr const char* kGPSHeadingAvailable = "gpsHeadingAvailable";
inline constexpr const char* kMapResourcesAvailable = "mapResourcesAvailable";

}  // namespace velora
