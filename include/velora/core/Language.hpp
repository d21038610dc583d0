#pragma once
// The languages the server offers and the one in force for this installation.

#include <optional>
#include <string>
#include <vector>

#include <velora/core/Record.hpp>

namespace velora {

/// Posted on Platform::notifications when the current language or the offered list changes. The
/// "payload" entry holds a LocalizationsChange.
inline constexpr const char* kLocalizationsChanged = "LocalizationsChanged";

/// A language the platform offers, as its JSON `{"code", "name", "default"?}` names it; the list
/// comes from getLanguages, and setLanguage answers the one put in force.
struct SELanguage {
  /// Language tag as the server knows it ("en", "de-CH"); what setLanguage takes.
  std::string code;
  /// Display name in the language itself.
  std::string name;
  /// The server's default for users who never chose; JSON key "default", absent on most entries.
  std::optional<bool> isDefault;

  VELORA_RECORD(SELanguage, code, name, (isDefault, "default"));
};

/// What a "LocalizationsChanged" notification carries: the state after the change.
struct LocalizationsChange {
  /// The language now in force; empty when none is.
  std::optional<SELanguage> current;
  /// The languages now offered; empty when no list is known yet.
  std::optional<std::vector<SELanguage>> available;
};

}  // namespace velora
