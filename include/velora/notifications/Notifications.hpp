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

/// The kind of notifications a request is about, sent as its "type" query value. Unknown texts
/// read as the last case, as with every enumeration the server sends.
VELORA_ENUM(NTFMNotificationType, (pool, "POOL_NOTIFICATION"), (generic, "GENERIC_NOTIFICATION"));
/// A notification's state on the server, by which a listing can be filtered (one "status" query
/// value per state asked for). NTFMNotification::status keeps it as text instead.
VELORA_ENUM(NTFMNotificationStatus, (sent, "SENT"), (read, "READ"), (deleted, "DELETED"));

/// What a device sends to receive push notifications; `platform` is always "IOS", the value the
/// platform's push service expects of every client of this library.
struct RegistrationInfoRequest {
  std::string projectId;  ///< The application's project at the push service.
  std::string appId;      ///< The application's identifier: registrationRequest puts in the bundle identifier.
  std::string pushToken;  ///< The device's push token, which every later notification request names.
  std::string uuid;       ///< The installation: registrationRequest puts in the facade's envUUID.
  std::string platform = "IOS";  ///< Always "IOS" (see above).

  VELORA_RECORD(RegistrationInfoRequest, projectId, appId, pushToken, uuid, platform);
};

/// The platform's record of a registered device.
struct RegistrationInfoResponse {
  /// @{
  /// As the platform stored them: the user the device is registered for, its push token,
  /// installation identifier and platform text; absent keys stay empty.
  std::optional<std::string> username;
  std::optional<std::string> pushToken;
  std::optional<std::string> uuid;
  std::optional<std::string> platform;
  /// @}

  VELORA_RECORD(RegistrationInfoResponse, username, pushToken, uuid, platform);
};

/// What a notification says.
struct NTFMMessageContent {
  /// @{
  /// The heading and the text, ready for display.
  std::string title;
  std::string body;
  /// @}
  /// The icon as the server names it; absent when the notification has none.
  std::optional<std::string> icon;

  VELORA_RECORD(NTFMMessageContent, title, body, icon);
};

/// One notification of the device, as listed, read or deleted.
struct NTFMNotification {
  /// The server's identifier: what deleteNotifications and readNotifications take.
  std::string id;
  /// An NTFMNotificationStatus raw text, kept as sent so that a status added later survives.
  std::string status;
  /// Title, text and icon.
  NTFMMessageContent message;
  /// @{
  /// When it was created and last changed, the texts exactly as the server sent them (the
  /// library does not parse them).
  std::string creationDate;
  std::string lastModificationDate;
  /// @}
  /// Its kind; an unknown text reads as `generic`.
  NTFMNotificationType type = NTFMNotificationType::generic;

  VELORA_RECORD(NTFMNotification, id, status, message, creationDate, lastModificationDate, type);
};

/// How many notifications of one type the device has, by state.
struct NTFMNotificationCount {
  int toRead = 0;  ///< Not read yet.
  int read = 0;    ///< Already read.

  VELORA_RECORD(NTFMNotificationCount, toRead, read);
};

/// The notifications to mark read or delete, and the device they belong to.
struct NTFMNotificationUpdateRequest {
  std::optional<std::vector<std::string>> notificationIds;  ///< The NTFMNotification ids to change.
  std::optional<std::string> pushToken;  ///< The device the notifications belong to.

  VELORA_RECORD(NTFMNotificationUpdateRequest, notificationIds, pushToken);
};

/// The notifications that changed, and the counts after the change.
struct UpdateNotificationResponse {
  /// The changed notifications in their new state; absent when the server lists none.
  std::optional<std::vector<NTFMNotification>> notifications;
  /// The device's counts after the change; absent when the server sends none.
  std::optional<NTFMNotificationCount> count;

  VELORA_RECORD(UpdateNotificationResponse, notifications, count);
};

/// The do-not-disturb periods of a resource, in the filter elements the server's form is made of.
struct SetDNDRequest {
  /// The resource whose do-not-disturb periods are set.
  std::string resourceId;
  /// The periods: the elements of getDNDFilters' form with their values filled in.
  std::vector<FilterElement> datetime;

  VELORA_RECORD(SetDNDRequest, resourceId, datetime);
};

}  // namespace velora
