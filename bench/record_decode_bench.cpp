// Decoding a large search answer: 10,000 resources (about 10 MB of JSON) read by the record layer,
// beside the common hand-written way (an nlohmann DOM plus a from_json per struct into plain structs)
// in the same run.
//
// Each benchmark reports the time per decode, MB/s of reply text, and the heap one decode needs at its
// peak: `peak_MB` above what was live before it started, `peak_ratio` that peak over the reply's size,
// `allocs` the number of allocations it made. Memory is followed by the counting operator new/delete
// below, measured on one decode outside the timed loop.

#include <benchmark/benchmark.h>

#include <atomic>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include <velora/booking/Booking.hpp>

// ---- Heap accounting --------------------------------------------------------------------------

namespace {

std::atomic<std::int64_t> liveBytes{0};
std::atomic<std::int64_t> peakBytes{0};
std::atomic<std::int64_t> allocationCount{0};

// Each block carries its size in front, so a plain delete knows how much it gives back. The header
// keeps the block aligned for any fundamental type.
constexpr std::size_t kHeader = alignof(std::max_align_t);

void* countedAlloc(std::size_t size) noexcept {
  auto* block = static_cast<unsigned char*>(std::malloc(size + kHeader));
  if (!block) return nullptr;
  *reinterpret_cast<std::size_t*>(block) = size;
  const auto now = liveBytes.fetch_add(static_cast<std::int64_t>(size), std::memory_order_relaxed) +
                   static_cast<std::int64_t>(size);
  allocationCount.fetch_add(1, std::memory_order_relaxed);
  auto peak = peakBytes.load(std::memory_order_relaxed);
  while (now > peak && !peakBytes.compare_exchange_weak(peak, now, std::memory_order_relaxed)) {
  }
  return block + kHeader;
}

void countedFree(void* p) noexcept {
  if (!p) return;
  auto* block = static_cast<unsigned char*>(p) - kHeader;
  liveBytes.fetch_sub(static_cast<std::int64_t>(*reinterpret_cast<std::size_t*>(block)), std::memory_order_relaxed);
  std::free(block);
}

void* countedNew(std::size_t size) {
  if (void* p = countedAlloc(size)) return p;
  throw std::bad_alloc();
}

}  // namespace

void* operator new(std::size_t size) { return countedNew(size); }
void* operator new[](std::size_t size) { return countedNew(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return countedAlloc(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return countedAlloc(size); }
void operator delete(void* p) noexcept { countedFree(p); }
void operator delete[](void* p) noexcept { countedFree(p); }
void operator delete(void* p, std::size_t) noexcept { countedFree(p); }
void operator delete[](void* p, std::size_t) noexcept { countedFree(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { countedFree(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { countedFree(p); }

namespace {

struct HeapUse {
  std::int64_t peak = 0;
  std::int64_t allocations = 0;
};

/// The heap `run` needs at its peak beyond what was live when it started, and its allocation count.
template <class F>
HeapUse measureHeap(F&& run) {
  const auto baseline = liveBytes.load();
  peakBytes.store(baseline);
  const auto allocationsBefore = allocationCount.load();
  run();
  return {peakBytes.load() - baseline, allocationCount.load() - allocationsBefore};
}

// ---- The reply --------------------------------------------------------------------------------

constexpr int kResources = 10'000;

/// A small fixed generator, so every run and every machine sees the same reply.
class Random {
 public:
  explicit Random(std::uint64_t seed) : state_(seed) {}
  std::uint64_t next() {
    std::uint64_t z = (state_ += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
  }
  int below(int n) { return static_cast<int>(next() % static_cast<std::uint64_t>(n)); }
  bool chance(int percent) { return below(100) < percent; }
  double between(double lo, double hi) { return lo + (hi - lo) * static_cast<double>(next() >> 11) * 0x1.0p-53; }
  template <class T, std::size_t N>
  const T& pick(const T (&items)[N]) { return items[below(static_cast<int>(N))]; }

  std::string uuid() {
    static constexpr char hex[] = "0123456789abcdef";
    std::string out;
    const std::uint64_t a = next(), b = next();
    for (int i = 0; i < 32; ++i) {
      if (i == 8 || i == 12 || i == 16 || i == 20) out.push_back('-');
      out.push_back(hex[((i < 16 ? a : b) >> (4 * (i % 16))) & 0xF]);
    }
    return out;
  }

 private:
  std::uint64_t state_;
};

constexpr const char* kWords[] = {"quiet", "bright", "window", "corner", "standing", "ergonomic", "shared",
    "team", "focus", "near", "the", "kitchen", "lift", "with", "dual", "screens", "whiteboard", "north",
    "south", "wing", "open", "space", "café", "Zürich", "façade", "view", "garden", "terrace", "acoustic",
    "panel", "video", "bar", "\"pod\"", "large", "small", "docking", "station", "lockable", "drawer"};
constexpr const char* kTypes[] = {"DESK", "DESK", "DESK", "ROOM", "ROOM", "PARK", "EPARK", "LOCKER", "POI",
    "PEOPLE", "ASSET", "TAG", "GROUP_LOCKER"};
constexpr const char* kUnknownTypes[] = {"HOT_DESK", "PHONE_BOOTH", "CHARGER"};
constexpr const char* kBuildings[] = {"Harbour House", "North Campus B", "Tower 3", "Riverside Annex"};
constexpr const char* kIcons[] = {"ic_desk", "ic_room", "ic_parking", "ic_locker", "ic_screen", "ic_coffee",
    "ic_projector", "ic_light", "ic_blind", "ic_temperature", "ic_co2", "ic_humidity"};
constexpr const char* kColors[] = {"#1E88E5", "#43A047", "#F4511E", "#8E24AA", "#FDD835"};
constexpr const char* kUnits[] = {"°C", "%", "ppm", "lx", "dB"};
constexpr const char* kControlKinds[] = {"LIGHT", "BLIND", "HVAC", "SCREEN", "SOCKET"};
constexpr const char* kSkills[] = {"first-aid", "fire-warden", "sign-language", "it-support", "reception"};
constexpr const char* kGroups[] = {"Finance", "Engineering", "Facilities", "Sales EMEA", "Legal & Compliance"};
constexpr const char* kTimes[] = {"07:00", "08:00", "08:30", "09:00", "12:00", "13:30", "17:00", "18:00", "20:00"};

using Json = nlohmann::ordered_json;

std::string sentence(Random& r, int words) {
  std::string out;
  for (int i = 0; i < words; ++i) {
    if (i) out.push_back(' ');
    out += r.pick(kWords);
  }
  if (!out.empty()) out[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(out[0])));
  return out + ".";
}

Json namedEntry(Random& r, const char* kind, const std::string& name, bool full) {
  Json e;
  e["id"] = kind + std::to_string(r.below(100000));
  e["name"] = name;
  if (full || r.chance(50)) e["i18n"] = "resource.service." + std::to_string(r.below(400));
  if (full || r.chance(50)) e["icon"] = r.pick(kIcons);
  return e;
}

Json resource(Random& r, int index) {
  // Every third resource fills every optional block; the others a realistic part of them.
  const bool full = index % 3 == 0;
  auto some = [&](int percent) { return full || r.chance(percent); };
  Json j;
  j["id"] = r.uuid();
  const std::string type = index % 211 == 7 ? r.pick(kUnknownTypes) : r.pick(kTypes);
  j["name"] = type.substr(0, 1) + type.substr(1, 3) + " " + std::to_string(r.below(12)) + "." +
              std::to_string(100 + r.below(300)) + " – " + r.pick(kWords) + " " + r.pick(kWords);
  j["type"] = type;
  if (some(50)) j["subtype"] = std::string(r.pick(kWords)) + "_" + r.pick(kWords);
  if (some(40)) j["subtypeLabel"] = sentence(r, 2);
  if (some(30)) j["i18nSubtype"] = "resource.subtype." + std::to_string(r.below(60));
  if (some(30)) j["tagid"] = "TAG-" + std::to_string(100000 + r.below(900000));
  if (some(30)) j["i18n"] = "resource.name." + std::to_string(index);
  if (some(40)) j["image"] = "https://cdn.velora.invalid/img/" + r.uuid().substr(24) + ".jpg";
  if (some(20)) {
    Json images = Json::array();
    for (int i = 0, n = 1 + r.below(2); i < n; ++i) {
      images.push_back("https://cdn.velora.invalid/img/" + r.uuid().substr(24) + "-" + std::to_string(i) + ".jpg");
    }
    j["images"] = images;
  }
  if (some(60)) {
    j["buildingPosition"] = {{"buildingId", 1 + r.below(4)}, {"buildingName", r.pick(kBuildings)},
        {"mapId", 10 + r.below(40)}, {"level", r.below(12) - 2}, {"roomId", 1000 + r.below(5000)},
        {"areaId", 100 + r.below(300)}};
  }
  if (some(40)) {
    j["position"] = {{"mapId", 10 + r.below(40)}, {"tagid", "TAG-" + std::to_string(100000 + r.below(900000))},
        {"roomId", 1000 + r.below(5000)}, {"areaId", 100 + r.below(300)}, {"x", r.between(0, 2500)},
        {"y", r.between(0, 1400)}, {"data", "{\"zone\":\"" + std::string(r.pick(kWords)) + "\"}"},
        {"level", r.below(12) - 2}};
  }
  if (some(40)) {
    Json config = {{"dailyBooking", r.chance(50)}, {"timeBooking", r.chance(70)}, {"attendeesPresent", r.chance(40)},
        {"hasRecurring", r.chance(30)}};
    if (some(15)) {
      Json weeks = Json::array();
      for (int day = 1; day <= 5; ++day) {
        if (!r.chance(35)) continue;
        Json intervals = Json::array();
        for (int i = 0, n = 1 + (r.chance(25) ? 1 : 0); i < n; ++i) {
          intervals.push_back({{"start", r.pick(kTimes)}, {"end", r.pick(kTimes)}, {"minStart", r.pick(kTimes)},
              {"maxEnd", r.pick(kTimes)}});
        }
        weeks.push_back({{"day", day}, {"scheduleIntervals", intervals}});
      }
      config["constraints"] = {{"minTimeSlot", 15 * (1 + r.below(4))}, {"maxTimeSlot", 60 * (1 + r.below(8))},
          {"maxNumberOfBookingDay", 1 + r.below(30)}, {"dateLimit", "2025-0" + std::to_string(1 + r.below(9)) + "-15"},
          {"bookableDaysLimit", 7 * (1 + r.below(8))}, {"bookableDaysOfWeek", {1, 2, 3, 4, 5}},
          {"weekConstraints", weeks}};
    }
    j["bookingConfig"] = config;
  }
  auto list = [&](const char* key, int percent, int most, auto make) {
    if (!some(percent)) return;
    Json items = Json::array();
    for (int i = 0, n = full ? 1 + r.below(most) : 1; i < n; ++i) items.push_back(make());
    j[key] = items;
  };
  list("services", 25, 2, [&] { return namedEntry(r, "svc-", sentence(r, 2), full); });
  list("controls", 15, 3, [&] {
    Json c = namedEntry(r, "ctl-", sentence(r, 2), false);
    if (full || r.chance(60)) c["type"] = r.pick(kControlKinds);
    return c;
  });
  list("sensors", 15, 2, [&] {
    Json s;
    s["id"] = "sen-" + std::to_string(r.below(100000));
    s["name"] = sentence(r, 2);
    if (full || r.chance(80)) s["value"] = std::to_string(r.below(1000) / 10.0).substr(0, 4);
    if (full || r.chance(80)) s["unit"] = r.pick(kUnits);
    if (full || r.chance(50)) s["icon"] = r.pick(kIcons);
    return s;
  });
  list("additionalServices", 10, 2, [&] {
    Json a = namedEntry(r, "add-", sentence(r, 3), full);
    if (full || r.chance(50)) a["quantity"] = 1 + r.below(20);
    return a;
  });
  j["favourite"] = r.chance(10);
  if (some(20)) {
    j["singleInfo"] = {{"name", sentence(r, 3)}, {"i18n", "resource.info." + std::to_string(r.below(50))},
        {"icon", r.pick(kIcons)}, {"color", r.pick(kColors)}};
  }
  list("skills", 10, 3, [&] { return r.pick(kSkills); });
  list("metadataTypes", 20, 3, [&] { return std::string("meta.") + r.pick(kWords); });
  list("connectedGroupNames", 20, 3, [&] { return r.pick(kGroups); });
  if (some(40)) {
    j["description"] = sentence(r, 4 + r.below(10));
  } else if (r.chance(10)) {
    j["description"] = nullptr;  // servers send some absent values as null
  }
  if (some(20)) j["integrationKey"] = "ext:" + r.uuid();
  if (some(15)) j["username"] = std::string(r.pick(kWords)) + "." + std::to_string(r.below(10000)) + "@velora.invalid";
  if (some(15)) j["dnd"] = r.below(3);
  if (some(30)) {
    Json data = Json::object();
    for (int i = 0, n = 1 + r.below(3); i < n; ++i) data["key" + std::to_string(i)] = sentence(r, 1 + r.below(4));
    j["data"] = data;
  }
  return j;
}

const std::string& reply() {
  static const std::string text = [] {
    Random r(0x5EA7C4);
    Json all = Json::array();
    for (int i = 0; i < kResources; ++i) all.push_back(resource(r, i));
    return all.dump();
  }();
  return text;
}

// ---- The hand-written way ---------------------------------------------------------------------

namespace manual {

enum class ResourceType { desk, room, people, asset, tag, park, epark, poi, locker, groupLocker, unknown };

ResourceType resourceTypeFrom(const std::string& raw) {
  static const std::map<std::string, ResourceType, std::less<>> known = {{"DESK", ResourceType::desk},
      {"ROOM", ResourceType::room}, {"PEOPLE", ResourceType::people}, {"ASSET", ResourceType::asset},
      {"TAG", ResourceType::tag}, {"PARK", ResourceType::park}, {"EPARK", ResourceType::epark},
      {"POI", ResourceType::poi}, {"LOCKER", ResourceType::locker}, {"GROUP_LOCKER", ResourceType::groupLocker}};
  const auto it = known.find(raw);
  return it == known.end() ? ResourceType::unknown : it->second;
}

/// An optional member: absent and null both leave it empty.
template <class T>
void readOptional(const nlohmann::json& j, const char* key, std::optional<T>& out) {
  if (const auto it = j.find(key); it != j.end() && !it->is_null()) out = it->template get<T>();
}

struct BuildingPositionModel {
  std::optional<int> buildingId;
  std::optional<std::string> buildingName;
  std::optional<int> mapId, level, roomId, areaId;
};
void from_json(const nlohmann::json& j, BuildingPositionModel& v) {
  readOptional(j, "buildingId", v.buildingId);
  readOptional(j, "buildingName", v.buildingName);
  readOptional(j, "mapId", v.mapId);
  readOptional(j, "level", v.level);
  readOptional(j, "roomId", v.roomId);
  readOptional(j, "areaId", v.areaId);
}

struct MapPositionModel {
  int mapId = 0;
  std::optional<std::string> tagid;
  std::optional<int> roomId, areaId;
  double x = 0, y = 0;
  std::optional<int> level;
  std::optional<std::string> data;
};
void from_json(const nlohmann::json& j, MapPositionModel& v) {
  j.at("mapId").get_to(v.mapId);
  readOptional(j, "tagid", v.tagid);
  readOptional(j, "roomId", v.roomId);
  readOptional(j, "areaId", v.areaId);
  j.at("x").get_to(v.x);
  j.at("y").get_to(v.y);
  readOptional(j, "level", v.level);
  readOptional(j, "data", v.data);
}

struct ScheduleTimeInterval {
  std::string start;
  std::optional<std::string> end, minStart, maxEnd;
};
void from_json(const nlohmann::json& j, ScheduleTimeInterval& v) {
  j.at("start").get_to(v.start);
  readOptional(j, "end", v.end);
  readOptional(j, "minStart", v.minStart);
  readOptional(j, "maxEnd", v.maxEnd);
}

struct WeekConstraint {
  int day = 0;
  std::vector<ScheduleTimeInterval> scheduleIntervals;
};
void from_json(const nlohmann::json& j, WeekConstraint& v) {
  j.at("day").get_to(v.day);
  j.at("scheduleIntervals").get_to(v.scheduleIntervals);
}

struct BookingConstraints {
  std::optional<int> minTimeSlot, maxTimeSlot, maxNumberOfBookingDay;
  std::optional<std::string> dateLimit;
  std::optional<int> bookableDaysLimit;
  std::optional<std::vector<int>> bookableDaysOfWeek;
  std::optional<std::vector<WeekConstraint>> weekConstraints;
};
void from_json(const nlohmann::json& j, BookingConstraints& v) {
  readOptional(j, "minTimeSlot", v.minTimeSlot);
  readOptional(j, "maxTimeSlot", v.maxTimeSlot);
  readOptional(j, "maxNumberOfBookingDay", v.maxNumberOfBookingDay);
  readOptional(j, "dateLimit", v.dateLimit);
  readOptional(j, "bookableDaysLimit", v.bookableDaysLimit);
  readOptional(j, "bookableDaysOfWeek", v.bookableDaysOfWeek);
  readOptional(j, "weekConstraints", v.weekConstraints);
}

struct BookingConfig {
  bool dailyBooking = false, timeBooking = false, attendeesPresent = false, hasRecurring = false;
  std::optional<BookingConstraints> constraints;
};
void from_json(const nlohmann::json& j, BookingConfig& v) {
  j.at("dailyBooking").get_to(v.dailyBooking);
  j.at("timeBooking").get_to(v.timeBooking);
  j.at("attendeesPresent").get_to(v.attendeesPresent);
  j.at("hasRecurring").get_to(v.hasRecurring);
  readOptional(j, "constraints", v.constraints);
}

struct ResourceService {
  std::string id, name;
  std::optional<std::string> i18n, icon;
};
void from_json(const nlohmann::json& j, ResourceService& v) {
  j.at("id").get_to(v.id);
  j.at("name").get_to(v.name);
  readOptional(j, "i18n", v.i18n);
  readOptional(j, "icon", v.icon);
}

struct ResourceControl {
  std::string id, name;
  std::optional<std::string> type, icon;
};
void from_json(const nlohmann::json& j, ResourceControl& v) {
  j.at("id").get_to(v.id);
  j.at("name").get_to(v.name);
  readOptional(j, "type", v.type);
  readOptional(j, "icon", v.icon);
}

struct ResourceSensor {
  std::string id, name;
  std::optional<std::string> value, unit, icon;
};
void from_json(const nlohmann::json& j, ResourceSensor& v) {
  j.at("id").get_to(v.id);
  j.at("name").get_to(v.name);
  readOptional(j, "value", v.value);
  readOptional(j, "unit", v.unit);
  readOptional(j, "icon", v.icon);
}

struct AdditionalService {
  std::string id, name;
  std::optional<std::string> i18n, icon;
  std::optional<int> quantity;
};
void from_json(const nlohmann::json& j, AdditionalService& v) {
  j.at("id").get_to(v.id);
  j.at("name").get_to(v.name);
  readOptional(j, "i18n", v.i18n);
  readOptional(j, "icon", v.icon);
  readOptional(j, "quantity", v.quantity);
}

struct InfoIcon {
  std::string name;
  std::optional<std::string> i18n, icon, color;
};
void from_json(const nlohmann::json& j, InfoIcon& v) {
  j.at("name").get_to(v.name);
  readOptional(j, "i18n", v.i18n);
  readOptional(j, "icon", v.icon);
  readOptional(j, "color", v.color);
}

struct Resource {
  std::string id, name;
  ResourceType type = ResourceType::unknown;
  std::optional<std::string> subtype, subtypeLabel, i18nSubtype, tagid, i18n, image;
  std::optional<std::vector<std::string>> images;
  std::optional<BuildingPositionModel> buildingPosition;
  std::optional<MapPositionModel> position;
  std::optional<BookingConfig> bookingConfig;
  std::optional<std::vector<ResourceService>> services;
  std::optional<std::vector<ResourceControl>> controls;
  std::optional<std::vector<ResourceSensor>> sensors;
  std::optional<std::vector<AdditionalService>> additionalServices;
  bool favourite = false;
  std::optional<InfoIcon> singleInfo;
  std::optional<std::vector<std::string>> skills, metadataTypes, connectedGroupNames;
  std::optional<std::string> description, integrationKey, username;
  std::optional<int> dnd;
  std::optional<std::map<std::string, std::string>> data;
};
void from_json(const nlohmann::json& j, Resource& v) {
  j.at("id").get_to(v.id);
  j.at("name").get_to(v.name);
  v.type = resourceTypeFrom(j.at("type").get_ref<const std::string&>());
  readOptional(j, "subtype", v.subtype);
  readOptional(j, "subtypeLabel", v.subtypeLabel);
  readOptional(j, "i18nSubtype", v.i18nSubtype);
  readOptional(j, "tagid", v.tagid);
  readOptional(j, "i18n", v.i18n);
  readOptional(j, "image", v.image);
  readOptional(j, "images", v.images);
  readOptional(j, "buildingPosition", v.buildingPosition);
  readOptional(j, "position", v.position);
  readOptional(j, "bookingConfig", v.bookingConfig);
  readOptional(j, "services", v.services);
  readOptional(j, "controls", v.controls);
  readOptional(j, "sensors", v.sensors);
  readOptional(j, "additionalServices", v.additionalServices);
  j.at("favourite").get_to(v.favourite);
  readOptional(j, "singleInfo", v.singleInfo);
  readOptional(j, "skills", v.skills);
  readOptional(j, "metadataTypes", v.metadataTypes);
  readOptional(j, "connectedGroupNames", v.connectedGroupNames);
  readOptional(j, "description", v.description);
  readOptional(j, "integrationKey", v.integrationKey);
  readOptional(j, "username", v.username);
  readOptional(j, "dnd", v.dnd);
  readOptional(j, "data", v.data);
}

std::vector<Resource> decode(const std::string& text) {
  return nlohmann::json::parse(text).get<std::vector<Resource>>();
}

}  // namespace manual

// ---- Benchmarks -------------------------------------------------------------------------------

void reportHeap(benchmark::State& state, const HeapUse& heap) {
  const double replyBytes = static_cast<double>(reply().size());
  state.counters["reply_MB"] = replyBytes / 1e6;
  state.counters["peak_MB"] = static_cast<double>(heap.peak) / 1e6;
  state.counters["peak_ratio"] = static_cast<double>(heap.peak) / replyBytes;
  state.counters["allocs"] = static_cast<double>(heap.allocations);
}

void reportThroughput(benchmark::State& state) {
  const auto iterations = static_cast<std::int64_t>(state.iterations());
  state.SetBytesProcessed(iterations * static_cast<std::int64_t>(reply().size()));
  state.SetItemsProcessed(iterations * kResources);
}

/// Checks once, outside the timed loop, that `decode` read every resource, and reports its heap use.
template <class Decode>
void checkAndReportHeap(benchmark::State& state, Decode decode) {
  const std::string& text = reply();
  std::size_t decoded = 0;
  const HeapUse heap = measureHeap([&] { decoded = decode(text).size(); });
  if (decoded != static_cast<std::size_t>(kResources)) {
    state.SkipWithError("the decode did not read every resource");
    return;
  }
  reportHeap(state, heap);
}

template <class Decode>
void runDecode(benchmark::State& state, Decode decode) {
  checkAndReportHeap(state, decode);
  const std::string& text = reply();
  for (auto _ : state) {
    auto resources = decode(text);
    benchmark::DoNotOptimize(resources.data());
  }
  reportThroughput(state);
}

template <class Parse>
void runParse(benchmark::State& state, Parse parse) {
  const std::string& text = reply();
  reportHeap(state, measureHeap([&] { benchmark::DoNotOptimize(parse(text)); }));
  for (auto _ : state) {
    auto tree = parse(text);
    benchmark::DoNotOptimize(&tree);
  }
  reportThroughput(state);
}

void BM_Library_DecodeJSON(benchmark::State& state) {
  runDecode(state, [](const std::string& text) { return velora::decodeJSON<std::vector<velora::Resource>>(text); });
}

void BM_HandWritten_NlohmannDom(benchmark::State& state) { runDecode(state, manual::decode); }

// The two halves of each path on their own: the text to a tree, then (in the totals above) the
// tree to records.
void BM_Library_TreeOnly(benchmark::State& state) {
  runParse(state, [](const std::string& text) { return velora::AnyCodable::parse(text); });
}

void BM_HandWritten_DomOnly(benchmark::State& state) {
  runParse(state, [](const std::string& text) { return nlohmann::json::parse(text); });
}

BENCHMARK(BM_Library_DecodeJSON)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_HandWritten_NlohmannDom)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Library_TreeOnly)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_HandWritten_DomOnly)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
