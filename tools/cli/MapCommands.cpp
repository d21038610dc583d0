// map: the platform's map page in a window, driven by the library's map view. It follows a tag
// from the position stream (stream → notification centre → view → page), prints every map event,
// and can save what the window shows as a PNG.

#include <atomic>
#include <chrono>
#include <csignal>
#include <fstream>

#include <velora/velora.hpp>

#include "Command.hpp"
#include "Failure.hpp"
#include "Session.hpp"
#include "Spinner.hpp"

#if VELORA_CLI_WINDOWS
#include <velora/platform/WebKitWebView.hpp>
#endif

namespace velora::cli {
namespace {

struct MapOptions {
  std::string tag;
  std::optional<std::int64_t> floor;
  double seconds = 0;
  std::string screenshot;
  std::string url;
};

#if VELORA_CLI_WINDOWS

using namespace std::chrono_literals;

std::atomic<bool> interrupted{false};
extern "C" void onMapInterrupt(int) { interrupted = true; }

std::string payloadText(const MapEventPayload& payload) {
  return std::visit([](const auto& record) { return encode(record).dump(); }, payload);
}

/// Prints the page's events as they reach the view.
class EventPrinter : public DynamicMapViewDelegate {
 public:
  explicit EventPrinter(Output& out) : out_(out) {}
  std::optional<std::string> initialised;
  std::optional<PlatformError> failed;

  void mapViewInitDidComplete(DynamicMapView&, const std::string& operationId) override {
    initialised = operationId;
    print("initialised", AnyCodable::object({{"operationId", operationId}}), operationId);
  }
  void mapViewInitDidFail(DynamicMapView&, const PlatformError& error) override { failed = error; }
  void didReceiveEvent(DynamicMapView&, const MapEvent& event, const MapEventPayload& payload) override {
    const std::string data = payloadText(payload);
    print(event.type.value_or("?"), AnyCodable::parse(data), data);
  }
  void didReceiveError(DynamicMapView&, const PlatformError& error) override {
    print("error", AnyCodable::object({{"message", error.domain}}), error.domain);
  }

 private:
  void print(const std::string& event, const AnyCodable& data, const std::string& text) {
    if (out_.json()) {
      out_.printJson(AnyCodable::object({{"event", event}, {"data", data}}));
    } else {
      out_.printText(event + "  " + text);
    }
  }
  Output& out_;
};

/// Runs the window loop until `done` holds, Ctrl-C, or `limit` passes; false on the limit.
bool turnLoop(GlibMainQueue& loop, const std::function<bool()>& done, std::chrono::milliseconds limit) {
  // A tick wakes the loop, so that Ctrl-C is seen while nothing else happens.
  auto ticking = std::make_shared<bool>(true);
  std::function<void()> tick;
  tick = [&loop, ticking, &tick] {
    if (*ticking) loop.postAfter(100ms, tick);
  };
  tick();
  const bool met = loop.runUntil([&] { return interrupted || done(); }, limit);
  *ticking = false;
  return met;
}

/// Positions of `tag` from the position stream, posted where map views hear them.
std::shared_ptr<SSEManager> followTag(Orvane& orvane, const std::string& tag) {
  auto forward = [&orvane](auto, auto, std::optional<std::string> data) {
    if (!data) return;
    try {
      for (const auto& p : decodeJSON<std::vector<MapPositionModel>>(*data)) {
        ORVGPSPosition position;
        position.mapId = p.mapId;
        position.x = p.x;
        position.y = p.y;
        position.level = p.level;
        position.tagid = p.tagid;
        orvane.platform().notifications->post({kGPSPositionAvailable, {{"payload", position}}});
      }
    } catch (const std::exception&) {
      // A malformed event is dropped; the next one moves the marker.
    }
  };
  return orvane.startNotifyRegionChanges({tag}, {}, 10000, forward, forward);
}

void showMap(Context& ctx, const MapOptions& o) {
  Orvane& orvane = connectWithSession(ctx);
  auto loop = std::dynamic_pointer_cast<GlibMainQueue>(orvane.platform().mainQueue);
  if (!loop) throw UsageError("map: the window loop is not running");
  std::signal(SIGINT, onMapInterrupt);
  // The page loads its data with the session's token; without one it would wait for it forever.
  if (!orvane.accessToken()) throw APIError(ResponseMessage(-28005, "map - the page needs a session"));

  auto web = makeWebKitWebView();
  auto view = DynamicMapView::make(web, orvane);
  auto printer = std::make_shared<EventPrinter>(ctx.out);
  const std::string url = o.url.empty() ? orvane.sdkEndpoint() + "map/" : o.url;
  std::optional<std::string> tag;
  if (!o.tag.empty()) tag = o.tag;
  view->load(url, std::nullopt, ConfigurationModel(tag), printer);
  if (!turnLoop(*loop, [&] { return printer->initialised || printer->failed; }, 60s) || interrupted) {
    throw PlatformError("map: the page at " + url + " did not initialise within 60 s", -1);
  }
  if (printer->failed) throw *printer->failed;

  const auto command = [&](const std::string& what, auto run) {
    std::optional<PlatformError> failure;
    bool done = false;
    run([&](std::optional<std::string>, std::optional<PlatformError> error) { failure = error, done = true; });
    turnLoop(*loop, [&] { return done; }, 10s);
    if (failure) throw PlatformError(what + ": " + failure->domain, failure->code);
  };
  if (o.floor) command("map --floor", [&](auto done) { view->gotoFloorBy(*o.floor, done); });

  std::shared_ptr<SSEManager> stream;
  if (tag) {
    command("map --tag", [&](auto done) { view->showTag(*tag, true, done); });
    stream = followTag(orvane, *tag);
  }

  if (!o.screenshot.empty()) {
    // Let the page draw what the commands changed before it is captured.
    turnLoop(*loop, [] { return false; }, 500ms);
    std::optional<std::vector<std::uint8_t>> png;
    std::optional<std::string> error;
    bool done = false;
    web->takeSnapshot([&](auto image, auto e) { png = std::move(image), error = std::move(e), done = true; });
    turnLoop(*loop, [&] { return done; }, 10s);
    if (!png) throw PlatformError("map --screenshot: " + error.value_or("no image"), -1);
    std::ofstream file(o.screenshot, std::ios::binary);
    file.write(reinterpret_cast<const char*>(png->data()), static_cast<std::streamsize>(png->size()));
    if (!file.flush()) throw UsageError("map --screenshot: cannot write " + o.screenshot);
    writeDiagnostic("velora: map screenshot written to " + o.screenshot);
  }

  // With a screenshot and no --seconds, the picture was the point; otherwise stay until asked.
  if (o.seconds > 0 || o.screenshot.empty()) {
    const auto limit = o.seconds > 0 ? std::chrono::milliseconds(static_cast<long>(o.seconds * 1000)) : std::chrono::hours(24 * 365);
    turnLoop(*loop, [] { return false; }, limit);
  }
  if (stream) stream->removeAllListenersAndDisconnect();
}

#endif

}  // namespace

void addMapCommands(CommandSet& commands) {
  auto options = std::make_shared<MapOptions>();
  CLI::App* map = commands.add("map", "Show the map in a window, printing its events", [options](Context& ctx) {
#if VELORA_CLI_WINDOWS
    showMap(ctx, *options);
#else
    (void)ctx;
#endif
  });
  map->add_option("--tag", options->tag, "Follow this tag from the position stream");
  map->add_option("--floor", options->floor, "Show this floor (map id)");
  map->add_option("--seconds", options->seconds, "Close the window after this many seconds (default: Ctrl-C; with --screenshot: once it is written)");
  map->add_option("--screenshot", options->screenshot, "Write what the window shows to this PNG file once the page has initialised");
  map->add_option("--url", options->url, "The map page (default: the endpoint's map/)");
  commands.needsWindow(map, "the map window");
}

}  // namespace velora::cli
