// A 20 MB photo filed with a ticket: the library's streamed multipart upload beside libcurl's own
// upload of the same body, over loopback to the sandbox running as a program of its own, and the
// library's peak memory over the photo's size.
//
// The photo is made afresh for each upload and moved into the request, as an application that
// reads it from disk would, so the memory figure shows what the upload adds to the photo.

#include <benchmark/benchmark.h>
#include <curl/curl.h>
#include <malloc.h>

#include <fstream>
#include <random>

#include <velora/velora.hpp>

#include "BenchSupport.hpp"

namespace {

constexpr std::size_t kPhotoBytes = 20'000'000;
constexpr int kUploads = 8;  // the sandbox keeps every photo, so a fixed count bounds its memory

velora::Bytes makePhoto() {
  velora::Bytes photo(kPhotoBytes);
  std::mt19937 random(7);
  for (auto& b : photo) b = static_cast<std::uint8_t>(random());
  photo[0] = 0xFF, photo[1] = 0xD8, photo[2] = 0xFF;
  return photo;
}

std::vector<velora::FormTicket> lampForm() {
  velora::FormTicket description;
  description.formName = "Description";
  description.formAttribute = "description";
  description.formInputType = "text";
  description.value = "Desk lamp flickers";
  description.mandatory = true;
  return {description};
}

/// "VmHWM" (peak resident memory) of this process, in bytes.
std::size_t peakResidentBytes() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("VmHWM:", 0) == 0) return std::stoul(line.substr(6)) * 1024;
  }
  return 0;
}

/// Starts the peak over from the current resident memory.
void resetPeak() { std::ofstream("/proc/self/clear_refs") << "5"; }

/// A sandbox of its own for each benchmark, so that neither uploads into one already holding the
/// other's photos.
struct Platform {
  SandboxProcess sandbox{{"--access-token-lifetime", "3600"}};
  std::shared_ptr<velora::Orvane> facade = benchFacade(sandbox.url() + "/");
  std::string token = demoAccessToken(*facade->platform().transport, sandbox.url());
  Platform() {
    // Large blocks always from mmap, so that a freed photo leaves resident memory at once: the
    // peak then shows what was alive together, not where the heap happened to reuse a hole.
    mallopt(M_MMAP_THRESHOLD, 1 << 20);
    facade->setSessionRenewer(std::make_shared<FixedSession>(token));
    facade->setupSession();
  }
};

void BM_SaveTicket(benchmark::State& state) {
  Platform p;
  std::size_t sent = 0;
  resetPeak();
  const std::size_t before = residentBytes();
  for (auto _ : state) {
    state.PauseTiming();
    velora::SaveTicketRequest request{makePhoto(), std::nullopt, lampForm()};
    state.ResumeTiming();
    std::uint64_t total = 0;
    p.facade->saveTicket(std::move(request), velora::TicketManagerType::INTERNAL, [&](std::uint64_t, std::uint64_t size) { total = size; }).get();
    sent += total;
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(sent));
  state.counters["peak_over_photo"] = static_cast<double>(peakResidentBytes() - before) / kPhotoBytes;
}
BENCHMARK(BM_SaveTicket)->Iterations(kUploads)->UseRealTime()->Unit(benchmark::kMillisecond);

std::size_t discard(char*, std::size_t size, std::size_t count, void*) { return size * count; }

/// libcurl sending the same multipart body from one buffer, with the same headers.
void BM_CurlUpload(benchmark::State& state) {
  Platform p;
  const auto data = velora::SaveTicketRequest{makePhoto(), std::nullopt, lampForm()}.formData();
  const std::string body = data.body.text();
  CURL* curl = curl_easy_init();
  curl_slist* headers = nullptr;
  headers = curl_slist_append(headers, ("Content-Type: multipart/form-data; boundary=" + data.boundary).c_str());
  headers = curl_slist_append(headers, ("Authorization: Bearer " + p.token).c_str());
  headers = curl_slist_append(headers, "Expect:");
  const std::string url = p.sandbox.url() + "/api/ticket/save/INTERNAL";
  curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
  curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
  curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
  curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.data());
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, &discard);
  long status = 0;
  for (auto _ : state) {
    if (curl_easy_perform(curl) != CURLE_OK) state.SkipWithError("curl upload failed");
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
  }
  if (status != 200) state.SkipWithError("the sandbox refused the upload");
  state.SetBytesProcessed(static_cast<std::int64_t>(body.size() * state.iterations()));
  curl_slist_free_all(headers);
  curl_easy_cleanup(curl);
}
BENCHMARK(BM_CurlUpload)->Iterations(kUploads)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
