#pragma once
// User defaults: small values under string keys that survive restarts.

#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include <velora/core/AnyCodable.hpp>

namespace velora {

/// User defaults: where the library keeps the environment, the environment UUID and the language
/// choice across restarts. Safe to use from any thread.
class KeyValueStore {
 public:
  virtual ~KeyValueStore() = default;
  /// The value under `key`; nullopt when there is none.
  virtual std::optional<AnyCodable> object(std::string_view key) const = 0;
  /// Stores `value` under `key`, replacing what was there.
  virtual void set(std::string_view key, AnyCodable value) = 0;
  /// Drops `key`; nothing happens when it is absent.
  virtual void remove(std::string_view key) = 0;
  /// Writes pending changes to durable storage now.
  virtual void synchronize() = 0;

  /// @{
  /// The value under `key` when it is text (respectively bytes); nullopt when absent or of another
  /// type.
  std::optional<std::string> string(std::string_view key) const;
  std::optional<Bytes> data(std::string_view key) const;
  /// @}
};

/// One JSON file; every change replaces it atomically (temporary file, flush, rename).
/// Bytes are kept as {"$data": "<base64>"} so that they read back as bytes.
class JsonFileStore : public KeyValueStore {
 public:
  /// Loads `file` when it holds a JSON object; a missing or unreadable file starts empty and is
  /// replaced by the first change. The file is written with mode 0600.
  explicit JsonFileStore(std::filesystem::path file);
  std::optional<AnyCodable> object(std::string_view key) const override;
  /// Stores and rewrites the file at once; throws std::system_error when it cannot be written.
  void set(std::string_view key, AnyCodable value) override;
  /// Drops `key` and rewrites the file at once; throws std::system_error when it cannot be written.
  void remove(std::string_view key) override;
  void synchronize() override;
  /// The file the values live in.
  const std::filesystem::path& file() const { return file_; }

 private:
  void save();
  std::filesystem::path file_;
  mutable std::mutex mutex_;
  AnyCodable values_;
};

/// In memory only (tests, ephemeral hosts).
class MemoryStore : public KeyValueStore {
 public:
  std::optional<AnyCodable> object(std::string_view key) const override;
  void set(std::string_view key, AnyCodable value) override;
  void remove(std::string_view key) override;
  void synchronize() override {}

 private:
  mutable std::mutex mutex_;
  AnyCodable values_;
};

/// Writes `contents` to `file` atomically: a temporary file beside it, flushed, then renamed over
/// it. `mode` is applied to the new file. Throws std::system_error.
void writeFileAtomically(const std::filesystem::path& file, std::string_view contents, unsigned mode = 0644);

}  // namespace velora
