#pragma once
// The JSON bodies that open a subscription stream and the payloads the streams carry.

#include <map>
#include <optional>
#include <string>
#include <vector>

#include <velora/building/ControllableItems.hpp>
#include <velora/core/Record.hpp>
#include <velora/widgets/ORVSComponent.hpp>

namespace velora {

/// The largest check interval, in milliseconds, that the stream operations accept.
inline constexpr int kCheckTime = 60000;

VELORA_ENUM(SSEStreamTypeEvent, (tagid, "TAGID_EVENT"), (generic, "GENERIC_EVENT"));

/// What a widget stream's event did; the raw values are the stream's event names.
VELORA_ENUM(SSEWidgetEventsType, complete, check, update, add, remove, remove_all, unknown);

struct SSERequestUpdate {
  /// Milliseconds between the server's "check" events.
  int checkTime = 0;

  VELORA_RECORD(SSERequestUpdate, checkTime);
};

struct SSESubscriptionRequestFilter {
  std::string tagid;
  std::optional<std::vector<std::string>> widgetIdList;

  VELORA_RECORD(SSESubscriptionRequestFilter, tagid, widgetIdList);
};

/// The body of the widget streams: one of componentId (widget), filter (home) or roomId (group).
struct SSESubscriptionRequest {
  std::optional<std::string> componentId;
  std::optional<SSESubscriptionRequestFilter> filter;
  SSERequestUpdate update;
  std::optional<std::string> roomId;

  VELORA_RECORD(SSESubscriptionRequest, componentId, filter, update, roomId);
};

/// Keep-alive settings of a stream body, in milliseconds.
struct SSEConfig {
  std::optional<int> checkTimeout;
  std::optional<int> refresh;
  std::optional<int> timeout;

  VELORA_RECORD(SSEConfig, checkTimeout, refresh, timeout);
};

struct EventTypeFilter {
  /// A raw value of SSEStreamTypeEvent.
  std::optional<std::string> streamType;
  std::optional<std::vector<std::string>> outputEvents;

  VELORA_RECORD(EventTypeFilter, streamType, outputEvents);
};

struct SSEGenericEventRequest {
  std::optional<EventTypeFilter> filter;
  std::optional<SSEConfig> update;

  VELORA_RECORD(SSEGenericEventRequest, filter, update);
};

/// The payload of widget "add", "update", "remove" and "remove_all" events.
struct SSEWidgetEventChange {
  /// The container (section) that changed.
  std::optional<std::string> container;
  std::optional<std::vector<ORVSComponent>> widgets;

  VELORA_RECORD(SSEWidgetEventChange, container, widgets);
};

/// The payload of generic events.
struct GenericEventResponse {
  std::optional<std::string> status;
  std::optional<std::string> message;
  std::optional<int> statusCode;

  VELORA_RECORD(GenericEventResponse, status, message, statusCode);
};

struct PositionTagFilter {
  std::optional<std::vector<std::string>> tagIdList;

  VELORA_RECORD(PositionTagFilter, tagIdList);
};

struct PositionSSERequest {
  std::optional<PositionTagFilter> filter;
  std::optional<SSEConfig> update;

  VELORA_RECORD(PositionSSERequest, filter, update);
};

struct ItemSSERequest {
  std::optional<std::vector<int>> itemIdList;
  std::optional<ItemControllableFilter> filter;
  std::optional<SSEConfig> sseConfig;

  VELORA_RECORD(ItemSSERequest, itemIdList, filter, sseConfig);
};

struct TrackingSSEModel {
  /// Milliseconds after which a tag that is no longer seen is forgotten.
  double forgetTagMillis = 0;
  std::vector<std::string> tags;

  VELORA_RECORD(TrackingSSEModel, forgetTagMillis, tags);
};

struct DiagnosticSSERequest {
  TrackingSSEModel tagTracking;

  VELORA_RECORD(DiagnosticSSERequest, tagTracking);
};

/// The diagnostic stream's "complete" payload: each tag's state by tag id.
struct DiagnosticCompleteResponse {
  std::optional<std::map<std::string, std::string>> tagTracking;

  VELORA_RECORD(DiagnosticCompleteResponse, tagTracking);
};

/// Names of the notifications about stream-driven changes.
inline constexpr const char* kControllableItemValueChanged = "controllableItemValueChanged";
inline constexpr const char* kControllableItemNeedsUpdate = "controllableItemNeedsUpdate";
inline constexpr const char* kPositionSSEValueChanged = "positionSSEValueChanged";

}  // namespace velora
