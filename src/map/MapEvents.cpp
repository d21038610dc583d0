#include <velora/map/MapEvents.hpp>

namespace velora {

namespace detail {

namespace {

AnyCodable objectAsIs(const AnyCodable& json, const JsonPath& path) {
  if (!json.isObject()) throwDecoding(path, std::string("expected an object, found ") + std::string(kindName(json)));
  return json;
}

}  // namespace

PathModel Codec<PathModel>::decode(const AnyCodable& json, const JsonPath& path) { return {objectAsIs(json, path)}; }
FloorModel Codec<FloorModel>::decode(const AnyCodable& json, const JsonPath& path) { return {objectAsIs(json, path)}; }
GenericResourceModel Codec<GenericResourceModel>::decode(const AnyCodable& json, const JsonPath& path) {
  return {objectAsIs(json, path)};
}

}  // namespace detail

std::optional<MapEventType> mapEventType(std::string_view wireName) {
  for (const auto& c : enumCases(MapEventType{})) {
    if (c.raw == wireName) return c.value;
  }
  return std::nullopt;
}

std::optional<MapEventType> MapEvent::eventType() const {
  if (!type) return std::nullopt;
  return mapEventType(*type);
}

namespace {

template <class T>
std::optional<MapEventPayload> decodedAs(const std::string& text) {
  try {
    return MapEventPayload(decodeJSON<T>(text));
  } catch (const JsonError&) {
    return std::nullopt;
  }
}

}  // namespace

std::optional<MapEventPayload> MapEvent::decodedPayload() const {
  const auto known = eventType();
  if (!known || !payload) return std::nullopt;
  switch (*known) {
    case MapEventType::initCompleted:
    case MapEventType::success:
    case MapEventType::error:
    case MapEventType::authError:
    case MapEventType::nearDestination:
    case MapEventType::resetFollowBehaviour:
      return decodedAs<GenericEventResponse>(*payload);
    case MapEventType::goto_:
    case MapEventType::gotoFromMe:
      return decodedAs<PathModel>(*payload);
    case MapEventType::parkConf:
    case MapEventType::deskConf:
      return decodedAs<BookingConfigurationResponse>(*payload);
    case MapEventType::bookingResource:
      return decodedAs<MapClickResponse>(*payload);
    case MapEventType::mapClick:
    case MapEventType::roomEnter:
    case MapEventType::roomExit:
      return decodedAs<MapPositionModel>(*payload);
    case MapEventType::navStats:
      return decodedAs<NavigationStatsModel>(*payload);
    case MapEventType::navInfo:
      return decodedAs<NavigationInfoModel>(*payload);
    case MapEventType::resource:
      return decodedAs<FilterResourceModel>(*payload);
    case MapEventType::tagVisibility:
      return decodedAs<TagVisibilityModel>(*payload);
    case MapEventType::floorChange:
      return decodedAs<FloorModel>(*payload);
    case MapEventType::resourceClick:
      // The page sends a number or a text id; the number is tried first.
      if (auto click = decodedAs<ResourceClickModel>(*payload)) return click;
      return decodedAs<ResourceV3ClickModel>(*payload);
    case MapEventType::followUserTag:
      return decodedAs<FollowUserTagModel>(*payload);
    case MapEventType::forceFollowUserChanged:
      return decodedAs<bool>(*payload);
  }
  return std::nullopt;
}

MapEventRoute routeMapEvent(const MapEvent& event, const std::optional<std::string>& initializedKey) {
  auto payload = event.decodedPayload();
  if (!payload) return map_route::Drop{};
  if (event.key && initializedKey && *event.key == *initializedKey) {
    if (event.type == "success") return map_route::InitCompleted{*event.key};
    if (event.type == "error") {
      const auto* response = std::get_if<GenericEventResponse>(&*payload);
      return map_route::InitFailed{PlatformError(response->message.value_or("Unknown error message"),
                                                 response->statusCode.value_or(-1),
                                                 {{"status", response->status.value_or("Unknown error")}})};
    }
    return map_route::Drop{};
  }
  if (event.type == "authError") return map_route::RenewAuthentication{};
  return map_route::Deliver{std::move(*payload)};
}

}  // namespace velora
