// Uses the installed library the way an application does: parse a record, build a URL, await a
// task. Prints "consumer ok" when everything works.

#include <cstdio>

#include <velora/velora.hpp>

namespace {
velora::Task<int> answer() { co_return 42; }
}  // namespace

int main() {
  auto config = velora::decodeJSON<velora::NetworkResponseConfiguration>(
      R"({"appId":"a","uuid":"u","iosadvConf":{"tagid":"t","byte1":1,"byte2":2}})");
  auto url = velora::URL::safeInit("https://example.invalid//api//v1");
  if (config.iosadvConf.tagid != "t" || !url || url->path() != "/api/v1" || answer().get() != 42) {
    std::puts("consumer failed");
    return 1;
  }
  std::puts("consumer ok");
  return 0;
}
