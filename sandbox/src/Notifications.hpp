#pragma once
// The notification service behind the device and notification routes: the devices registered
// for push, each push token's inbox, and the do-not-disturb periods set per resource. Kept in
// memory per sandbox.

#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "DemoData.hpp"
#include "SandboxInternal.hpp"

namespace velora::sandbox::detail {

class Notifications {
 public:
  explicit Notifications(const DemoData& data);

  /// Binds the push token to `user`. A token new to that user gets the user's seeded inbox; one
  /// the same user registers again keeps its inbox. Returns the RegistrationInfoResponse.
  nlohmann::json registerDevice(const std::string& user, const nlohmann::json& request);
  /// `user`'s notifications of `type` on `token`, newest first: those with one of `statuses`, or
  /// with none given every one not deleted. RequestError 404 for a token `user` has not registered.
  nlohmann::json list(const std::string& user, const std::string& token, const std::string& type,
                      const std::set<std::string>& statuses) const;
  /// {"toRead": SENT ones, "read": READ ones} of `type`.
  nlohmann::json count(const std::string& user, const std::string& token, const std::string& type) const;
  /// Moves the notifications `ids` of `type` (all of that type when absent) to `status`, all or
  /// none: RequestError 404 naming an id the inbox does not hold (deleted ones included).
  /// Returns the UpdateNotificationResponse: the notifications changed and the counts after.
  nlohmann::json update(const std::string& user, const std::string& token, const std::string& type,
                        const std::optional<std::vector<std::string>>& ids, const std::string& status);

  /// Puts a new SENT notification of `type` at the top of the inbox of every push token `user`
  /// has registered, with the same fresh id in each; nothing when there is none.
  void post(const std::string& user, const std::string& type, const std::string& title, const std::string& body);

  /// The values last set for the elements of `resourceId`'s periods, by element id.
  std::map<std::string, nlohmann::json> dndValues(const std::string& resourceId) const;
  /// Replaces `resourceId`'s periods with the values of `elements` (those without one clear it).
  void setDnd(const std::string& resourceId, const nlohmann::json& elements);

 private:
  struct Device {
    std::string user;
    std::vector<nlohmann::json> inbox;  // newest first
  };
  // Need mutex_ held.
  template <class Self>
  static auto& owned(Self& self, const std::string& user, const std::string& token);
  static nlohmann::json counts(const Device& device, const std::string& type);

  const DemoData& data_;
  mutable std::mutex mutex_;
  std::map<std::string, Device> devices_;  // by push token
  int posted_ = 0;  // notifications posted since start-up
  std::map<std::string, std::map<std::string, nlohmann::json>> dnd_;  // resource -> element id -> value
};

}  // namespace velora::sandbox::detail
