#pragma once
// A parsed absolute or relative URL reference (scheme://authority/path?query#fragment).

#include <optional>
#include <string>
#include <string_view>

namespace velora {

class URL {
 public:
  /// Parses `text`; nullopt when it is not a valid URL reference (characters outside the URL
  /// set, a bad percent escape, a bad port). Text is kept as written.
  static std::optional<URL> parse(std::string_view text);

  /// The tolerant constructor every operation builds its URL with: parses `text`; when the parsed
  /// path contains "//", every "//" of the path becomes "/" and the result is parsed again. The
  /// scheme's "//" is not part of the path and stays.
  static std::optional<URL> safeInit(std::string_view string);

  const std::string& absoluteString() const { return text_; }
  const std::string& scheme() const { return scheme_; }
  const std::string& host() const { return host_; }
  std::optional<int> port() const { return port_; }
  const std::string& path() const { return path_; }
  const std::optional<std::string>& query() const { return query_; }
  const std::optional<std::string>& fragment() const { return fragment_; }

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
