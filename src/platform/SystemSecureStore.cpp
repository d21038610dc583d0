// Credential items in the desktop's Secret Service, when the build and the session have one.
//
// Items carry the attributes "account", "has-service" ("true"/"false") and, when there is a
// service, "service". A lookup matches every item whose attributes include the ones asked for,
// so "has-service" is what keeps an item without service apart from the items of the same
// account that have one (including an empty service).

#include <velora/platform/SecureStore.hpp>

#if VELORA_HAVE_LIBSECRET

#include <libsecret/secret.h>

#include <cstdio>
#include <mutex>

namespace velora {
namespace {

using namespace secure_status;

const SecretSchema* itemSchema() {
  static const SecretSchema schema = {
      "dev.velora.GenericPassword",
      SECRET_SCHEMA_NONE,
      {
          {"service", SECRET_SCHEMA_ATTRIBUTE_STRING},
          {"account", SECRET_SCHEMA_ATTRIBUTE_STRING},
          {"has-service", SECRET_SCHEMA_ATTRIBUTE_STRING},
          {nullptr, SECRET_SCHEMA_ATTRIBUTE_STRING},
      },
      0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
  };
  return &schema;
}

/// Owns one GError*; out() hands the slot to a libsecret call.
class Error {
 public:
  Error() = default;
  Error(const Error&) = delete;
  Error& operator=(const Error&) = delete;
  ~Error() { g_clear_error(&error_); }
  GError** out() { return &error_; }
  explicit operator bool() const { return error_ != nullptr; }
  const char* message() const { return error_ ? error_->message : ""; }

 private:
  GError* error_ = nullptr;
};

/// The attribute table for one item. Values point into the caller's strings, which outlive it.
class Attributes {
 public:
  Attributes(const std::optional<std::string>& service, const std::string& account)
      : table_(g_hash_table_new(g_str_hash, g_str_equal)) {
    g_hash_table_insert(table_, const_cast<char*>("account"), const_cast<char*>(account.c_str()));
    g_hash_table_insert(table_, const_cast<char*>("has-service"), const_cast<char*>(service ? "true" : "false"));
    if (service) g_hash_table_insert(table_, const_cast<char*>("service"), const_cast<char*>(service->c_str()));
  }
  Attributes(const Attributes&) = delete;
  Attributes& operator=(const Attributes&) = delete;
  ~Attributes() { g_hash_table_unref(table_); }
  GHashTable* get() const { return table_; }

 private:
  GHashTable* table_;
};

/// Attribute values travel as D-Bus strings: valid UTF-8 without NUL.
bool isAttributeText(const std::string& text) {
  return g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr) &&
         text.find('\0') == std::string::npos;
}

/// The item's secret, or no value when there is no such item. Throws nothing; `error` says
/// whether the service failed.
SecretValue* lookup(GHashTable* attributes, Error& error) {
  return secret_password_lookupv_binary_sync(itemSchema(), attributes, nullptr, error.out());
}

class SecretServiceStore final : public SecureStore {
 public:
  explicit SecretServiceStore(std::string application) : application_(std::move(application)) {}

  int add(const std::optional<std::string>& service, const std::string& account, const Bytes& data) override {
    if (!valid(service, account)) return kParameterError;
    std::lock_guard lock(mutex_);
    // The Secret Service has no create-if-absent; another process adding the same item between
    // this lookup and the store would be replaced by ours.
    const int found = exists(service, account);
    if (found != kItemNotFound) return found == kSuccess ? kDuplicateItem : found;
    return store(service, account, data);
  }

  int update(const std::optional<std::string>& service, const std::string& account, const Bytes& data) override {
    if (!valid(service, account)) return kParameterError;
    std::lock_guard lock(mutex_);
    const int found = exists(service, account);
    if (found != kSuccess) return found;
    return store(service, account, data);
  }

  int copyMatching(const std::optional<std::string>& service, const std::string& account, Bytes* data) override {
    if (!valid(service, account)) return kParameterError;
    std::lock_guard lock(mutex_);
    Attributes attributes(service, account);
    Error error;
    SecretValue* value = lookup(attributes.get(), error);
    if (error) return kIOError;
    if (!value) return kItemNotFound;
    gsize length = 0;
    const gchar* secret = secret_value_get(value, &length);
    if (data) data->assign(reinterpret_cast<const std::uint8_t*>(secret), reinterpret_cast<const std::uint8_t*>(secret) + length);
    secret_value_unref(value);
    return kSuccess;
  }

  int remove(const std::optional<std::string>& service, const std::string& account) override {
    if (!valid(service, account)) return kParameterError;
    std::lock_guard lock(mutex_);
    Attributes attributes(service, account);
    Error error;
    const gboolean removed = secret_password_clearv_sync(itemSchema(), attributes.get(), nullptr, error.out());
    if (error) return kIOError;
    return removed ? kSuccess : kItemNotFound;
  }

 private:
  static bool valid(const std::optional<std::string>& service, const std::string& account) {
    return isAttributeText(account) && (!service || isAttributeText(*service));
  }

  int exists(const std::optional<std::string>& service, const std::string& account) {
    Attributes attributes(service, account);
    Error error;
    SecretValue* value = lookup(attributes.get(), error);
    if (error) return kIOError;
    if (!value) return kItemNotFound;
    secret_value_unref(value);
    return kSuccess;
  }

  int store(const std::optional<std::string>& service, const std::string& account, const Bytes& data) {
    Attributes attributes(service, account);
    const std::string label = application_ + ": " + (service ? *service + " / " : std::string()) + account;
    SecretValue* value = secret_value_new(data.empty() ? "" : reinterpret_cast<const gchar*>(data.data()),
                                          static_cast<gssize>(data.size()), "application/octet-stream");
    Error error;
    // Replaces an item with the same attributes, which is what update wants and what add has
    // ruled out beforehand.
    secret_password_storev_binary_sync(itemSchema(), attributes.get(), SECRET_COLLECTION_DEFAULT, label.c_str(),
                                       value, nullptr, error.out());
    secret_value_unref(value);
    return error ? kIOError : kSuccess;
  }

  const std::string application_;
  std::mutex mutex_;
};

/// Whether a Secret Service answers: a lookup that finds nothing succeeds only when one does.
bool secretServiceAnswers(std::string* why) {
  const std::string probe = "velora-probe";
  Attributes attributes(std::nullopt, probe);
  g_hash_table_insert(attributes.get(), const_cast<char*>("service"), const_cast<char*>(probe.c_str()));
  Error error;
  SecretValue* value = lookup(attributes.get(), error);
  if (value) secret_value_unref(value);
  if (error) *why = error.message();
  return !error;
}

}  // namespace

std::shared_ptr<SecureStore> makeSystemSecureStore(const std::string& application, std::filesystem::path fallbackFolder) {
  // Falling back is the normal case on servers and in CI, so it is silent; the folder is documented.
  std::string why;
  if (secretServiceAnswers(&why)) return std::make_shared<SecretServiceStore>(application);
  return makeFileSecureStore(std::move(fallbackFolder));
}

}  // namespace velora

#else

namespace velora {

std::shared_ptr<SecureStore> makeSystemSecureStore(const std::string&, std::filesystem::path fallbackFolder) {
  return makeFileSecureStore(std::move(fallbackFolder));
}

}  // namespace velora

#endif
