// The map view on WebKitGTK against the sandbox's map page (run under a display, e.g. xvfb-run):
// how long a command takes from the call to its completion, how long a page message takes to
// reach the delegate, and how much memory an open map costs (this process and the engine's).

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <dirent.h>
#include <fstream>
#include <sstream>
#include <unistd.h>

#include <velora/platform/WebKitWebView.hpp>
#include <velora_sandbox/Sandbox.hpp>

#include "BenchSupport.hpp"

namespace {

using namespace std::chrono_literals;

/// Resident memory in KiB of `pid`, from /proc.
long residentKiB(const std::string& pid) {
  std::ifstream status("/proc/" + pid + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind("VmRSS:", 0) == 0) return std::stol(line.substr(6));
  }
  return 0;
}

/// This process and the engine's helper processes it started.
long residentWithChildrenKiB() {
  const std::string self = std::to_string(::getpid());
  long total = residentKiB(self);
  DIR* proc = ::opendir("/proc");
  while (dirent* entry = proc ? ::readdir(proc) : nullptr) {
    const std::string pid = entry->d_name;
    if (pid.find_first_not_of("0123456789") != std::string::npos) continue;
    std::ifstream stat("/proc/" + pid + "/stat");
    std::string text((std::istreambuf_iterator<char>(stat)), {});
    const auto close = text.rfind(')');
    if (close == std::string::npos) continue;
    std::istringstream fields(text.substr(close + 2));
    std::string state, parent;
    fields >> state >> parent;
    if (parent == self) total += residentKiB(pid);
  }
  if (proc) ::closedir(proc);
  return total;
}

class Delegate : public velora::DynamicMapViewDelegate {
 public:
  bool initialised = false;
  std::vector<std::chrono::steady_clock::time_point> arrivals;
  void mapViewInitDidComplete(velora::DynamicMapView&, const std::string&) override { initialised = true; }
  void mapViewInitDidFail(velora::DynamicMapView&, const velora::PlatformError&) override {}
  void didReceiveEvent(velora::DynamicMapView&, const velora::MapEvent&, const velora::MapEventPayload&) override {
    arrivals.push_back(std::chrono::steady_clock::now());
  }
  void didReceiveError(velora::DynamicMapView&, const velora::PlatformError&) override {}
};

struct OpenMap {
  std::shared_ptr<velora::GlibMainQueue> queue = std::make_shared<velora::GlibMainQueue>();
  velora::sandbox::Sandbox sandbox;
  std::shared_ptr<velora::Orvane> sdk;
  std::shared_ptr<velora::WebView> web;
  std::shared_ptr<velora::DynamicMapView> view;
  std::shared_ptr<Delegate> delegate = std::make_shared<Delegate>();
  long memoryBeforeKiB = 0;
  long memoryOpenKiB = 0;

  OpenMap() {
    velora::Platform p;
    p.transport = velora::makeCurlTransport();
    p.mainQueue = queue;
    p.executor = velora::makeThreadPool();
    p.defaults = std::make_shared<velora::MemoryStore>();
    p.host = std::make_shared<velora::StaticHostInfo>("bench.app");
    p.clock = std::make_shared<velora::SystemClock>();
    p.console = [](std::string_view) {};
    velora::Orvane::setupSDK(velora::EnvironmentModel(sandbox.baseUrl(), 30), p);
    sdk = velora::Orvane::make(p);
    sdk->setSessionRenewer(std::make_shared<FixedSession>(sandbox.issueAccessToken(velora::sandbox::demo::kUser)));
    sdk->setupSession();

    memoryBeforeKiB = residentWithChildrenKiB();
    velora::WebViewOptions options;
    options.offscreen = true;
    web = velora::makeWebKitWebView(options);
    view = velora::DynamicMapView::make(web, *sdk);
    view->load(sandbox.baseUrl() + "/map/", std::nullopt, velora::ConfigurationModel(), delegate);
    if (!queue->runUntil([&] { return delegate->initialised; }, 60s)) throw std::runtime_error("the map did not initialise");
    memoryOpenKiB = residentWithChildrenKiB();
  }
};

OpenMap& openMap() {
  static OpenMap map;
  return map;
}

void reportPercentiles(benchmark::State& state, std::vector<double> samplesMs) {
  if (samplesMs.empty()) return;
  std::sort(samplesMs.begin(), samplesMs.end());
  const auto at = [&](double q) { return samplesMs[std::min(samplesMs.size() - 1, std::size_t(q * samplesMs.size()))]; };
  state.counters["p50_ms"] = at(0.50);
  state.counters["p99_ms"] = at(0.99);
}

void BM_MapCommandRoundTrip(benchmark::State& state) {
  auto& map = openMap();
  std::vector<double> samples;
  for (auto _ : state) {
    bool done = false;
    const auto start = std::chrono::steady_clock::now();
    map.view->getCurrentMapRotationDeg([&](auto, auto) { done = true; });
    map.queue->runUntil([&] { return done; }, 10s);
    samples.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
  }
  reportPercentiles(state, samples);
}
BENCHMARK(BM_MapCommandRoundTrip)->Iterations(1000)->UseRealTime()->Unit(benchmark::kMicrosecond);

// From asking the page to post a message to the delegate's call: the way in to the page is the
// same as a command's, so this is the message's way out plus one command's way in.
void BM_PageMessageToDelegate(benchmark::State& state) {
  auto& map = openMap();
  map.delegate->arrivals.clear();
  const std::string post =
      "window.webkit.messageHandlers.customJSHandler.postMessage(JSON.stringify({type: 'mapClick', "
      "payload: '{\"mapId\":1,\"x\":1,\"y\":2}'}))";
  std::vector<double> samples;
  for (auto _ : state) {
    const auto before = map.delegate->arrivals.size();
    const auto start = std::chrono::steady_clock::now();
    map.web->evaluateScript(post, [](auto, auto) {});
    map.queue->runUntil([&] { return map.delegate->arrivals.size() > before; }, 10s);
    if (map.delegate->arrivals.size() > before) {
      samples.push_back(std::chrono::duration<double, std::milli>(map.delegate->arrivals.back() - start).count());
    }
  }
  reportPercentiles(state, samples);
}
BENCHMARK(BM_PageMessageToDelegate)->Iterations(1000)->UseRealTime()->Unit(benchmark::kMicrosecond);

void BM_OpenMapMemory(benchmark::State& state) {
  auto& map = openMap();
  for (auto _ : state) benchmark::DoNotOptimize(map.memoryOpenKiB);
  state.counters["before_MiB"] = map.memoryBeforeKiB / 1024.0;
  state.counters["open_MiB"] = map.memoryOpenKiB / 1024.0;
  state.counters["map_MiB"] = (map.memoryOpenKiB - map.memoryBeforeKiB) / 1024.0;
}
BENCHMARK(BM_OpenMapMemory)->Iterations(1);

}  // namespace
BENCHMARK_MAIN();
