#pragma once
// The JSON bodies that open a subscription stream and the payloads the streams carry.

#include <array>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include <velora/building/ControllableItems.hpp>
#include <velora/core/Record.hpp>
#include <velora/widgets/ORVSComponent.hpp>

namespace velora {

/// The largest check interval, in milliseconds, that the stream operations accept.
inline constexpr int kCheckTime = 60000;

enum class SSEStreamTypeEvent { tagid, generic };
constexpr auto enumCases(SSEStreamTypeEvent) {
  using E = SSEStreamTypeEvent;
  return std::array{EnumCase<E>{E::tagid, "TAGID_EVENT"}, EnumCase<E>{E::generic, "GENERIC_EVENT"}};
}

/// What a widget stream's event did; the raw values are the stream's event names.
enum class SSEWidgetEventsType { complete, check, update, add, remove, remove_all, unknown };
constexpr auto enumCases(SSEWidgetEventsType) {
  using E = SSEWidgetEventsType;
  return std::array{EnumCase<E>{E::complete, "complete"}, EnumCase<E>{E::check, "check"},
                    EnumCase<E>{E::update, "update"},     EnumCase<E>{E::add, "add"},
                    EnumCase<E>{E::remove, "remove"},     EnumCase<E>{E::remove_all, "remove_all"},
                    EnumCase<E>{E::unknown, "unknown"}};
}

struct SSERequestUpdate {
  /// Milliseconds between the server's "check" events.
  int checkTime = 0;

  static constexpr std::string_view typeName = "SSERequestUpdate";
  static constexpr auto fields() { return std::tuple{field("checkTime", &SSERequestUpdate::checkTime)}; }
  friend bool operator==(const SSERequestUpdate&, const SSERequestUpdate&) = default;
};

struct SSESubscriptionRequestFilter {
  std::string tagid;
  std::optional<std::vector<std::string>> widgetIdList;

  static constexpr std::string_view typeName = "SSESubscriptionRequestFilter";
  static constexpr auto fields() {
    using T = SSESubscriptionRequestFilter;
    return std::tuple{field("tagid", &T::tagid), field("widgetIdList", &T::widgetIdList)};
  }
  friend bool operator==(const SSESubscriptionRequestFilter&, const SSESubscriptionRequestFilter&) = default;
};

/// The body of the widget streams: one of componentId (widget), filter (home) or roomId (group).
struct SSESubscriptionRequest {
  std::optional<std::string> componentId;
  std::optional<SSESubscriptionRequestFilter> filter;
  SSERequestUpdate update;
  std::optional<std::string> roomId;

  static constexpr std::string_view typeName = "SSESubscriptionRequest";
  static constexpr auto fields() {
    using T = SSESubscriptionRequest;
    return std::tuple{field("componentId", &T::componentId), field("filter", &T::filter), field("update", &T::update),
                      field("roomId", &T::roomId)};
  }
  friend bool operator==(const SSESubscriptionRequest&, const SSESubscriptionRequest&) = default;
};

/// Keep-alive settings of a stream body, in milliseconds.
struct SSEConfig {
  std::optional<int> checkTimeout;
  std::optional<int> refresh;
  std::optional<int> timeout;

  static constexpr std::string_view typeName = "SSEConfig";
  static constexpr auto fields() {
    using T = SSEConfig;
    return std::tuple{field("checkTimeout", &T::checkTimeout), field("refresh", &T::refresh), field("timeout", &T::timeout)};
  }
  friend bool operator==(const SSEConfig&, const SSEConfig&) = default;
};

struct EventTypeFilter {
  /// A raw value of SSEStreamTypeEvent.
  std::optional<std::string> streamType;
  std::optional<std::vector<std::string>> outputEvents;

  static constexpr std::string_view typeName = "EventTypeFilter";
  static constexpr auto fields() {
    using T = EventTypeFilter;
    return std::tuple{field("streamType", &T::streamType), field("outputEvents", &T::outputEvents)};
  }
  friend bool operator==(const EventTypeFilter&, const EventTypeFilter&) = default;
};

struct SSEGenericEventRequest {
  std::optional<EventTypeFilter> filter;
  std::optional<SSEConfig> update;

  static constexpr std::string_view typeName = "SSEGenericEventRequest";
  static constexpr auto fields() {
    using T = SSEGenericEventRequest;
    return std::tuple{field("filter", &T::filter), field("update", &T::update)};
  }
  friend bool operator==(const SSEGenericEventRequest&, const SSEGenericEventRequest&) = default;
};

/// The payload of widget "add", "update", "remove" and "remove_all" events.
struct SSEWidgetEventChange {
  /// The container (section) that changed.
  std::optional<std::string> container;
  std::optional<std::vector<ORVSComponent>> widgets;

  static constexpr std::string_view typeName = "SSEWidgetEventChange";
  static constexpr auto fields() {
    using T = SSEWidgetEventChange;
    return std::tuple{field("container", &T::container), field("widgets", &T::widgets)};
  }
  friend bool operator==(const SSEWidgetEventChange&, const SSEWidgetEventChange&) = default;
};

/// The payload of generic events.
struct GenericEventResponse {
  std::optional<std::string> status;
  std::optional<std::string> message;
  std::optional<int> statusCode;

  static constexpr std::string_view typeName = "GenericEventResponse";
  static constexpr auto fields() {
    using T = GenericEventResponse;
    return std::tuple{field("status", &T::status), field("message", &T::message), field("statusCode", &T::statusCode)};
  }
  friend bool operator==(const GenericEventResponse&, const GenericEventResponse&) = default;
};

struct PositionTagFilter {
  std::optional<std::vector<std::string>> tagIdList;

  static constexpr std::string_view typeName = "PositionTagFilter";
  static constexpr auto fields() { return std::tuple{field("tagIdList", &PositionTagFilter::tagIdList)}; }
  friend bool operator==(const PositionTagFilter&, const PositionTagFilter&) = default;
};

struct PositionSSERequest {
  std::optional<PositionTagFilter> filter;
  std::optional<SSEConfig> update;

  static constexpr std::string_view typeName = "PositionSSERequest";
  static constexpr auto fields() {
    using T = PositionSSERequest;
    return std::tuple{field("filter", &T::filter), field("update", &T::update)};
  }
  friend bool operator==(const PositionSSERequest&, const PositionSSERequest&) = default;
};

struct ItemSSERequest {
  std::optional<std::vector<int>> itemIdList;
  std::optional<ItemControllableFilter> filter;
  std::optional<SSEConfig> sseConfig;

  static constexpr std::string_view typeName = "ItemSSERequest";
  static constexpr auto fields() {
    using T = ItemSSERequest;
    return std::tuple{field("itemIdList", &T::itemIdList), field("filter", &T::filter), field("sseConfig", &T::sseConfig)};
  }
  friend bool operator==(const ItemSSERequest&, const ItemSSERequest&) = default;
};

struct TrackingSSEModel {
  /// Milliseconds after which a tag that is no longer seen is forgotten.
  double forgetTagMillis = 0;
  std::vector<std::string> tags;

  static constexpr std::string_view typeName = "TrackingSSEModel";
  static constexpr auto fields() {
    using T = TrackingSSEModel;
    return std::tuple{field("forgetTagMillis", &T::forgetTagMillis), field("tags", &T::tags)};
  }
  friend bool operator==(const TrackingSSEModel&, const TrackingSSEModel&) = default;
};

struct DiagnosticSSERequest {
  TrackingSSEModel tagTracking;

  static constexpr std::string_view typeName = "DiagnosticSSERequest";
  static constexpr auto fields() { return std::tuple{field("tagTracking", &DiagnosticSSERequest::tagTracking)}; }
  friend bool operator==(const DiagnosticSSERequest&, const DiagnosticSSERequest&) = default;
};

/// The diagnostic stream's "complete" payload: each tag's state by tag id.
struct DiagnosticCompleteResponse {
  std::optional<std::map<std::string, std::string>> tagTracking;

  static constexpr std::string_view typeName = "DiagnosticCompleteResponse";
  static constexpr auto fields() { return std::tuple{field("tagTracking", &DiagnosticCompleteResponse::tagTracking)}; }
  friend bool operator==(const DiagnosticCompleteResponse&, const DiagnosticCompleteResponse&) = default;
};

/// Names of the notifications about stream-driven changes.
inline constexpr const char* kControllableItemValueChanged = "controllableItemValueChanged";
inline constexpr const char* kControllableItemNeedsUpdate = "controllableItemNeedsUpdate";
inline constexpr const char* kPositionSSEValueChanged = "positionSSEValueChanged";

}  // namespace velora
