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
  /// @{
  /// A floor-plan position: the floor map, the coordinates on it in metres and the floor level.
  std::optional<int> mapId;
  std::optional<double> x;
  std::optional<double> y;
  std::optional<int> level;
  /// @}
  /// @{
  /// An outdoor position, in decimal degrees (WGS 84).
  std::optional<double> latitude;
  std::optional<double> longitude;
  /// @}
  /// Radius of uncertainty in metres.
  std::optional<double> accuracy;
  /// The tag whose position this is; absent for the device's own.
  std::optional<std::string> tagid;

  VELORA_RECORD(ORVGPSPosition, mapId, x, y, level, latitude, longitude, accuracy, tagid);
};

/// The direction the device faces, in degrees clockwise from north.
struct ORVSPositionHeadingModel {
  /// The direction in degrees clockwise from north; the map turns its compass to it.
  double heading = 0;
  /// Uncertainty of `heading`, in degrees; absent when unknown.
  std::optional<double> accuracy;

  VELORA_RECORD(ORVSPositionHeadingModel, heading, accuracy);
};

/// @{
/// Notification names. Each carries its record under the user-info key "payload": an
/// ORVGPSPosition, an ORVSPositionHeadingModel; the map-resources one carries nothing and tells
/// map views that custom floor backgrounds can now be loaded.
inline constexpr const char* kGPSPositionAvailable = "gpsPositionAvailable";
inline constexpr const char* kGPSHeadingAvailable = "gpsHeadingAvailable";
inline constexpr const char* kMapResourcesAvailable = "mapResourcesAvailable";
/// @}

}  // namespace velora
