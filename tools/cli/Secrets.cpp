#include "Secrets.hpp"

#include <algorithm>
#include <cctype>
#include <mutex>
#include <vector>

#include <velora/core/ORVSLogManager.hpp>

namespace velora::cli {
namespace {

// Library threads print diagnostics while the main thread registers tokens.
std::mutex secretsMutex;
std::vector<std::string> secrets;  // longest first, so that a secret containing another goes whole

constexpr std::size_t kShortestSecret = 4;
// Tokens seen in practice (JWTs, opaque base64url strings) are far longer; the identifiers the
// client prints (UUIDs at 36, tag ids, host names) are shorter.
constexpr std::size_t kTokenLikeLength = 40;

bool tokenChar(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '_' || c == '.' || c == '+' || c == '=';
}

void replaceAll(std::string& text, const std::string& secret) {
  for (std::size_t at = text.find(secret); at != std::string::npos; at = text.find(secret, at + kRedacted.size())) {
    text.replace(at, secret.size(), kRedacted);
  }
}

std::string maskTokenLikeWords(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  std::size_t i = 0;
  while (i < text.size()) {
    if (!tokenChar(text[i])) {
      out.push_back(text[i++]);
      continue;
    }
    const std::size_t start = i;
    bool letter = false, digit = false;
    for (; i < text.size() && tokenChar(text[i]); ++i) {
      letter |= std::isalpha(static_cast<unsigned char>(text[i])) != 0;
      digit |= std::isdigit(static_cast<unsigned char>(text[i])) != 0;
    }
    if (i - start >= kTokenLikeLength && letter && digit) {
      out.append(kRedacted);
    } else {
      out.append(text, start, i - start);
    }
  }
  return out;
}

}  // namespace

void registerSecret(std::string value) {
  if (value.size() < kShortestSecret) return;
  std::lock_guard lock(secretsMutex);
  if (std::find(secrets.begin(), secrets.end(), value) != secrets.end()) return;
  secrets.push_back(std::move(value));
  std::stable_sort(secrets.begin(), secrets.end(), [](const auto& a, const auto& b) { return a.size() > b.size(); });
}

void registerTokens(const KeyCloakAuthResponse& tokens) {
  for (const auto* token : {&tokens.access_token, &tokens.refresh_token, &tokens.id_token}) {
    if (*token) registerSecret(**token);
  }
}

std::string maskSecrets(std::string_view text) {
  std::string out(text);
  {
    std::lock_guard lock(secretsMutex);
    for (const auto& secret : secrets) replaceAll(out, secret);
  }
  return maskTokenLikeWords(out);
}

void logEntry(std::string_view message) { ORVSLogManager::log(maskSecrets(message)); }

}  // namespace velora::cli
