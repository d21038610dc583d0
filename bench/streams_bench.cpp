// Many concurrent streams on the one I/O thread of a transport: resident memory per open stream
// and the delay from the server writing a position to the application's callback receiving it.
//
// The sandbox runs as a separate program, so that the resident memory measured here is the
// client's alone. Each of the streams follows one tag whose position the server writes every
// `kIntervalMs`; every position carries the server's CLOCK_MONOTONIC time ("sentAt", in
// microseconds), which this process reads on the same clock when the callback runs.

#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <future>
#include <mutex>
#include <thread>

#include <velora/velora.hpp>

#include "BenchSupport.hpp"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kIntervalMs = 100;  // 1000 streams x 10 positions a second = 10 000 events a second
constexpr auto kMeasureFor = std::chrono::seconds(10);

/// A thousand streams need more descriptors than the usual soft limit of 1024, on both ends.
void raiseDescriptorLimit() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < limit.rlim_max) {
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
  }
}

struct Latencies {
  std::mutex mutex;
  bool recording = false;
  std::vector<double> ms;
  std::atomic<int> opened{0};
};

void BM_ManyStreams(benchmark::State& state) {
  const int streams = static_cast<int>(state.range(0));
  raiseDescriptorLimit();
  SandboxProcess sandbox({"--threads", std::to_string(streams + 64), "--position-interval-ms", std::to_string(kIntervalMs),
                          "--access-token-lifetime", "3600"});
  auto facade = benchFacade(sandbox.url());
  facade->setSessionRenewer(std::make_shared<FixedSession>(demoAccessToken(*facade->platform().transport, sandbox.url())));
  facade->setupSession();

  auto latencies = std::make_shared<Latencies>();
  const auto onPositions = [latencies](auto, auto, std::optional<std::string> data) {
    const auto now = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now().time_since_epoch()).count();
    const auto positions = velora::AnyCodable::parse(*data);
    std::lock_guard lock(latencies->mutex);
    if (!latencies->recording) return;
    for (const auto& position : *positions.as<velora::AnyCodable::Array>()) {
      if (const auto* sent = position.find("sentAt"); sent && sent->as<std::int64_t>()) {
        latencies->ms.push_back(static_cast<double>(now - *sent->as<std::int64_t>()) / 1000.0);
      }
    }
  };
  const auto onComplete = [latencies](auto, auto, auto) { ++latencies->opened; };
  const auto waitOpened = [&](int count) {
    const auto deadline = Clock::now() + std::chrono::seconds(60);
    while (latencies->opened < count && Clock::now() < deadline) std::this_thread::sleep_for(std::chrono::milliseconds(20));
    if (latencies->opened < count) throw std::runtime_error("streams did not open");
  };

  // One stream opened and closed first, so that lazily built state is not counted per stream.
  auto warmUp = facade->startNotifyRegionChanges({"bench-warm-up"}, {}, 60000, onComplete, {}, {});
  waitOpened(1);
  warmUp->removeAllListenersAndDisconnect();
  warmUp.reset();
  const std::size_t before = residentBytes();

  std::vector<std::shared_ptr<velora::SSEManager>> managers;
  for (int i = 0; i < streams; ++i) {
    managers.push_back(
        facade->startNotifyRegionChanges({"bench-tag-" + std::to_string(i)}, {}, 60000, onComplete, onPositions, {}));
  }
  waitOpened(streams + 1);
  std::this_thread::sleep_for(std::chrono::seconds(2));  // buffers reach their working size
  const std::size_t after = residentBytes();

  for (auto _ : state) {
    {
      std::lock_guard lock(latencies->mutex);
      latencies->recording = true;
    }
    const auto start = Clock::now();
    std::this_thread::sleep_for(kMeasureFor);
    std::lock_guard lock(latencies->mutex);
    latencies->recording = false;
    state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
  }
  for (auto& manager : managers) manager->removeAllListenersAndDisconnect();

  auto& ms = latencies->ms;
  std::sort(ms.begin(), ms.end());
  const auto percentile = [&](double q) { return ms.empty() ? -1.0 : ms[static_cast<std::size_t>(q * (ms.size() - 1))]; };
  state.counters["rss_per_stream_KB"] = static_cast<double>(after - before) / streams / 1024.0;
  state.counters["events_per_s"] = static_cast<double>(ms.size()) / std::chrono::duration<double>(kMeasureFor).count();
  state.counters["p50_ms"] = percentile(0.50);
  state.counters["p99_ms"] = percentile(0.99);
  state.counters["max_ms"] = ms.empty() ? -1.0 : ms.back();
}

BENCHMARK(BM_ManyStreams)->Arg(1000)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);

}  // namespace

BENCHMARK_MAIN();
