#pragma once
// Generic-password items: secret bytes under a service and an account. Results use the platform's
// keychain status numbers, so callers can log and branch on them as applications expect.

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <velora/core/AnyCodable.hpp>

namespace velora {

/// The status numbers every SecureStore method returns.
namespace secure_status {
inline constexpr int kSuccess = 0;               ///< Done.
inline constexpr int kDuplicateItem = -25299;    ///< add: an item with this service and account exists.
inline constexpr int kItemNotFound = -25300;     ///< No item with this service and account.
inline constexpr int kIOError = -36;             ///< The storage could not be read or written.
inline constexpr int kParameterError = -50;      ///< The service or account cannot be stored as given.
}  // namespace secure_status

/// Secret bytes under a service and an account (see above); every method returns a secure_status
/// number and never throws. Safe to use from any thread.
class SecureStore {
 public:
  virtual ~SecureStore() = default;
  /// Adds an item; kDuplicateItem when one with this service and account exists.
  /// An absent service is an item without service attribute (it matches only such items).
  virtual int add(const std::optional<std::string>& service, const std::string& account, const Bytes& data) = 0;
  /// Replaces the data of an existing item; kItemNotFound when there is none.
  virtual int update(const std::optional<std::string>& service, const std::string& account, const Bytes& data) = 0;
  /// kSuccess with `data` filled, or kItemNotFound.
  virtual int copyMatching(const std::optional<std::string>& service, const std::string& account, Bytes* data) = 0;
  /// Deletes the item; kItemNotFound when there is none.
  virtual int remove(const std::optional<std::string>& service, const std::string& account) = 0;
};

/// One file per item in a 0700 folder, each file 0600, replaced atomically, so a process killed
/// while writing leaves the old item or the new one.
std::shared_ptr<SecureStore> makeFileSecureStore(std::filesystem::path folder);

/// The desktop's Secret Service through libsecret when one answers (items are labelled with
/// `application`), otherwise the file store in `fallbackFolder`.
std::shared_ptr<SecureStore> makeSystemSecureStore(const std::string& application, std::filesystem::path fallbackFolder);

}  // namespace velora
