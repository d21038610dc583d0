// map: the platform's map page in a GTK window, following a tag. Positions come from the
// platform's position stream; the example hands them to the map view through the platform's
// notification centre, where the view listens for them.
//
//   map [URL] [--tag TAG] [--seconds N]
//
// It stops once the page shows the tag's position; with --seconds N it keeps following until N
// seconds have passed since it started.
// Form: callbacks. The main queue is the GTK main loop (velora::GlibMainQueue), which main() runs:
// the web view needs it, and the library's answers arrive there too.

#include <chrono>
#include <iostream>

#include <velora/platform/WebKitWebView.hpp>

#include "Connect.hpp"

namespace {

/// Hears the page's start-up handshake and its events.
class MapEvents : public velora::DynamicMapViewDelegate {
 public:
  std::function<void()> onReady;
  std::function<void(const std::string&)> onFailure;

  void mapViewInitDidComplete(velora::DynamicMapView&, const std::string&) override { onReady(); }
  void mapViewInitDidFail(velora::DynamicMapView&, const velora::PlatformError& error) override { onFailure(example::describe(error)); }
  void didReceiveEvent(velora::DynamicMapView&, const velora::MapEvent& event, const velora::MapEventPayload&) override {
    std::cout << "  page event: " << event.type.value_or("?") << '\n';
  }
  void didReceiveError(velora::DynamicMapView&, const velora::PlatformError& error) override { onFailure(example::describe(error)); }
};

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  const std::string url = example::platformUrl(args);
  std::string tag = "velora-demo-tag";
  int seconds = 0;
  for (std::size_t i = 0; i < args.size(); i += 2) {
    if (i + 1 < args.size() && args[i] == "--tag") tag = args[i + 1];
    else if (i + 1 < args.size() && args[i] == "--seconds") seconds = std::atoi(args[i + 1].c_str());
    else return example::fail("map", "usage: map [URL] [--tag TAG] [--seconds N]");
  }

  auto loop = std::make_shared<velora::GlibMainQueue>();
  int status = 1;
  const auto finish = [&](int code, const std::string& line) {
    (code == 0 ? std::cout : std::cerr) << line << '\n';
    status = code;
    loop->quit();
  };
  const auto failed = [&](const std::string& step, const std::string& why) { finish(1, "map failed: " + step + ": " + why); };

  velora::Orvane& orvane = example::connect(example::platform("map", loop), url);
  example::forgetStoredSession(orvane);
  std::shared_ptr<velora::DynamicMapView> map;
  std::shared_ptr<velora::SSEManager> positions;
  std::optional<velora::MapPositionModel> shown;  // the marker, once the page shows it
  auto events = std::make_shared<MapEvents>();

  // Each position of the tag goes to the view; then the page is asked where its marker is.
  const auto forward = [&](auto, auto, std::optional<std::string> data) {
    if (!data) return;
    for (const auto& p : velora::decodeJSON<std::vector<velora::MapPositionModel>>(*data)) {
      velora::ORVGPSPosition position;
      position.mapId = p.mapId, position.x = p.x, position.y = p.y, position.level = p.level, position.tagid = p.tagid;
      orvane.platform().notifications->post({velora::kGPSPositionAvailable, {{"payload", position}}});
    }
    map->getPositionMarker([&](std::optional<velora::MapPositionModel> marker, std::optional<velora::PlatformError>) {
      if (!marker || shown) return;
      shown = marker;
      std::cout << "the page shows " << tag << " at (" << marker->x << ", " << marker->y << ") on map " << marker->mapId << '\n';
      if (seconds == 0) finish(0, "map ok: followed " + tag + " on the map page");
    });
  };

  events->onFailure = [&](const std::string& why) { failed("the map page", why); };
  events->onReady = [&] {
    std::cout << "the map page is ready\n";
    map->showTag(tag, /*follow*/ true, [&](auto, std::optional<velora::PlatformError> error) {
      if (error) return failed("showing the tag", example::describe(*error));
      positions = orvane.startNotifyRegionChanges({tag}, {}, /*check interval, ms*/ 10000, forward, forward);
      if (!positions) failed("following the tag", "the stream request cannot be built");
    });
  };

  orvane.backgroundLogin(example::user(), example::password(), -1, [&](auto, std::optional<velora::PlatformError> error) {
    if (error) return failed("logging in", example::describe(*error));
    try {
      // The page loads its data with the session's token, which the view hands it once loaded.
      map = velora::DynamicMapView::make(velora::makeWebKitWebView(), orvane);
      map->load(url + "map/", std::nullopt, velora::ConfigurationModel(tag), events);
    } catch (const std::exception& e) {
      failed("opening the window", e.what());  // no display, typically
    }
  });
  const int limit = seconds > 0 ? seconds : 60;
  loop->postAfter(std::chrono::seconds(limit), [&] {
    if (seconds > 0 && shown) return finish(0, "map ok: followed " + tag + " for " + std::to_string(seconds) + " s");
    failed("waiting", "the page did not show " + tag + " within " + std::to_string(limit) + " s");
  });
  loop->run();
  if (positions) positions->removeAllListenersAndDisconnect();
  return status;
}
