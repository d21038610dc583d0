#pragma once
// The map: the platform's map page in a web view, driven by one line of script per command and
// answering through page messages (MapEvents.hpp). Create it on the main queue with a web view
// (makeWebKitWebView on Linux), `load` the page, and call commands once the delegate heard
// `mapViewInitDidComplete`. Every completion runs once, on the main queue; a command refused
// before reaching the page (an absent argument, one that cannot be encoded) completes before it
// returns.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <velora/booking/Booking.hpp>
#include <velora/core/PlatformError.hpp>
#include <velora/map/MapConfiguration.hpp>
#include <velora/map/MapEvents.hpp>
#include <velora/map/MapPositionModel.hpp>
#include <velora/map/Positioning.hpp>
#include <velora/platform/MainQueue.hpp>
#include <velora/platform/NotificationCenter.hpp>
#include <velora/platform/WebView.hpp>

namespace velora {

class Orvane;

/// Codes of the errors map commands complete with; the error's text says what happened.
enum MapViewErrorCode : std::int64_t {
  /// "Invalid Parameter": an argument was absent or could not be encoded; nothing ran. Also
  /// setMapsBackground without a resources delegate ("setMapsBackground - no resources delegate").
  kMapInvalidParameter = -40001,
  /// "Missing SDK init parameters": `sdkInit` without a configuration; nothing ran.
  kMapMissingInitParameters = -40002,
  /// "JSON Parser Error" or "getPositionMarker - Unable to decode MapPositionModel".
  kMapUndecodableResult = -40003,
  /// The page's script failed; the text is the web view's. Also a resources delegate that threw (its
  /// text) and a view gone before the backgrounds could be sent.
  kMapScriptFailed = -40004,
};

/// @{
/// The number format of commands: an integer as its digits; a double as the shortest text that
/// reads back as the same value, with ".0" when whole ("90.0"), in exponent form below 1e-4 and
/// above 2^54 ("1e-05", "1e+20").
std::string mapScriptNumber(std::int64_t value);
std::string mapScriptNumber(double value);
/// @}

/// The map view (see the top of this file). Made with make() and always shared; commands, their
/// completions and the delegates' calls all happen on the main queue.
class DynamicMapView : public std::enable_shared_from_this<DynamicMapView> {
 public:
  /// The script's value as text (nothing for `undefined`), or the error.
  using Completion = std::function<void(std::optional<std::string> result, std::optional<PlatformError> error)>;
  /// The script's value decoded as `T`, or the error: the page's (kMapScriptFailed) or a value that
  /// does not decode (kMapUndecodableResult).
  template <class T>
  using ValueCompletion = std::function<void(std::optional<T> value, std::optional<PlatformError> error)>;

  /// A view showing its page in `webView`. `sdk` gives the access token for the page, renews it
  /// when the page reports it expired, and its platform's notification centre supplies positions
  /// and headings. Call on the main queue; keep the facade alive as long as the view.
  static std::shared_ptr<DynamicMapView> make(std::shared_ptr<WebView> webView, Orvane& sdk);
  ~DynamicMapView();
  DynamicMapView(const DynamicMapView&) = delete;
  DynamicMapView& operator=(const DynamicMapView&) = delete;

  /// Loads the page at `url` with extra request headers. Once it has loaded, the view sends it
  /// the configuration (with the current access token) and waits for its handshake. The
  /// delegates are held weakly.
  void load(const std::string& url, std::optional<HttpHeaders> additionalHeaders,
            std::optional<ConfigurationModel> configuration, std::weak_ptr<DynamicMapViewDelegate> delegate = {},
            std::weak_ptr<DynamicMapResourcesDelegate> resourceDelegate = {});

  /// The configuration given to the last `load`.
  const std::optional<ConfigurationModel>& configurationModel() const { return configuration_; }
  /// @{
  /// The delegates given to the last `load`; empty once the application has let them go, as the view
  /// holds them weakly.
  std::shared_ptr<DynamicMapViewDelegate> delegate() const { return delegate_.lock(); }
  std::shared_ptr<DynamicMapResourcesDelegate> resourcesDelegate() const { return resourcesDelegate_.lock(); }
  /// @}
  /// The web view the page runs in.
  WebView& webView() const { return *webView_; }

  /// The application's light or dark style changed: the web view and the page follow it.
  void interfaceStyleDidChange(ColorScheme scheme);

  // ---- Commands ---------------------------------------------------------------------------------
  // Each evaluates "ORVSDK_<name>(<arguments>);" in the page. Records travel as JSON object
  // literals, texts between double quotes as they are (not escaped), flags as true/false.

  /// The start-up document with the current access token. Its result is the key the page's
  /// handshake answers with.
  void sdkInit(std::optional<ConfigurationModel> configuration, Completion completion = {});
  /// Sends the page new credentials (ORVSDK_initAuth). The view does so itself, with a renewed token,
  /// when the page reports "authError".
  void initAuth(const SDKCredentialsModel& with, Completion completion = {});
  /// Turns on the booking layer for the resources `by` selects: their day, hours, kinds and floor
  /// (ORVSDK_initAllBookingLayerBy). The page reports the bookable days with "deskConf" or "parkConf".
  void initAllBookingLayer(const BookFilterModel& by, Completion completion = {});
  /// Switches the page to dark (true) or light colours; interfaceStyleDidChange sends it too.
  void setDarkMode(bool dark, Completion completion = {});
  /// The page's current style; "JSON Parser Error" when its answer is not a StyleConfigurationModel.
  void getStyle(ValueCompletion<StyleConfigurationModel> completion);
  /// Replaces the page's style; one that cannot be encoded (a number that is not finite) is refused
  /// with kMapInvalidParameter.
  void setStyle(const StyleConfigurationModel& style, Completion completion = {});
  /// The first day the booking layer offers, "yyyy-MM-dd"; the days of "deskConf" start there.
  void setStartBookingDate(const std::string& date, Completion completion = {});
  /// The day the booking layer shows, "yyyy-MM-dd"; the page reloads the layer for it.
  void setBookingDate(const std::string& date, Completion completion = {});
  /// Back to the initial view: no rotation, initial zoom, the floor centred (ORVSDK_actionResetView).
  void resetView(Completion completion = {});
  /// @{
  /// Turns the map by `degrees` (rotate, ORVSDK_action_rotate) or to `degrees` clockwise from its
  /// initial orientation (rotateAbsolute, ORVSDK_action_rotate_absolute), animated over the style's
  /// navigation `animationTime`.
  void rotate(std::int64_t degrees, Completion completion = {});
  void rotateAbsolute(std::int64_t degrees, Completion completion = {});
  /// @}
  /// Hides (true) or shows again the rooms' fills and names (ORVSDK_action_hide_room_layer).
  void hideRoomLayer(bool hide, Completion completion = {});
  /// Shows the next floor of the building, the first one after the last.
  void nextFloor(Completion completion = {});
  /// Makes the marker stand for `tag` and, with `follow`, keeps the map on it; the page answers with a
  /// "tagVisibility" event.
  void showTag(const std::string& tag, bool follow, Completion completion = {});
  /// The floor shown, in a list; "JSON Parser Error" when the answer is not a list of floor objects.
  void getFloor(ValueCompletion<std::vector<FloorModel>> completion);
  /// Every floor of the building; "JSON Parser Error" when the answer is not a list of floor objects.
  void getFloors(ValueCompletion<std::vector<FloorModel>> completion);
  /// The floors of the current route when it changes floor, else an empty list; "JSON Parser Error"
  /// when the answer is not a list of floor objects.
  void getFloorsWithJump(ValueCompletion<std::vector<FloorModel>> completion);
  /// The floor shown; "JSON Parser Error" when the answer is not a floor object.
  void getCurrentFloor(ValueCompletion<FloorModel> completion);
  /// Shows the floor whose map id is `id` (ORVSDK_gotoFloorById).
  void gotoFloorBy(std::int64_t id, Completion completion = {});
  /// Shows `floor`, a floor object as getFloors returns it.
  void gotoFloor(const FloorModel& floor, Completion completion = {});
  /// Draws a route from the user's marker to `destination`; with `navigationMode` the page keeps
  /// sending "navStats" as the marker moves along it, and "nearDestination" close to the end.
  /// `graphId` names the page's path network to route on; an absent graph id travels as null.
  void gotoFromMe(const MapPositionModel& destination, bool navigationMode, std::optional<std::int64_t> graphId,
                  Completion completion = {});
  /// Draws a route from `source` to `dest` (ORVSDK_goto; "goto" is a keyword here) and has the page
  /// report it with "navStats" and "navInfo". `navigationMode` and `graphId` as for gotoFromMe.
  void goto_(const MapPositionModel& source, const MapPositionModel& dest, bool navigationMode,
             std::optional<std::int64_t> graphId, Completion completion = {});
  /// Removes the route drawn and ends the navigation.
  void removeNavigation(Completion completion = {});
  /// Looks up the resources and points of interest whose name holds `search`, of the given `type`
  /// and `subtype`; the page sends what it found as a "resource" event (a FilterResourceModel).
  /// An absent text travels as "", which restricts nothing.
  void loadGenericResource(std::optional<std::string> search, std::optional<std::string> type,
                           std::optional<std::string> subtype, Completion completion = {});
  /// @{
  /// Selects a point of interest and centres the map on it, given as the object the page described
  /// or by its id; with `changeFloor` the page first shows its floor. An absent argument is refused
  /// with kMapInvalidParameter and nothing runs.
  void selectPoi(std::optional<GenericResourceModel> poi, bool changeFloor, Completion completion = {});
  void selectPoiById(std::optional<std::int64_t> poi, bool changeFloor, Completion completion = {});
  /// @}
  /// Draws a pin at `position` with the icon named `icon`. An absent position is refused with
  /// kMapInvalidParameter; an absent icon travels as "".
  void drawPin(std::optional<MapPositionModel> position, std::optional<std::string> icon, Completion completion = {});
  /// Shows the floor of `position` and centres the map on it at zoom level `zoom`.
  void centerToPosition(const MapPositionModel& position, double zoom, Completion completion = {});
  /// Shows the floor of the room `roomId` and centres the map on the room.
  void centerToRoom(std::int64_t roomId, Completion completion = {});
  /// Unselects the selected room or resource and removes the highlights (ORVSDK_actionClearSelection).
  void clearSelection(Completion completion = {});
  /// Marks `resources` on the map; with `autoFloor` the page shows the floor of the first one that has
  /// a position. An absent list is refused with kMapInvalidParameter.
  void showResourceOnMap(std::optional<std::vector<Resource>> resources, bool autoFloor, Completion completion = {});
  /// Moves the user's marker to `position` (ORVSDK_receiveGps); the page reports rooms entered and left
  /// with "roomEnter" and "roomExit". The view sends every kGPSPositionAvailable position this way,
  /// with `enablePolling` false.
  void setGPSPosition(const ORVGPSPosition& position, bool enablePolling = false, Completion completion = {});
  /// Sets the marker's heading back to north and, with `resetRotation`, the map's rotation too.
  void resetCompass(bool resetRotation, Completion completion = {});
  /// Turns the marker to `heading` degrees clockwise from north; with `enabled` the map turns so that
  /// the heading points up, over `animationMs` milliseconds. The view sends every kGPSHeadingAvailable
  /// heading this way, enabled and without animation.
  void setCompass(double heading, bool enabled, double animationMs = 0, Completion completion = {});
  /// Keeps the map centred on the user's marker (true) or lets it move freely; the page reports the
  /// change with "forceFollowUserChanged".
  void forceFollowMe(bool follow, Completion completion = {});
  /// Shows (true) or hides the user's marker.
  void activatePositionMarker(bool active, Completion completion = {});
  /// Removes the user's marker and forgets its position.
  void clearPositionMarker(Completion completion = {});
  /// Where the user's marker is; "getPositionMarker - Unable to decode MapPositionModel" when the page
  /// answers anything else, no marker at all (null) included.
  void getPositionMarker(ValueCompletion<MapPositionModel> completion);
  /// Removes the route drawn (ORVSDK_resetPath).
  void resetPath(Completion completion = {});
  /// Forgets the followed tag, the marker, the pins and the selection.
  void resetDataAndTag(Completion completion = {});
  /// Forgets everything resetPathAndData does and also turns off the booking layer, following and the
  /// compass, and resets the view.
  void resetAll(Completion completion = {});
  /// Forgets what resetDataAndTag does and the route too.
  void resetPathAndData(Completion completion = {});
  /// Sets the tag the marker stands for and whether the map follows it; the page answers with a
  /// "followUserTag" event.
  void setTag(const std::string& tag, bool follow, Completion completion = {});
  /// The map's rotation in degrees; "JSON Parser Error" when the answer is not a number.
  void getCurrentMapRotationDeg(ValueCompletion<double> completion);
  /// Asks the resources delegate for the floor backgrounds and sends them to the page; a
  /// delegate that fails (or is gone) completes with its error and sends nothing.
  void setMapsBackground(Completion completion = {});

  // The page's older functions; nothing reports back.
  /// Unselects every room (iosUnselectRooms).
  void unselectRooms();
  /// Selects the room `roomId` and centres the map on it (iosSelectRoom).
  void selectRoom(std::int64_t roomId);
  /// Turns the marker's pin to `degrees` without turning the map (iosRotatePin).
  void rotatePin(double degrees);
  /// "iosLatLngReceive({latitude:45.5,longitude:9.1});": the keys are not quoted.
  void sendPosition(double latitude, double longitude);

 private:
  DynamicMapView(std::shared_ptr<WebView> webView, Orvane& sdk);
  void attach();
  void navigationFinished();
  void receive(const std::string& body);
  void renewPageAuthentication();
  void run(const std::string& script, Completion completion);
  template <class T>
  void runDecoded(const std::string& script, const char* failure, ValueCompletion<T> completion);

  std::shared_ptr<WebView> webView_;
  std::weak_ptr<Orvane> sdk_;
  std::shared_ptr<MainQueue> mainQueue_;
  std::weak_ptr<DynamicMapViewDelegate> delegate_;
  std::weak_ptr<DynamicMapResourcesDelegate> resourcesDelegate_;
  std::optional<ConfigurationModel> configuration_;
  std::optional<std::string> initializedKey_;
  NotificationCenter::Observation gpsHeadingAvailable_;
  NotificationCenter::Observation gpsPositionAvailable_;
  NotificationCenter::Observation mapResourcesAvailable_;
};

}  // namespace velora
