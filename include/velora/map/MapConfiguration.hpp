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

/// How the buttons of a toolbox group are laid out: in a row or in a column. A text the library does
/// not know decodes as `vertical`, the last case.
VELORA_ENUM(OrientationType, horizontal, vertical);

/// The look of the position icon.
struct IconsConfigurationModel {
  /// @{
  /// Opacity of the icon, and radius in metres of the area drawn around the position.
  std::optional<double> opacity = 1.0;
  std::optional<double> radiusMeter = 5.0;
  /// @}
  /// The icon's name as the page knows it.
  std::string name = "orvane";
  /// @{
  /// Horizontal and vertical placement of the icon against its point; by default it stands centred
  /// on the point.
  std::string align = "center";
  std::string vAlign = "bottom";
  /// @}
  /// Whether the icon grows and shrinks with the zoom.
  bool followZoom = true;

  VELORA_RECORD(IconsConfigurationModel, opacity, radiusMeter, name, align, vAlign, followZoom);
};

/// The drawn route; the "jump" members style the marks where the route changes floor.
struct NavigationConfigurationModel {
  /// Radius in metres of the marks the page draws on the route.
  std::optional<double> radiusMeter = 5.0;
  /// @{
  /// The route line: its width in metres, CSS colour and opacity, and its SVG "stroke-linecap" and
  /// "stroke-linejoin" values.
  double strokeWidthMeter = 0.3;
  std::optional<std::string> stroke = "#4965E7";
  std::optional<double> strokeOpacity = 1.0;
  std::string strokeLinecap = "round";
  std::string strokeLinejoin = "round";
  /// @}
  /// @{
  /// Colour, opacity and radius in metres of the marks where the route changes floor.
  std::string jumpColor = "#2424b1";
  std::optional<double> jumpOpacity = 1.0;
  double jumpRadiusMeter = 0.4;
  /// @}
  /// How long the page's animations of the view take, in seconds; 0 moves at once.
  double animationTime = 0.0;
  /// @{
  /// Names of the icons drawn at the route's start and end; absent leaves them to the page.
  std::optional<std::string> iconSource;
  std::optional<std::string> iconDestination;
  /// @}
  /// Speeds in metres per second by name ("walk"...): one travel time per entry comes back in
  /// NavigationStatsModel::vehicles. The names are the page's vocabulary; absent for its default.
  std::optional<std::map<std::string, double>> velocityOptions;
  /// Length in metres of the steps the page advances along the route by.
  double navigationStep = 1.5;
  /// Whether the view zooms to the route when one is drawn.
  bool autoZoom = true;
  /// Whether the page draws its Voronoi diagram of the floor; the key is spelled "showVoronoy".
  bool showVoronoy = false;

  // Spelled as the page reads it.
  VELORA_RECORD(NavigationConfigurationModel, radiusMeter, strokeWidthMeter, stroke, strokeOpacity, strokeLinecap,
                strokeLinejoin, jumpColor, jumpOpacity, jumpRadiusMeter, animationTime, iconSource, iconDestination,
                velocityOptions, navigationStep, autoZoom, showVoronoy);
};

/// The source and destination marks of an indication. Unlike the position icon, these icons do not
/// follow the zoom and sit to the right of their point.
struct IndicationConfigurationModel {
  /// @{
  /// Outline colour, radius in metres and opacity of both marks.
  std::optional<std::string> stroke = "#4965E7";
  std::optional<double> radiusMeter = 2.0;
  /// @}
  /// @{
  /// Fill colours of the source mark and of the destination mark.
  std::string sourceColor = "#f00";
  std::string destColor = "#2424b1";
  /// @}
  /// Opacity of both marks.
  std::optional<double> opacity = 1.0;
  /// @{
  /// Names of the icons drawn on the source and destination marks; absent for none.
  std::optional<std::string> iconSource;
  std::optional<std::string> iconDestination;
  /// @}
  /// Whether the icons grow and shrink with the zoom.
  bool followZoom = false;
  /// @{
  /// Vertical and horizontal placement of the icons against their point.
  std::string iconVAlign = "bottom";
  std::string iconHAlign = "right";
  /// @}

  VELORA_RECORD(IndicationConfigurationModel, stroke, radiusMeter, sourceColor, destColor, opacity, iconSource,
                iconDestination, followZoom, iconVAlign, iconHAlign);
};

/// Where a clicked bookable resource is placed and how it is drawn.
struct BookingStyleModel {
  /// @{
  /// Vertical and horizontal placement in the view of a clicked resource; absent leaves it to the
  /// page.
  std::optional<std::string> clickVAlign;
  std::optional<std::string> clickHAlign;
  /// @}
  /// The zoom level the page moves to on a click; absent keeps the zoom.
  std::optional<std::int64_t> clickZoom;
  /// Whole metres: the page reads an integer here, unlike the other blocks.
  std::optional<std::int64_t> radiusMeter;
  /// CSS colour of the bookable places; absent for the page's own.
  std::optional<std::string> color;

  VELORA_RECORD(BookingStyleModel, clickVAlign, clickHAlign, clickZoom, radiusMeter, color);
};

/// The look of the map page, sent with the start-up document; DynamicMapView::getStyle reads it back
/// from the page and DynamicMapView::setStyle replaces it.
struct StyleConfigurationModel {
  /// @{
  /// The position icon, the route, the indication marks and the booking layer. Left out, each
  /// holds its type's defaults; the booking layer's are all absent, so it encodes as {}.
  IconsConfigurationModel icons;
  NavigationConfigurationModel navigation;
  IndicationConfigurationModel indication;
  BookingStyleModel bookingLayer;
  /// @}
  /// Whether the page starts in dark colours; DynamicMapView::setDarkMode changes it later.
  bool darkMode = false;

  VELORA_RECORD(StyleConfigurationModel, icons, navigation, indication, bookingLayer, darkMode);
};

/// One group of on-map buttons; `x` and `y` place it in page pixels.
struct ToolboxParametersModel {
  /// Whether the page shows the group.
  bool enabled = false;
  /// @{
  /// Where the group starts, in page pixels.
  std::int64_t x = 0;
  std::int64_t y = 0;
  /// @}
  /// @{
  /// Size of each button and the gap between two buttons, in page pixels.
  std::int64_t buttonWidth = 0;
  std::int64_t buttonHeight = 0;
  std::int64_t buttonSpace = 0;
  /// @}
  /// Whether the buttons go in a row or in a column.
  OrientationType orientation = OrientationType::horizontal;
  /// Degrees per press of a rotate button.
  std::optional<std::int64_t> rotationStep;

  VELORA_RECORD(ToolboxParametersModel, enabled, x, y, buttonWidth, buttonHeight, buttonSpace, orientation,
                rotationStep);
};

/// The two button groups; a group left out gets its default, so neither is ever absent.
struct ToolboxModel {
  /// Keeps each group given and puts defaultMapControl() or defaultLayer() in place of one left out.
  ToolboxModel(std::optional<ToolboxParametersModel> mapControl = std::nullopt,
               std::optional<ToolboxParametersModel> layer = std::nullopt);

  /// Enabled, horizontal at (50, 50), 40 x 40 buttons 10 apart, rotating 10 degrees a press.
  static ToolboxParametersModel defaultMapControl();
  /// Enabled, vertical at (50, 120), 30 x 30 buttons 8 apart, without rotation.
  static ToolboxParametersModel defaultLayer();

  /// @{
  /// The buttons that move the map (rotation among them) and the buttons that switch its layers.
  ToolboxParametersModel mapControl;
  ToolboxParametersModel layer;
  /// @}

  VELORA_RECORD(ToolboxModel, mapControl, layer);
  /// The constructor keeps the record layer from counting the members.
  static constexpr bool uncountedMembers = true;
};

/// Which layers the page shows.
struct ShowModel {
  /// @{
  /// The main layers: `me` the user's own position marker, `all` every item the page can show,
  /// `room` the rooms.
  bool me = false;
  bool all = false;
  bool room = false;
  /// @}
  /// @{
  /// The items to show by id, and the page's numeric `kiosk` and `path` modes (defaultShow() sets
  /// 0 and 1); their meaning is the page's, passed on unchecked.
  std::optional<std::vector<std::string>> list;
  std::optional<std::int64_t> kiosk;
  std::optional<std::int64_t> path;
  /// @}
  /// @{
  /// Parking spaces, desks and the booking layer. False unless set, so they are sent as false
  /// rather than left out.
  std::optional<bool> park = false;
  std::optional<bool> desk = false;
  std::optional<bool> booking = false;
  /// @}

  VELORA_RECORD(ShowModel, me, all, room, list, kiosk, path, park, desk, booking);
};

/// How the map reacts to clicks; defaultVisualization() centres on areas and follows no tag.
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
  /// The document with the given blocks; `style`, `toolbox`, `show`, `visualization` and
  /// `callbackType` left out take StyleConfigurationModel{}, ToolboxModel{}, defaultShow(),
  /// defaultVisualization() and "iOS". The credentials start without a token.
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

  /// The credentials sent as "auth". Only the copy the map view sends receives the access token, so
  /// in a configuration the application holds (configurationModel() included) the token is empty.
  const SDKCredentialsModel& credentials() const { return auth; }

  /// The look the page starts with; DynamicMapView::setStyle changes it once the page runs.
  StyleConfigurationModel style;
  /// The tag the marker stands for from the start; absent for none.
  std::optional<std::string> tagid;
  /// @{
  /// The on-map buttons and the layers shown; never absent.
  ToolboxModel toolbox;
  ShowModel show;
  /// @}
  /// @{
  /// The area groups and the building ids the page limits itself to; absent for no limit.
  std::optional<std::vector<std::string>> areaGroups;
  std::optional<std::vector<std::int64_t>> buildings;
  /// @}
  /// The kind of host the page is told it talks to; "iOS" unless given.
  std::string callbackType;
  /// The reactions to clicks; never absent.
  VisualizationModel visualization;
  /// The floor map shown first; absent leaves the choice to the page.
  std::optional<std::int64_t> initialMapId;
  /// True to draw the floors without their background images.
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
