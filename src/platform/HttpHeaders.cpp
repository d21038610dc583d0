#include <velora/platform/HttpTransport.hpp>

#include <algorithm>

namespace velora {
namespace {

char asciiLower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

bool sameName(std::string_view a, std::string_view b) {
  return a.size() == b.size() &&
         std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) { return asciiLower(x) == asciiLower(y); });
}

}  // namespace

void HttpHeaders::set(std::string_view name, std::string value) {
  // `name` may point into one of our own fields, which the erase below moves around.
  std::string key(name);
  auto matches = [&key](const auto& field) { return sameName(field.first, key); };
  auto first = std::find_if(fields_.begin(), fields_.end(), matches);
  if (first == fields_.end()) {
    fields_.emplace_back(std::move(key), std::move(value));
    return;
  }
  first->second = std::move(value);
  fields_.erase(std::remove_if(std::next(first), fields_.end(), matches), fields_.end());
  first->first = std::move(key);
}

void HttpHeaders::remove(std::string_view name) {
  std::string key(name);
  std::erase_if(fields_, [&key](const auto& field) { return sameName(field.first, key); });
}

std::optional<std::string> HttpHeaders::get(std::string_view name) const {
  for (const auto& [fieldName, value] : fields_) {
    if (sameName(fieldName, name)) return value;
  }
  return std::nullopt;
}

void HttpHeaders::mergeMissing(const HttpHeaders& other) {
  if (&other == this) return;
  // Judge against our own fields only, so a name repeated in `other` (several Accept lines, say)
  // comes over whole rather than just its first line.
  const auto ownCount = static_cast<std::ptrdiff_t>(fields_.size());
  for (const auto& field : other.fields_) {
    const bool present = std::any_of(fields_.begin(), fields_.begin() + ownCount,
                                     [&field](const auto& own) { return sameName(own.first, field.first); });
    if (!present) fields_.push_back(field);
  }
}

}  // namespace velora
