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

bool isNested(const AnyCodable& value) { return value.isObject() || value.isArray(); }

/// A value within a line: text without quotes, absence as "-", everything else as compact JSON.
std::string inlineText(const AnyCodable& value) {
  if (value.isNull()) return "-";
  // Quoted where bare text would be invisible or break the line.
  if (const auto* text = value.as<std::string>()) return text->empty() || text->find('\n') != std::string::npos ? value.dump() : *text;
  if (const auto* bytes = value.as<Bytes>()) return std::to_string(bytes->size()) + " bytes";
  return value.dump();
}

std::string describeObject(const AnyCodable::Object& members) {
  if (members.empty()) return "(no fields)";
  std::vector<std::pair<std::string, std::string>> rows;
  rows.reserve(members.size());
  for (const auto& [key, member] : members) rows.emplace_back(key, inlineText(member));
  return fieldLines(rows);
}

/// One column per member that is plain in every element, in order of first appearance; members
/// holding an object or a list in any element go on lines of their own below the element's row,
/// where a table cell would stretch every row to the longest of them.
std::string describeObjects(const AnyCodable::Array& elements) {
  std::vector<std::pair<std::string, bool>> keys;  // name, nested somewhere
  for (const auto& element : elements) {
    for (const auto& [key, member] : *element.as<AnyCodable::Object>()) {
      auto known = std::find_if(keys.begin(), keys.end(), [&name = key](const auto& k) { return k.first == name; });
      if (known == keys.end()) known = keys.insert(keys.end(), {key, false});
      known->second = known->second || isNested(member);
    }
  }
  std::vector<std::string> columns;
  for (const auto& [key, nested] : keys) {
    if (!nested) columns.push_back(key);
  }
  std::vector<std::vector<std::string>> rows;
  for (const auto& element : elements) {
    std::vector<std::string>& row = rows.emplace_back();
    for (const auto& key : columns) {
      const AnyCodable* member = element.find(key);
      row.push_back(member ? inlineText(*member) : "-");
    }
  }

  std::istringstream laidOut(table(columns, rows));
  std::string text, line;
  std::getline(laidOut, line);
  text.append(line).push_back('\n');
  for (const auto& element : elements) {
    std::getline(laidOut, line);
    text.append(line).push_back('\n');
    std::vector<std::pair<std::string, std::string>> below;
    for (const auto& [key, nested] : keys) {
      const AnyCodable* member = element.find(key);
      if (nested && member && !member->isNull()) below.emplace_back(key, inlineText(*member));
    }
    std::istringstream listing(fieldLines(below));
    for (std::string belowLine; std::getline(listing, belowLine);) text.append("    ").append(belowLine).push_back('\n');
  }
  return text;
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

std::string enumerate(const std::vector<std::string>& items, std::string_view conjunction) {
  std::string text;
  for (std::size_t i = 0; i < items.size(); ++i) {
    if (i > 0) text.append(i + 1 == items.size() ? " " + std::string(conjunction) + " " : ", ");
    text.append(items[i]);
  }
  return text;
}

std::string formatNumber(double value) {
  std::ostringstream text;
  text << value;
  return text.str();
}

std::string table(const std::vector<std::string>& header, const std::vector<std::vector<std::string>>& rows) {
  std::vector<std::size_t> widths(header.size());
  for (std::size_t c = 0; c < header.size(); ++c) {
    widths[c] = header[c].size();
    for (const auto& row : rows) widths[c] = std::max(widths[c], row[c].size());
  }
  std::string text;
  const auto line = [&](const std::vector<std::string>& cells) {
    for (std::size_t c = 0; c < cells.size(); ++c) {
      text.append(cells[c]);
      if (c + 1 < cells.size()) text.append(widths[c] - cells[c].size() + 2, ' ');
    }
    text.push_back('\n');
  };
  line(header);
  for (const auto& row : rows) line(row);
  return text;
}

std::string describeJson(const AnyCodable& value) {
  if (const auto* members = value.as<AnyCodable::Object>()) return describeObject(*members);
  const auto* elements = value.as<AnyCodable::Array>();
  if (!elements) return inlineText(value);
  if (elements->empty()) return "(empty list)";
  if (std::all_of(elements->begin(), elements->end(), [](const auto& e) { return e.isObject(); })) {
    return describeObjects(*elements);
  }
  std::string text;
  for (const auto& element : *elements) text.append(inlineText(element)).push_back('\n');
  return text;
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
