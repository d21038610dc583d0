// Form and query coding for the realm's endpoints and pages. httplib decodes query parameters
// itself but also merges a form body into them; the token endpoint must read the body alone.

#include <cctype>

#include "SandboxInternal.hpp"

namespace velora::sandbox::detail {
namespace {

int hexValue(char c) {
  if (c >= '0' && c <= '9') {
    return c - '0';
  }
  if (c >= 'a' && c <= 'f') {
    return c - 'a' + 10;
  }
  if (c >= 'A' && c <= 'F') {
    return c - 'A' + 10;
  }
  return -1;
}

}  // namespace

std::string percentDecode(std::string_view text, bool plusIsSpace) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '%' && i + 2 < text.size()) {
      const int high = hexValue(text[i + 1]);
      const int low = hexValue(text[i + 2]);
      if (high >= 0 && low >= 0) {
        out.push_back(static_cast<char>(high * 16 + low));
        i += 2;
        continue;
      }
    }
    out.push_back(plusIsSpace && c == '+' ? ' ' : c);
  }
  return out;
}

std::string percentEncode(std::string_view text) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string out;
  out.reserve(text.size());
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (std::isalnum(byte) != 0 || c == '-' || c == '.' || c == '_' || c == '~') {
      out.push_back(c);
    } else {
      out.push_back('%');
      out.push_back(kHex[byte >> 4]);
      out.push_back(kHex[byte & 15]);
    }
  }
  return out;
}

FormFields parseForm(std::string_view body) {
  FormFields fields;
  while (!body.empty()) {
    const auto amp = body.find('&');
    const std::string_view pair = body.substr(0, amp);
    body = amp == std::string_view::npos ? std::string_view() : body.substr(amp + 1);
    if (pair.empty()) {
      continue;
    }
    const auto eq = pair.find('=');
    // emplace keeps the first value: a second grant_type must not override the first.
    fields.emplace(percentDecode(pair.substr(0, eq), true),
                   eq == std::string_view::npos ? std::string()
                                                : percentDecode(pair.substr(eq + 1), true));
  }
  return fields;
}

FormFields formBody(const httplib::Request& req) {
  // Media type parameters (";charset=utf-8") may follow.
  constexpr std::string_view kFormType = "application/x-www-form-urlencoded";
  std::string type = lowerCase(req.get_header_value("Content-Type"));
  type = type.substr(0, type.find(';'));
  type.erase(type.find_last_not_of(" \t") + 1);
  return type == kFormType ? parseForm(req.body) : FormFields{};
}

std::string htmlEscape(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (const char c : text) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '"': out += "&quot;"; break;
      case '\'': out += "&#39;"; break;
      default: out.push_back(c);
    }
  }
  return out;
}

}  // namespace velora::sandbox::detail
