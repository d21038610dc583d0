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

VELORA_ENUM(NavigationStepType, left, right, lift, destination, straight, stairs, portal);

/// A route as the page describes it. Its shape is the buildings-and-maps area's, so the object is
/// kept as received and passed on.
struct PathModel {
  AnyCodable json;
  friend bool operator==(const PathModel&, const PathModel&) = default;
};

/// A floor as the page describes it, kept as received for the same reason as PathModel.
struct FloorModel {
  AnyCodable json;
  friend bool operator==(const FloorModel&, const FloorModel&) = default;
};

/// A point of interest of the building (a room, a service, a landmark), kept as received for the
/// same reason as PathModel.
struct GenericResourceModel {
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

struct MapPositionGotoModel {
  MapPositionModel from;
  MapPositionModel to;
  std::optional<std::int64_t> graphId;

  VELORA_RECORD(MapPositionGotoModel, from, to, graphId);
};

/// The days on which parking spaces or desks can be booked.
struct BookingConfigurationResponse {
  std::optional<std::vector<std::string>> availableDateList;

  VELORA_RECORD(BookingConfigurationResponse, availableDateList);
};

struct VehiclesStats {
  std::string name;
  double totalTimeSecond = 0;
  std::optional<double> remainingTimeSecond;

  /// Whole minutes left, rounded up ("2 min" for 61 seconds); "--" when unknown.
  std::string localizedRemainingTime() const;

  VELORA_RECORD(VehiclesStats, name, totalTimeSecond, remainingTimeSecond);
};

struct NavigationStepModel {
  NavigationStepType type = NavigationStepType::straight;
  std::optional<std::string> value;
  std::optional<double> remainingDistance;

  /// The step's text in `language`, followed by " (value)" when there is a value.
  std::string extendedTypeLocalizedWithValue(std::string_view language = "en") const;

  VELORA_RECORD(NavigationStepModel, type, value, remainingDistance);
};

struct NavigationStatsModel {
  std::optional<double> totalDistance;
  std::optional<double> remainingDistance;
  std::optional<std::vector<VehiclesStats>> vehicles;
  std::optional<std::vector<NavigationStepModel>> nextSteps;

  VELORA_RECORD(NavigationStatsModel, totalDistance, remainingDistance, vehicles, nextSteps);
};

struct NavigationInfoModel {
  std::string type;
  std::optional<std::string> mapName;
  std::optional<std::string> message;
  std::optional<MapPositionModel> position;

  VELORA_RECORD(NavigationInfoModel, type, mapName, message, position);
};

/// The resources the page found for a filter.
struct FilterResourceModel {
  std::optional<std::map<std::string, std::string>> filter;
  std::optional<std::vector<Resource>> data;

  VELORA_RECORD(FilterResourceModel, filter, data);
};

struct TagVisibilityModel {
  std::string tagid;
  bool visible = false;

  VELORA_RECORD(TagVisibilityModel, tagid, visible);
};

/// The page's request to follow (or stop following) a tag. `id` is made when the record is
/// created, so that a list can tell requests apart; it never travels, and two requests with the
/// same fields are equal whatever their id.
struct FollowUserTagModel {
  std::string id = detail::makeUUID();
  std::optional<std::string> tagid;
  bool follow = false;

  VELORA_FIELDS(FollowUserTagModel, VELORA_NOT_CODED(id), tagid, follow);
  friend bool operator==(const FollowUserTagModel& a, const FollowUserTagModel& b) {
    return a.tagid == b.tagid && a.follow == b.follow;
  }
};

/// A clicked resource named by a number; the page's older form, tried first.
struct ResourceClickModel {
  std::int64_t id = 0;

  VELORA_RECORD(ResourceClickModel, id);
};

/// A clicked resource named by text.
struct ResourceV3ClickModel {
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
  std::string operationId;
  friend bool operator==(const InitCompleted&, const InitCompleted&) = default;
};

/// The page failed the handshake: `mapViewInitDidFail` with this error.
struct InitFailed {
  PlatformError error;
};

/// The page's token was refused: renew the session and send the page the new token. The
/// application is not told.
struct RenewAuthentication {
  friend bool operator==(const RenewAuthentication&, const RenewAuthentication&) = default;
};

/// Any other event: `didReceiveEvent` with the event and its payload.
struct Deliver {
  MapEventPayload payload;
  friend bool operator==(const Deliver&, const Deliver&) = default;
};

}  // namespace map_route

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

  virtual void mapViewInitDidComplete(DynamicMapView& mapView, const std::string& operationId) = 0;
  virtual void mapViewInitDidFail(DynamicMapView& mapView, const PlatformError& error) = 0;
  virtual void didReceiveEvent(DynamicMapView& mapView, const MapEvent& event, const MapEventPayload& payload) = 0;
  virtual void didReceiveError(DynamicMapView& mapView, const PlatformError& error) = 0;
};

/// Supplies the custom floor backgrounds the view sends to the page.
class DynamicMapResourcesDelegate {
 public:
  virtual ~DynamicMapResourcesDelegate() = default;

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
