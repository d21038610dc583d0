#pragma once
// The facade's language state: the list the server offers and the language in force, kept in the
// application's defaults so that they are known before the first request of the next start.

#include <mutex>
#include <optional>
#include <vector>

#include <velora/core/Language.hpp>

namespace velora {
class Orvane;
}

namespace velora::detail {

class Localizations {
 public:
  /// The state of `facade`.
  static Localizations& of(const Orvane& facade);

  std::optional<SELanguage> current() const;
  std::optional<std::vector<SELanguage>> available() const;

  /// Reads what an earlier run stored; posts "LocalizationsChanged" when that differs from now.
  static void loadStored(Orvane& facade);
  /// A new list from the server: stored; the current language falls back to the list's default
  /// entry when the list no longer offers it.
  static void offer(Orvane& facade, std::vector<SELanguage> languages);
  /// The server's confirmation of a language change: stored and in force.
  static void choose(Orvane& facade, SELanguage language);

 private:
  /// Replaces the state; true when it changed.
  bool replace(std::optional<SELanguage> current, std::optional<std::vector<SELanguage>> available);
  static void publish(Orvane& facade);

  /// Held through each read-decide-store step, so that the start-up read cannot undo a change
  /// the server confirmed meanwhile.
  std::mutex updates_;
  mutable std::mutex mutex_;
  std::optional<SELanguage> current_;
  std::optional<std::vector<SELanguage>> available_;
};

}  // namespace velora::detail
