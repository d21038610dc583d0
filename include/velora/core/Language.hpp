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

struct SELanguage {
  /// Language tag as the server knows it ("en", "de-CH"); what setLanguage takes.
  std::string code;
  /// Display name in the language itself.
  std::string name;
  /// The server's default for users who never chose.
  std::optional<bool> isDefault;

  VELORA_RECORD(SELanguage, code, name, (isDefault, "default"));
};

/// What a "LocalizationsChanged" notification carries: the state after the change.
struct LocalizationsChange {
  std::optional<SELanguage> current;
  std::optional<std::vector<SELanguage>> available;
};

}  // namespace velora
