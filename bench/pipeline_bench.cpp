// Requests per second through the request pipeline against the sandbox, beside a raw curl-multi
// loop doing the same requests in the same run.
//
// Each iteration sends kBatch GET "/api/v1/public/diagnostic/check" requests with `depth` of them
// in flight. The awaitable form runs one at a time (its semaphore serialises awaited requests), so
// it is compared with the raw loop at depth 1; the callback form at depth 1 and 8.

#include <benchmark/benchmark.h>
#include <curl/curl.h>

#include <future>

#include <velora/velora.hpp>

#include "BenchSupport.hpp"
#include <velora_sandbox/Sandbox.hpp>

namespace {

constexpr int kBatch = 64;
constexpr const char* kPath = "/api/v1/public/diagnostic/check";

velora::sandbox::Sandbox& sandbox() {
  static velora::sandbox::Sandbox instance;
  return instance;
}

std::shared_ptr<velora::Orvane> facade() {
  static std::shared_ptr<velora::Orvane> instance = benchFacade(sandbox().baseUrl());
  return instance;
}

size_t discard(char*, size_t size, size_t count, void*) { return size * count; }

void BM_RawCurlMulti(benchmark::State& state) {
  const int depth = static_cast<int>(state.range(0));
  const std::string url = sandbox().baseUrl() + kPath;
  CURLM* multi = curl_multi_init();
  std::vector<CURL*> easies;
  curl_slist* headers = curl_slist_append(nullptr, "Content-Type: application/json; charset=utf-8");
  for (int i = 0; i < depth; ++i) {
    CURL* easy = curl_easy_init();
    curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, discard);
    easies.push_back(easy);
  }
  for (auto _ : state) {
    int started = 0, finished = 0;
    for (CURL* easy : easies) {
      curl_multi_add_handle(multi, easy);
      ++started;
    }
    while (finished < kBatch) {
      int running = 0;
      curl_multi_perform(multi, &running);
      int queued = 0;
      while (CURLMsg* message = curl_multi_info_read(multi, &queued)) {
        if (message->msg != CURLMSG_DONE) continue;
        CURL* easy = message->easy_handle;
        curl_multi_remove_handle(multi, easy);
        ++finished;
        if (started < kBatch) {
          curl_multi_add_handle(multi, easy);
          ++started;
        }
      }
      if (finished < kBatch) curl_multi_poll(multi, nullptr, 0, 1000, nullptr);
    }
  }
  for (CURL* easy : easies) curl_easy_cleanup(easy);
  curl_slist_free_all(headers);
  curl_multi_cleanup(multi);
  state.SetItemsProcessed(state.iterations() * kBatch);
}

void BM_ResumeAsyncSession(benchmark::State& state) {
  auto f = facade();
  const auto request = *f->makeRequest(kPath);
  for (auto _ : state) {
    for (int i = 0; i < kBatch; ++i) {
      benchmark::DoNotOptimize(f->resumeAsyncSession<velora::ResponseMessage>(request).get());
    }
  }
  state.SetItemsProcessed(state.iterations() * kBatch);
}

void BM_ResumeSessionCallback(benchmark::State& state) {
  const int depth = static_cast<int>(state.range(0));
  auto f = facade();
  f->setSessionRenewer(std::make_shared<FixedSession>("bench-token"));
  f->setupSession();
  const auto request = *f->makeRequest(kPath);
  for (auto _ : state) {
    std::promise<void> done;
    std::atomic<int> started{0}, finished{0};
    // Each answer (on the main queue) starts the next request, keeping `depth` in flight.
    std::function<void()> sendOne = [&] {
      ++started;
      f->resumeSession(request, velora::ResponseMessage{}, [&](const velora::ResponseMessage& reply) {
        benchmark::DoNotOptimize(reply.code);
        if (started < kBatch) sendOne();
        if (++finished == kBatch) done.set_value();
      });
    };
    for (int i = 0; i < depth; ++i) sendOne();
    done.get_future().wait();
  }
  state.SetItemsProcessed(state.iterations() * kBatch);
}

BENCHMARK(BM_RawCurlMulti)->Arg(1)->Arg(8)->UseRealTime();
BENCHMARK(BM_ResumeAsyncSession)->UseRealTime();
BENCHMARK(BM_ResumeSessionCallback)->Arg(1)->Arg(8)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
