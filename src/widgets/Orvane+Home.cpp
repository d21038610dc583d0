// The home screen, the profile menu and the server-driven widget cards.

#include <velora/core/Orvane.hpp>
#include <velora/widgets/HomeWidgets.hpp>
#include <velora/widgets/ORVSComponent.hpp>

#include "core/Query.hpp"
#include "core/Operation.hpp"

namespace velora {
namespace {

using detail::Query;

struct GetMyHome {
  std::optional<std::string> buildingId;
  static constexpr OperationInfo info{"getMyHome", "GET", "/api/v2/home/my?buildingId={buildingId}"};
  using Reply = std::vector<Container>;
  std::string path() const { return Query("/api/v2/home/my").add("buildingId", buildingId).text(); }
  VELORA_FIELDS(GetMyHome, buildingId);
};
VELORA_REGISTER_OPERATION(GetMyHome);

/// The platform's own clients append this path without its leading "/" and rely on the endpoint's
/// final "/"; the server is reached the same way from here.
struct GetUserActions {
  static constexpr OperationInfo info{"getUserActions", "GET", "api/v2/profile/my"};
  using Reply = ProfileAction;
  VELORA_FIELDS(GetUserActions);
};
VELORA_REGISTER_OPERATION(GetUserActions);

struct GetWidgetsHome {
  std::optional<std::string> tagId;
  static constexpr OperationInfo info{"getWidgetsHome", "GET", "/api/v2/widget/home?tagid={tagId}"};
  using Reply = std::vector<ORVSComponent>;
  std::string path() const { return Query("/api/v2/widget/home").add("tagid", tagId).text(); }
  VELORA_FIELDS(GetWidgetsHome, tagId);
};
VELORA_REGISTER_OPERATION(GetWidgetsHome);

struct GetWidgetCard {
  std::string componentId;
  static constexpr OperationInfo info{"getWidgetCard", "GET", "/api/v2/widget/card?componentId={componentId}"};
  using Reply = ORVSComponent;
  std::string path() const { return Query("/api/v2/widget/card").add("componentId", componentId).text(); }
  VELORA_FIELDS(GetWidgetCard, componentId);
};
VELORA_REGISTER_OPERATION(GetWidgetCard);

struct PostWidgetCard {
  AnyCodable card;
  static constexpr OperationInfo info{"postWidgetCard", "POST", "/api/v2/widget/card"};
  using Reply = ORVSComponent;
  const AnyCodable& body(const Orvane&) const { return card; }
  VELORA_FIELDS(PostWidgetCard, (card, "body"));
};
VELORA_REGISTER_OPERATION(PostWidgetCard);

struct GetWidgetGroupComponents {
  std::string roomId;
  static constexpr OperationInfo info{"getWidgetGroupComponents", "GET", "/api/v2/widget/room/{roomId}"};
  using Reply = ORVSComponent;
  std::string path() const { return "/api/v2/widget/room/" + roomId; }
  VELORA_FIELDS(GetWidgetGroupComponents, roomId);
};
VELORA_REGISTER_OPERATION(GetWidgetGroupComponents);

/// What filterUnknownValues drops; the widgets of the containers kept stay as they are.
bool isUnknownContainer(const Container& container) { return container.type == ContainerType::UNKNOWN; }

}  // namespace

void Orvane::getMyHome(std::optional<std::string> buildingId, ResponseCallback callback) {
  call(GetMyHome{std::move(buildingId)}, std::move(callback));
}
Task<std::vector<Container>> Orvane::getMyHome(std::optional<std::string> buildingId, bool filterUnknownValues) {
  return detail::keepingKnown(call(GetMyHome{std::move(buildingId)}), filterUnknownValues, &isUnknownContainer);
}

void Orvane::getUserActions(ResponseCallback callback) { call(GetUserActions{}, std::move(callback)); }
Task<ProfileAction> Orvane::getUserActions() { return call(GetUserActions{}); }

void Orvane::getWidgetsHome(std::optional<std::string> tagId, ResponseCallback callback) {
  call(GetWidgetsHome{std::move(tagId)}, std::move(callback));
}
Task<std::vector<ORVSComponent>> Orvane::getWidgetsHome(std::optional<std::string> tagId) {
  return call(GetWidgetsHome{std::move(tagId)});
}

void Orvane::getWidgetCard(std::string componentId, ResponseCallback callback) {
  call(GetWidgetCard{std::move(componentId)}, std::move(callback));
}
Task<ORVSComponent> Orvane::getWidgetCard(std::string componentId) { return call(GetWidgetCard{std::move(componentId)}); }

void Orvane::postWidgetCard(AnyCodable body, ResponseCallback callback) { call(PostWidgetCard{std::move(body)}, std::move(callback)); }
Task<ORVSComponent> Orvane::postWidgetCard(AnyCodable body) { return call(PostWidgetCard{std::move(body)}); }

void Orvane::getWidgetGroupComponents(std::string roomId, ResponseCallback callback) {
  call(GetWidgetGroupComponents{std::move(roomId)}, std::move(callback));
}
Task<ORVSComponent> Orvane::getWidgetGroupComponents(std::string roomId) {
  return call(GetWidgetGroupComponents{std::move(roomId)});
}

}  // namespace velora
