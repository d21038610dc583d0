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
  /// "Invalid Parameter": an argument was absent or could not be encoded; nothing ran.
  kMapInvalidParameter = -40001,
  /// "Missing SDK init parameters": `sdkInit` without a configuration; nothing ran.
  kMapMissingInitParameters = -40002,
  /// "JSON Parser Error" or "getPositionMarker - Unable to decode MapPositionModel".
  kMapUndecodableResult = -40003,
  /// The page's script failed; the text is the web view's.
  kMapScriptFailed = -40004,
};

/// The number format of commands: an integer as its digits; a double as the shortest text that
/// reads back as the same value, with ".0" when whole ("90.0"), in exponent form below 1e-4 and
/// above 2^54 ("1e-05", "1e+20").
std::string mapScriptNumber(std::int64_t value);
std::string mapScriptNumber(double value);

class DynamicMapView : public std::enable_shared_from_this<DynamicMapView> {
 public:
  /// The script's value as text (nothing for `undefined`), or the error.
  using Completion = std::function<void(std::optional<std::string> result, std::optional<PlatformError> error)>;
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
  std::shared_ptr<DynamicMapViewDelegate> delegate() const { return delegate_.lock(); }
  std::shared_ptr<DynamicMapResourcesDelegate> resourcesDelegate() const { return resourcesDelegate_.lock(); }
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
  void initAuth(const SDKCredentialsModel& with, Completion completion = {});
  void initAllBookingLayer(const BookFilterModel& by, Completion completion = {});
  void setDarkMode(bool dark, Completion completion = {});
  void getStyle(ValueCompletion<StyleConfigurationModel> completion);
  void setStyle(const StyleConfigurationModel& style, Completion completion = {});
  void setStartBookingDate(const std::string& date, Completion completion = {});
  void setBookingDate(const std::string& date, Completion completion = {});
  void resetView(Completion completion = {});
  void rotate(std::int64_t degrees, Completion completion = {});
  void rotateAbsolute(std::int64_t degrees, Completion completion = {});
  void hideRoomLayer(bool hide, Completion completion = {});
  void nextFloor(Completion completion = {});
  void showTag(const std::string& tag, bool follow, Completion completion = {});
  void getFloor(ValueCompletion<std::vector<FloorModel>> completion);
  void getFloors(ValueCompletion<std::vector<FloorModel>> completion);
  void getFloorsWithJump(ValueCompletion<std::vector<FloorModel>> completion);
  void getCurrentFloor(ValueCompletion<FloorModel> completion);
  void gotoFloorBy(std::int64_t id, Completion completion = {});
  void gotoFloor(const FloorModel& floor, Completion completion = {});
  /// An absent graph id travels as null.
  void gotoFromMe(const MapPositionModel& destination, bool navigationMode, std::optional<std::int64_t> graphId,
                  Completion completion = {});
  void goto_(const MapPositionModel& source, const MapPositionModel& dest, bool navigationMode,
             std::optional<std::int64_t> graphId, Completion completion = {});
  void removeNavigation(Completion completion = {});
  /// An absent text travels as "".
  void loadGenericResource(std::optional<std::string> search, std::optional<std::string> type,
                           std::optional<std::string> subtype, Completion completion = {});
  void selectPoi(std::optional<GenericResourceModel> poi, bool changeFloor, Completion completion = {});
  void selectPoiById(std::optional<std::int64_t> poi, bool changeFloor, Completion completion = {});
  /// An absent icon travels as "".
  void drawPin(std::optional<MapPositionModel> position, std::optional<std::string> icon, Completion completion = {});
  void centerToPosition(const MapPositionModel& position, double zoom, Completion completion = {});
  void centerToRoom(std::int64_t roomId, Completion completion = {});
  void clearSelection(Completion completion = {});
  void showResourceOnMap(std::optional<std::vector<Resource>> resources, bool autoFloor, Completion completion = {});
  void setGPSPosition(const ORVGPSPosition& position, bool enablePolling = false, Completion completion = {});
  void resetCompass(bool resetRotation, Completion completion = {});
  void setCompass(double heading, bool enabled, double animationMs = 0, Completion completion = {});
  void forceFollowMe(bool follow, Completion completion = {});
  void activatePositionMarker(bool active, Completion completion = {});
  void clearPositionMarker(Completion completion = {});
  void getPositionMarker(ValueCompletion<MapPositionModel> completion);
  void resetPath(Completion completion = {});
  void resetDataAndTag(Completion completion = {});
  void resetAll(Completion completion = {});
  void resetPathAndData(Completion completion = {});
  void setTag(const std::string& tag, bool follow, Completion completion = {});
  void getCurrentMapRotationDeg(ValueCompletion<double> completion);
  /// Asks the resources delegate for the floor backgrounds and sends them to the page; a
  /// delegate that fails (or is gone) completes with its error and sends nothing.
  void setMapsBackground(Completion completion = {});

  // The page's older functions; nothing reports back.
  void unselectRooms();
  void selectRoom(std::int64_t roomId);
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
