#include <velora/map/DynamicMapView.hpp>

#include <charconv>
#include <cmath>

#include <velora/core/ORVSLogManager.hpp>
#include <velora/core/Orvane.hpp>

namespace velora {

namespace {

constexpr const char* kMessageHandler = "customJSHandler";
constexpr const char* kInvalidParameter = "Invalid Parameter";
constexpr const char* kJsonParserError = "JSON Parser Error";
constexpr const char* kUndecodablePosition = "getPositionMarker - Unable to decode MapPositionModel";

std::string boolean(bool value) { return value ? "true" : "false"; }

/// Inserted as they are: the page's functions take the texts the application gives.
std::string quotedText(const std::optional<std::string>& text) { return "\"" + text.value_or("") + "\""; }

/// The JSON text of `value`; nothing when it cannot be encoded (a number that is not finite).
template <class T>
std::optional<std::string> json(const T& value) {
  try {
    return encodeJSON(value);
  } catch (const JsonError&) {
    return std::nullopt;
  }
}

std::string call(std::string_view function, std::initializer_list<std::string> arguments = {}) {
  std::string script(function);
  script += '(';
  bool first = true;
  for (const auto& argument : arguments) {
    if (!first) script += ", ";
    script += argument;
    first = false;
  }
  script += ");";
  return script;
}

void complete(const DynamicMapView::Completion& completion, std::optional<std::string> result,
              std::optional<PlatformError> error) {
  if (completion) completion(std::move(result), std::move(error));
}

}  // namespace

std::string mapScriptNumber(std::int64_t value) { return std::to_string(value); }

std::string mapScriptNumber(double value) {
  char buffer[64];
  const double magnitude = std::fabs(value);
  // Fixed notation where the shortest digits stay readable; whole values still read as doubles.
  const bool exponent = std::isfinite(value) && value != 0 && (magnitude < 1e-4 || magnitude > 0x1.0p54);
  const auto format = exponent ? std::chars_format::scientific : std::chars_format::fixed;
  const auto end = std::to_chars(buffer, buffer + sizeof buffer, value, format).ptr;
  std::string text(buffer, end);
  if (std::isfinite(value) && !exponent && text.find('.') == std::string::npos) text += ".0";
  return text;
}

// ---- Life cycle ---------------------------------------------------------------------------------

DynamicMapView::DynamicMapView(std::shared_ptr<WebView> webView, Orvane& sdk)
    : webView_(std::move(webView)), sdk_(sdk.weak_from_this()), mainQueue_(sdk.platform().mainQueue) {}

std::shared_ptr<DynamicMapView> DynamicMapView::make(std::shared_ptr<WebView> webView, Orvane& sdk) {
  auto view = std::shared_ptr<DynamicMapView>(new DynamicMapView(std::move(webView), sdk));
  view->attach();
  return view;
}

DynamicMapView::~DynamicMapView() { webView_->removeScriptMessageHandler(kMessageHandler); }

void DynamicMapView::attach() {
  std::weak_ptr<DynamicMapView> weak = weak_from_this();
  webView_->setDeveloperExtrasEnabled(true);
  webView_->addScriptMessageHandler(kMessageHandler, [weak](const std::string& body) {
    if (auto self = weak.lock()) self->receive(body);
  });
  webView_->setNavigationObserver({
      .started = {},
      .finished = [weak](const std::string&) {
        if (auto self = weak.lock()) self->navigationFinished();
      },
      .failed = {},
  });

  auto sdk = sdk_.lock();
  const auto& notifications = sdk->platform().notifications;
  if (!notifications) return;
  gpsPositionAvailable_ = notifications->addObserver(kGPSPositionAvailable, mainQueue_, [weak](const Notification& n) {
    auto self = weak.lock();
    if (auto position = n.value<ORVGPSPosition>("payload"); self && position) self->setGPSPosition(*position, false);
  });
  gpsHeadingAvailable_ = notifications->addObserver(kGPSHeadingAvailable, mainQueue_, [weak](const Notification& n) {
    auto self = weak.lock();
    if (auto heading = n.value<ORVSPositionHeadingModel>("payload"); self && heading) {
      self->setCompass(heading->heading, true, 0);
    }
  });
  mapResourcesAvailable_ = notifications->addObserver(kMapResourcesAvailable, mainQueue_, [weak](const Notification&) {
    if (auto self = weak.lock()) self->setMapsBackground();
  });
}

void DynamicMapView::load(const std::string& url, std::optional<HttpHeaders> additionalHeaders,
                          std::optional<ConfigurationModel> configuration, std::weak_ptr<DynamicMapViewDelegate> delegate,
                          std::weak_ptr<DynamicMapResourcesDelegate> resourceDelegate) {
  delegate_ = std::move(delegate);
  resourcesDelegate_ = std::move(resourceDelegate);
  configuration_ = std::move(configuration);
  webView_->load(url, additionalHeaders.value_or(HttpHeaders{}));
}

void DynamicMapView::navigationFinished() { sdkInit(configuration_); }

void DynamicMapView::interfaceStyleDidChange(ColorScheme scheme) {
  // The page draws its own colours; the web view's scheme only covers what the page leaves to it.
  webView_->setColorScheme(scheme);
  setDarkMode(scheme == ColorScheme::dark);
}

// ---- Page messages ------------------------------------------------------------------------------

void DynamicMapView::receive(const std::string& body) {
  MapEvent event;
  try {
    event = decodeJSON<MapEvent>(body);
  } catch (const std::exception&) {
    return;
  }
  auto route = routeMapEvent(event, initializedKey_);
  if (std::holds_alternative<map_route::RenewAuthentication>(route)) return renewPageAuthentication();
  auto delegate = delegate_.lock();
  if (!delegate) return;
  if (auto* done = std::get_if<map_route::InitCompleted>(&route)) {
    delegate->mapViewInitDidComplete(*this, done->operationId);
  } else if (auto* failed = std::get_if<map_route::InitFailed>(&route)) {
    delegate->mapViewInitDidFail(*this, failed->error);
  } else if (auto* deliver = std::get_if<map_route::Deliver>(&route)) {
    delegate->didReceiveEvent(*this, event, deliver->payload);
  }
}

void DynamicMapView::renewPageAuthentication() {
  auto sdk = sdk_.lock();
  if (!sdk) return;
  std::weak_ptr<DynamicMapView> weak = weak_from_this();
  // Any authenticated request renews an expired session on its way; the map's filters are the
  // page's own data, so that lookup is the one made.
  sdk->getFiltersSection({SectionType::MAP}, [weak, sdkWeak = sdk_](const ResponseMessage& reply) {
    if (reply.code != 200) {
      ORVSLogManager::log(reply.message.value_or("map authentication renewal failed (" + std::to_string(reply.code) + ")"));
      return;
    }
    auto self = weak.lock();
    auto sdk = sdkWeak.lock();
    if (!self || !sdk) return;
    // The session's token is the Keycloak manager's current one, renewed by the request above.
    self->initAuth(SDKCredentialsModel{sdk->accessToken()});
  });
}

// ---- Evaluation ---------------------------------------------------------------------------------

void DynamicMapView::run(const std::string& script, Completion completion) {
  webView_->evaluateScript(script, [completion = std::move(completion)](std::optional<std::string> result,
                                                                        std::optional<std::string> error) {
    if (error) return complete(completion, std::nullopt, PlatformError(*error, kMapScriptFailed));
    complete(completion, std::move(result), std::nullopt);
  });
}

template <class T>
void DynamicMapView::runDecoded(const std::string& script, const char* failure, ValueCompletion<T> completion) {
  webView_->evaluateScript(script, [failure, completion = std::move(completion)](std::optional<std::string> result,
                                                                                 std::optional<std::string> error) {
    if (!completion) return;
    if (error) return completion(std::nullopt, PlatformError(*error, kMapScriptFailed));
    try {
      if (result) return completion(decodeJSON<T>(*result), std::nullopt);
    } catch (const std::exception&) {
    }
    completion(std::nullopt, PlatformError(failure, kMapUndecodableResult));
  });
}

namespace {

void refuse(const DynamicMapView::Completion& completion, const char* text, std::int64_t code) {
  complete(completion, std::nullopt, PlatformError(text, code));
}

}  // namespace

// ---- Commands -----------------------------------------------------------------------------------

void DynamicMapView::sdkInit(std::optional<ConfigurationModel> configuration, Completion completion) {
  if (!configuration) return refuse(completion, "Missing SDK init parameters", kMapMissingInitParameters);
  // The token is filled in only here, so a configuration the application keeps never holds one.
  if (auto sdk = sdk_.lock()) configuration->auth.token = sdk->accessToken();
  auto document = json(*configuration);
  if (!document) return refuse(completion, kInvalidParameter, kMapInvalidParameter);
  // The page answers the handshake with the key this returns.
  std::weak_ptr<DynamicMapView> weak = weak_from_this();
  run(call("ORVSDK_init", {*document}),
      [weak, completion = std::move(completion)](std::optional<std::string> key, std::optional<PlatformError> error) {
        if (auto self = weak.lock(); self && key) self->initializedKey_ = key;
        complete(completion, std::move(key), std::move(error));
      });
}

void DynamicMapView::initAuth(const SDKCredentialsModel& with, Completion completion) {
  run(call("ORVSDK_initAuth", {encodeJSON(with)}), std::move(completion));
}

void DynamicMapView::initAllBookingLayer(const BookFilterModel& by, Completion completion) {
  run(call("ORVSDK_initAllBookingLayerBy", {encodeJSON(by)}), std::move(completion));
}

void DynamicMapView::setDarkMode(bool dark, Completion completion) {
  run(call("ORVSDK_setDarkMode", {boolean(dark)}), std::move(completion));
}

void DynamicMapView::getStyle(ValueCompletion<StyleConfigurationModel> completion) {
  runDecoded(call("ORVSDK_getStyle"), kJsonParserError, std::move(completion));
}

void DynamicMapView::setStyle(const StyleConfigurationModel& style, Completion completion) {
  auto document = json(style);
  if (!document) return refuse(completion, kInvalidParameter, kMapInvalidParameter);
  run(call("ORVSDK_setStyle", {*document}), std::move(completion));
}

void DynamicMapView::setStartBookingDate(const std::string& date, Completion completion) {
  run(call("ORVSDK_setStartBookingDate", {quotedText(date)}), std::move(completion));
}

void DynamicMapView::setBookingDate(const std::string& date, Completion completion) {
  run(call("ORVSDK_setBookingDate", {quotedText(date)}), std::move(completion));
}

void DynamicMapView::resetView(Completion completion) { run(call("ORVSDK_actionResetView"), std::move(completion)); }

void DynamicMapView::rotate(std::int64_t degrees, Completion completion) {
  run(call("ORVSDK_action_rotate", {mapScriptNumber(degrees)}), std::move(completion));
}

void DynamicMapView::rotateAbsolute(std::int64_t degrees, Completion completion) {
  run(call("ORVSDK_action_rotate_absolute", {mapScriptNumber(degrees)}), std::move(completion));
}

void DynamicMapView::hideRoomLayer(bool hide, Completion completion) {
  run(call("ORVSDK_action_hide_room_layer", {boolean(hide)}), std::move(completion));
}

void DynamicMapView::nextFloor(Completion completion) { run(call("ORVSDK_nextFloor"), std::move(completion)); }

void DynamicMapView::showTag(const std::string& tag, bool follow, Completion completion) {
  run(call("ORVSDK_showTag", {quotedText(tag), boolean(follow)}), std::move(completion));
}

void DynamicMapView::getFloor(ValueCompletion<std::vector<FloorModel>> completion) {
  runDecoded(call("ORVSDK_getFloor"), kJsonParserError, std::move(completion));
}

void DynamicMapView::getFloors(ValueCompletion<std::vector<FloorModel>> completion) {
  runDecoded(call("ORVSDK_getFloors"), kJsonParserError, std::move(completion));
}

void DynamicMapView::getFloorsWithJump(ValueCompletion<std::vector<FloorModel>> completion) {
  runDecoded(call("ORVSDK_getFloorsWithJump"), kJsonParserError, std::move(completion));
}

void DynamicMapView::getCurrentFloor(ValueCompletion<FloorModel> completion) {
  runDecoded(call("ORVSDK_getCurrentFloor"), kJsonParserError, std::move(completion));
}

void DynamicMapView::gotoFloorBy(std::int64_t id, Completion completion) {
  run(call("ORVSDK_gotoFloorById", {mapScriptNumber(id)}), std::move(completion));
}

void DynamicMapView::gotoFloor(const FloorModel& floor, Completion completion) {
  auto document = json(floor);
  if (!document) return refuse(completion, kInvalidParameter, kMapInvalidParameter);
  run(call("ORVSDK_gotoFloor", {*document}), std::move(completion));
}

void DynamicMapView::gotoFromMe(const MapPositionModel& destination, bool navigationMode,
                                std::optional<std::int64_t> graphId, Completion completion) {
  auto to = json(destination);
  if (!to) return refuse(completion, kInvalidParameter, kMapInvalidParameter);
  run(call("ORVSDK_gotoFromMe", {*to, boolean(navigationMode), encodeJSON(graphId)}), std::move(completion));
}

void DynamicMapView::goto_(const MapPositionModel& source, const MapPositionModel& dest, bool navigationMode,
                           std::optional<std::int64_t> graphId, Completion completion) {
  auto from = json(source);
  auto to = json(dest);
  if (!from || !to) return refuse(completion, kInvalidParameter, kMapInvalidParameter);
  run(call("ORVSDK_goto", {*from, *to, boolean(navigationMode), encodeJSON(graphId)}), std::move(completion));
}

void DynamicMapView::removeNavigation(Completion completion) {
  run(call("ORVSDK_removeNavigation"), std::move(completion));
}

void DynamicMapView::loadGenericResource(std::optional<std::string> search, std::optional<std::string> type,
                                         std::optional<std::string> subtype, Completion completion) {
  run(call("ORVSDK_loadGenericResource", {quotedText(search), quotedText(type), quotedText(subtype)}), std::move(completion));
}

void DynamicMapView::selectPoi(std::optional<GenericResourceModel> poi, bool changeFloor, Completion completion) {
  auto document = poi ? json(*poi) : std::nullopt;
  if (!document) return refuse(completion, kInvalidParameter, kMapInvalidParameter);
  run(call("ORVSDK_selectPoi", {*document, boolean(changeFloor)}), std::move(completion));
}

void DynamicMapView::selectPoiById(std::optional<std::int64_t> poi, bool changeFloor, Completion completion) {
  if (!poi) return refuse(completion, kInvalidParameter, kMapInvalidParameter);
  run(call("ORVSDK_selectPoiById", {mapScriptNumber(*poi), boolean(changeFloor)}), std::move(completion));
}

void DynamicMapView::drawPin(std::optional<MapPositionModel> position, std::optional<std::string> icon,
                             Completion completion) {
  auto document = position ? json(*position) : std::nullopt;
  if (!document) return refuse(completion, kInvalidParameter, kMapInvalidParameter);
  run(call("ORVSDK_drawPin", {*document, quotedText(icon)}), std::move(completion));
}

void DynamicMapView::centerToPosition(const MapPositionModel& position, double zoom, Completion completion) {
  auto document = json(position);
  if (!document) return refuse(completion, kInvalidParameter, kMapInvalidParameter);
  run(call("ORVSDK_centerToPosition", {*document, mapScriptNumber(zoom)}), std::move(completion));
}

void DynamicMapView::centerToRoom(std::int64_t roomId, Completion completion) {
  run(call("ORVSDK_centerToRoom", {mapScriptNumber(roomId)}), std::move(completion));
}

void DynamicMapView::clearSelection(Completion completion) {
  run(call("ORVSDK_actionClearSelection"), std::move(completion));
}

void DynamicMapView::showResourceOnMap(std::optional<std::vector<Resource>> resources, bool autoFloor,
                                       Completion completion) {
  auto document = resources ? json(*resources) : std::nullopt;
  if (!document) return refuse(completion, kInvalidParameter, kMapInvalidParameter);
  run(call("ORVSDK_showResourceOnMap", {*document, boolean(autoFloor)}), std::move(completion));
}

void DynamicMapView::setGPSPosition(const ORVGPSPosition& position, bool enablePolling, Completion completion) {
  auto document = json(position);
  if (!document) return refuse(completion, kInvalidParameter, kMapInvalidParameter);
  run(call("ORVSDK_receiveGps", {*document, boolean(enablePolling)}), std::move(completion));
}

void DynamicMapView::resetCompass(bool resetRotation, Completion completion) {
  run(call("ORVSDK_resetCompass", {boolean(resetRotation)}), std::move(completion));
}

void DynamicMapView::setCompass(double heading, bool enabled, double animationMs, Completion completion) {
  run(call("ORVSDK_setCompass", {mapScriptNumber(heading), boolean(enabled), mapScriptNumber(animationMs)}),
      std::move(completion));
}

void DynamicMapView::forceFollowMe(bool follow, Completion completion) {
  run(call("ORVSDK_forceFollowMe", {boolean(follow)}), std::move(completion));
}

void DynamicMapView::activatePositionMarker(bool active, Completion completion) {
  run(call("ORVSDK_activatePositionMarker", {boolean(active)}), std::move(completion));
}

void DynamicMapView::clearPositionMarker(Completion completion) {
  run(call("ORVSDK_clearPositionMarker"), std::move(completion));
}

void DynamicMapView::getPositionMarker(ValueCompletion<MapPositionModel> completion) {
  runDecoded(call("ORVSDK_getPositionMarker"), kUndecodablePosition, std::move(completion));
}

void DynamicMapView::resetPath(Completion completion) { run(call("ORVSDK_resetPath"), std::move(completion)); }
void DynamicMapView::resetDataAndTag(Completion completion) {
  run(call("ORVSDK_resetDataAndTag"), std::move(completion));
}
void DynamicMapView::resetAll(Completion completion) { run(call("ORVSDK_resetAll"), std::move(completion)); }
void DynamicMapView::resetPathAndData(Completion completion) {
  run(call("ORVSDK_resetPathAndData"), std::move(completion));
}

void DynamicMapView::setTag(const std::string& tag, bool follow, Completion completion) {
  run(call("ORVSDK_setTag", {quotedText(tag), boolean(follow)}), std::move(completion));
}

void DynamicMapView::getCurrentMapRotationDeg(ValueCompletion<double> completion) {
  runDecoded(call("ORVSDK_getCurrentMapRotationDeg"), kJsonParserError, std::move(completion));
}

void DynamicMapView::setMapsBackground(Completion completion) {
  auto delegate = resourcesDelegate_.lock();
  if (!delegate) return refuse(completion, "setMapsBackground - no resources delegate", kMapInvalidParameter);
  std::weak_ptr<DynamicMapView> weak = weak_from_this();
  detachTask(
      [](std::shared_ptr<DynamicMapResourcesDelegate> delegate, std::weak_ptr<DynamicMapView> weak,
         std::shared_ptr<MainQueue> mainQueue, Completion completion) -> Task<void> {
        auto backgrounds = co_await delegate->loadMapBackgrounds(std::nullopt);
        mainQueue->post([weak, completion, document = encodeJSON(backgrounds)] {
          auto self = weak.lock();
          if (!self) return complete(completion, std::nullopt, PlatformError("setMapsBackground - the map view is gone", kMapScriptFailed));
          self->run(call("ORVSDK_setMapsBackground", {document}), completion);
        });
      }(delegate, weak, mainQueue_, completion),
      [mainQueue = mainQueue_, completion](std::exception_ptr failure) {
        if (!failure) return;
        std::string text = "setMapsBackground - the resources delegate failed";
        try {
          std::rethrow_exception(failure);
        } catch (const std::exception& e) {
          text = e.what();
        } catch (...) {
        }
        mainQueue->post([completion, text] { complete(completion, std::nullopt, PlatformError(text, kMapScriptFailed)); });
      });
}

// ---- The page's older functions ----------------------------------------------------------------

void DynamicMapView::unselectRooms() { run(call("iosUnselectRooms"), {}); }
void DynamicMapView::selectRoom(std::int64_t roomId) { run(call("iosSelectRoom", {mapScriptNumber(roomId)}), {}); }
void DynamicMapView::rotatePin(double degrees) { run(call("iosRotatePin", {mapScriptNumber(degrees)}), {}); }

void DynamicMapView::sendPosition(double latitude, double longitude) {
  run(call("iosLatLngReceive", {"{latitude:" + mapScriptNumber(latitude) + ",longitude:" + mapScriptNumber(longitude) + "}"}),
      {});
}

}  // namespace velora
