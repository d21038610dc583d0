#include <velora/core/Record.hpp>

#include <vector>

namespace velora::detail {

std::string JsonPath::text() const {
  std::vector<const JsonPath*> steps;
  for (const JsonPath* p = this; p && p->parent; p = p->parent) steps.push_back(p);
  std::string out = "$";
  for (auto it = steps.rbegin(); it != steps.rend(); ++it) {
    if ((*it)->isIndex) {
      out += "[" + std::to_string((*it)->index) + "]";
    } else {
      out += ".";
      out += (*it)->key;
    }
  }
  return out;
}

void throwDecoding(const JsonPath& path, const std::string& reason) { throw DecodingError(path.text(), reason); }

std::string_view kindName(const AnyCodable& value) {
  if (value.isNull()) return "null";
  if (value.as<bool>()) return "a boolean";
  if (value.as<std::int64_t>() || value.as<double>()) return "a number";
  if (value.as<std::string>()) return "a string";
  if (value.as<Bytes>()) return "data";
  if (value.isArray()) return "an array";
  return "an object";
}

}  // namespace velora::detail
