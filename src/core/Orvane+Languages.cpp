// The languages the server offers, the one chosen, and their copy in the application's defaults.

#include <velora/core/Language.hpp>
#include <velora/core/Orvane.hpp>

#include <algorithm>

#include "core/Localizations.hpp"
#include "core/Operation.hpp"
#include "core/Query.hpp"

namespace velora {
namespace detail {
namespace {

constexpr std::string_view kAvailableKey = "localizations";
constexpr std::string_view kCurrentKey = "current-localization";

template <class T>
std::optional<T> storedValue(const KeyValueStore& store, std::string_view key) {
  auto value = store.object(key);
  if (!value) return std::nullopt;
  try {
    return decode<T>(*value);
  } catch (const JsonError&) {
    // Written by another version or edited by hand: treated as never stored.
    return std::nullopt;
  }
}

std::optional<SELanguage> defaultOf(const std::vector<SELanguage>& languages) {
  auto it = std::find_if(languages.begin(), languages.end(), [](const SELanguage& l) { return l.isDefault.value_or(false); });
  return it == languages.end() ? std::nullopt : std::optional<SELanguage>(*it);
}

}  // namespace

Localizations& Localizations::of(const Orvane& facade) { return *facade.localizations_; }

std::optional<SELanguage> Localizations::current() const {
  std::lock_guard lock(mutex_);
  return current_;
}

std::optional<std::vector<SELanguage>> Localizations::available() const {
  std::lock_guard lock(mutex_);
  return available_;
}

bool Localizations::replace(std::optional<SELanguage> current, std::optional<std::vector<SELanguage>> available) {
  std::lock_guard lock(mutex_);
  if (current == current_ && available == available_) return false;
  current_ = std::move(current);
  available_ = std::move(available);
  return true;
}

void Localizations::publish(Orvane& facade) {
  const auto& state = of(facade);
  Notification notification{kLocalizationsChanged, {{"payload", LocalizationsChange{state.current(), state.available()}}}};
  if (facade.platform().notifications) facade.platform().notifications->post(notification);
}

void Localizations::loadStored(Orvane& facade) {
  std::unique_lock step(of(facade).updates_);
  const auto& store = *facade.platform().defaults;
  auto available = storedValue<std::vector<SELanguage>>(store, kAvailableKey);
  auto current = storedValue<SELanguage>(store, kCurrentKey);
  if (!current && available) current = defaultOf(*available);
  const bool changed = of(facade).replace(std::move(current), std::move(available));
  step.unlock();
  if (changed) publish(facade);
}

void Localizations::offer(Orvane& facade, std::vector<SELanguage> languages) {
  std::unique_lock step(of(facade).updates_);
  auto& store = *facade.platform().defaults;
  auto current = of(facade).current();
  const bool offered = current && std::any_of(languages.begin(), languages.end(),
                                               [&](const SELanguage& l) { return l.code == current->code; });
  if (!offered) {
    current = defaultOf(languages);
    if (current) {
      store.set(kCurrentKey, encode(*current));
    } else {
      store.remove(kCurrentKey);
    }
  }
  store.set(kAvailableKey, encode(languages));
  store.synchronize();
  const bool changed = of(facade).replace(std::move(current), std::move(languages));
  step.unlock();
  if (changed) publish(facade);
}

void Localizations::choose(Orvane& facade, SELanguage language) {
  std::unique_lock step(of(facade).updates_);
  auto& store = *facade.platform().defaults;
  store.set(kCurrentKey, encode(language));
  store.synchronize();
  const bool changed = of(facade).replace(std::move(language), of(facade).available());
  step.unlock();
  if (changed) publish(facade);
}

}  // namespace detail

namespace {

struct GetLanguages {
  static constexpr OperationInfo info{"getLanguages", "GET", "/public/api/v2/languages"};
  using Reply = std::vector<SELanguage>;
  static void afterDecode(Reply& languages, Orvane& facade) { detail::Localizations::offer(facade, languages); }
  VELORA_FIELDS(GetLanguages);
};
VELORA_REGISTER_OPERATION(GetLanguages);

struct SetLanguage {
  std::string code;
  static constexpr OperationInfo info{"setLanguage", "POST", "/api/v2/setLanguage?language={code}"};
  using Reply = SELanguage;
  std::string path() const { return "/api/v2/setLanguage?language=" + detail::queryEscape(code); }
  static void afterDecode(Reply& language, Orvane& facade) { detail::Localizations::choose(facade, language); }
  VELORA_FIELDS(SetLanguage, code);
};
VELORA_REGISTER_OPERATION(SetLanguage);

}  // namespace

std::optional<SELanguage> Orvane::currentLocalization() const { return detail::Localizations::of(*this).current(); }
std::optional<std::vector<SELanguage>> Orvane::availableLocalizations() const {
  return detail::Localizations::of(*this).available();
}

void Orvane::getLanguages(ResponseCallback callback) { call(GetLanguages{}, std::move(callback)); }
Task<std::vector<SELanguage>> Orvane::getLanguages() { return call(GetLanguages{}); }
void Orvane::setLanguage(std::string code, ResponseCallback callback) { call(SetLanguage{std::move(code)}, std::move(callback)); }
Task<SELanguage> Orvane::setLanguage(std::string code) { return call(SetLanguage{std::move(code)}); }

}  // namespace velora
