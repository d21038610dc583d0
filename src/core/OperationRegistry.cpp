#include <velora/core/OperationRegistry.hpp>

#include <algorithm>
#include <mutex>

#include "core/Operation.hpp"

namespace velora {
namespace {

struct Registry {
  std::mutex mutex;
  std::vector<OperationEntry> entries;
  bool sorted = false;
};

Registry& registry() {
  static Registry instance;
  return instance;
}

}  // namespace

void detail::registerOperation(OperationEntry entry) {
  auto& r = registry();
  std::lock_guard lock(r.mutex);
  r.entries.push_back(std::move(entry));
  r.sorted = false;
}

const std::vector<OperationEntry>& operationRegistry() {
  auto& r = registry();
  std::lock_guard lock(r.mutex);
  // Registration ends when the library has loaded, before anyone can ask.
  if (!r.sorted) {
    std::sort(r.entries.begin(), r.entries.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
    r.sorted = true;
  }
  return r.entries;
}

const OperationEntry* findOperation(std::string_view name) {
  const auto& entries = operationRegistry();
  auto it = std::find_if(entries.begin(), entries.end(), [&](const auto& e) { return e.name == name; });
  return it == entries.end() ? nullptr : &*it;
}

}  // namespace velora
