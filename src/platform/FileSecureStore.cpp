// Credential items as files: one per (service, account), private to the user, never torn.
//
// File names are "<service>.<account>" where the service part is "s" + lowercase hex of the
// service text, or "n" for an item without service, and the account part is the hex of the
// account. Every text is thus a valid, distinct name, items without service never meet one
// whose service is empty, and hex survives case-insensitive file systems. A name that would
// not fit in a directory entry becomes "h" + hex(SHA-256) of that name instead. Temporary files
// carry ".tmp-", which no item name contains.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <random>
#include <system_error>

#include <velora/platform/KeyValueStore.hpp>
#include <velora/platform/SecureStore.hpp>

namespace velora {
namespace {

namespace fs = std::filesystem;
using namespace secure_status;

// Leaves room in NAME_MAX (255) for the temporary suffixes added while writing.
constexpr std::size_t kMaxPlainName = 200;

std::string hex(std::string_view bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string out;
  out.reserve(bytes.size() * 2);
  for (unsigned char c : bytes) {
    out.push_back(kDigits[c >> 4]);
    out.push_back(kDigits[c & 0xf]);
  }
  return out;
}

std::string sha256(std::string_view message) {
  static constexpr std::array<std::uint32_t, 64> k = {
      0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
      0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
      0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
      0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
      0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
      0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
      0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
      0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};
  std::array<std::uint32_t, 8> h = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                                    0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
  auto rotr = [](std::uint32_t x, int n) { return (x >> n) | (x << (32 - n)); };

  std::string padded(message);
  padded.push_back(static_cast<char>(0x80));
  while (padded.size() % 64 != 56) padded.push_back('\0');
  const std::uint64_t bits = static_cast<std::uint64_t>(message.size()) * 8;
  for (int shift = 56; shift >= 0; shift -= 8) padded.push_back(static_cast<char>(bits >> shift));

  for (std::size_t block = 0; block < padded.size(); block += 64) {
    std::array<std::uint32_t, 64> w{};
    for (int i = 0; i < 16; ++i) {
      for (int j = 0; j < 4; ++j) w[i] = (w[i] << 8) | static_cast<unsigned char>(padded[block + 4 * i + j]);
    }
    for (int i = 16; i < 64; ++i) {
      const std::uint32_t s0 = rotr(w[i - 15], 7) ^ rotr(w[i - 15], 18) ^ (w[i - 15] >> 3);
      const std::uint32_t s1 = rotr(w[i - 2], 17) ^ rotr(w[i - 2], 19) ^ (w[i - 2] >> 10);
      w[i] = w[i - 16] + s0 + w[i - 7] + s1;
    }
    auto [a, b, c, d, e, f, g, hh] = h;
    for (int i = 0; i < 64; ++i) {
      const std::uint32_t t1 = hh + (rotr(e, 6) ^ rotr(e, 11) ^ rotr(e, 25)) + ((e & f) ^ (~e & g)) + k[i] + w[i];
      const std::uint32_t t2 = (rotr(a, 2) ^ rotr(a, 13) ^ rotr(a, 22)) + ((a & b) ^ (a & c) ^ (b & c));
      hh = g, g = f, f = e, e = d + t1, d = c, c = b, b = a, a = t1 + t2;
    }
    const std::array<std::uint32_t, 8> add = {a, b, c, d, e, f, g, hh};
    for (int i = 0; i < 8; ++i) h[i] += add[i];
  }
  std::string digest;
  for (std::uint32_t word : h) {
    for (int shift = 24; shift >= 0; shift -= 8) digest.push_back(static_cast<char>(word >> shift));
  }
  return digest;
}

std::string itemFileName(const std::optional<std::string>& service, const std::string& account) {
  std::string name = (service ? "s" + hex(*service) : std::string("n")) + "." + hex(account);
  // Distinct names stay distinct: hashed names start with "h", plain ones with "s" or "n".
  if (name.size() > kMaxPlainName) name = "h" + hex(sha256(name));
  return name;
}

class FileSecureStore final : public SecureStore {
 public:
  explicit FileSecureStore(fs::path folder) : folder_(std::move(folder)) {
    // Failures here resurface as statuses on first use, where the caller can see them.
    ensureFolder();
  }

  int add(const std::optional<std::string>& service, const std::string& account, const Bytes& data) override {
    std::lock_guard lock(mutex_);
    if (!ensureFolder()) return kIOError;
    return createExclusively(folder_ / itemFileName(service, account), data);
  }

  int update(const std::optional<std::string>& service, const std::string& account, const Bytes& data) override {
    std::lock_guard lock(mutex_);
    if (!ensureFolder()) return kIOError;
    const fs::path file = folder_ / itemFileName(service, account);
    struct stat info {};
    if (::stat(file.c_str(), &info) != 0) return errno == ENOENT ? kItemNotFound : kIOError;
    // Another process may remove the item between the check and the rename; the update then
    // recreates it, as if it had come just before the removal.
    try {
      writeFileAtomically(file, std::string_view(reinterpret_cast<const char*>(data.data()), data.size()), 0600);
    } catch (const std::exception&) {
      return kIOError;
    }
    syncFolder();
    return kSuccess;
  }

  int copyMatching(const std::optional<std::string>& service, const std::string& account, Bytes* data) override {
    std::lock_guard lock(mutex_);
    const fs::path file = folder_ / itemFileName(service, account);
    const int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return errno == ENOENT ? kItemNotFound : kIOError;
    Bytes contents;
    std::array<std::uint8_t, 16384> buffer;
    for (;;) {
      const ssize_t n = ::read(fd, buffer.data(), buffer.size());
      if (n == 0) break;
      if (n < 0) {
        if (errno == EINTR) continue;
        ::close(fd);
        return kIOError;
      }
      contents.insert(contents.end(), buffer.begin(), buffer.begin() + n);
    }
    ::close(fd);
    if (data) *data = std::move(contents);
    return kSuccess;
  }

  int remove(const std::optional<std::string>& service, const std::string& account) override {
    std::lock_guard lock(mutex_);
    const fs::path file = folder_ / itemFileName(service, account);
    if (::unlink(file.c_str()) != 0) return errno == ENOENT ? kItemNotFound : kIOError;
    syncFolder();
    return kSuccess;
  }

 private:
  /// Creates the folder, or narrows an existing one, to owner-only access.
  bool ensureFolder() {
    std::error_code error;
    fs::create_directories(folder_, error);
    if (error) return false;
    struct stat info {};
    if (::stat(folder_.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) return false;
    if ((info.st_mode & 07777) != 0700 && ::chmod(folder_.c_str(), 0700) != 0) return false;
    return true;
  }

  /// Writes the item beside its final name, then link()s it there: link() fails when the name
  /// exists, so of several processes adding the same item exactly one wins and none overwrites
  /// another's. Readers see no file or a complete one.
  int createExclusively(const fs::path& file, const Bytes& data) {
    static thread_local std::mt19937_64 random{std::random_device{}()};
    fs::path temporary = file;
    // The pid keeps a forked child, which inherits the generator's state, on other names.
    temporary += ".tmp-" + std::to_string(::getpid()) + "-" + std::to_string(random());
    const int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0) return kIOError;
    bool written = ::fchmod(fd, 0600) == 0;
    for (std::size_t done = 0; written && done < data.size();) {
      const ssize_t n = ::write(fd, data.data() + done, data.size() - done);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) written = false;
      else done += static_cast<std::size_t>(n);
    }
    written = written && ::fsync(fd) == 0;
    ::close(fd);
    int status = kIOError;
    if (written) {
      if (::link(temporary.c_str(), file.c_str()) == 0) {
        status = kSuccess;
      } else if (errno == EEXIST) {
        status = kDuplicateItem;
      } else if (errno == EPERM || errno == ENOTSUP || errno == EOPNOTSUPP) {
        // No hard links on this file system: check, then rename. Still exclusive within this
        // process (the mutex); another process adding the same item at the same moment can win
        // with the later rename.
        struct stat info {};
        if (::stat(file.c_str(), &info) == 0) status = kDuplicateItem;
        else if (errno == ENOENT && ::rename(temporary.c_str(), file.c_str()) == 0) status = kSuccess;
      }
    }
    ::unlink(temporary.c_str());
    if (status == kSuccess) syncFolder();
    return status;
  }

  /// Makes the rename, link or unlink itself durable, not only the file contents.
  void syncFolder() {
    const int fd = ::open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return;
    ::fsync(fd);
    ::close(fd);
  }

  const fs::path folder_;
  std::mutex mutex_;
};

}  // namespace

std::shared_ptr<SecureStore> makeFileSecureStore(std::filesystem::path folder) {
  return std::make_shared<FileSecureStore>(std::move(folder));
}

}  // namespace velora
