// Throughput of EventStreamParser on the generated SSE inputs, fed in chunks of 1, 16, 1024 and
// 16384 bytes and in the random chunk schedule (cyclically), with a fresh parser per iteration.
// Each run checks the events it got against manifest.json so that a fast but wrong parser shows up
// as an error rather than as a good number.
//
//   python3 bench/sse/gen_inputs.py --out <build>/sse-inputs
//   VELORA_SSE_INPUTS=<build>/sse-inputs <build>/bin/sse_parser_bench --benchmark_report_aggregates_only=true
//
// MB/s counts 10^6 input bytes per second; bytes_per_second is the same figure in binary units.

#include <velora/sse/EventStreamParser.hpp>

#include <benchmark/benchmark.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

struct Expected {
  long long events = 0;  // events carrying data
  long long dataBytes = 0;
  long long retryOnly = 0;
};

struct Input {
  std::string name;
  std::string bytes;
  Expected expected;
};

std::string readFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("cannot read " + path);
  std::ostringstream content;
  content << file.rdbuf();
  return content.str();
}

void parseStream(benchmark::State& state, const Input& input, const std::vector<std::size_t>& chunkSizes) {
  const std::string_view stream = input.bytes;
  Expected got;
  for (auto _ : state) {
    velora::EventStreamParser parser;
    got = Expected{};
    long long others = 0;
    std::size_t next = 0;
    for (std::size_t at = 0; at < stream.size();) {
      const std::size_t size = std::min(chunkSizes[next], stream.size() - at);
      next = next + 1 == chunkSizes.size() ? 0 : next + 1;
      for (const velora::Event& event : parser.append(stream.substr(at, size))) {
        if (event.data) {
          ++got.events;
          got.dataBytes += static_cast<long long>(event.data->size());
        } else if (event.onlyRetryEvent()) {
          ++got.retryOnly;
        } else {
          ++others;
        }
      }
      at += size;
    }
    benchmark::DoNotOptimize(got);
    if (others != 0 || got.events != input.expected.events || got.dataBytes != input.expected.dataBytes ||
        got.retryOnly != input.expected.retryOnly) {
      state.SkipWithError(("parse mismatch on " + input.name + ": " + std::to_string(got.events) + " events, " +
                           std::to_string(got.dataBytes) + " data bytes, " + std::to_string(got.retryOnly) +
                           " retry-only, " + std::to_string(others) + " other; expected " +
                           std::to_string(input.expected.events) + ", " + std::to_string(input.expected.dataBytes) +
                           ", " + std::to_string(input.expected.retryOnly) + ", 0")
                              .c_str());
      return;
    }
  }
  const auto iterations = static_cast<double>(state.iterations());
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(stream.size()));
  state.counters["MB/s"] = benchmark::Counter(iterations * static_cast<double>(stream.size()) / 1e6, benchmark::Counter::kIsRate);
  state.counters["events/s"] = benchmark::Counter(iterations * static_cast<double>(got.events + got.retryOnly),
                                                  benchmark::Counter::kIsRate);
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  const char* folder = std::getenv("VELORA_SSE_INPUTS");
  if (folder == nullptr || *folder == '\0') {
    std::fprintf(stderr,
                 "sse_parser_bench: skipped, VELORA_SSE_INPUTS is not set. Generate the inputs with\n"
                 "  python3 bench/sse/gen_inputs.py --out <build>/sse-inputs\n"
                 "and run with VELORA_SSE_INPUTS=<build>/sse-inputs.\n");
    return 0;
  }

  static std::vector<Input> inputs;  // outlives the registered benchmarks
  std::vector<std::size_t> randomSchedule;
  try {
    const std::string dir = std::string(folder) + "/";
    const auto manifest = nlohmann::json::parse(readFile(dir + "manifest.json"));
    for (const char* name : {"positions", "large", "mixed"}) {
      const auto& entry = manifest.at("files").at(name);
      Input input{name, readFile(dir + entry.at("file").get<std::string>()),
                  {entry.at("events").get<long long>(), entry.at("data_bytes").get<long long>(),
                   entry.at("retry_only").get<long long>()}};
      if (input.bytes.size() != entry.at("bytes").get<std::size_t>()) {
        throw std::runtime_error(std::string(name) + ": size differs from manifest.json; regenerate the inputs");
      }
      inputs.push_back(std::move(input));
    }
    std::istringstream sizes(readFile(dir + manifest.at("random_chunks").at("file").get<std::string>()));
    for (std::size_t size = 0; sizes >> size;) randomSchedule.push_back(size);
    if (randomSchedule.empty() || std::find(randomSchedule.begin(), randomSchedule.end(), 0) != randomSchedule.end()) {
      throw std::runtime_error("random-chunks.txt: expected positive chunk sizes");
    }
  } catch (const std::exception& error) {
    std::fprintf(stderr, "sse_parser_bench: cannot load inputs from %s: %s\n", folder, error.what());
    return 1;
  }

  const std::vector<std::pair<std::string, std::vector<std::size_t>>> chunkings = {
      {"1", {1}}, {"16", {16}}, {"1024", {1024}}, {"16384", {16384}}, {"random", randomSchedule}};
  for (const Input& input : inputs) {
    for (const auto& [label, sizes] : chunkings) {
      benchmark::RegisterBenchmark(("sse_parse/" + input.name + "/chunk:" + label).c_str(),
                                   [&input, sizes = sizes](benchmark::State& state) { parseStream(state, input, sizes); })
          ->Unit(benchmark::kMillisecond)
          ->Repetitions(5);  // bench/sse/README.md asks for the median of 5 runs
    }
  }
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
