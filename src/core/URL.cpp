#include <velora/core/URL.hpp>

#include <cctype>

namespace velora {
namespace {

bool isHex(char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; }

// Unreserved, reserved and '%' (checked separately); anything else, such as a space, makes the
// text unparsable, as the platform's URL type does.
bool isURLCharacter(char c) {
  if (std::isalnum(static_cast<unsigned char>(c))) return true;
  switch (c) {
    case '-': case '.': case '_': case '~': case ':': case '/': case '?': case '#': case '[': case ']':
    case '@': case '!': case '$': case '&': case '\'': case '(': case ')': case '*': case '+': case ',':
    case ';': case '=': case '%':
      return true;
    default:
      return false;
  }
}

}  // namespace

std::optional<URL> URL::parse(std::string_view text) {
  if (text.empty()) return std::nullopt;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (!isURLCharacter(text[i])) return std::nullopt;
    if (text[i] == '%' && (i + 2 >= text.size() || !isHex(text[i + 1]) || !isHex(text[i + 2]))) return std::nullopt;
  }
  URL url;
  url.text_ = std::string(text);
  std::string_view rest = text;

  if (auto hash = rest.find('#'); hash != std::string_view::npos) {
    url.fragment_ = std::string(rest.substr(hash + 1));
    rest = rest.substr(0, hash);
  }
  if (auto question = rest.find('?'); question != std::string_view::npos) {
    url.query_ = std::string(rest.substr(question + 1));
    rest = rest.substr(0, question);
  }
  std::size_t consumed = 0;
  // A scheme is letters, digits, '+', '-', '.' starting with a letter, before the first ':'.
  if (auto colon = rest.find(':'); colon != std::string_view::npos && colon > 0 &&
                                   std::isalpha(static_cast<unsigned char>(rest[0]))) {
    bool valid = true;
    for (std::size_t i = 0; i < colon; ++i) {
      const char c = rest[i];
      if (!std::isalnum(static_cast<unsigned char>(c)) && c != '+' && c != '-' && c != '.') valid = false;
    }
    if (valid && rest.substr(0, colon).find('/') == std::string_view::npos) {
      url.scheme_ = std::string(rest.substr(0, colon));
      consumed = colon + 1;
    }
  }
  if (rest.substr(consumed, 2) == "//") {
    consumed += 2;
    const auto end = rest.find('/', consumed);
    std::string_view authority = rest.substr(consumed, end == std::string_view::npos ? std::string_view::npos : end - consumed);
    consumed += authority.size();
    if (auto at = authority.rfind('@'); at != std::string_view::npos) authority = authority.substr(at + 1);
    std::string_view host = authority;
    if (!authority.empty() && authority.front() == '[') {
      const auto close = authority.find(']');
      if (close == std::string_view::npos) return std::nullopt;
      host = authority.substr(0, close + 1);
      authority = authority.substr(close + 1);
      if (!authority.empty() && authority.front() != ':') return std::nullopt;
    } else if (auto colon = authority.rfind(':'); colon != std::string_view::npos) {
      host = authority.substr(0, colon);
      authority = authority.substr(colon);
    } else {
      authority = {};
    }
    if (!authority.empty()) {  // ":port"
      auto digits = authority.substr(1);
      if (digits.size() > 5) return std::nullopt;
      if (!digits.empty()) {
        int port = 0;
        for (char c : digits) {
          if (!std::isdigit(static_cast<unsigned char>(c))) return std::nullopt;
          port = port * 10 + (c - '0');
        }
        if (port > 65535) return std::nullopt;
        url.port_ = port;
      }
    }
    url.host_ = std::string(host);
  }
  url.pathStart_ = consumed;
  url.path_ = std::string(rest.substr(consumed));
  return url;
}

std::optional<URL> URL::safeInit(std::string_view string) {
  auto url = parse(string);
  if (!url || url->path_.find("//") == std::string::npos) return url;
  // One left-to-right pass over non-overlapping pairs: "///x" becomes "//x", as the platform does.
  std::string path;
  for (std::size_t i = 0; i < url->path_.size(); ++i) {
    path.push_back(url->path_[i]);
    if (url->path_.compare(i, 2, "//") == 0) ++i;
  }
  std::string text = url->text_;
  text.replace(url->pathStart_, url->path_.size(), path);
  return parse(text);
}

}  // namespace velora
