#pragma once
// The host application's identity and information dictionary.

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include <velora/core/AnyCodable.hpp>

namespace velora {

/// Who the host application is, and its information dictionary (where settings such as
/// "KeycloakConfig" are looked up).
class HostInfo {
 public:
  virtual ~HostInfo() = default;
  /// The application's identifier, sent to the platform with the device configuration and the
  /// notification registration; nullopt makes those calls fail with -9003.
  virtual std::optional<std::string> bundleIdentifier() const = 0;
  /// The information dictionary (an object; null when the host has none).
  virtual AnyCodable infoDictionary() const = 0;
};

/// Values given in code.
class StaticHostInfo : public HostInfo {
 public:
  /// Answers with these values; `info` defaults to null (no dictionary).
  StaticHostInfo(std::optional<std::string> bundleIdentifier, AnyCodable info = {})
      : bundleIdentifier_(std::move(bundleIdentifier)), info_(std::move(info)) {}
  std::optional<std::string> bundleIdentifier() const override { return bundleIdentifier_; }
  AnyCodable infoDictionary() const override { return info_; }

 private:
  std::optional<std::string> bundleIdentifier_;
  AnyCodable info_;
};

/// Reads {"bundleIdentifier": "...", "info": {...}} from a JSON file. Throws JsonError or
/// std::system_error when the file cannot be read.
std::shared_ptr<HostInfo> loadHostInfo(const std::filesystem::path& file);

}  // namespace velora
