#pragma once
// A failure outside the REST pipeline: a human-readable domain, a negative code and extra info.

#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>

namespace velora {

class PlatformError : public std::runtime_error {
 public:
  PlatformError(std::string domain, std::int64_t code, std::map<std::string, std::string> userInfo = {})
      : std::runtime_error(domain), domain(std::move(domain)), code(code), userInfo(std::move(userInfo)) {}

  std::string domain;
  std::int64_t code;
  std::map<std::string, std::string> userInfo;
};

}  // namespace velora
