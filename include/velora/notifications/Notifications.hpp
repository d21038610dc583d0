#pragma once
// The platform's notifications for a device (registration for push, listing, counting, marking
// read, deleting) and the do-not-disturb periods of a resource.
//
// Notifications belong to a push token: the device registers it once, and every later request
// names it. Their dates stay the texts the server sent.

#include <optional>
#include <string>
#include <vector>

#include <velora/booking/Booking.hpp>
#include <velora/core/Record.hpp>

namespace velora {

/// Unknown texts read as the last case, as with every enumeration the server sends.
VELORA_ENUM(NTFMNotificationType, (pool, "POOL_NOTIFICATION"), (generic, "GENERIC_NOTIFICATION"));
VELORA_ENUM(NTFMNotificationStatus, (sent, "SENT"), (read, "READ"), (deleted, "DELETED"));

/// What a device sends to receive push notifications; `platform` is always "IOS", the value the
/// platform's push service expects of every client of this library.
struct RegistrationInfoRequest {
  std::string projectId;
  std::string appId;
  std::string pushToken;
  std::string uuid;
  std::string platform = "IOS";

  VELORA_RECORD(RegistrationInfoRequest, projectId, appId, pushToken, uuid, platform);
};

struct RegistrationInfoResponse {
  std::optional<std::string> username;
  std::optional<std::string> pushToken;
  std::optional<std::string> uuid;
  std::optional<std::string> platform;

  VELORA_RECORD(RegistrationInfoResponse, username, pushToken, uuid, platform);
};

struct NTFMMessageContent {
  std::string title;
  std::string body;
  std::optional<std::string> icon;

  VELORA_RECORD(NTFMMessageContent, title, body, icon);
};

struct NTFMNotification {
  std::string id;
  /// An NTFMNotificationStatus raw text, kept as sent so that a status added later survives.
  std::string status;
  NTFMMessageContent message;
  std::string creationDate;
  std::string lastModificationDate;
  NTFMNotificationType type = NTFMNotificationType::generic;

  VELORA_RECORD(NTFMNotification, id, status, message, creationDate, lastModificationDate, type);
};

struct NTFMNotificationCount {
  int toRead = 0;
  int read = 0;

  VELORA_RECORD(NTFMNotificationCount, toRead, read);
};

/// The notifications to mark read or delete, and the device they belong to.
struct NTFMNotificationUpdateRequest {
  std::optional<std::vector<std::string>> notificationIds;
  std::optional<std::string> pushToken;

  VELORA_RECORD(NTFMNotificationUpdateRequest, notificationIds, pushToken);
};

/// The notifications that changed, and the counts after the change.
struct UpdateNotificationResponse {
  std::optional<std::vector<NTFMNotification>> notifications;
  std::optional<NTFMNotificationCount> count;

  VELORA_RECORD(UpdateNotificationResponse, notifications, count);
};

/// The do-not-disturb periods of a resource, in the filter elements the server's form is made of.
struct SetDNDRequest {
  std::string resourceId;
  std::vector<FilterElement> datetime;

  VELORA_RECORD(SetDNDRequest, resourceId, datetime);
};

}  // namespace velora
