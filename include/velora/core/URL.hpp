#pragma once
// A parsed absolute or relative URL reference (scheme://authority/path?query#fragment).

#include <optional>
#include <string>
#include <string_view>

namespace velora {

/// A parsed absolute or relative URL reference, kept as written (no normalisation or decoding of
/// percent escapes). Two URLs are equal when their texts are.
class URL {
 public:
  /// Parses `text`; nullopt when it is not a valid URL reference (characters outside the URL
  /// set, a bad percent escape, a bad port). Text is kept as written.
  static std::optional<URL> parse(std::string_view text);

  /// The tolerant constructor every operation builds its URL with: parses `text`; when the parsed
  /// path contains "//", every "//" of the path becomes "/" and the result is parsed again. The
  /// scheme's "//" is not part of the path and stays.
  static std::optional<URL> safeInit(std::string_view string);

  /// The whole text, as parsed (after safeInit's repair of the path).
  const std::string& absoluteString() const { return text_; }
  /// The scheme without ":" ("https"); empty for a relative reference.
  const std::string& scheme() const { return scheme_; }
  /// The host without user information or port, an IPv6 address with its brackets; empty when the
  /// URL has no "//" authority.
  const std::string& host() const { return host_; }
  /// The explicit port (0 to 65535); empty when none is written, not the scheme's default.
  std::optional<int> port() const { return port_; }
  /// The path, percent escapes kept; empty when there is none (e.g. "https://example.org").
  const std::string& path() const { return path_; }
  /// @{
  /// The text after "?" and after "#", without the mark; empty when the mark is absent, an empty
  /// string when it is present with nothing after it.
  const std::optional<std::string>& query() const { return query_; }
  const std::optional<std::string>& fragment() const { return fragment_; }
  /// @}

  /// Compares the texts.
  friend bool operator==(const URL& a, const URL& b) { return a.text_ == b.text_; }

 private:
  std::string text_;
  std::string scheme_;
  std::string host_;
  std::optional<int> port_;
  std::string path_;
  std::optional<std::string> query_;
  std::optional<std::string> fragment_;
  std::size_t pathStart_ = 0;
};

}  // namespace velora
