// Fault rules: switches that make requests misbehave by path, whatever route they reach, so that
// clients can be tested against failures real servers and networks produce. Rules are checked
// before routing; the actions that corrupt a body let the route answer first and then rework
// what goes on the wire.

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <memory>
#include <utility>

#include "SandboxInternal.hpp"

namespace velora::sandbox {

FaultRule FaultRule::unauthorizedOnce(std::string path, std::string method) {
  FaultRule rule;
  rule.path = std::move(path);
  rule.method = std::move(method);
  rule.remaining = 1;
  rule.status = 401;
  rule.body = nlohmann::json{{"code", 401}, {"message", detail::kUnauthorizedMessage}}.dump();
  return rule;
}

}  // namespace velora::sandbox

namespace velora::sandbox::detail {
namespace {

using nlohmann::json;

constexpr int kMaxDelayMs = 10 * 60 * 1000;
// A JSON object cut off inside a string: no parser accepts it.
constexpr const char* kMalformedBody = R"({"velora-sandbox":"malformed)";
constexpr const char* kInjectedMessage = "Injected by a sandbox fault rule";

constexpr std::array<std::pair<FaultAction, std::string_view>, 7> kActionNames = {{
    {FaultAction::status, "status"},
    {FaultAction::delay, "delay"},
    {FaultAction::malformedBody, "malformedBody"},
    {FaultAction::truncatedBody, "truncatedBody"},
    {FaultAction::closeMidBody, "closeMidBody"},
    {FaultAction::dropConnection, "dropConnection"},
    {FaultAction::redirectLoop, "redirectLoop"},
}};

std::string_view actionName(FaultAction action) {
  for (const auto& [value, name] : kActionNames) {
    if (value == action) {
      return name;
    }
  }
  return "unknown";
}

// The rule's own checks, shared by the C++ and HTTP forms; messages name the JSON keys.
std::regex checkRule(FaultRule& rule) {
  std::regex pattern;
  try {
    pattern = std::regex(rule.path);
  } catch (const std::regex_error& e) {
    throw std::invalid_argument("path is not a valid regular expression: " + std::string(e.what()));
  }
  if (!std::all_of(rule.method.begin(), rule.method.end(), [](char c) { return std::isalpha(static_cast<unsigned char>(c)); })) {
    throw std::invalid_argument("method must be letters, such as GET");
  }
  std::transform(rule.method.begin(), rule.method.end(), rule.method.begin(),
                 [](char c) { return static_cast<char>(std::toupper(static_cast<unsigned char>(c))); });
  if (rule.remaining == 0 || rule.remaining < -1) {
    throw std::invalid_argument("remaining must be -1 (until cleared) or a count from 1");
  }
  if (rule.action == FaultAction::status && (rule.status < 200 || rule.status > 599)) {
    throw std::invalid_argument("status must be from 200 to 599");
  }
  if (rule.action == FaultAction::delay && (rule.delayMs < 0 || rule.delayMs > kMaxDelayMs)) {
    throw std::invalid_argument("delayMs must be from 0 to 600000");
  }
  if (rule.contentType.find_first_of("\r\n") != std::string::npos) {
    throw std::invalid_argument("contentType must be one line");
  }
  if (rule.action == FaultAction::malformedBody && rule.body && rule.body->empty()) {
    throw std::invalid_argument("body of a malformedBody rule must not be empty");
  }
  return pattern;
}

json describe(const FaultRule& rule, int id, std::size_t hits) {
  json out = {{"id", id},
              {"path", rule.path},
              {"action", std::string(actionName(rule.action))},
              {"remaining", rule.remaining},
              {"hits", hits}};
  if (!rule.method.empty()) {
    out["method"] = rule.method;
  }
  switch (rule.action) {
    case FaultAction::status:
      out["status"] = rule.status;
      out["contentType"] = rule.contentType;
      break;
    case FaultAction::delay:
      out["delayMs"] = rule.delayMs;
      break;
    case FaultAction::truncatedBody:
    case FaultAction::closeMidBody:
      if (rule.bytes) {
        out["bytes"] = *rule.bytes;
      }
      break;
    default:
      break;
  }
  if (rule.body && (rule.action == FaultAction::status || rule.action == FaultAction::malformedBody)) {
    out["body"] = *rule.body;
  }
  return out;
}

// One rule of a POST /test/faults body. `where` goes in front of key names in messages.
FaultRule parseRule(const json& in, const std::string& where) {
  if (!in.is_object()) {
    throw RequestError(400, (where.empty() ? "A rule" : where) + " must be a JSON object");
  }
  const json* actionText = optionalMember(in, "action", JsonKind::string, where + "action");
  const json* path = optionalMember(in, "path", JsonKind::string, where + "path");
  if (actionText == nullptr || path == nullptr) {
    throw RequestError(400, where + "path and " + where + "action are required");
  }
  FaultRule rule;
  const std::string name = actionText->get<std::string>();
  // Keys each action takes besides path, method, action and remaining.
  std::vector<std::string_view> ownKeys;
  if (name == "unauthorized") {
    rule = FaultRule::unauthorizedOnce({});
  } else {
    const auto known = std::find_if(kActionNames.begin(), kActionNames.end(),
                                    [&name](const auto& entry) { return entry.second == name; });
    if (known == kActionNames.end()) {
      throw RequestError(400, where + "action must be one of status, unauthorized, delay, malformedBody, "
                                      "truncatedBody, closeMidBody, dropConnection, redirectLoop");
    }
    rule.action = known->first;
  }
  switch (rule.action) {
    case FaultAction::status:
      if (name != "unauthorized") {
        ownKeys = {"status", "body", "contentType"};
      }
      break;
    case FaultAction::delay:
      ownKeys = {"delayMs"};
      break;
    case FaultAction::malformedBody:
      ownKeys = {"body"};
      break;
    case FaultAction::truncatedBody:
    case FaultAction::closeMidBody:
      ownKeys = {"bytes"};
      break;
    case FaultAction::dropConnection:
    case FaultAction::redirectLoop:
      break;
  }
  for (const auto& [key, value] : in.items()) {
    const bool common = key == "path" || key == "method" || key == "action" || key == "remaining";
    if (!common && std::find(ownKeys.begin(), ownKeys.end(), key) == ownKeys.end()) {
      throw RequestError(400, where + key + " does not apply to the " + name + " action");
    }
  }
  rule.path = path->get<std::string>();
  if (const json* v = optionalMember(in, "method", JsonKind::string, where + "method")) {
    rule.method = v->get<std::string>();
  }
  if (const json* v = optionalMember(in, "remaining", JsonKind::integer, where + "remaining")) {
    rule.remaining = v->get<int>();
  }
  if (const json* v = optionalMember(in, "status", JsonKind::integer, where + "status")) {
    rule.status = v->get<int>();
  }
  if (const json* v = optionalMember(in, "body", JsonKind::string, where + "body")) {
    rule.body = v->get<std::string>();
  }
  if (const json* v = optionalMember(in, "contentType", JsonKind::string, where + "contentType")) {
    rule.contentType = v->get<std::string>();
  }
  if (rule.action == FaultAction::delay) {
    const json* v = optionalMember(in, "delayMs", JsonKind::integer, where + "delayMs");
    if (v == nullptr) {
      throw RequestError(400, where + "delayMs is required for the delay action");
    }
    rule.delayMs = v->get<int>();
  }
  if (const json* v = optionalMember(in, "bytes", JsonKind::integer, where + "bytes")) {
    if (v->get<int>() < 0) {
      throw RequestError(400, where + "bytes must not be negative");
    }
    rule.bytes = v->get<std::size_t>();
  }
  try {
    checkRule(rule);
  } catch (const std::invalid_argument& e) {
    throw RequestError(400, where + e.what());
  }
  return rule;
}

// Shutting the socket down makes the client see the connection end with no response at all;
// httplib's own attempt to write the answer afterwards then fails (EPIPE: httplib::Server
// ignores SIGPIPE) and it closes the socket.
// If the socket cannot be found, the fallback still fails the exchange: the status line and
// headers promise a body that never comes.
void drop(const httplib::Request& req, httplib::Response& res) {
  const int sock = connectionSocket(req);
  if (sock >= 0 && ::shutdown(sock, SHUT_RDWR) == 0) {
    res.status = 500;
    return;
  }
  res.status = 200;
  res.set_content_provider(1, "application/octet-stream",
                           [](std::size_t, std::size_t, httplib::DataSink&) { return false; });
}

std::string takeContentType(httplib::Response& res) {
  std::string type = res.get_header_value("Content-Type");
  res.headers.erase("Content-Type");
  return type.empty() ? std::string("text/plain") : type;
}

// A streamed answer (an event stream) has no body to measure: its pieces pass until `bytes` of
// them have, or without a count half of the first piece, and then the connection is aborted.
void cutStream(httplib::Response& res, std::optional<std::size_t> bytes) {
  auto inner = std::move(res.content_provider_);
  res.content_provider_ = nullptr;
  auto budget = std::make_shared<std::optional<std::size_t>>(bytes);
  res.set_chunked_content_provider(
      takeContentType(res), [inner, budget](std::size_t offset, httplib::DataSink& sink) {
        bool cut = false;
        httplib::DataSink proxy;
        proxy.write = [&](const char* data, std::size_t size) {
          if (cut) {
            return false;
          }
          auto& left = *budget;
          if (!left) {
            left = size / 2;
          }
          if (size < *left) {
            *left -= size;
            return sink.write(data, size);
          }
          if (*left > 0) {
            sink.write(data, *left);
          }
          cut = true;
          return false;
        };
        proxy.done = [&sink] { sink.done(); };
        proxy.is_writable = [&] { return !cut && sink.is_writable(); };
        return inner(offset, 0, proxy) && !cut;
      });
}

// Sends part of the body and then gives up: httplib closes a connection whose content provider
// fails. With `chunked` the head promises no length and the last chunk never comes; otherwise
// Content-Length promises the whole body.
void cutBody(httplib::Response& res, std::optional<std::size_t> bytes, bool chunked) {
  if (res.content_provider_) {
    cutStream(res, bytes);
    return;
  }
  if (res.body.empty() && !chunked) {
    return;  // Content-Length 0 cannot come up short
  }
  auto full = std::make_shared<const std::string>(std::move(res.body));
  res.body.clear();
  const std::size_t keep = std::min(bytes.value_or(full->size() / 2), full->empty() ? 0 : full->size() - 1);
  const auto sendPart = [full, keep](httplib::DataSink& sink) {
    if (keep > 0) {
      sink.write(full->data(), keep);
    }
    return false;
  };
  const std::string type = takeContentType(res);
  if (chunked) {
    res.set_chunked_content_provider(type, [sendPart](std::size_t, httplib::DataSink& sink) { return sendPart(sink); });
  } else {
    res.set_content_provider(full->size(), type,
                             [sendPart](std::size_t, std::size_t, httplib::DataSink& sink) { return sendPart(sink); });
  }
}

}  // namespace

std::vector<int> FaultSwitches::add(std::vector<FaultRule> rules) {
  std::vector<Stored> checked;
  for (std::size_t i = 0; i < rules.size(); ++i) {
    try {
      std::regex pattern = checkRule(rules[i]);
      checked.push_back(Stored{0, std::move(rules[i]), std::move(pattern)});
    } catch (const std::invalid_argument& e) {
      throw std::invalid_argument(rules.size() == 1 ? e.what() : "[" + std::to_string(i) + "]." + e.what());
    }
  }
  const std::lock_guard lock(mutex_);
  std::vector<int> ids;
  for (auto& rule : checked) {
    rule.id = nextId_++;
    ids.push_back(rule.id);
    rules_.push_back(std::move(rule));
  }
  return ids;
}

void FaultSwitches::clear() {
  const std::lock_guard lock(mutex_);
  rules_.clear();
}

std::size_t FaultSwitches::hits(int id) const {
  const std::lock_guard lock(mutex_);
  for (const auto& rule : rules_) {
    if (rule.id == id) {
      return rule.hits;
    }
  }
  throw std::invalid_argument("velora-sandbox: no fault rule with id " + std::to_string(id));
}

json FaultSwitches::list() const {
  const std::lock_guard lock(mutex_);
  json out = json::array();
  for (const auto& rule : rules_) {
    out.push_back(describe(rule.rule, rule.id, rule.hits));
  }
  return out;
}

std::optional<FaultRule> FaultSwitches::take(const std::string& method, const std::string& path) {
  if (path == kControlPath) {
    return std::nullopt;
  }
  const std::lock_guard lock(mutex_);
  for (auto& stored : rules_) {
    FaultRule& rule = stored.rule;
    const bool methodMatches =
        rule.method.empty() || rule.method == method || (rule.method == "GET" && method == "HEAD");
    if (rule.remaining == 0 || !methodMatches || !std::regex_match(path, stored.pattern)) {
      continue;
    }
    ++stored.hits;
    if (rule.remaining > 0) {
      --rule.remaining;
    }
    return rule;
  }
  return std::nullopt;
}

bool FaultSwitches::pause(std::chrono::milliseconds delay) const {
  std::unique_lock lock(waitMutex_);
  return !wake_.wait_for(lock, delay, [this] { return stopping_.load(); });
}

void FaultSwitches::wakeAll() {
  // Taking the lock orders this after a waiter's last look at `stopping`, so none sleeps on.
  { const std::lock_guard lock(waitMutex_); }
  wake_.notify_all();
}

bool answerInstead(const FaultRule& rule, const httplib::Request& req, httplib::Response& res) {
  if (rule.action == FaultAction::dropConnection) {
    drop(req, res);
    return true;
  }
  if (rule.action == FaultAction::redirectLoop) {
    // The target as received, query included, so that every round asks for the same thing.
    res.status = 302;
    res.set_header("Location", req.target.empty() ? req.path : req.target);
    return true;
  }
  if (rule.action != FaultAction::status) {
    return false;
  }
  if (rule.body) {
    res.status = rule.status;
    res.set_content(*rule.body, rule.contentType);
  } else {
    sendMessage(res, rule.status, kInjectedMessage);
  }
  return true;
}

void reworkAnswer(const FaultRule& rule, httplib::Response& res) {
  switch (rule.action) {
    case FaultAction::malformedBody:
      // A stream is replaced whole; its session ends with the provider that held it.
      res.content_provider_ = nullptr;
      res.content_length_ = 0;
      res.is_chunked_content_provider_ = false;
      res.body = rule.body.value_or(kMalformedBody);
      break;
    case FaultAction::truncatedBody:
      cutBody(res, rule.bytes, /*chunked=*/false);
      break;
    case FaultAction::closeMidBody:
      cutBody(res, rule.bytes, /*chunked=*/true);
      break;
    default:
      break;
  }
}

void listFaultsRoute(Exchange& x) { sendJson(x.res, 200, x.services.faults.list()); }

// One rule object, or an array of them added all or none; answers them as GET lists them.
void addFaultsRoute(Exchange& x) {
  const json body = json::parse(x.req.body, nullptr, /*allow_exceptions=*/false);
  if (body.is_discarded() || !(body.is_object() || body.is_array())) {
    throw RequestError(400, "Request body must be a JSON object (one rule) or an array of rules");
  }
  std::vector<FaultRule> rules;
  if (body.is_object()) {
    rules.push_back(parseRule(body, ""));
  } else {
    if (body.empty()) {
      throw RequestError(400, "The array of rules is empty");
    }
    for (std::size_t i = 0; i < body.size(); ++i) {
      rules.push_back(parseRule(body[i], "[" + std::to_string(i) + "]."));
    }
  }
  const std::vector<int> ids = x.services.faults.add(std::move(rules));
  json added = json::array();
  for (const auto& rule : x.services.faults.list()) {
    if (std::find(ids.begin(), ids.end(), rule["id"].get<int>()) != ids.end()) {
      added.push_back(rule);
    }
  }
  sendJson(x.res, 200, body.is_object() ? added.at(0) : added);
}

void clearFaultsRoute(Exchange& x) {
  x.services.faults.clear();
  sendMessage(x.res, 200, "Fault rules cleared");
}

}  // namespace velora::sandbox::detail
