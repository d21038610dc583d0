// The platform's event streams, the plain test stream and the stream fault switches.
//
// A stream is one long chunked answer. httplib calls the provider again and again on the
// connection's worker thread until it ends the answer; each call writes what is due and
// otherwise waits briefly on the hub, so that a set value goes out at once and stopping the
// server is never held up. Each open stream keeps its worker thread.

#include <poll.h>

#include <algorithm>
#include <cstdio>
#include <set>
#include <utility>

#include "DemoData.hpp"
#include "SandboxInternal.hpp"

namespace velora::sandbox::detail {
namespace {

using nlohmann::json;
using Clock = StreamHub::Clock;
using std::chrono::milliseconds;

// The longest a stream waits before looking at its connection and the server again.
constexpr milliseconds kWaitStep{50};
// Changes kept for streams that have not written them yet; one further behind misses some.
constexpr std::size_t kKeptChanges = 1024;
constexpr milliseconds kDefaultCheck{60000};
constexpr double kMinCheckMs = 20;
constexpr double kMaxMs = 24.0 * 3600 * 1000;
constexpr long long kMaxTestDelayMs = 10LL * 60 * 1000;

}  // namespace

void StreamHub::wakeAll() {
  // Taking the lock orders this after a waiter's last look at `stopping`, so none sleeps on.
  { const std::lock_guard lock(mutex_); }
  changed_.notify_all();
}

void StreamHub::publish(ValueChange change) {
  {
    const std::lock_guard lock(mutex_);
    recent_.push_back(std::move(change));
    ++sequence_;
    if (recent_.size() > kKeptChanges) {
      recent_.pop_front();
    }
  }
  changed_.notify_all();
}

std::uint64_t StreamHub::sequence() const {
  const std::lock_guard lock(mutex_);
  return sequence_;
}

std::vector<ValueChange> StreamHub::changesSince(std::uint64_t& seen) const {
  const std::lock_guard lock(mutex_);
  const auto missed = static_cast<std::ptrdiff_t>(std::min<std::uint64_t>(sequence_ - seen, recent_.size()));
  seen = sequence_;
  return {recent_.end() - missed, recent_.end()};
}

void StreamHub::wait(std::uint64_t seen, Clock::time_point until) const {
  std::unique_lock lock(mutex_);
  changed_.wait_until(lock, std::min(until, Clock::now() + kWaitStep),
                      [&] { return sequence_ != seen || stopping_; });
}

bool StreamHub::pause(milliseconds delay) const {
  std::unique_lock lock(mutex_);
  return !changed_.wait_for(lock, delay, [this] { return stopping_.load(); });
}

void StreamHub::setFaults(StreamFaults faults) {
  if (faults.closeAfterEvents < 0 || faults.headerDelayMs < 0 || faults.headerDelayMs > kMaxTestDelayMs ||
      faults.remaining < -1) {
    throw std::invalid_argument(
        "velora-sandbox: closeAfterEvents must not be negative, headerDelayMs must be from 0 to 600000 "
        "and remaining -1 (every stream) or more");
  }
  const std::lock_guard lock(mutex_);
  faults_ = faults;
}

StreamFaults StreamHub::takeFaults() {
  const std::lock_guard lock(mutex_);
  if (faults_.remaining == 0) {
    return {};
  }
  if (faults_.remaining > 0) {
    --faults_.remaining;
  }
  return faults_;
}

std::shared_ptr<std::atomic<bool>> StreamHub::streamStarted() {
  auto cut = std::make_shared<std::atomic<bool>>(false);
  {
    const std::lock_guard lock(liveMutex_);
    live_.push_back(cut);
  }
  ++open_;
  ++opened_;
  return cut;
}

void StreamHub::streamEnded(const std::shared_ptr<std::atomic<bool>>& cut) {
  {
    const std::lock_guard lock(liveMutex_);
    const auto it = std::find(live_.begin(), live_.end(), cut);
    if (it != live_.end()) {
      *it = std::move(live_.back());
      live_.pop_back();
    }
  }
  --open_;
}

void StreamHub::cutRandomStream() {
  const std::lock_guard lock(liveMutex_);
  if (!live_.empty()) {
    *live_[std::uniform_int_distribution<std::size_t>(0, live_.size() - 1)(pick_)] = true;
  }
}

namespace {

struct Event {
  std::string name;
  json data;
};

// What one stream sends besides its checks.
struct StreamPlan {
  std::string prelude;  // written before the first event, as it is
  std::vector<Event> opening;
  std::optional<milliseconds> check;
  // `tick` runs `firstTick` after the start and then every `tickInterval`, until it returns
  // nothing; then the stream ends if `endAfterTicks`, else it idles.
  std::function<std::optional<Event>()> tick;
  milliseconds firstTick{0};
  milliseconds tickInterval{0};
  bool endAfterTicks = false;
  std::function<std::optional<Event>(const ValueChange&)> onChange;
  // The test stream puts the id line first so that clients meet both field orders.
  bool idLineFirst = false;
  // The id of the first event; a stream resumed after Last-Event-Id N starts at N + 1.
  long long firstId = 1;
};

long long epochMillis() {
  return std::chrono::duration_cast<milliseconds>(std::chrono::system_clock::now().time_since_epoch()).count();
}

class StreamSession {
 public:
  StreamSession(StreamPlan plan, StreamFaults faults, StreamHub& hub, std::uint64_t seen, int socket)
      : plan_(std::move(plan)), faults_(faults), hub_(hub), seen_(seen), socket_(socket), ticking_(static_cast<bool>(plan_.tick)),
        nextId_(plan_.firstId), cut_(hub_.streamStarted()) {}
  ~StreamSession() { hub_.streamEnded(cut_); }
  StreamSession(const StreamSession&) = delete;
  StreamSession& operator=(const StreamSession&) = delete;

  // httplib's content provider; false aborts the connection without ending the answer.
  bool provide(httplib::DataSink& sink) {
    if (hub_.stopping() || peerGone()) {
      return false;
    }
    const auto now = Clock::now();
    std::vector<Event> due;
    if (!started_) {
      started_ = true;
      nextCheck_ = now + plan_.check.value_or(milliseconds::zero());
      nextTick_ = now + plan_.firstTick;
      if (!plan_.prelude.empty() && !sink.write(plan_.prelude.data(), plan_.prelude.size())) {
        return false;
      }
      due = plan_.opening;
    }
    for (const auto& change : hub_.changesSince(seen_)) {
      if (auto event = plan_.onChange ? plan_.onChange(change) : std::nullopt) {
        due.push_back(std::move(*event));
      }
    }
    if (plan_.check && now >= nextCheck_) {
      due.push_back({"check", epochMillis()});
      nextCheck_ = now + *plan_.check;
    }
    bool ticksOver = false;
    if (ticking_ && now >= nextTick_) {
      if (auto event = plan_.tick()) {
        due.push_back(std::move(*event));
        nextTick_ += plan_.tickInterval;
        if (nextTick_ < now) {  // fell behind: skip the missed ticks rather than send a burst
          nextTick_ = now + plan_.tickInterval;
        }
      } else {
        ticking_ = false;
        ticksOver = plan_.endAfterTicks;
      }
    }
    for (const auto& event : due) {
      if (!send(sink, event)) {
        return false;
      }
      if (ended_) {
        return true;
      }
    }
    if (ticksOver) {
      end(sink);
    } else if (due.empty()) {
      auto until = plan_.check ? nextCheck_ : Clock::time_point::max();
      hub_.wait(seen_, ticking_ ? std::min(until, nextTick_) : until);
    }
    return true;
  }

 private:
  bool send(httplib::DataSink& sink, const Event& event) {
    const std::string id = "id: " + std::to_string(nextId_++) + "\n";
    const std::string name = "event: " + event.name + "\n";
    const std::string frame = (plan_.idLineFirst ? id + name : name + id) + "data: " +
                              event.data.dump(-1, ' ', false, json::error_handler_t::replace) + "\n\n";
    if ((faults_.cutMidEvent && written_ == 1) || *cut_) {
      sink.write(frame.data(), frame.size() / 2);
      return false;
    }
    if (!sink.write(frame.data(), frame.size())) {
      return false;
    }
    if (++written_ == faults_.closeAfterEvents) {
      end(sink);
    }
    return true;
  }

  void end(httplib::DataSink& sink) {
    sink.done();
    ended_ = true;
  }

  // A client that leaves a quiet stream is noticed here rather than at the next write, which may
  // be a minute away.
  bool peerGone() const {
    pollfd entry{socket_, POLLRDHUP, 0};
    return socket_ >= 0 && ::poll(&entry, 1, 0) > 0 && (entry.revents & (POLLRDHUP | POLLHUP | POLLERR)) != 0;
  }

  StreamPlan plan_;
  StreamFaults faults_;
  StreamHub& hub_;
  std::uint64_t seen_;
  int socket_;
  bool started_ = false;
  bool ticking_;
  bool ended_ = false;
  long long nextId_;
  std::shared_ptr<std::atomic<bool>> cut_;
  int written_ = 0;
  Clock::time_point nextCheck_;
  Clock::time_point nextTick_;
};

void serveStream(const httplib::Request& req, httplib::Response& res, StreamHub& hub, StreamPlan plan,
                 std::uint64_t seen) {
  const StreamFaults faults = hub.takeFaults();
  if (faults.headerDelayMs > 0 && !hub.pause(milliseconds(faults.headerDelayMs))) {
    sendMessage(res, 503, "Velora sandbox is stopping");
    return;
  }
  if (faults.refuseUnauthorized) {
    sendMessage(res, 401, "Unauthorized: a valid bearer token is required");
    return;
  }
  auto session = std::make_shared<StreamSession>(std::move(plan), faults, hub, seen, connectionSocket(req));
  res.status = 200;
  res.set_header("Cache-Control", "no-cache");
  res.set_chunked_content_provider(
      "text/event-stream",
      [session](std::size_t, httplib::DataSink& sink) { return session->provide(sink); });
}

// Absent, zero or negative: the platform's default of a minute.
milliseconds checkInterval(const json& body, const std::string& section, const std::string& key) {
  const json* outer = optionalMember(body, section, JsonKind::object, section);
  const json* value = outer ? optionalMember(*outer, key, JsonKind::number, section + "." + key) : nullptr;
  if (value == nullptr || value->get<double>() <= 0) {
    return kDefaultCheck;
  }
  return milliseconds(static_cast<long long>(std::clamp(value->get<double>(), kMinCheckMs, kMaxMs)));
}

// The keep-alive settings object the item, position and generic event streams share.
milliseconds configuredCheck(const json& body, const std::string& section) {
  if (const json* outer = optionalMember(body, section, JsonKind::object, section)) {
    for (const std::string key : {"refresh", "timeout"}) {
      optionalMember(*outer, key, JsonKind::number, section + "." + key);
    }
  }
  return checkInterval(body, section, "checkTimeout");
}

StreamPlan itemPlan(const json& body, Services& services) {
  const json* filterBody = optionalMember(body, "filter", JsonKind::object, "filter");
  ItemFilter filter = filterBody ? parseItemFilter(*filterBody, "filter.") : ItemFilter{};
  if (const json* ids = optionalList(body, "itemIdList", JsonKind::integer, "itemIdList")) {
    filter.itemIds = ids->get<std::vector<int>>();
  }
  StreamPlan plan;
  plan.check = configuredCheck(body, "sseConfig");
  json items = services.equipment.list(filter);
  std::set<int> streamed;
  for (const auto& item : items) {
    streamed.insert(item["id"].get<int>());
  }
  plan.opening.push_back({"complete", std::move(items)});
  plan.onChange = [streamed](const ValueChange& change) -> std::optional<Event> {
    if (!streamed.contains(change.itemId)) {
      return std::nullopt;
    }
    json value = {{"id", change.valueId}};
    if (change.value) {
      value["value"] = *change.value;
    }
    return Event{"value_change", json::array({value})};
  };
  return plan;
}

std::vector<std::string> tagsOf(const json* list, const DemoData& data) {
  if (list == nullptr || list->empty()) {
    return data.defaultTags;
  }
  return list->get<std::vector<std::string>>();
}

// Tags walk round the edge of the first floor a metre per report.
json tagPosition(const Floor& floor, const std::string& tag, std::uint64_t step) {
  const int width = floor.width;
  const int depth = floor.depth;
  const auto lap = static_cast<std::uint64_t>(2 * (width + depth));
  // Each tag starts at a point of its own, so that several tags do not move as one.
  const int s = static_cast<int>((fnv1a64(tag) % lap + step) % lap);
  int x = 0;
  int y = 0;
  if (s < width) {
    x = s;
  } else if (s < width + depth) {
    x = width;
    y = s - width;
  } else if (s < 2 * width + depth) {
    x = width - (s - width - depth);
    y = depth;
  } else {
    y = depth - (s - 2 * width - depth);
  }
  const auto sentAt =
      std::chrono::duration_cast<std::chrono::microseconds>(Clock::now().time_since_epoch()).count();
  return {{"mapId", floor.mapId},  {"tagid", tag},  {"roomId", floor.roomAt(x).id},
          {"x", double(x)},        {"y", double(y)}, {"level", floor.level},
          {"sentAt", sentAt}};
}

StreamPlan positionPlan(const json& body, Services& services) {
  const json* filter = optionalMember(body, "filter", JsonKind::object, "filter");
  const auto tags = tagsOf(filter ? optionalList(*filter, "tagIdList", JsonKind::string, "filter.tagIdList") : nullptr,
                           services.data);
  const Floor& floor = services.data.floors.front();
  const auto positions = [tags, &floor](std::uint64_t step) {
    json list = json::array();
    for (const auto& tag : tags) {
      list.push_back(tagPosition(floor, tag, step));
    }
    return list;
  };
  StreamPlan plan;
  plan.check = configuredCheck(body, "update");
  plan.opening.push_back({"complete", positions(0)});
  plan.firstTick = plan.tickInterval = milliseconds(services.options.positionIntervalMs);
  plan.tick = [positions, step = std::uint64_t{0}]() mutable -> std::optional<Event> {
    return Event{"positions", positions(++step)};
  };
  return plan;
}

StreamPlan diagnosticPlan(const json& body, Services& services) {
  const json* tracking = optionalMember(body, "tagTracking", JsonKind::object, "tagTracking");
  if (tracking == nullptr) {
    throw RequestError(400, "tagTracking is required");
  }
  const json* forget =
      optionalMember(*tracking, "forgetTagMillis", JsonKind::number, "tagTracking.forgetTagMillis");
  const auto tags = tagsOf(optionalList(*tracking, "tags", JsonKind::string, "tagTracking.tags"), services.data);
  // Tags named "...-lost" stop being seen when the stream starts, so they are forgotten once
  // forgetTagMillis has passed.
  const auto lostAt =
      Clock::now() +
      milliseconds(static_cast<long long>(forget ? std::clamp(forget->get<double>(), 0.0, kMaxMs) : 0.0));
  const auto states = [tags, lostAt] {
    json state = json::object();
    for (const auto& tag : tags) {
      state[tag] = tag.ends_with("-lost") && Clock::now() >= lostAt ? "LOST" : "VISIBLE";
    }
    return state;
  };
  StreamPlan plan;
  plan.check = kDefaultCheck;
  plan.opening.push_back({"complete", {{"tagTracking", states()}}});
  plan.firstTick = plan.tickInterval = milliseconds(services.options.positionIntervalMs);
  plan.tick = [states]() -> std::optional<Event> { return Event{"tagTracking", states()}; };
  return plan;
}

// The event types the generic stream can send.
const std::set<std::string> kGenericEventTypes = {"ITEM_VALUE_CHANGED"};

StreamPlan genericPlan(const json& body, Services&) {
  const json* filter = optionalMember(body, "filter", JsonKind::object, "filter");
  std::set<std::string> subscribed = kGenericEventTypes;
  if (filter != nullptr) {
    optionalMember(*filter, "streamType", JsonKind::string, "filter.streamType");
    if (const json* outputs = optionalList(*filter, "outputEvents", JsonKind::string, "filter.outputEvents")) {
      subscribed = outputs->get<std::set<std::string>>();
    }
  }
  StreamPlan plan;
  plan.check = configuredCheck(body, "update");
  plan.opening.push_back({"complete",
                          {{"status", "SUBSCRIBED"},
                           {"message", "Subscribed to " + std::to_string(subscribed.size()) + " event types"},
                           {"statusCode", 200}}});
  if (subscribed.contains("ITEM_VALUE_CHANGED")) {
    plan.onChange = [](const ValueChange& change) -> std::optional<Event> {
      return Event{"ITEM_VALUE_CHANGED",
                   {{"status", "ITEM_VALUE_CHANGED"},
                    {"message", change.itemName + ": " + change.controlName + " = " + change.value.value_or("")},
                    {"statusCode", 200}}};
    };
  }
  return plan;
}

std::string celsius(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f °C", value);
  return text;
}

// The home and room streams add a widget, update it, remove it and empty the container, then
// start over with a widget of a new id.
class WidgetScript {
 public:
  WidgetScript(std::string container, const LiveWidget& live) : container_(std::move(container)), live_(live) {}

  Event next() {
    const int cycle = step_ / 4;
    const int phase = step_ % 4;
    ++step_;
    if (phase == 3) {
      return {"remove_all", {{"container", container_}}};
    }
    static constexpr const char* kNames[] = {"add", "update", "remove"};
    const json widget = fillTemplate(live_.widget, {{"container", container_},
                                                    {"cycle", std::to_string(cycle + 1)},
                                                    {"reading", celsius(live_.readings[phase == 0 ? 0 : 1])}});
    return {kNames[phase], {{"container", container_}, {"widgets", json::array({widget})}}};
  }

 private:
  std::string container_;
  const LiveWidget& live_;
  int step_ = 0;
};

// The fields of the widget streams' body, checked for their kinds.
void checkWidgetBody(const json& body) {
  optionalMember(body, "componentId", JsonKind::string, "componentId");
  optionalMember(body, "roomId", JsonKind::string, "roomId");
  if (const json* filter = optionalMember(body, "filter", JsonKind::object, "filter")) {
    optionalMember(*filter, "tagid", JsonKind::string, "filter.tagid");
    optionalList(*filter, "widgetIdList", JsonKind::string, "filter.widgetIdList");
  }
}

std::string requiredText(const json& body, const std::string& key) {
  const json* value = optionalMember(body, key, JsonKind::string, key);
  if (value == nullptr) {
    throw RequestError(400, key + " is required");
  }
  return value->get<std::string>();
}

StreamPlan containerPlan(const json& body, const std::string& container, json widgets, const Services& services) {
  StreamPlan plan;
  plan.check = checkInterval(body, "update", "checkTime");
  plan.opening.push_back({"subscription", {{"container", container}, {"widgets", std::move(widgets)}}});
  plan.firstTick = plan.tickInterval = milliseconds(services.options.widgetIntervalMs);
  plan.tick = [script = WidgetScript(container, services.data.scriptedWidget)]() mutable -> std::optional<Event> {
    return script.next();
  };
  return plan;
}

StreamPlan homePlan(const json& body, Services& services) {
  checkWidgetBody(body);
  return containerPlan(body, "home", services.data.homeWidgets, services);
}

StreamPlan roomPlan(const json& body, Services& services) {
  checkWidgetBody(body);
  const std::string roomId = requiredText(body, "roomId");
  return containerPlan(body, "room-" + roomId,
                       fillTemplate(services.data.roomWidgets, {{"roomId", roomId}, {"roomName", services.data.roomName(roomId)}}),
                       services);
}

StreamPlan widgetPlan(const json& body, Services& services) {
  checkWidgetBody(body);
  const std::string id = requiredText(body, "componentId");
  StreamPlan plan;
  plan.check = checkInterval(body, "update", "checkTime");
  const LiveWidget& live = services.data.singleWidget;
  const auto widget = [id, &live](std::size_t reading) {
    return json::array({fillTemplate(live.widget, {{"componentId", id},
                                                   {"reading", celsius(live.readings[reading % live.readings.size()])}})});
  };
  plan.opening.push_back({"subscription", {{"container", id}, {"widgets", widget(0)}}});
  plan.firstTick = plan.tickInterval = milliseconds(services.options.widgetIntervalMs);
  plan.tick = [id, widget, reading = std::size_t{0}]() mutable -> std::optional<Event> {
    return Event{"update", {{"container", id}, {"widgets", widget(++reading)}}};
  };
  return plan;
}

// The route handler of a stream whose events `makePlan` lays out from the request body.
template <StreamPlan (*makePlan)(const json&, Services&)>
void stream(Exchange& x) {
  // Taken before the connect event is assembled: a change racing with it is sent again rather
  // than lost.
  const auto seen = x.services.hub.sequence();
  serveStream(x.req, x.res, x.services.hub, makePlan(parseObjectBody(x.req.body), x.services), seen);
}

constexpr Route kStreamRoutes[] = {
    {"POST", "/api/v1/item/listen",                           stream<itemPlan>},
    {"POST", "/api/v1/realtime/sse/position/filtered",        stream<positionPlan>},
    {"POST", "/api/v1/diagnostic/sse",                        stream<diagnosticPlan>},
    {"POST", "/api/ssemanager/stream/events",                 stream<genericPlan>},
    {"POST", "/api/v2/widget/card/stream/home/events",        stream<homePlan>},
    {"POST", "/api/v2/widget/card/stream/widget/room/events", stream<roomPlan>},
    {"POST", "/api/v2/widget/card/stream/widget/events",      stream<widgetPlan>},
};

bool parseFlag(const httplib::Request& req, const char* name, long long max, long long& out) {
  return !req.has_param(name) || parseInt(req.get_param_value(name), 0, max, out);
}

}  // namespace

void testStream(Exchange& x) {
  const httplib::Request& req = x.req;
  httplib::Response& res = x.res;
  StreamHub& hub = x.services.hub;
  long long events = 0;
  long long retry = 0;
  long long intervalMs = 0;
  long long close = 0;
  if (!parseFlag(req, "events", 1000000, events) || !parseFlag(req, "retry", kMaxTestDelayMs, retry) ||
      !parseFlag(req, "interval_ms", kMaxTestDelayMs, intervalMs) || !parseFlag(req, "close", 1, close)) {
    sendMessage(res, 400,
                "events must be a count up to 1000000, retry and interval_ms milliseconds up to 600000, "
                "close 0 or 1");
    return;
  }
  StreamPlan plan;
  if (req.has_param("retry")) {
    plan.prelude = "retry: " + std::to_string(retry) + "\n\n";
  }
  // A client that reconnects with the id of the last event it received continues after it.
  long long resumeAfter = 0;
  if (req.has_header("Last-Event-Id") && !parseInt(req.get_header_value("Last-Event-Id"), 0, events, resumeAfter)) {
    resumeAfter = 0;
  }
  plan.firstId = resumeAfter + 1;
  plan.tickInterval = milliseconds(intervalMs);
  plan.tick = [n = resumeAfter, events, authorization = req.get_header_value("Authorization")]() mutable
      -> std::optional<Event> {
    if (n == events) {
      return std::nullopt;
    }
    return Event{"tick", {{"n", ++n}, {"authorization", authorization}}};
  };
  plan.endAfterTicks = close == 1;
  plan.idLineFirst = true;
  serveStream(req, res, hub, std::move(plan), hub.sequence());
}

void setStreamFaultsRoute(Exchange& x) {
  const httplib::Request& req = x.req;
  httplib::Response& res = x.res;
  StreamHub& hub = x.services.hub;
  const json body = parseObjectBody(req.body);
  StreamFaults faults;
  const std::pair<std::string, int*> counts[] = {
      {"closeAfterEvents", &faults.closeAfterEvents}, {"headerDelayMs", &faults.headerDelayMs}, {"remaining", &faults.remaining}};
  for (const auto& [key, slot] : counts) {
    if (const json* value = optionalMember(body, key, JsonKind::integer, key)) {
      *slot = value->get<int>();
    }
  }
  const std::pair<std::string, bool*> flags[] = {{"refuseUnauthorized", &faults.refuseUnauthorized},
                                                 {"cutMidEvent", &faults.cutMidEvent}};
  for (const auto& [key, slot] : flags) {
    if (const json* value = optionalMember(body, key, JsonKind::boolean, key)) {
      *slot = value->get<bool>();
    }
  }
  try {
    hub.setFaults(faults);
  } catch (const std::invalid_argument& e) {
    throw RequestError(400, e.what());
  }
  const bool none = faults.closeAfterEvents == 0 && !faults.refuseUnauthorized && faults.headerDelayMs == 0 &&
                    !faults.cutMidEvent;
  sendMessage(res, 200,
              none                      ? "Stream faults cleared"
              : faults.remaining == -1 ? "Stream faults set for every stream"
                                       : "Stream faults set for the next " + std::to_string(faults.remaining) +
                                             (faults.remaining == 1 ? " stream" : " streams"));
}

RouteTable streamRoutes() { return kStreamRoutes; }

}  // namespace velora::sandbox::detail
