#pragma once
// What the map page needs at start-up, sent to it as one JSON document: the tag to follow, the
// layers to show, the on-map buttons, the look of the position icon, of the route and of the
// booking layer, and the access token. Also the custom floor backgrounds sent to the page.
//
// Members hold the values an application gets when it leaves them out. Decoding applies none of
// them: every non-optional key must be present and a missing optional stays absent. Colours are
// CSS texts, lengths named ...Meter are metres on the floor plan, opacities 0 to 1, times seconds.
// Alignment texts and the names of speeds are the page's vocabulary and are passed on unchecked.

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <velora/core/EnvironmentModel.hpp>
#include <velora/core/Record.hpp>

namespace velora {

class DynamicMapView;

VELORA_ENUM(OrientationType, horizontal, vertical);

/// The look of the position icon.
struct IconsConfigurationModel {
  std::optional<double> opacity = 1.0;
  std::optional<double> radiusMeter = 5.0;
  std::string name = "orvane";
  std::string align = "center";
  std::string vAlign = "bottom";
  bool followZoom = true;

  VELORA_RECORD(IconsConfigurationModel, opacity, radiusMeter, name, align, vAlign, followZoom);
};

/// The drawn route; the "jump" members style the marks where the route changes floor.
struct NavigationConfigurationModel {
  std::optional<double> radiusMeter = 5.0;
  double strokeWidthMeter = 0.3;
  std::optional<std::string> stroke = "#4965E7";
  std::optional<double> strokeOpacity = 1.0;
  std::string strokeLinecap = "round";
  std::string strokeLinejoin = "round";
  std::string jumpColor = "#2424b1";
  std::optional<double> jumpOpacity = 1.0;
  double jumpRadiusMeter = 0.4;
  double animationTime = 0.0;
  std::optional<std::string> iconSource;
  std::optional<std::string> iconDestination;
  std::optional<std::map<std::string, double>> velocityOptions;
  double navigationStep = 1.5;
  bool autoZoom = true;
  bool showVoronoy = false;

  // Spelled as the page reads it.
  VELORA_RECORD(NavigationConfigurationModel, radiusMeter, strokeWidthMeter, stroke, strokeOpacity, strokeLinecap,
                strokeLinejoin, jumpColor, jumpOpacity, jumpRadiusMeter, animationTime, iconSource, iconDestination,
                velocityOptions, navigationStep, autoZoom, showVoronoy);
};

/// The source and destination marks of an indication. Unlike the position icon, these icons do not
/// follow the zoom and sit to the right of their point.
struct IndicationConfigurationModel {
  std::optional<std::string> stroke = "#4965E7";
  std::optional<double> radiusMeter = 2.0;
  std::string sourceColor = "#f00";
  std::string destColor = "#2424b1";
  std::optional<double> opacity = 1.0;
  std::optional<std::string> iconSource;
  std::optional<std::string> iconDestination;
  bool followZoom = false;
  std::string iconVAlign = "bottom";
  std::string iconHAlign = "right";

  VELORA_RECORD(IndicationConfigurationModel, stroke, radiusMeter, sourceColor, destColor, opacity, iconSource,
                iconDestination, followZoom, iconVAlign, iconHAlign);
};

/// Where a clicked bookable resource is placed and how it is drawn.
struct BookingStyleModel {
  std::optional<std::string> clickVAlign;
  std::optional<std::string> clickHAlign;
  std::optional<std::int64_t> clickZoom;
  /// Whole metres: the page reads an integer here, unlike the other blocks.
  std::optional<std::int64_t> radiusMeter;
  std::optional<std::string> color;

  VELORA_RECORD(BookingStyleModel, clickVAlign, clickHAlign, clickZoom, radiusMeter, color);
};

struct StyleConfigurationModel {
  IconsConfigurationModel icons;
  NavigationConfigurationModel navigation;
  IndicationConfigurationModel indication;
  BookingStyleModel bookingLayer;
  bool darkMode = false;

  VELORA_RECORD(StyleConfigurationModel, icons, navigation, indication, bookingLayer, darkMode);
};

/// One group of on-map buttons; `x` and `y` place it in page pixels.
struct ToolboxParametersModel {
  bool enabled = false;
  std::int64_t x = 0;
  std::int64_t y = 0;
  std::int64_t buttonWidth = 0;
  std::int64_t buttonHeight = 0;
  std::int64_t buttonSpace = 0;
  OrientationType orientation = OrientationType::horizontal;
  /// Degrees per press of a rotate button.
  std::optional<std::int64_t> rotationStep;

  VELORA_RECORD(ToolboxParametersModel, enabled, x, y, buttonWidth, buttonHeight, buttonSpace, orientation,
                rotationStep);
};

/// The two button groups; a group left out gets its default, so neither is ever absent.
struct ToolboxModel {
  ToolboxModel(std::optional<ToolboxParametersModel> mapControl = std::nullopt,
               std::optional<ToolboxParametersModel> layer = std::nullopt);

  /// Enabled, horizontal at (50, 50), 40 x 40 buttons 10 apart, rotating 10 degrees a press.
  static ToolboxParametersModel defaultMapControl();
  /// Enabled, vertical at (50, 120), 30 x 30 buttons 8 apart, without rotation.
  static ToolboxParametersModel defaultLayer();

  ToolboxParametersModel mapControl;
  ToolboxParametersModel layer;

  VELORA_RECORD(ToolboxModel, mapControl, layer);
  /// The constructor keeps the record layer from counting the members.
  static constexpr bool uncountedMembers = true;
};

/// Which layers the page shows.
struct ShowModel {
  bool me = false;
  bool all = false;
  bool room = false;
  std::optional<std::vector<std::string>> list;
  std::optional<std::int64_t> kiosk;
  std::optional<std::int64_t> path;
  std::optional<bool> park = false;
  std::optional<bool> desk = false;
  std::optional<bool> booking = false;

  VELORA_RECORD(ShowModel, me, all, room, list, kiosk, path, park, desk, booking);
};

struct VisualizationModel {
  /// Clicking a tag makes the map follow it.
  bool followTagOnClick = false;
  /// Clicking an area centres the map on it.
  bool centerAreaOnClick = false;

  VELORA_RECORD(VisualizationModel, followTagOnClick, centerAreaOnClick);
};

/// The start-up document of the map page. An argument left out takes the default block, so a
/// configuration always holds a complete style, toolbox, show and visualization block.
///
/// The credentials are not the application's to write: they start without a token and only the
/// map view fills them, just before the document is sent, so a stored configuration never holds a
/// token.
class ConfigurationModel {
 public:
  ConfigurationModel(std::optional<std::string> tagid = std::nullopt,
                     std::optional<StyleConfigurationModel> style = std::nullopt,
                     std::optional<ToolboxModel> toolbox = std::nullopt, std::optional<ShowModel> show = std::nullopt,
                     std::optional<std::vector<std::string>> areaGroups = std::nullopt,
                     std::optional<std::vector<std::int64_t>> buildings = std::nullopt,
                     std::optional<std::string> callbackType = std::nullopt,
                     std::optional<VisualizationModel> visualization = std::nullopt,
                     std::optional<std::int64_t> initialMapId = std::nullopt, bool noImage = false);

  /// `me`, `room`, `kiosk` 0 and `path` 1; nothing else shown.
  static ShowModel defaultShow();
  /// Areas centre on click, tags are not followed.
  static VisualizationModel defaultVisualization();

  const SDKCredentialsModel& credentials() const { return auth; }

  StyleConfigurationModel style;
  std::optional<std::string> tagid;
  ToolboxModel toolbox;
  ShowModel show;
  std::optional<std::vector<std::string>> areaGroups;
  std::optional<std::vector<std::int64_t>> buildings;
  std::string callbackType;
  VisualizationModel visualization;
  std::optional<std::int64_t> initialMapId;
  bool noImage;

 private:
  friend class DynamicMapView;
  SDKCredentialsModel auth;

 public:
  VELORA_RECORD(ConfigurationModel, auth, style, tagid, toolbox, show, areaGroups, buildings, callbackType,
                visualization, initialMapId, noImage);
  /// The constructor and the view-only credentials keep the record layer from counting the members.
  static constexpr bool uncountedMembers = true;
};

/// One custom floor background for the page.
struct MapBackground {
  /// The image's file name as the page knows it.
  std::string filename;
  /// The image bytes in standard Base64.
  std::string base64;

  VELORA_RECORD(MapBackground, filename, base64);
};

}  // namespace velora
