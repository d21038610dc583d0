// Stream operations: event changes, positions, controllable items and diagnostics.

#include <velora/building/ControllableItems.hpp>
#include <velora/core/Orvane.hpp>
#include <velora/map/ORVRegion.hpp>
#include <velora/sse/SSEManager.hpp>
#include <velora/sse/SSERecords.hpp>

#include "sse/StreamPayload.hpp"

namespace velora {

using detail::decodeData;

int Orvane::clampCheckTime(int checkTimeout) const {
  if (checkTimeout <= kCheckTime) return checkTimeout;
  platform_.print("checkTimeout Max Value is " + std::to_string(kCheckTime) + " your current value is " +
                  std::to_string(checkTimeout) + ". Set to " + std::to_string(kCheckTime) + " max.");
  return kCheckTime;
}

std::shared_ptr<SSEManager> Orvane::startStream(std::string_view path, AnyCodable body,
                                                std::map<std::string, EventHandler> events) {
  auto request = makeRequest(path, "POST");
  if (!request) return nullptr;
  SSEManager::Headers headers;
  if (auto current = session()) {
    for (const auto& [name, value] : current->additionalHeaders().fields()) headers[name] = value;
  }
  std::shared_ptr<SSEManager> manager;
  try {
    manager = SSEManager::make(false, std::move(*request), std::move(headers), std::move(body), std::move(events), platform_);
  } catch (const PlatformError& error) {
    platform_.print(std::string(path) + " - " + error.domain);
    return nullptr;
  }
  manager->setReconnectPolicy(streamReconnectPolicy());
  manager->eventSource->connect(std::nullopt);
  return manager;
}

void Orvane::setStreamReconnectPolicy(StreamReconnectPolicy policy) {
  std::lock_guard lock(stateMutex_);
  streamReconnectPolicy_ = std::move(policy);
}

StreamReconnectPolicy Orvane::streamReconnectPolicy() const {
  std::lock_guard lock(stateMutex_);
  return streamReconnectPolicy_;
}

std::shared_ptr<SSEManager> Orvane::startNotifyEventChanges(SSEStreamTypeEvent with, std::vector<std::string> events,
                                                            int checkTimeout, EventHandler onComplete,
                                                            EventHandler onEventChanges, EventHandler onCheck) {
  SSEGenericEventRequest body;
  body.filter = EventTypeFilter{std::string(rawValue(with)), events};
  body.update = SSEConfig{clampCheckTime(checkTimeout), std::nullopt, std::nullopt};
  std::map<std::string, EventHandler> listeners;
  // The server names each domain event after its type; the payload is a generic response.
  for (const auto& type : events) listeners[type] = detail::validated<GenericEventResponse>(onEventChanges);
  listeners["complete"] = detail::validated<GenericEventResponse>(onComplete);
  listeners["check"] = detail::passThrough(onCheck);
  return startStream("/api/ssemanager/stream/events", encode(body), std::move(listeners));
}

std::shared_ptr<SSEManager> Orvane::startNotifyRegionChanges(std::vector<std::string> with, std::vector<ORVRegion> regions,
                                                             int checkTimeout, EventHandler onComplete,
                                                             EventHandler onValueChanged, EventHandler onCheck) {
  (void)regions;  // the subscription filters by tag only
  PositionSSERequest body{PositionTagFilter{std::move(with)}, SSEConfig{clampCheckTime(checkTimeout), std::nullopt, std::nullopt}};
  return startStream("/api/v1/realtime/sse/position/filtered", encode(body),
                     {{"complete", detail::validated<std::vector<MapPositionModel>>(onComplete)},
                      {"positions", detail::validated<std::vector<MapPositionModel>>(onValueChanged)},
                      {"check", detail::passThrough(onCheck)}});
}

std::shared_ptr<SSEManager> Orvane::startControllableItems(
    std::optional<std::vector<int>> items, std::optional<ItemControllableFilter> filter, int checkTimeout,
    std::function<void(const std::vector<ItemControllable>&)> onComplete,
    std::function<void(const std::vector<ItemCurrentValue>&)> onValueChanged, CheckCallback onCheck) {
  ItemSSERequest body{std::move(items), std::move(filter), SSEConfig{clampCheckTime(checkTimeout), std::nullopt, std::nullopt}};
  auto complete = [onComplete, weak = weak_from_this()](std::optional<std::string>, std::optional<std::string>,
                                                        std::optional<std::string> data) {
    auto list = decodeData<std::vector<ItemControllable>>(data);
    if (!list || !onComplete) return;
    bindControls(*list, weak);
    onComplete(*list);
  };
  auto valueChange = [onValueChanged](std::optional<std::string>, std::optional<std::string>, std::optional<std::string> data) {
    // A change of one value may come on its own rather than in a list.
    auto values = decodeData<std::vector<ItemCurrentValue>>(data);
    if (!values) {
      if (auto one = decodeData<ItemCurrentValue>(data)) values = std::vector<ItemCurrentValue>{*one};
    }
    if (values && onValueChanged) onValueChanged(*values);
  };
  return startStream("/api/v1/item/listen", encode(body),
                     {{"complete", complete}, {"value_change", valueChange}, {"check", detail::checkText(onCheck)}});
}

std::shared_ptr<SSEManager> Orvane::startDiagnostic(std::vector<std::string> tags, double forgetTagMillis,
                                                    std::function<void(const DiagnosticCompleteResponse&)> onComplete,
                                                    std::function<void(const std::map<std::string, std::string>&)> onTagTracking,
                                                    CheckCallback onCheck) {
  DiagnosticSSERequest body{TrackingSSEModel{forgetTagMillis, std::move(tags)}};
  return startStream("/api/v1/diagnostic/sse", encode(body),
                     {{"complete", detail::decoded<DiagnosticCompleteResponse>(onComplete)},
                      {"tagTracking", detail::decoded<std::map<std::string, std::string>>(onTagTracking)},
                      {"check", detail::checkText(onCheck)}});
}

}  // namespace velora
