#pragma once
// A failure outside the REST pipeline: a human-readable domain, a negative code and extra info.

#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>

namespace velora {

/// The error of operations outside the REST pipeline (logins, streams, advertising, image downloads):
/// thrown by their awaitable forms, passed to their callbacks. APIError::parseError keeps its code.
class PlatformError : public std::runtime_error {
 public:
  /// `what()` is `domain`.
  PlatformError(std::string domain, std::int64_t code, std::map<std::string, std::string> userInfo = {})
      : std::runtime_error(domain), domain(std::move(domain)), code(code), userInfo(std::move(userInfo)) {}

  /// Human-readable text of the failure, e.g. "Invalid tag format. Please contact support.".
  std::string domain;
  /// Negative code of the failure, or a transport's own code (-1001 timed out, -1004 refused...).
  std::int64_t code;
  /// Extra detail by key, e.g. "reason" with what a peripheral or transport answered; often empty.
  std::map<std::string, std::string> userInfo;
};

}  // namespace velora
