// The messages the map page posts, through the map view's own message handler after the start-up
// handshake. An input whose first byte is even is a message body as it is; an odd one builds a
// well-formed message from the rest (a type the second byte picks, the handshake's key when bit 1
// is set, and the remaining bytes as the payload text), so that the payload decoders behind each
// type see arbitrary text too. Every message reaches the delegate at most once, never crashes
// the view, and a handshake message is only taken as such with the handshake's key.

#include <velora/velora.hpp>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Fakes.hpp"

namespace {

using namespace velora;

constexpr const char* kKey = "K-1";

/// Answers every script with the handshake's key; keeps the page's message handler.
class PageWebView : public WebView {
 public:
  std::map<std::string, MessageHandler> handlers;
  NavigationObserver navigation;

  void load(const std::string&, const HttpHeaders&) override {}
  void setNavigationObserver(NavigationObserver observer) override { navigation = std::move(observer); }
  void evaluateScript(const std::string&, ScriptCompletion completion) override { completion(kKey, std::nullopt); }
  void addScriptMessageHandler(const std::string& name, MessageHandler handler) override { handlers[name] = std::move(handler); }
  void removeScriptMessageHandler(const std::string& name) override { handlers.erase(name); }
  void setDeveloperExtrasEnabled(bool) override {}
  void setColorScheme(ColorScheme) override {}
  void takeSnapshot(SnapshotCompletion completion) override { completion(std::nullopt, "no snapshots"); }
};

class CountingDelegate : public DynamicMapViewDelegate {
 public:
  int calls = 0;
  std::vector<std::string> completedKeys;
  void mapViewInitDidComplete(DynamicMapView&, const std::string& operationId) override {
    ++calls;
    completedKeys.push_back(operationId);
  }
  void mapViewInitDidFail(DynamicMapView&, const PlatformError&) override { ++calls; }
  void didReceiveEvent(DynamicMapView&, const MapEvent&, const MapEventPayload&) override { ++calls; }
  void didReceiveError(DynamicMapView&, const PlatformError&) override { ++calls; }
};

struct Page {
  velora::testing::FakePlatform fakes;
  std::shared_ptr<PageWebView> web = std::make_shared<PageWebView>();
  std::shared_ptr<CountingDelegate> delegate = std::make_shared<CountingDelegate>();
  std::shared_ptr<DynamicMapView> view;

  // The facade lives only while the view is set up: without it, a refused token renews nothing,
  // so no request piles up across runs.
  Page() {
    fakes.debugAssertionsStop = false;
    auto sdk = velora::testing::makeTestFacade(fakes, EnvironmentModel("http://sdk.test/", 30), true);
    view = DynamicMapView::make(web, *sdk);
    view->load("http://sdk.test/map/", HttpHeaders{}, ConfigurationModel(), delegate);
    web->navigation.finished("http://sdk.test/map/");
  }
};

void check(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Page page;
  if (size == 0) return 0;
  const std::string rest(reinterpret_cast<const char*>(data + 1), size - 1);
  std::string body = rest;
  if (data[0] & 1) {
    if (rest.empty()) return 0;
    const auto cases = enumCases(MapEventType{});
    const std::size_t pick = static_cast<unsigned char>(rest[0]) % (cases.size() + 1);
    MapEvent event;
    // One pick past the known types stands for a type this library does not know.
    event.type = pick < cases.size() ? std::string(cases[pick].raw) : "unknownType";
    if (data[0] & 2) event.key = kKey;
    event.payload = rest.substr(1);
    body = encodeJSON(event);
  }

  page.delegate->calls = 0;
  page.delegate->completedKeys.clear();
  page.web->handlers.at("customJSHandler")(body);
  check(page.delegate->calls <= 1);
  for (const auto& key : page.delegate->completedKeys) check(key == kKey);
  return 0;
}
