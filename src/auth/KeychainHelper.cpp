#include <velora/auth/KeychainHelper.hpp>

namespace velora {
namespace {
const std::string kBackgroundAccount = "BackgroundLoginParameters";
}

KeychainHelper& KeychainHelper::standard() {
  static KeychainHelper helper(Platform::getDefault().secureStore, Platform::getDefault().console);
  return helper;
}

KeychainHelper::KeychainHelper(std::shared_ptr<SecureStore> store, ConsoleSink console)
    : store_(std::move(store)), console_(std::move(console)) {}

void KeychainHelper::save(const Bytes& data, const std::string& service, const std::string& account) {
  int status = store_->add(service, account, data);
  if (status == secure_status::kDuplicateItem) status = store_->update(service, account, data);
  if (status != secure_status::kSuccess) print("Error: " + std::to_string(status));
}

std::optional<Bytes> KeychainHelper::read(const std::string& service, const std::string& account) {
  Bytes data;
  if (store_->copyMatching(service, account, &data) != secure_status::kSuccess) return std::nullopt;
  return data;
}

void KeychainHelper::remove(const std::string& service, const std::string& account) { store_->remove(service, account); }

bool BackgroundLoginParameters::isExpired(Date now) const {
  if (expiration == -1) return false;
  if (!expirationDate) return true;
  return now > *expirationDate;
}

bool BackgroundLoginParameters::storeToKeychain(KeychainHelper& keychain) const {
  auto& store = *keychain.store();
  auto print = [&](const std::string& line) { keychain.print(line); };
  std::string text;
  try {
    text = encodeJSON(*this);
  } catch (const std::exception& e) {
    print(std::string("QRCodeLoginResponse - storeToKeychain FAILED: ") + e.what());
    return false;
  }
  const Bytes data(text.begin(), text.end());
  Bytes existing;
  const int found = store.copyMatching(std::nullopt, kBackgroundAccount, &existing);
  if (found != secure_status::kSuccess && found != secure_status::kItemNotFound) {
    print("Error checking for existing item in Keychain: " + std::to_string(found));
    return false;
  }
  if (found == secure_status::kSuccess) {
    if (const int status = store.update(std::nullopt, kBackgroundAccount, data); status != secure_status::kSuccess) {
      print("Error updating data in Keychain: " + std::to_string(status));
      return false;
    }
    return true;
  }
  if (const int status = store.add(std::nullopt, kBackgroundAccount, data); status != secure_status::kSuccess) {
    print("Error adding data to Keychain: " + std::to_string(status));
    return false;
  }
  return true;
}

std::optional<BackgroundLoginParameters> BackgroundLoginParameters::readFromKeychain(KeychainHelper& keychain) {
  Bytes data;
  const int status = keychain.store()->copyMatching(std::nullopt, kBackgroundAccount, &data);
  if (status != secure_status::kSuccess) {
    if (status != secure_status::kItemNotFound) keychain.print("Error reading data from Keychain: " + std::to_string(status));
    return std::nullopt;
  }
  try {
    return decodeJSON<BackgroundLoginParameters>(std::string_view(reinterpret_cast<const char*>(data.data()), data.size()));
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

bool BackgroundLoginParameters::removeFromKeychain(KeychainHelper& keychain) {
  Bytes data;
  if (keychain.store()->copyMatching(std::nullopt, kBackgroundAccount, &data) != secure_status::kSuccess) return true;
  if (const int status = keychain.store()->remove(std::nullopt, kBackgroundAccount); status != secure_status::kSuccess) {
    keychain.print("Error deleting data in Keychain: " + std::to_string(status));
    return false;
  }
  return true;
}

}  // namespace velora
