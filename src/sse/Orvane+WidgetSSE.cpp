// Stream operations of the home screen's widgets: a room's group, the home page, one widget.

#include <velora/building/ControllableItems.hpp>
#include <velora/core/Orvane.hpp>
#include <velora/map/ORVRegion.hpp>
#include <velora/sse/SSEManager.hpp>
#include <velora/sse/SSERecords.hpp>

#include "sse/StreamPayload.hpp"

namespace velora {

std::shared_ptr<SSEManager> Orvane::startWidgetStream(std::string_view path, SSESubscriptionRequest body, bool onlyUpdates,
                                                      WidgetSubscriptionCallback onComplete,
                                                      WidgetEventCallback onEventChanges, CheckCallback onCheck) {
  std::map<std::string, EventHandler> listeners{
      {"subscription", detail::decoded<SSEWidgetEventChange>(std::move(onComplete))},
      {"check", detail::checkText(std::move(onCheck))}};
  const std::vector<std::string> changes =
      onlyUpdates ? std::vector<std::string>{"update"} : std::vector<std::string>{"update", "add", "remove", "remove_all"};
  for (const auto& name : changes) {
    listeners[name] = [onEventChanges](std::optional<std::string>, std::optional<std::string> event,
                                       std::optional<std::string> data) {
      auto change = detail::decodeData<SSEWidgetEventChange>(data);
      if (!change || !onEventChanges) return;
      // The event names are the raw values of the change types.
      onEventChanges(enumFromRaw<SSEWidgetEventsType>(event.value_or("")), *change);
    };
  }
  return startStream(path, encode(body), std::move(listeners));
}

std::shared_ptr<SSEManager> Orvane::startNotifyGroupEvents(std::string roomId, int checkTimeout,
                                                           WidgetSubscriptionCallback onComplete,
                                                           WidgetEventCallback onEventChanges, CheckCallback onCheck) {
  SSESubscriptionRequest body;
  body.roomId = std::move(roomId);
  body.update.checkTime = clampCheckTime(checkTimeout);
  return startWidgetStream("/api/v2/widget/card/stream/widget/room/events", std::move(body), false, std::move(onComplete),
                           std::move(onEventChanges), std::move(onCheck));
}

std::shared_ptr<SSEManager> Orvane::startNotifyHomeEvents(std::string tagId, std::optional<std::vector<std::string>> widgetIdList,
                                                          int checkTimeout, WidgetSubscriptionCallback onComplete,
                                                          WidgetEventCallback onEventChanges, CheckCallback onCheck) {
  SSESubscriptionRequest body;
  body.filter = SSESubscriptionRequestFilter{std::move(tagId), std::move(widgetIdList)};
  body.update.checkTime = clampCheckTime(checkTimeout);
  return startWidgetStream("/api/v2/widget/card/stream/home/events", std::move(body), false, std::move(onComplete),
                           std::move(onEventChanges), std::move(onCheck));
}

std::shared_ptr<SSEManager> Orvane::startNotifyWidgetEvents(std::string componentId, int checkTimeout,
                                                            WidgetSubscriptionCallback onComplete,
                                                            WidgetEventCallback onEventChanges, CheckCallback onCheck) {
  SSESubscriptionRequest body;
  body.componentId = std::move(componentId);
  body.update.checkTime = clampCheckTime(checkTimeout);
  return startWidgetStream("/api/v2/widget/card/stream/widget/events", std::move(body), true, std::move(onComplete),
                           std::move(onEventChanges), std::move(onCheck));
}

}  // namespace velora
