#pragma once
// What the map page tells the host: each message is one JSON event whose payload, itself JSON
// text, decodes as the record its type names. The map view answers the start-up handshake and the
// page's authentication failures itself and hands every other event to the application's
// delegate; `routeMapEvent` decides which of these an event is.

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include <velora/booking/Booking.hpp>
#include <velora/core/AnyCodable.hpp>
#include <velora/core/PlatformError.hpp>
#include <velora/core/Record.hpp>
#include <velora/core/Task.hpp>
#include <velora/map/MapClick.hpp>
#include <velora/map/MapConfiguration.hpp>
#include <velora/map/MapPositionModel.hpp>
#include <velora/sse/SSERecords.hpp>

namespace velora {

class DynamicMapView;

/// The event types the page sends; each wire name is the case name ("goto" is a keyword here).
VELORA_ENUM(MapEventType, initCompleted, success, (goto_, "goto"), gotoFromMe, error, parkConf, deskConf, bookingResource,
            mapClick, navStats, navInfo, resource, tagVisibility, roomEnter, roomExit, floorChange, resourceClick,
            followUserTag, authError, forceFollowUserChanged, nearDestination, resetFollowBehaviour);

/// The case whose wire name is exactly `wireName`; nothing for a type this library does not know.
std::optional<MapEventType> mapEventType(std::string_view wireName);

/// What to do at a step of a route: turn, take the lift or the stairs, go straight, pass a portal, or
/// arrive. Lower case as the page writes them; a text the library does not know reads as `portal`,
/// the last case.
VELORA_ENUM(NavigationStepType, left, right, lift, destination, straight, stairs, portal);

/// A route as the page describes it. Its shape is the buildings-and-maps area's, so the object is
/// kept as received and passed on.
struct PathModel {
  /// The object as the page sent it; anything but a JSON object fails to decode.
  AnyCodable json;
  friend bool operator==(const PathModel&, const PathModel&) = default;
};

/// A floor as the page describes it, kept as received for the same reason as PathModel.
struct FloorModel {
  /// The object as the page sent it; anything but a JSON object fails to decode.
  AnyCodable json;
  friend bool operator==(const FloorModel&, const FloorModel&) = default;
};

/// A point of interest of the building (a room, a service, a landmark), kept as received for the
/// same reason as PathModel.
struct GenericResourceModel {
  /// The object as the page sent it; anything but a JSON object fails to decode.
  AnyCodable json;
  friend bool operator==(const GenericResourceModel&, const GenericResourceModel&) = default;
};

/// These travel as the JSON object received; anything but an object does not decode.
namespace detail {

template <>
struct Codec<PathModel> {
  static AnyCodable encode(const PathModel& path) { return path.json; }
  static PathModel decode(const AnyCodable& json, const JsonPath& path);
};

template <>
struct Codec<FloorModel> {
  static AnyCodable encode(const FloorModel& floor) { return floor.json; }
  static FloorModel decode(const AnyCodable& json, const JsonPath& path);
};

template <>
struct Codec<GenericResourceModel> {
  static AnyCodable encode(const GenericResourceModel& poi) { return poi.json; }
  static GenericResourceModel decode(const AnyCodable& json, const JsonPath& path);
};

}  // namespace detail

/// A route from one position to another: the arguments of DynamicMapView::goto_ in one record. No
/// command or event of the map view carries it.
struct MapPositionGotoModel {
  /// @{
  /// Where the route starts and where it ends.
  MapPositionModel from;
  MapPositionModel to;
  /// @}
  /// The page's id of the path network to route on; absent for its default.
  std::optional<std::int64_t> graphId;

  VELORA_RECORD(MapPositionGotoModel, from, to, graphId);
};

/// The days on which parking spaces or desks can be booked.
struct BookingConfigurationResponse {
  /// The bookable days, "yyyy-MM-dd"; absent when the page sends none.
  std::optional<std::vector<std::string>> availableDateList;

  VELORA_RECORD(BookingConfigurationResponse, availableDateList);
};

/// The travel time of a route at one named speed of NavigationConfigurationModel::velocityOptions.
struct VehiclesStats {
  /// The speed's name, a key of `velocityOptions`.
  std::string name;
  /// @{
  /// Seconds for the whole route and for what is left of it; the remaining time is absent when the
  /// page does not know it.
  double totalTimeSecond = 0;
  std::optional<double> remainingTimeSecond;
  /// @}

  /// Whole minutes left, rounded up ("2 min" for 61 seconds); "--" when unknown.
  std::string localizedRemainingTime() const;

  VELORA_RECORD(VehiclesStats, name, totalTimeSecond, remainingTimeSecond);
};

/// One instruction of a route.
struct NavigationStepModel {
  /// The kind of step, which picks its localised text; an unknown text reads as `portal`.
  NavigationStepType type = NavigationStepType::straight;
  /// A detail of the step (the floor a lift goes to, say), shown in brackets after the step's text.
  std::optional<std::string> value;
  /// Metres from the user's position to the step.
  std::optional<double> remainingDistance;

  /// The step's text in `language`, followed by " (value)" when there is a value.
  std::string extendedTypeLocalizedWithValue(std::string_view language = "en") const;

  VELORA_RECORD(NavigationStepModel, type, value, remainingDistance);
};

/// The payload of "navStats": progress along the drawn route, sent when a route is drawn and again
/// as the user moves along it.
struct NavigationStatsModel {
  /// @{
  /// Length of the whole route and of what is left of it, in metres.
  std::optional<double> totalDistance;
  std::optional<double> remainingDistance;
  /// @}
  /// Travel times, one per speed of NavigationConfigurationModel::velocityOptions.
  std::optional<std::vector<VehiclesStats>> vehicles;
  /// The instructions still ahead, nearest first.
  std::optional<std::vector<NavigationStepModel>> nextSteps;

  VELORA_RECORD(NavigationStatsModel, totalDistance, remainingDistance, vehicles, nextSteps);
};

/// The payload of "navInfo": a notice about the route to show the user.
struct NavigationInfoModel {
  /// The kind of notice, in the page's vocabulary ("start"...).
  std::string type;
  /// Name of the floor the notice is about.
  std::optional<std::string> mapName;
  /// Text to show, as the page words it.
  std::optional<std::string> message;
  /// The point the notice is about (the destination, say).
  std::optional<MapPositionModel> position;

  VELORA_RECORD(NavigationInfoModel, type, mapName, message, position);
};

/// The resources the page found for a filter.
struct FilterResourceModel {
  /// The filter the page applied, as text pairs in its own vocabulary.
  std::optional<std::map<std::string, std::string>> filter;
  /// The resources found; absent when the page sends none.
  std::optional<std::vector<Resource>> data;

  VELORA_RECORD(FilterResourceModel, filter, data);
};

/// The payload of "tagVisibility": whether a tag's marker is now drawn on the map.
struct TagVisibilityModel {
  /// @{
  /// The tag, and whether its marker is drawn (true) or hidden.
  std::string tagid;
  bool visible = false;
  /// @}

  VELORA_RECORD(TagVisibilityModel, tagid, visible);
};

/// The page's request to follow (or stop following) a tag. `id` is made when the record is
/// created, so that a list can tell requests apart; it never travels, and two requests with the
/// same fields are equal whatever their id.
struct FollowUserTagModel {
  /// A fresh UUID text per record; not in the JSON, not compared.
  std::string id = detail::makeUUID();
  /// The tag concerned; absent when the page names none.
  std::optional<std::string> tagid;
  /// True to follow the tag, false to stop following it.
  bool follow = false;

  VELORA_FIELDS(FollowUserTagModel, VELORA_NOT_CODED(id), tagid, follow);
  friend bool operator==(const FollowUserTagModel& a, const FollowUserTagModel& b) {
    return a.tagid == b.tagid && a.follow == b.follow;
  }
};

/// A clicked resource named by a number; the page's older form, tried first.
struct ResourceClickModel {
  /// The resource's id as a number.
  std::int64_t id = 0;

  VELORA_RECORD(ResourceClickModel, id);
};

/// A clicked resource named by text.
struct ResourceV3ClickModel {
  /// The resource's id (Resource::id).
  std::string id;

  VELORA_RECORD(ResourceV3ClickModel, id);
};

/// The typed payload of an event; `bool` is the bare flag of "forceFollowUserChanged".
using MapEventPayload =
    std::variant<GenericEventResponse, PathModel, BookingConfigurationResponse, MapClickResponse, MapPositionModel,
                 NavigationStatsModel, NavigationInfoModel, FilterResourceModel, TagVisibilityModel, FloorModel,
                 ResourceClickModel, ResourceV3ClickModel, FollowUserTagModel, bool>;

/// One message of the page.
struct MapEvent {
  /// The event type's wire name.
  std::optional<std::string> type;
  /// The operation key; in the start-up handshake, the key the page returned when initialised.
  std::optional<std::string> key;
  /// The event's data as JSON text.
  std::optional<std::string> payload;

  /// The type, when it is one this library knows.
  std::optional<MapEventType> eventType() const;

  /// The payload decoded as the record the type names; nothing when the type is unknown, the
  /// payload is absent or it does not decode.
  std::optional<MapEventPayload> decodedPayload() const;

  VELORA_RECORD(MapEvent, type, key, payload);
};

// ---- Routing ------------------------------------------------------------------------------------

/// What the map view does with one event of the page.
namespace map_route {

/// Nothing: the payload did not decode, or a handshake event was neither success nor error.
struct Drop {
  friend bool operator==(const Drop&, const Drop&) = default;
};

/// The page finished the handshake: `mapViewInitDidComplete` with this operation id.
struct InitCompleted {
  /// The handshake key, passed on as `operationId`.
  std::string operationId;
  friend bool operator==(const InitCompleted&, const InitCompleted&) = default;
};

/// The page failed the handshake: `mapViewInitDidFail` with this error.
struct InitFailed {
  /// The page's message as the text, its statusCode as the code and its status under "status".
  PlatformError error;
};

/// The page's token was refused: renew the session and send the page the new token. The
/// application is not told.
struct RenewAuthentication {
  friend bool operator==(const RenewAuthentication&, const RenewAuthentication&) = default;
};

/// Any other event: `didReceiveEvent` with the event and its payload.
struct Deliver {
  /// The decoded payload, passed on as didReceiveEvent's `payload`.
  MapEventPayload payload;
  friend bool operator==(const Deliver&, const Deliver&) = default;
};

}  // namespace map_route

/// The handling routeMapEvent chooses for one event: one of the map_route cases.
using MapEventRoute =
    std::variant<map_route::Drop, map_route::InitCompleted, map_route::InitFailed, map_route::RenewAuthentication,
                 map_route::Deliver>;

/// How `event` is handled, given the key the page returned when the view initialised it (none
/// before that). A handshake failure without a message, code or status reads as "Unknown error
/// message", -1 and {"status": "Unknown error"}.
MapEventRoute routeMapEvent(const MapEvent& event, const std::optional<std::string>& initializedKey);

// ---- Delegates ----------------------------------------------------------------------------------

/// The application's side of a map view. Calls arrive on the main queue.
class DynamicMapViewDelegate {
 public:
  virtual ~DynamicMapViewDelegate() = default;

  /// The page answered the start-up handshake with "success": commands can be sent from now on.
  /// `operationId` is the handshake key, the result of the view's `sdkInit`.
  virtual void mapViewInitDidComplete(DynamicMapView& mapView, const std::string& operationId) = 0;
  /// The page answered the handshake with "error". The error's text is the page's message ("Unknown
  /// error message" when absent), its code the statusCode (-1 when absent), and its user info holds
  /// the page's status under "status" ("Unknown error" when absent).
  virtual void mapViewInitDidFail(DynamicMapView& mapView, const PlatformError& error) = 0;
  /// Any other event whose payload decoded; `payload` holds the record the event's type names (see
  /// MapEvent::decodedPayload). Events that do not decode never arrive.
  virtual void didReceiveEvent(DynamicMapView& mapView, const MapEvent& event, const MapEventPayload& payload) = 0;
  /// For the application's own error reports; the map view itself never calls it.
  virtual void didReceiveError(DynamicMapView& mapView, const PlatformError& error) = 0;
};

/// Supplies the custom floor backgrounds the view sends to the page.
class DynamicMapResourcesDelegate {
 public:
  virtual ~DynamicMapResourcesDelegate() = default;

  /// The backgrounds to send: the one named `filename`, or all of them when it is absent (the map
  /// view always asks for all). An exception fails `setMapsBackground` with its text and sends
  /// nothing.
  virtual Task<std::vector<MapBackground>> loadMapBackgrounds(std::optional<std::string> filename) = 0;
};

// ---- Display texts ------------------------------------------------------------------------------

/// The localisation key of a step ("map-turn-left" ...).
std::string_view localizationKey(NavigationStepType type);

/// The text of a map localisation key in `language` ("en", "it", "it-IT" ...); English when the
/// language has no table, and the key itself when no table knows it.
std::string mapLocalized(std::string_view key, std::string_view language = "en");

/// The step's text in `language`.
std::string localized(NavigationStepType type, std::string_view language = "en");

}  // namespace velora
