#pragma once
// What every credential store must do with items, as steps on an empty store, and a temporary
// folder for stores and programs that need real files.

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <velora/platform/SecureStore.hpp>

namespace velora::testing {

/// A fresh folder under the system's temporary one, removed with everything in it.
struct TempDir {
  std::filesystem::path path;
  TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "velora-test.XXXXXX").string();
    if (::mkdtemp(pattern.data())) path = pattern;
  }
  ~TempDir() {
    if (!path.empty()) std::filesystem::remove_all(path);
  }
};

inline Bytes bytes(std::string_view text) { return Bytes(text.begin(), text.end()); }

struct StoreStep {
  char op;  // a)dd u)pdate r)ead d)elete
  std::optional<std::string> service;
  std::string account;
  std::string data;  // written, or expected when read
  int status;
};

/// Item semantics shared by every store: statuses, binary and empty values, and absent, empty and
/// named services as three different items.
inline std::vector<StoreStep> commonStoreSteps() {
  using namespace secure_status;
  const auto none = std::nullopt;
  const std::string binary("\0\xff\x01secret\0", 10);
  const std::string unicode = "\xc3\xa9t\xc3\xa9 \xf0\x9f\x94\x91 ../x";
  return {
      {'r', "svc", "al", "", kItemNotFound},  {'u', "svc", "al", "x", kItemNotFound},
      {'d', "svc", "al", "", kItemNotFound},  {'a', "svc", "al", "one", kSuccess},
      {'a', "svc", "al", "two", kDuplicateItem}, {'r', "svc", "al", "one", kSuccess},
      {'u', "svc", "al", binary, kSuccess},   {'r', "svc", "al", binary, kSuccess},
      {'u', "svc", "al", "", kSuccess},       {'r', "svc", "al", "", kSuccess},
      {'a', none, "al", "none", kSuccess},    {'a', "", "al", "empty", kSuccess},
      {'r', none, "al", "none", kSuccess},    {'r', "", "al", "empty", kSuccess},
      {'d', none, "al", "", kSuccess},        {'r', none, "al", "", kItemNotFound},
      {'r', "", "al", "empty", kSuccess},     {'d', "svc", "al", "", kSuccess},
      {'d', "svc", "al", "", kItemNotFound},  {'a', "svc", "al", "again", kSuccess},
      {'a', "svc", unicode, "u", kSuccess},   {'r', "svc", unicode, "u", kSuccess},
      {'a', "svc", "", "e", kSuccess},        {'r', "svc", "", "e", kSuccess},
  };
}

inline void runStoreSteps(SecureStore& store, const std::vector<StoreStep>& steps) {
  for (std::size_t i = 0; i < steps.size(); ++i) {
    const StoreStep& s = steps[i];
    Bytes out;
    const int status = s.op == 'a'   ? store.add(s.service, s.account, bytes(s.data))
                       : s.op == 'u' ? store.update(s.service, s.account, bytes(s.data))
                       : s.op == 'd' ? store.remove(s.service, s.account)
                                     : store.copyMatching(s.service, s.account, &out);
    EXPECT_EQ(status, s.status) << "step " << i;
    EXPECT_EQ(out, s.op == 'r' ? bytes(s.data) : Bytes()) << "step " << i;
  }
}

}  // namespace velora::testing
