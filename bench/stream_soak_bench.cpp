// Soak: a thousand streams kept open for ten minutes against a sandbox that cuts one of them, at
// random, every 100 ms, with the reconnect policy on. Open file descriptors and resident memory
// of this (the client's) process, and the events lost, are taken at the start, the middle and
// the end; steady figures mean that reconnecting leaks neither descriptors nor memory, and zero
// lost events that every cut stream resumed right after the last event it had received.
//
// Each stream is the sandbox's test stream, whose events count 1, 2, 3 ... with the count as the
// event id, and which continues after the Last-Event-Id a reconnect sends. A gap in a stream's
// count is a lost event; a count that comes again is a duplicate.
//
// VELORA_SOAK_SECONDS sets the length (default 600), VELORA_SOAK_STREAMS the number of streams
// (default 1000), for trying it short.

#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include <velora/velora.hpp>

#include "BenchSupport.hpp"

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr int kEventIntervalMs = 1000;  // per stream: 1000 streams make 1000 events a second
constexpr int kCutEveryMs = 100;

int fromEnvironment(const char* name, int fallback) {
  const char* text = std::getenv(name);
  return text && std::atoi(text) > 0 ? std::atoi(text) : fallback;
}

/// Each stream holds a socket on both ends, and the sandbox inherits this limit.
void raiseDescriptorLimit(rlim_t wanted) {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < wanted) {
    limit.rlim_cur = std::min(wanted, limit.rlim_max);
    setrlimit(RLIMIT_NOFILE, &limit);
  }
}

std::size_t openDescriptors() {
  std::size_t count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) ++count;
  return count;
}

/// The count carried by a test-stream event's data, {"n":N,...}.
long long countOf(const std::optional<std::string>& data) {
  if (!data) return -1;
  const auto at = data->find("\"n\":");
  return at == std::string::npos ? -1 : std::atoll(data->c_str() + at + 4);
}

struct Totals {
  std::atomic<long long> events{0};
  std::atomic<long long> lost{0};
  std::atomic<long long> duplicates{0};
  std::atomic<long long> connects{0};
};

struct Checkpoint {
  const char* name;
  double atSeconds;
  std::size_t descriptors;
  double residentMB;
  long long events;
  long long lost;
  long long duplicates;
  long long connects;
};

void BM_StreamSoak(benchmark::State& state) {
  const int streams = fromEnvironment("VELORA_SOAK_STREAMS", 1000);
  const auto duration = std::chrono::seconds(fromEnvironment("VELORA_SOAK_SECONDS", 600));
  raiseDescriptorLimit(static_cast<rlim_t>(streams) * 2 + 1024);
  // One server thread per open stream, with room for the streams that are reconnecting.
  SandboxProcess sandbox({"--threads", std::to_string(streams + 256), "--cut-random-stream-ms", std::to_string(kCutEveryMs)});

  auto totals = std::make_shared<Totals>();
  velora::Platform platform;
  platform.transport = velora::makeCurlTransport({.maxOpenStreams = streams + 64});
  platform.mainQueue = std::make_shared<velora::ThreadQueue>();
  platform.clock = std::make_shared<velora::SystemClock>();
  platform.console = [totals](std::string_view line) {
    if (line == "SSEManager - CONNECTED") ++totals->connects;
  };
  velora::StreamReconnectPolicy policy;
  policy.enabled = true;
  policy.initialDelay = 200ms;
  policy.maxDelay = 5s;
  policy.resetAfter = 10s;
  policy.idleTimeout = std::chrono::milliseconds(5 * kEventIntervalMs);

  const std::string query = "/test/stream?events=1000000&interval_ms=" + std::to_string(kEventIntervalMs);
  std::vector<std::shared_ptr<velora::SSEManager>> managers;
  // Read and written on the main queue only, where the listeners run.
  auto lastCount = std::make_shared<std::vector<long long>>(static_cast<std::size_t>(streams), 0);
  for (int i = 0; i < streams; ++i) {
    auto manager = velora::SSEManager::make(sandbox.url(), query, std::nullopt, false, platform);
    manager->setReconnectPolicy(policy);
    manager->addEventListener("tick", [totals, lastCount, i](auto, auto, auto data) {
      long long& last = (*lastCount)[static_cast<std::size_t>(i)];
      const long long n = countOf(data);
      ++totals->events;
      if (n <= last) {
        ++totals->duplicates;
        return;
      }
      totals->lost += n - last - 1;
      last = n;
    });
    manager->eventSource->connect();
    managers.push_back(std::move(manager));
  }
  const auto begin = Clock::now();
  while (totals->connects < streams && Clock::now() - begin < 120s) std::this_thread::sleep_for(50ms);

  std::vector<Checkpoint> checkpoints;
  const auto take = [&](const char* name) {
    checkpoints.push_back({name, std::chrono::duration<double>(Clock::now() - begin).count(), openDescriptors(),
                           static_cast<double>(residentBytes()) / (1024.0 * 1024.0), totals->events.load(),
                           totals->lost.load(), totals->duplicates.load(), totals->connects.load()});
  };
  for (auto _ : state) {
    take("start");
    std::this_thread::sleep_for(duration / 2);
    take("middle");
    std::this_thread::sleep_for(duration - duration / 2);
    take("end");
    state.SetIterationTime(std::chrono::duration<double>(Clock::now() - begin).count());
  }
  int open = 0;
  for (const auto& manager : managers) open += manager->eventSource->readyState() == velora::EventSourceState::open;
  for (auto& manager : managers) manager->removeAllListenersAndDisconnect();

  std::printf("\n%-7s %9s %6s %8s %10s %6s %11s %9s\n", "point", "seconds", "fds", "RSS MB", "events", "lost",
              "duplicates", "connects");
  for (const auto& c : checkpoints) {
    std::printf("%-7s %9.1f %6zu %8.1f %10lld %6lld %11lld %9lld\n", c.name, c.atSeconds, c.descriptors, c.residentMB,
                c.events, c.lost, c.duplicates, c.connects);
    const std::string prefix = c.name;
    state.counters[prefix + "_fds"] = static_cast<double>(c.descriptors);
    state.counters[prefix + "_rss_MB"] = c.residentMB;
    state.counters[prefix + "_lost"] = static_cast<double>(c.lost);
  }
  std::printf("streams open at the end: %d of %d; reconnects: %lld\n\n", open, streams,
              checkpoints.back().connects - streams);
  state.counters["duplicates"] = static_cast<double>(checkpoints.back().duplicates);
  state.counters["reconnects"] = static_cast<double>(checkpoints.back().connects - streams);
  state.counters["open_at_end"] = open;
}

BENCHMARK(BM_StreamSoak)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);

}  // namespace

BENCHMARK_MAIN();
