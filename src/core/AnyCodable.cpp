#include <velora/core/AnyCodable.hpp>

#include <cmath>
#include <exception>
#include <limits>

#include <velora/core/Record.hpp>

#include <nlohmann/json.hpp>

namespace velora {

AnyCodable AnyCodable::object(std::initializer_list<std::pair<const char*, AnyCodable>> members) {
  Object out;
  out.reserve(members.size());
  for (const auto& [k, v] : members) out.emplace_back(k, v);
  return out;
}

std::optional<double> AnyCodable::number() const {
  if (auto d = as<double>()) return *d;
  if (auto i = as<std::int64_t>()) return static_cast<double>(*i);
  return std::nullopt;
}

const AnyCodable* AnyCodable::find(std::string_view key) const {
  const auto* members = as<Object>();
  if (!members) return nullptr;
  // The last occurrence wins, as with most JSON readers.
  for (auto it = members->rbegin(); it != members->rend(); ++it) {
    if (it->first == key) return &it->second;
  }
  return nullptr;
}

AnyCodable& AnyCodable::operator[](std::string_view key) {
  if (isNull()) value_ = Object{};
  auto& members = std::get<Object>(value_);
  for (auto& [k, v] : members) {
    if (k == key) return v;
  }
  return members.emplace_back(std::string(key), AnyCodable{}).second;
}

namespace {

// Builds an AnyCodable tree straight from the parser's events, without an intermediate document.
// Given `each`, it hands over every element of a top-level array as soon as that element is whole
// and forgets it, so a long list never exists as one tree.
class TreeBuilder final : public nlohmann::json_sax<nlohmann::json> {
 public:
  TreeBuilder() = default;
  explicit TreeBuilder(const detail::ElementSink* each) : each_(each) {}

  AnyCodable root;
  std::string error;
  /// What `each` threw first; later elements are still parsed, but no longer handed over.
  std::exception_ptr failure;

  bool null() override { return put(AnyCodable{}); }
  bool boolean(bool v) override { return put(v); }
  bool number_integer(number_integer_t v) override { return put(static_cast<long long>(v)); }
  bool number_unsigned(number_unsigned_t v) override {
    if (v <= static_cast<number_unsigned_t>(std::numeric_limits<std::int64_t>::max())) {
      return put(static_cast<long long>(v));
    }
    return put(static_cast<double>(v));
  }
  bool number_float(number_float_t v, const string_t&) override { return put(v); }
  bool string(string_t& v) override { return put(std::move(v)); }
  bool binary(binary_t&) override { return false; }
  bool start_object(std::size_t) override {
    stack_.push_back(put(AnyCodable::Object{}) ? last_ : nullptr);
    return true;
  }
  bool key(string_t& k) override {
    auto* members = stack_.back()->as<AnyCodable::Object>();
    members->emplace_back(std::move(k), AnyCodable{});
    pendingMember_ = &members->back().second;
    return true;
  }
  bool end_object() override {
    stack_.pop_back();
    return elementDone();
  }
  bool start_array(std::size_t) override {
    stack_.push_back(put(AnyCodable::Array{}) ? last_ : nullptr);
    return true;
  }
  bool end_array() override {
    stack_.pop_back();
    return elementDone();
  }
  bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception& ex) override {
    error = ex.what();
    return false;
  }

 private:
  bool put(AnyCodable value) {
    const bool scalar = !value.isObject() && !value.isArray();
    if (stack_.empty()) {
      root = std::move(value);
      last_ = &root;
    } else if (auto* array = stack_.back()->as<AnyCodable::Array>()) {
      last_ = &array->emplace_back(std::move(value));
    } else {
      *pendingMember_ = std::move(value);
      last_ = pendingMember_;
    }
    return scalar ? elementDone() : true;
  }

  // Called when a value is complete; hands it over if it is an element of the top-level array.
  bool elementDone() {
    if (!each_ || stack_.size() != 1 || !root.isArray()) return true;
    auto& elements = *root.as<AnyCodable::Array>();
    if (!failure) {
      try {
        (*each_)(std::move(elements.back()), handedOver_++);
      } catch (...) {
        failure = std::current_exception();
      }
    }
    elements.pop_back();
    return true;
  }

  const detail::ElementSink* each_ = nullptr;
  std::size_t handedOver_ = 0;

  std::vector<AnyCodable*> stack_;
  AnyCodable* pendingMember_ = nullptr;
  AnyCodable* last_ = nullptr;
};

constexpr char kBase64Alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

void writeEscaped(std::string& out, const std::string& text) {
  out.push_back('"');
  for (unsigned char c : text) {
    switch (c) {
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      case '\b': out += "\\b"; break;
      case '\f': out += "\\f"; break;
      case '\n': out += "\\n"; break;
      case '\r': out += "\\r"; break;
      case '\t': out += "\\t"; break;
      default:
        if (c < 0x20) {
          static constexpr char hex[] = "0123456789abcdef";
          out += "\\u00";
          out.push_back(hex[c >> 4]);
          out.push_back(hex[c & 0xF]);
        } else {
          out.push_back(static_cast<char>(c));
        }
    }
  }
  out.push_back('"');
}

void writeNumber(std::string& out, double v) {
  if (!std::isfinite(v)) throw JsonError("AnyEncodable value cannot be encoded");
  // nlohmann's shortest round-trip formatting.
  out += nlohmann::json(v).dump();
}

}  // namespace

std::optional<AnyCodable> AnyCodable::tryParse(std::string_view text, std::string* error) {
  TreeBuilder builder;
  if (!nlohmann::json::sax_parse(text, &builder, nlohmann::json::input_format_t::json, true, false)) {
    if (error) *error = builder.error.empty() ? "invalid JSON" : builder.error;
    return std::nullopt;
  }
  return std::move(builder.root);
}

namespace detail {

std::size_t countTopLevelElements(std::string_view text) {
  std::size_t count = 0, depth = 0;
  bool pending = false;  // a value of the top-level array has started since the last comma
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '"') {
      for (++i; i < text.size() && text[i] != '"'; ++i) {
        if (text[i] == '\\') ++i;
      }
      if (depth == 1) pending = true;
    } else if (c == '[' || c == '{') {
      if (depth == 0 && c == '{') return 0;  // not an array
      if (depth == 1) pending = true;
      ++depth;
    } else if (c == ']' || c == '}') {
      if (depth == 1 && pending) ++count;
      if (depth == 0) return 0;
      if (--depth == 0) return count;
    } else if (depth == 1 && c == ',') {
      count += pending;
      pending = false;
    } else if (depth == 1 && c != ' ' && c != '\n' && c != '\r' && c != '\t') {
      pending = true;
    } else if (depth == 0 && c != ' ' && c != '\n' && c != '\r' && c != '\t') {
      return 0;  // not an array
    }
  }
  return 0;
}

std::optional<AnyCodable> parseElements(std::string_view text, const ElementSink& each) {
  TreeBuilder builder(&each);
  if (!nlohmann::json::sax_parse(text, &builder, nlohmann::json::input_format_t::json, true, false)) {
    throw JsonError("AnyDecodable value cannot be decoded", builder.error.empty() ? "invalid JSON" : builder.error);
  }
  if (builder.failure) std::rethrow_exception(builder.failure);
  if (builder.root.isArray()) return std::nullopt;
  return std::move(builder.root);
}

}  // namespace detail

AnyCodable AnyCodable::parse(std::string_view text) {
  std::string error;
  auto value = tryParse(text, &error);
  if (!value) throw JsonError("AnyDecodable value cannot be decoded", std::move(error));
  return std::move(*value);
}

std::string AnyCodable::dump() const {
  std::string out;
  struct Writer {
    std::string& out;
    void operator()(std::nullptr_t) const { out += "null"; }
    void operator()(bool v) const { out += v ? "true" : "false"; }
    void operator()(std::int64_t v) const { out += std::to_string(v); }
    void operator()(double v) const { writeNumber(out, v); }
    void operator()(const std::string& v) const { writeEscaped(out, v); }
    void operator()(const Bytes& v) const { writeEscaped(out, base64Encode(v)); }
    void operator()(const Array& v) const {
      out.push_back('[');
      for (std::size_t i = 0; i < v.size(); ++i) {
        if (i) out.push_back(',');
        std::visit(*this, v[i].value_);
      }
      out.push_back(']');
    }
    void operator()(const Object& v) const {
      out.push_back('{');
      for (std::size_t i = 0; i < v.size(); ++i) {
        if (i) out.push_back(',');
        writeEscaped(out, v[i].first);
        out.push_back(':');
        std::visit(*this, v[i].second.value_);
      }
      out.push_back('}');
    }
  };
  std::visit(Writer{out}, value_);
  return out;
}

std::string base64Encode(const Bytes& bytes) {
  std::string out;
  out.reserve((bytes.size() + 2) / 3 * 4);
  std::size_t i = 0;
  for (; i + 2 < bytes.size(); i += 3) {
    const unsigned n = (bytes[i] << 16) | (bytes[i + 1] << 8) | bytes[i + 2];
    out.push_back(kBase64Alphabet[(n >> 18) & 63]);
    out.push_back(kBase64Alphabet[(n >> 12) & 63]);
    out.push_back(kBase64Alphabet[(n >> 6) & 63]);
    out.push_back(kBase64Alphabet[n & 63]);
  }
  if (i < bytes.size()) {
    const bool two = i + 1 < bytes.size();
    const unsigned n = (bytes[i] << 16) | (two ? bytes[i + 1] << 8 : 0);
    out.push_back(kBase64Alphabet[(n >> 18) & 63]);
    out.push_back(kBase64Alphabet[(n >> 12) & 63]);
    out.push_back(two ? kBase64Alphabet[(n >> 6) & 63] : '=');
    out.push_back('=');
  }
  return out;
}

std::optional<Bytes> base64Decode(std::string_view text) {
  if (text.size() % 4 != 0) return std::nullopt;
  auto sextet = [](char c) -> int {
    if (c >= 'A' && c <= 'Z') return c - 'A';
    if (c >= 'a' && c <= 'z') return c - 'a' + 26;
    if (c >= '0' && c <= '9') return c - '0' + 52;
    if (c == '+') return 62;
    if (c == '/') return 63;
    return -1;
  };
  Bytes out;
  out.reserve(text.size() / 4 * 3);
  for (std::size_t i = 0; i < text.size(); i += 4) {
    const bool last = i + 4 == text.size();
    const int pad = last ? (text[i + 3] == '=') + (text[i + 2] == '=') : 0;
    int v[4];
    for (int k = 0; k < 4 - pad; ++k) {
      v[k] = sextet(text[i + k]);
      if (v[k] < 0) return std::nullopt;
    }
    for (int k = 4 - pad; k < 4; ++k) v[k] = 0;
    if (pad == 1 && text[i + 2] == '=') return std::nullopt;
    const unsigned n = (v[0] << 18) | (v[1] << 12) | (v[2] << 6) | v[3];
    out.push_back(static_cast<std::uint8_t>(n >> 16));
    if (pad < 2) out.push_back(static_cast<std::uint8_t>(n >> 8));
    if (pad < 1) out.push_back(static_cast<std::uint8_t>(n));
  }
  return out;
}

}  // namespace velora
