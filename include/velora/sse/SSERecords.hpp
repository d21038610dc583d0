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

/// Which kind of events the event-change stream delivers; its raw value ("TAGID_EVENT",
/// "GENERIC_EVENT") is sent as the filter's "streamType".
VELORA_ENUM(SSEStreamTypeEvent, (tagid, "TAGID_EVENT"), (generic, "GENERIC_EVENT"));

/// What a widget stream's event did; the raw values are the stream's event names.
VELORA_ENUM(SSEWidgetEventsType, complete, check, update, add, remove, remove_all, unknown);

/// The keep-alive settings ("update") of the widget streams' body.
struct SSERequestUpdate {
  /// Milliseconds between the server's "check" events.
  int checkTime = 0;

  VELORA_RECORD(SSERequestUpdate, checkTime);
};

/// The home stream's filter: whose home page, and optionally which of its widgets.
struct SSESubscriptionRequestFilter {
  /// The tag id of the user or device whose home widgets are streamed; always sent.
  std::string tagid;
  /// The widgets of interest; left out of the JSON when absent.
  std::optional<std::vector<std::string>> widgetIdList;

  VELORA_RECORD(SSESubscriptionRequestFilter, tagid, widgetIdList);
};

/// The body of the widget streams: one of componentId (widget), filter (home) or roomId (group).
struct SSESubscriptionRequest {
  std::optional<std::string> componentId;  ///< The widget component followed (widget stream).
  std::optional<SSESubscriptionRequestFilter> filter;  ///< Tag and widget filter (home stream).
  SSERequestUpdate update;  ///< Keep-alive settings; always sent, whatever the stream.
  std::optional<std::string> roomId;  ///< The room whose widget group is followed (group stream).

  VELORA_RECORD(SSESubscriptionRequest, componentId, filter, update, roomId);
};

/// Keep-alive settings of a stream body, in milliseconds.
struct SSEConfig {
  /// Interval of the server's "check" events; the stream operations set it, capped at kCheckTime.
  std::optional<int> checkTimeout;
  /// @{
  /// The server's refresh interval and stream time-out; the stream operations never set them, so
  /// they are left out of the JSON.
  std::optional<int> refresh;
  std::optional<int> timeout;
  /// @}

  VELORA_RECORD(SSEConfig, checkTimeout, refresh, timeout);
};

/// Which events the event-change stream delivers.
struct EventTypeFilter {
  /// A raw value of SSEStreamTypeEvent.
  std::optional<std::string> streamType;
  /// The event types wanted; each then arrives as a stream event of that name.
  std::optional<std::vector<std::string>> outputEvents;

  VELORA_RECORD(EventTypeFilter, streamType, outputEvents);
};

/// The event-change stream's body.
struct SSEGenericEventRequest {
  std::optional<EventTypeFilter> filter;  ///< Which events to stream.
  std::optional<SSEConfig> update;        ///< Keep-alive settings (the check interval).

  VELORA_RECORD(SSEGenericEventRequest, filter, update);
};

/// The payload of widget "add", "update", "remove" and "remove_all" events.
struct SSEWidgetEventChange {
  /// The container (section) that changed.
  std::optional<std::string> container;
  /// The components added, changed or removed, as server-driven component records.
  std::optional<std::vector<ORVSComponent>> widgets;

  VELORA_RECORD(SSEWidgetEventChange, container, widgets);
};

/// The payload of generic events.
struct GenericEventResponse {
  /// @{
  /// The server's status word, message and status code for the event, as sent; absent keys stay
  /// empty.
  std::optional<std::string> status;
  std::optional<std::string> message;
  std::optional<int> statusCode;
  /// @}

  VELORA_RECORD(GenericEventResponse, status, message, statusCode);
};

/// The region-change stream's filter.
struct PositionTagFilter {
  /// The ids of the tags whose positions are streamed.
  std::optional<std::vector<std::string>> tagIdList;

  VELORA_RECORD(PositionTagFilter, tagIdList);
};

/// The region-change (position) stream's body.
struct PositionSSERequest {
  std::optional<PositionTagFilter> filter;  ///< Which tags to follow.
  std::optional<SSEConfig> update;          ///< Keep-alive settings (the check interval).

  VELORA_RECORD(PositionSSERequest, filter, update);
};

/// The controllable-item stream's body.
struct ItemSSERequest {
  std::optional<std::vector<int>> itemIdList;    ///< The ids of the items to follow.
  std::optional<ItemControllableFilter> filter;  ///< Which items to follow: by area, room, map, position, type...
  std::optional<SSEConfig> sseConfig;  ///< Keep-alive settings, under "sseConfig" rather than "update".

  VELORA_RECORD(ItemSSERequest, itemIdList, filter, sseConfig);
};

/// The diagnostic stream's tag-tracking settings.
struct TrackingSSEModel {
  /// Milliseconds after which a tag that is no longer seen is forgotten.
  double forgetTagMillis = 0;
  /// The ids of the tags to track.
  std::vector<std::string> tags;

  VELORA_RECORD(TrackingSSEModel, forgetTagMillis, tags);
};

/// The diagnostic stream's body.
struct DiagnosticSSERequest {
  /// Which tags to track and when to forget them; always sent.
  TrackingSSEModel tagTracking;

  VELORA_RECORD(DiagnosticSSERequest, tagTracking);
};

/// The diagnostic stream's "complete" payload: each tag's state by tag id.
struct DiagnosticCompleteResponse {
  /// Tag id to state; empty when the payload carries no map.
  std::optional<std::map<std::string, std::string>> tagTracking;

  VELORA_RECORD(DiagnosticCompleteResponse, tagTracking);
};

/// @{
/// Names of the notifications about stream-driven changes (an item's value changed, an item needs
/// reloading, a position changed). The library only defines them: the application posts and
/// observes them.
inline constexpr const char* kControllableItemValueChanged = "controllableItemValueChanged";
inline constexpr const char* kControllableItemNeedsUpdate = "controllableItemNeedsUpdate";
inline constexpr const char* kPositionSSEValueChanged = "positionSSEValueChanged";
/// @}

}  // namespace velora
