// The display texts of the map's navigation records, with their language tables.

#include <cctype>
#include <cmath>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include <velora/map/MapEvents.hpp>

namespace velora {

namespace {

struct Text {
  std::string_view key;
  std::string_view text;
};

constexpr Text kEnglish[] = {
    {"map-turn-left", "Turn left"},
    {"map-turn-right", "Turn right"},
    {"map-take-lift-label", "Take the lift"},
    {"map-near-destination-label", "You are near your destination"},
    {"map-go-straight", "Go straight on"},
    {"map-take-stairs-label", "Take the stairs"},
    {"map-take-portal", "Go through the portal"},
};

constexpr Text kItalian[] = {
    {"map-turn-left", "Gira a sinistra"},
    {"map-turn-right", "Gira a destra"},
    {"map-take-lift-label", "Prendi l'ascensore"},
    {"map-near-destination-label", "Sei vicino alla destinazione"},
    {"map-go-straight", "Prosegui dritto"},
    {"map-take-stairs-label", "Prendi le scale"},
    {"map-take-portal", "Attraversa il passaggio"},
};

struct Table {
  std::string_view language;
  std::span<const Text> texts;
};

constexpr Table kTables[] = {{"en", kEnglish}, {"it", kItalian}};

/// "it", "IT", "it-IT" and "it_IT" all name Italian.
bool namesLanguage(std::string_view code, std::string_view language) {
  const auto primary = code.substr(0, code.find_first_of("-_"));
  if (primary.size() != language.size()) return false;
  for (std::size_t i = 0; i < primary.size(); ++i) {
    if (std::tolower(static_cast<unsigned char>(primary[i])) != language[i]) return false;
  }
  return true;
}

std::optional<std::string_view> lookUp(std::span<const Text> texts, std::string_view key) {
  for (const auto& t : texts) {
    if (t.key == key) return t.text;
  }
  return std::nullopt;
}

}  // namespace

std::string_view localizationKey(NavigationStepType type) {
  switch (type) {
    case NavigationStepType::left: return "map-turn-left";
    case NavigationStepType::right: return "map-turn-right";
    case NavigationStepType::lift: return "map-take-lift-label";
    case NavigationStepType::destination: return "map-near-destination-label";
    case NavigationStepType::straight: return "map-go-straight";
    case NavigationStepType::stairs: return "map-take-stairs-label";
    case NavigationStepType::portal: return "map-take-portal";
  }
  return {};
}

std::string mapLocalized(std::string_view key, std::string_view language) {
  for (const auto& table : kTables) {
    if (!namesLanguage(language, table.language)) continue;
    if (auto text = lookUp(table.texts, key)) return std::string(*text);
  }
  if (auto text = lookUp(kEnglish, key)) return std::string(*text);
  return std::string(key);
}

std::string localized(NavigationStepType type, std::string_view language) {
  return mapLocalized(localizationKey(type), language);
}

std::string NavigationStepModel::extendedTypeLocalizedWithValue(std::string_view language) const {
  auto text = localized(type, language);
  if (value) text += " (" + *value + ")";
  return text;
}

std::string VehiclesStats::localizedRemainingTime() const {
  if (!remainingTimeSecond) return "--";
  return std::to_string(static_cast<std::int64_t>(std::ceil(*remainingTimeSecond / 60.0))) + " min";
}

}  // namespace velora
