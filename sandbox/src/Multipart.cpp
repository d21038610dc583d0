#include "Multipart.hpp"

#include <algorithm>
#include <cctype>
#include <map>

namespace velora::sandbox::detail {
namespace {

constexpr std::string_view kCrlf = "\r\n";

bool isSpace(char c) { return c == ' ' || c == '\t'; }

std::string_view trim(std::string_view text) {
  while (!text.empty() && isSpace(text.front())) {
    text.remove_prefix(1);
  }
  while (!text.empty() && isSpace(text.back())) {
    text.remove_suffix(1);
  }
  return text;
}

std::string lower(std::string_view text) {
  std::string out(text);
  std::transform(out.begin(), out.end(), out.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return out;
}

/// A header value as "type; name=value; name=\"quoted value\"": the type in lower case and the
/// parameters by lower-case name. nullopt for a quoted value that does not end.
struct HeaderValue {
  std::string type;
  std::map<std::string, std::string> parameters;
};

std::optional<HeaderValue> parseHeaderValue(std::string_view text) {
  HeaderValue parsed;
  std::size_t at = text.find(';');
  parsed.type = lower(trim(text.substr(0, at)));
  while (at < text.size()) {
    ++at;  // past the ';'
    const std::size_t nameEnd = std::min(text.find_first_of("=;", at), text.size());
    const std::string name = lower(trim(text.substr(at, nameEnd - at)));
    at = nameEnd;
    if (at == text.size() || text[at] == ';') {
      continue;  // a parameter without a value says nothing
    }
    ++at;  // past the '='
    while (at < text.size() && isSpace(text[at])) {
      ++at;
    }
    std::string value;
    if (at < text.size() && text[at] == '"') {
      bool closed = false;
      for (++at; at < text.size(); ++at) {
        if (text[at] == '\\' && at + 1 < text.size()) {
          value += text[++at];
        } else if (text[at] == '"') {
          closed = true;
          ++at;
          break;
        } else {
          value += text[at];
        }
      }
      if (!closed) {
        return std::nullopt;
      }
      at = std::min(text.find(';', at), text.size());
    } else {
      const std::size_t end = std::min(text.find(';', at), text.size());
      value = trim(text.substr(at, end - at));
      at = end;
    }
    parsed.parameters.emplace(name, std::move(value));
  }
  return parsed;
}

enum class After { part, closing, none };

/// What follows "--boundary" at `at`: "--" closes the body; optional spaces and CRLF open a
/// part, whose headers start at `next`; anything else means the text was content.
After delimiterAt(std::string_view body, std::size_t at, std::size_t& next) {
  if (body.substr(at).starts_with("--")) {
    return After::closing;
  }
  while (at < body.size() && isSpace(body[at])) {
    ++at;
  }
  if (body.substr(at).starts_with(kCrlf)) {
    next = at + kCrlf.size();
    return After::part;
  }
  return After::none;
}

/// The next real delimiter (CRLF "--" boundary) from `from`, or npos.
std::size_t findDelimiter(std::string_view body, std::string_view delimiter, std::size_t from, After& kind,
                          std::size_t& next) {
  for (std::size_t at = body.find(delimiter, from); at != std::string_view::npos;
       at = body.find(delimiter, at + 1)) {
    kind = delimiterAt(body, at + delimiter.size(), next);
    if (kind != After::none) {
      return at;
    }
  }
  return std::string_view::npos;
}

/// Reads one part's header block into `part`; the text of what is wrong, or empty.
std::string readHeaders(std::string_view block, MultipartEntry& part) {
  bool named = false;
  while (!block.empty()) {
    const std::size_t end = std::min(block.find(kCrlf), block.size());
    const std::string_view line = block.substr(0, end);
    block.remove_prefix(std::min(end + kCrlf.size(), block.size()));
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos || trim(line.substr(0, colon)).empty()) {
      return "has a header line without a name and colon";
    }
    // Whitespace before the colon is taken: the app writes "Content-Type : ...".
    const std::string name = lower(trim(line.substr(0, colon)));
    const auto value = parseHeaderValue(line.substr(colon + 1));
    if (!value) {
      return "has a " + name + " header with a quoted value that does not end";
    }
    if (name == "content-disposition") {
      if (value->type != "form-data") {
        return "has a Content-Disposition other than form-data";
      }
      if (const auto it = value->parameters.find("name"); it != value->parameters.end() && !it->second.empty()) {
        part.name = it->second;
        named = true;
      }
      if (const auto it = value->parameters.find("filename"); it != value->parameters.end()) {
        part.filename = it->second;
      }
    } else if (name == "content-type") {
      part.mediaType = value->type;
    }
  }
  return named ? std::string() : "has no name in a Content-Disposition header";
}

}  // namespace

std::optional<std::string> multipartBoundary(std::string_view contentType) {
  const auto value = parseHeaderValue(contentType);
  if (!value || value->type != "multipart/form-data") {
    return std::nullopt;
  }
  const auto it = value->parameters.find("boundary");
  if (it == value->parameters.end() || it->second.empty()) {
    return std::nullopt;
  }
  return it->second;
}

MultipartResult readMultipart(std::string_view body, std::string_view boundary) {
  if (boundary.empty()) {
    return std::string("the boundary is empty");
  }
  const std::string dashed = "--" + std::string(boundary);
  const std::string delimiter = std::string(kCrlf) + dashed;
  const std::string closing = dashed + "--";
  std::size_t partStart = 0;
  After kind = After::none;
  if (body.starts_with(dashed)) {
    kind = delimiterAt(body, dashed.size(), partStart);
  }
  if (kind == After::none) {
    return "the body does not start with the delimiter " + dashed;
  }
  std::vector<MultipartEntry> parts;
  while (kind == After::part) {
    if (partStart == body.size()) {
      return "the closing delimiter " + closing + " is missing";
    }
    const std::string which = "part " + std::to_string(parts.size() + 1) + " ";
    // A part without headers starts with the blank line that ends them.
    const std::size_t headersEnd = body.substr(partStart).starts_with(kCrlf) ? partStart : body.find("\r\n\r\n", partStart);
    const std::size_t anyDelimiter = body.find(delimiter, partStart);
    if (headersEnd == std::string_view::npos || headersEnd > anyDelimiter) {
      return which + "has a header block that does not end with a blank line";
    }
    MultipartEntry part;
    if (std::string error = readHeaders(body.substr(partStart, headersEnd - partStart), part); !error.empty()) {
      return which + error;
    }
    const std::size_t contentStart = headersEnd + (headersEnd == partStart ? 2 : 4);
    std::size_t next = 0;
    const std::size_t contentEnd = findDelimiter(body, delimiter, contentStart, kind, next);
    if (contentEnd == std::string_view::npos) {
      return "the closing delimiter " + closing + " is missing";
    }
    part.content = body.substr(contentStart, contentEnd - contentStart);
    // The app ends every part with CRLF and starts the closing delimiter with another one.
    if (kind == After::closing && part.content.ends_with(kCrlf)) {
      part.content.remove_suffix(kCrlf.size());
    }
    parts.push_back(std::move(part));
    partStart = next;
  }
  return parts;
}

}  // namespace velora::sandbox::detail
