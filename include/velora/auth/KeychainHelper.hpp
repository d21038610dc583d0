#pragma once
// The two secrets the library keeps: the current token response (service "keycloak", account
// "access-token") and the background-login credentials (account "BackgroundLoginParameters").
// Store failures never throw: they are printed and reported through results.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include <velora/core/Date.hpp>
#include <velora/core/Record.hpp>
#include <velora/platform/Platform.hpp>
#include <velora/platform/SecureStore.hpp>

namespace velora {

class KeychainHelper {
 public:
  /// The helper on the default platform's secure store.
  static KeychainHelper& standard();
  KeychainHelper(std::shared_ptr<SecureStore> store, ConsoleSink console);

  /// Adds the item, or updates it when it exists; other failures print "Error: <status>".
  void save(const Bytes& data, const std::string& service, const std::string& account);
  std::optional<Bytes> read(const std::string& service, const std::string& account);
  void remove(const std::string& service, const std::string& account);

  /// Typed forms: JSON of the item (an absent optional is stored as JSON null).
  template <class T>
  void saveItem(const T& item, const std::string& service = "keycloak", const std::string& account = "access-token") {
    std::string text;
    try {
      text = encodeJSON(item);
    } catch (const std::exception& e) {
      print(std::string("Fail to encode item for keychain: ") + e.what());
      return;
    }
    save(Bytes(text.begin(), text.end()), service, account);
  }
  template <class T>
  std::optional<T> readItem(const std::string& service = "keycloak", const std::string& account = "access-token") {
    auto data = read(service, account);
    if (!data) return std::nullopt;
    try {
      return decodeJSON<T>(std::string_view(reinterpret_cast<const char*>(data->data()), data->size()));
    } catch (const std::exception&) {
      return std::nullopt;
    }
  }

  const std::shared_ptr<SecureStore>& store() const { return store_; }
  void print(const std::string& line) const {
    if (console_) console_(line);
  }

 private:
  std::shared_ptr<SecureStore> store_;
  ConsoleSink console_;
};

/// User name and password for the background (password grant) login.
struct BackgroundLoginParameters {
  std::string username;
  std::string password;
  /// -1: the credentials never expire.
  std::int64_t expiration = -1;
  std::optional<Date> expirationDate;

  /// False for expiration -1; otherwise true without a date, or when `now` is past the date.
  bool isExpired(Date now) const;

  /// Adds or updates the item; false (and a printed reason) on failure.
  bool storeToKeychain(KeychainHelper& keychain = KeychainHelper::standard()) const;
  static std::optional<BackgroundLoginParameters> readFromKeychain(KeychainHelper& keychain = KeychainHelper::standard());
  /// True when an item existed and was deleted, or none existed.
  static bool removeFromKeychain(KeychainHelper& keychain = KeychainHelper::standard());

  VELORA_RECORD(BackgroundLoginParameters, username, password, expiration, expirationDate);
};

}  // namespace velora
