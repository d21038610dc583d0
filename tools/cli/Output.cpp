#include "Output.hpp"

#include <algorithm>
#include <cctype>
#include <sstream>

#include "Secrets.hpp"

namespace velora::cli {
namespace {

bool isSecretKey(std::string_view key) {
  std::string lower(key);
  std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
  for (std::string_view word : {"token", "secret", "password", "authorization"}) {
    if (lower.find(word) != std::string::npos) return true;
  }
  return false;
}

}  // namespace

void Output::printJson(const AnyCodable& value) { out_ << redactSecrets(value).dump() << '\n' << std::flush; }

void Output::printText(std::string_view text) {
  while (!text.empty() && text.back() == '\n') text.remove_suffix(1);
  out_ << maskSecrets(text) << '\n' << std::flush;
}

std::string fieldLines(const std::vector<std::pair<std::string, std::string>>& rows) {
  std::size_t width = 0;
  for (const auto& row : rows) width = std::max(width, row.first.size());
  std::string text;
  for (const auto& [name, value] : rows) {
    text.append(name).append(width - name.size() + 2, ' ').append(value).push_back('\n');
  }
  return text;
}

std::string formatNumber(double value) {
  std::ostringstream text;
  text << value;
  return text.str();
}

AnyCodable redactSecrets(const AnyCodable& value) {
  if (const auto* object = value.as<AnyCodable::Object>()) {
    AnyCodable::Object copy;
    copy.reserve(object->size());
    for (const auto& [key, member] : *object) {
      // Numbers and flags under such names are lifetimes and switches ("expires_in"), not secrets.
      const bool carriesText = !member.isNull() && !member.number() && !member.as<bool>();
      copy.emplace_back(key, isSecretKey(key) && carriesText ? AnyCodable(kRedacted) : redactSecrets(member));
    }
    return copy;
  }
  if (const auto* array = value.as<AnyCodable::Array>()) {
    AnyCodable::Array copy;
    copy.reserve(array->size());
    for (const auto& element : *array) copy.push_back(redactSecrets(element));
    return copy;
  }
  if (const auto* text = value.as<std::string>()) return maskSecrets(*text);
  return value;
}

}  // namespace velora::cli
