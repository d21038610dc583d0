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

/// Reads and writes the library's secrets in a SecureStore, as raw bytes or as JSON records.
/// Nothing here throws: failures are printed to the console sink and show as absent results.
class KeychainHelper {
 public:
  /// The helper on the default platform's secure store.
  static KeychainHelper& standard();
  /// A helper on `store` that prints its failure lines to `console` (an empty sink prints nothing).
  KeychainHelper(std::shared_ptr<SecureStore> store, ConsoleSink console);

  /// Adds the item, or updates it when it exists; other failures print "Error: <status>".
  void save(const Bytes& data, const std::string& service, const std::string& account);
  /// The item's bytes; nullopt when no such item exists or the store fails (nothing is printed).
  std::optional<Bytes> read(const std::string& service, const std::string& account);
  /// Deletes the item; a missing item or a failing store is silently ignored.
  void remove(const std::string& service, const std::string& account);

  /// @{
  /// Typed forms: the item is kept as its JSON text (an absent optional as JSON null). The defaults
  /// name the current token item. Saving prints "Fail to encode item for keychain: " and the
  /// reason, and stores nothing, when the item cannot be encoded; reading gives nullopt when the
  /// item is missing or does not decode as `T`.
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
  /// @}

  /// The store this helper reads and writes.
  const std::shared_ptr<SecureStore>& store() const { return store_; }
  /// Writes `line` to the console sink, if there is one; how failures are reported.
  void print(const std::string& line) const {
    if (console_) console_(line);
  }

 private:
  std::shared_ptr<SecureStore> store_;
  ConsoleSink console_;
};

/// User name and password for the background (password grant) login.
struct BackgroundLoginParameters {
  /// @{
  /// Sent as the password grant's "username" and "password"; kept, like the whole record, as JSON
  /// in the secure store.
  std::string username;
  std::string password;
  /// @}
  /// The validity rule: -1, the credentials never expire; any other value, they expire at
  /// expirationDate.
  std::int64_t expiration = -1;
  /// The end of validity (JSON: seconds since 2001-01-01T00:00:00Z). Without it, credentials
  /// whose expiration is not -1 count as expired.
  std::optional<Date> expirationDate;

  /// False for expiration -1; otherwise true without a date, or when `now` is past the date.
  bool isExpired(Date now) const;

  /// Adds or updates the item; false (and a printed reason) on failure.
  bool storeToKeychain(KeychainHelper& keychain = KeychainHelper::standard()) const;
  /// The stored credentials (account "BackgroundLoginParameters", no service); nullopt when none
  /// are stored or they do not decode. Store failures other than a missing item are printed.
  static std::optional<BackgroundLoginParameters> readFromKeychain(KeychainHelper& keychain = KeychainHelper::standard());
  /// True when an item existed and was deleted, or none existed.
  static bool removeFromKeychain(KeychainHelper& keychain = KeychainHelper::standard());

  VELORA_RECORD(BackgroundLoginParameters, username, password, expiration, expirationDate);
};

}  // namespace velora
