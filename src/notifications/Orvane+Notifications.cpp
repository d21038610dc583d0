// The device's notifications: registration for push, listing, counting, marking read, deleting.

#include <velora/core/Orvane.hpp>
#include <velora/notifications/Notifications.hpp>

#include "core/Query.hpp"
#include "core/Operation.hpp"

namespace velora {
namespace {

using detail::Query;

struct NtfmRegister {
  RegistrationInfoRequest request;
  static constexpr OperationInfo info{"ntfmRegister", "POST", "/api/ntfm/v1/device/register"};
  using Reply = RegistrationInfoResponse;
  const RegistrationInfoRequest& body(const Orvane&) const { return request; }
  VELORA_FIELDS(NtfmRegister, request);
};
VELORA_REGISTER_OPERATION(NtfmRegister);

/// One "status=" item per requested status, in the caller's order; none for an absent or empty list.
struct GetNotifications {
  std::string pushToken;
  NTFMNotificationType notificationType = NTFMNotificationType::generic;
  std::optional<std::vector<NTFMNotificationStatus>> notificationStatus;
  static constexpr OperationInfo info{"getNotifications", "GET",
                                      "/api/ntfm/v1/notification/list?pushToken={pushToken}&type={notificationType}"
                                      "&status={notificationStatus}"};
  using Reply = std::vector<NTFMNotification>;
  std::string path() const {
    Query query("/api/ntfm/v1/notification/list");
    query.add("pushToken", pushToken).add("type", notificationType);
    for (const auto status : notificationStatus.value_or(std::vector<NTFMNotificationStatus>{})) query.add("status", status);
    return query.text();
  }
  VELORA_FIELDS(GetNotifications, pushToken, notificationType, notificationStatus);
};
VELORA_REGISTER_OPERATION(GetNotifications);

struct GetNotificationsCount {
  std::string pushToken;
  NTFMNotificationType notificationType = NTFMNotificationType::generic;
  static constexpr OperationInfo info{"getNotificationsCount", "GET",
                                      "/api/ntfm/v1/notification/count?pushToken={pushToken}&type={notificationType}"};
  using Reply = NTFMNotificationCount;
  std::string path() const {
    return Query("/api/ntfm/v1/notification/count").add("pushToken", pushToken).add("type", notificationType).text();
  }
  VELORA_FIELDS(GetNotificationsCount, pushToken, notificationType);
};
VELORA_REGISTER_OPERATION(GetNotificationsCount);

/// Marking read and deleting differ only in their path.
template <const OperationInfo& Info>
struct NotificationUpdate {
  std::vector<std::string> notificationIds;
  std::string token;
  NTFMNotificationType notificationType = NTFMNotificationType::generic;
  static constexpr OperationInfo info = Info;
  using Reply = UpdateNotificationResponse;
  std::string path() const { return Query(std::string(Info.path.substr(0, Info.path.find('?')))).add("type", notificationType).text(); }
  NTFMNotificationUpdateRequest body(const Orvane&) const { return {notificationIds, token}; }
  VELORA_FIELDS(NotificationUpdate, notificationIds, token, notificationType);
};
constexpr OperationInfo kDeleteNotifications{"deleteNotifications", "POST", "/api/ntfm/v1/notification/delete?type={notificationType}"};
constexpr OperationInfo kReadNotifications{"readNotifications", "POST", "/api/ntfm/v1/notification/read?type={notificationType}"};
using DeleteNotifications = NotificationUpdate<kDeleteNotifications>;
using ReadNotifications = NotificationUpdate<kReadNotifications>;
VELORA_REGISTER_OPERATION(DeleteNotifications);
VELORA_REGISTER_OPERATION(ReadNotifications);

}  // namespace

RegistrationInfoRequest Orvane::registrationRequest(std::string projectId, std::string pushToken) const {
  const auto bundle = platform().host->bundleIdentifier();
  if (!bundle) throw APIError(ResponseMessage(-9003, "Invalid Bundle Identifier Specified"));
  return {std::move(projectId), *bundle, std::move(pushToken), envUUID};
}

void Orvane::ntfmRegister(RegistrationInfoRequest request, ResponseCallback callback) {
  call(NtfmRegister{std::move(request)}, std::move(callback));
}
Task<RegistrationInfoResponse> Orvane::ntfmRegister(RegistrationInfoRequest request) { return call(NtfmRegister{std::move(request)}); }

void Orvane::getNotifications(std::string pushToken, NTFMNotificationType notificationType,
                              std::optional<std::vector<NTFMNotificationStatus>> notificationStatus, ResponseCallback callback) {
  call(GetNotifications{std::move(pushToken), notificationType, std::move(notificationStatus)}, std::move(callback));
}
Task<std::vector<NTFMNotification>> Orvane::getNotifications(std::string pushToken, NTFMNotificationType notificationType,
                                                             std::optional<std::vector<NTFMNotificationStatus>> notificationStatus) {
  return call(GetNotifications{std::move(pushToken), notificationType, std::move(notificationStatus)});
}

void Orvane::getNotificationsCount(std::string pushToken, NTFMNotificationType notificationType, ResponseCallback callback) {
  call(GetNotificationsCount{std::move(pushToken), notificationType}, std::move(callback));
}
Task<NTFMNotificationCount> Orvane::getNotificationsCount(std::string pushToken, NTFMNotificationType notificationType) {
  return call(GetNotificationsCount{std::move(pushToken), notificationType});
}

void Orvane::deleteNotifications(std::vector<std::string> notificationIds, std::string token, NTFMNotificationType notificationType,
                                 ResponseCallback callback) {
  call(DeleteNotifications{std::move(notificationIds), std::move(token), notificationType}, std::move(callback));
}
Task<UpdateNotificationResponse> Orvane::deleteNotifications(std::vector<std::string> notificationIds, std::string token,
                                                             NTFMNotificationType notificationType) {
  return call(DeleteNotifications{std::move(notificationIds), std::move(token), notificationType});
}

void Orvane::readNotifications(std::vector<std::string> notificationIds, std::string token, NTFMNotificationType notificationType,
                               ResponseCallback callback) {
  call(ReadNotifications{std::move(notificationIds), std::move(token), notificationType}, std::move(callback));
}
Task<UpdateNotificationResponse> Orvane::readNotifications(std::vector<std::string> notificationIds, std::string token,
                                                           NTFMNotificationType notificationType) {
  return call(ReadNotifications{std::move(notificationIds), std::move(token), notificationType});
}

}  // namespace velora
