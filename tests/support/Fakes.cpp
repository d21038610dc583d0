#include "Fakes.hpp"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <thread>

namespace velora::testing {
namespace {
class NoCall : public HttpCall {
 public:
  void cancel() override {}
};
}  // namespace

std::shared_ptr<HttpCall> FakeTransport::start(HttpRequest request, std::shared_ptr<HttpDelegate> delegate) {
  {
    std::lock_guard lock(mutex_);
    requests_.push_back(request);
  }
  const Reply reply = responder(request);
  if (reply.error) {
    delegate->didComplete(reply.error);
  } else {
    delegate->didReceiveResponse(HttpResponseHead{reply.status, {}, request.url});
    if (!reply.body.empty()) delegate->didReceiveData(reply.body);
    delegate->didComplete(std::nullopt);
  }
  return std::make_shared<NoCall>();
}

std::vector<HttpRequest> FakeTransport::requests() const {
  std::lock_guard lock(mutex_);
  return requests_;
}

void ManualQueue::post(std::function<void()> work) { postAfter(std::chrono::milliseconds(0), std::move(work)); }

void ManualQueue::postAfter(std::chrono::milliseconds delay, std::function<void()> work) {
  std::lock_guard lock(mutex_);
  work_.emplace(now_ + delay, std::move(work));
}

int ManualQueue::drain() {
  int ran = 0;
  while (true) {
    std::function<void()> work;
    {
      std::lock_guard lock(mutex_);
      auto first = work_.begin();
      if (first == work_.end() || first->first > now_) return ran;
      work = std::move(first->second);
      work_.erase(first);
    }
    draining_ = true;
    work();
    draining_ = false;
    ++ran;
  }
}

void ManualQueue::advance(std::chrono::milliseconds by) {
  {
    std::lock_guard lock(mutex_);
    now_ += by;
  }
  drain();
}

RenewalResult FakeRenewer::renew(int& counter) {
  std::lock_guard lock(mutex_);
  ++counter;
  if (outcome.gotToken) {
    token = renewedToken;
    state.accessTokenValid = true;
  }
  return outcome;
}

int MemorySecureStore::add(const std::optional<std::string>& service, const std::string& account, const Bytes& data) {
  std::lock_guard lock(mutex_);
  return items_.try_emplace({service, account}, data).second ? secure_status::kSuccess : secure_status::kDuplicateItem;
}

int MemorySecureStore::update(const std::optional<std::string>& service, const std::string& account, const Bytes& data) {
  std::lock_guard lock(mutex_);
  auto it = items_.find({service, account});
  if (it == items_.end()) return secure_status::kItemNotFound;
  it->second = data;
  return secure_status::kSuccess;
}

int MemorySecureStore::copyMatching(const std::optional<std::string>& service, const std::string& account, Bytes* data) {
  std::lock_guard lock(mutex_);
  auto it = items_.find({service, account});
  if (it == items_.end()) return secure_status::kItemNotFound;
  *data = it->second;
  return secure_status::kSuccess;
}

int MemorySecureStore::remove(const std::optional<std::string>& service, const std::string& account) {
  std::lock_guard lock(mutex_);
  return items_.erase({service, account}) ? secure_status::kSuccess : secure_status::kItemNotFound;
}

void FakeBrowser::start(const std::string& url, const std::string&, Completion completion) {
  opened.push_back(url);
  if (auto callback = answer(url)) return completion(callback, std::nullopt);
  completion(std::nullopt, PlatformError("browser closed", -1));
}

Platform FakePlatform::platform() {
  Platform p;
  p.transport = transport;
  p.mainQueue = queue;
  p.executor = executor;
  p.defaults = defaults;
  p.host = std::make_shared<StaticHostInfo>(bundleIdentifier, info);
  p.clock = clock;
  p.secureStore = secureStore;
  p.browser = browser;
  p.reachability = reachability;
  p.notifications = notifications;
  p.customAuthentication = makeUnavailableCustomAuthenticationHandler();
  p.documentsDirectory = std::filesystem::temp_directory_path();
  p.console = [this](std::string_view line) { consoleLines.emplace_back(line); };
  p.debugAssertionsStop = debugAssertionsStop;
  return p;
}

std::shared_ptr<Orvane> makeTestFacade(FakePlatform& fakes, std::optional<EnvironmentModel> environment, bool loggedIn) {
  Orvane::setupSDK(std::move(environment), fakes.platform());
  auto facade = Orvane::make(fakes.platform());
  if (loggedIn) {
    auto renewer = std::make_shared<FakeRenewer>();
    renewer->state = {true, true, true};
    renewer->token = "tok";
    facade->setSessionRenewer(renewer);
    facade->setupSession();
  }
  return facade;
}

int closedLoopbackPort() {
  int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
  socklen_t length = sizeof address;
  ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
  ::close(fd);
  return ntohs(address.sin_port);
}

std::string rawExchange(int port, const std::string& request) {
  const int sock = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_port = htons(static_cast<std::uint16_t>(port));
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  std::string reply;
  char buf[4096];
  if (::connect(sock, reinterpret_cast<const sockaddr*>(&addr), sizeof addr) == 0 &&
      ::send(sock, request.data(), request.size(), MSG_NOSIGNAL) > 0) {
    for (ssize_t n; (n = ::recv(sock, buf, sizeof buf, 0)) > 0;) reply.append(buf, static_cast<std::size_t>(n));
  }
  ::close(sock);
  return reply;
}

bool eventually(const std::function<bool()>& condition, std::chrono::milliseconds limit) {
  for (const auto until = std::chrono::steady_clock::now() + limit; !condition() && std::chrono::steady_clock::now() < until;) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return condition();
}

}  // namespace velora::testing
