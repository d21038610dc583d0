#include <velora/platform/KeyValueStore.hpp>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <random>
#include <sstream>
#include <system_error>

namespace velora {
namespace {

constexpr std::string_view kDataTag = "$data";

// Bytes are written as {"$data": base64} so that they read back as bytes, not as text.
AnyCodable toFile(const AnyCodable& value) {
  if (auto bytes = value.as<Bytes>()) return AnyCodable::object({{kDataTag.data(), base64Encode(*bytes)}});
  if (auto array = value.as<AnyCodable::Array>()) {
    AnyCodable::Array out;
    for (const auto& e : *array) out.push_back(toFile(e));
    return out;
  }
  if (auto members = value.as<AnyCodable::Object>()) {
    AnyCodable::Object out;
    for (const auto& [k, v] : *members) out.emplace_back(k, toFile(v));
    return out;
  }
  return value;
}

AnyCodable fromFile(const AnyCodable& value) {
  if (auto members = value.as<AnyCodable::Object>()) {
    if (members->size() == 1 && members->front().first == kDataTag) {
      if (auto text = members->front().second.as<std::string>()) {
        if (auto bytes = base64Decode(*text)) return *bytes;
      }
    }
    AnyCodable::Object out;
    for (const auto& [k, v] : *members) out.emplace_back(k, fromFile(v));
    return out;
  }
  if (auto array = value.as<AnyCodable::Array>()) {
    AnyCodable::Array out;
    for (const auto& e : *array) out.push_back(fromFile(e));
    return out;
  }
  return value;
}

std::optional<AnyCodable> lookup(const AnyCodable& values, std::string_view key) {
  if (const auto* v = values.find(key)) return *v;
  return std::nullopt;
}

void eraseKey(AnyCodable& values, std::string_view key) {
  if (auto members = values.as<AnyCodable::Object>()) {
    std::erase_if(*members, [&](const auto& m) { return m.first == key; });
  }
}

}  // namespace

std::optional<std::string> KeyValueStore::string(std::string_view key) const {
  auto v = object(key);
  if (v) {
    if (auto s = v->as<std::string>()) return *s;
  }
  return std::nullopt;
}

std::optional<Bytes> KeyValueStore::data(std::string_view key) const {
  auto v = object(key);
  if (v) {
    if (auto b = v->as<Bytes>()) return *b;
  }
  return std::nullopt;
}

void writeFileAtomically(const std::filesystem::path& file, std::string_view contents, unsigned mode) {
  std::filesystem::create_directories(file.parent_path());
  std::random_device random;
  auto temporary = file;
  temporary += ".tmp-" + std::to_string(random());
  int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
  if (fd < 0) throw std::system_error(errno, std::generic_category(), "cannot create " + temporary.string());
  auto fail = [&](const char* what) {
    const int error = errno;
    ::close(fd);
    ::unlink(temporary.c_str());
    throw std::system_error(error, std::generic_category(), std::string(what) + " " + temporary.string());
  };
  for (std::size_t written = 0; written < contents.size();) {
    const ssize_t n = ::write(fd, contents.data() + written, contents.size() - written);
    if (n < 0) {
      if (errno == EINTR) continue;
      fail("cannot write");
    }
    written += static_cast<std::size_t>(n);
  }
  if (::fchmod(fd, mode) != 0) fail("cannot set mode of");
  if (::fsync(fd) != 0) fail("cannot flush");
  ::close(fd);
  if (::rename(temporary.c_str(), file.c_str()) != 0) {
    const int error = errno;
    ::unlink(temporary.c_str());
    throw std::system_error(error, std::generic_category(), "cannot replace " + file.string());
  }
}

JsonFileStore::JsonFileStore(std::filesystem::path file) : file_(std::move(file)) {
  std::ifstream in(file_, std::ios::binary);
  if (!in) return;
  std::stringstream text;
  text << in.rdbuf();
  // An unreadable file is treated as empty defaults: the next write replaces it.
  if (auto parsed = AnyCodable::tryParse(text.str()); parsed && parsed->isObject()) values_ = fromFile(*parsed);
}

std::optional<AnyCodable> JsonFileStore::object(std::string_view key) const {
  std::lock_guard lock(mutex_);
  return lookup(values_, key);
}

void JsonFileStore::set(std::string_view key, AnyCodable value) {
  std::lock_guard lock(mutex_);
  values_[key] = std::move(value);
  save();
}

void JsonFileStore::remove(std::string_view key) {
  std::lock_guard lock(mutex_);
  eraseKey(values_, key);
  save();
}

void JsonFileStore::synchronize() {
  std::lock_guard lock(mutex_);
  save();
}

void JsonFileStore::save() {
  writeFileAtomically(file_, toFile(values_.isNull() ? AnyCodable(AnyCodable::Object{}) : values_).dump(), 0600);
}

std::optional<AnyCodable> MemoryStore::object(std::string_view key) const {
  std::lock_guard lock(mutex_);
  return lookup(values_, key);
}

void MemoryStore::set(std::string_view key, AnyCodable value) {
  std::lock_guard lock(mutex_);
  values_[key] = std::move(value);
}

void MemoryStore::remove(std::string_view key) {
  std::lock_guard lock(mutex_);
  eraseKey(values_, key);
}

}  // namespace velora
