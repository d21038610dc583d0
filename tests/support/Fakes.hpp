#pragma once
// Fakes for unit tests: a scripted transport, a main queue drained by the test, a settable clock
// and a scripted session renewer. Nothing here sleeps.

#include <gtest/gtest.h>

#include <deque>
#include <map>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <velora/velora.hpp>
#include <velora/platform/Platform.hpp>

namespace velora::testing {

/// Answers each request with the reply of `responder` (by default 404), synchronously on the
/// calling thread, and records every request as it left.
class FakeTransport : public HttpTransport {
 public:
  struct Reply {
    int status = 200;
    std::string body;
    std::optional<TransportError> error;
  };
  std::function<Reply(const HttpRequest&)> responder = [](const HttpRequest&) { return Reply{404, ""}; };

  std::shared_ptr<HttpCall> start(HttpRequest request, std::shared_ptr<HttpDelegate> delegate) override;
  std::vector<HttpRequest> requests() const;

 private:
  mutable std::mutex mutex_;
  std::vector<HttpRequest> requests_;
};

/// Keeps every started request and its delegate so the test can play the server.
class SteppedTransport : public HttpTransport {
 public:
  struct Started {
    HttpRequest request;
    std::shared_ptr<HttpDelegate> delegate;
    bool cancelled = false;
  };
  class Call : public HttpCall {
   public:
    explicit Call(Started* started) : started_(started) {}
    void cancel() override { started_->cancelled = true; }

   private:
    Started* started_;
  };
  std::shared_ptr<HttpCall> start(HttpRequest request, std::shared_ptr<HttpDelegate> delegate) override {
    started.push_back(std::make_unique<Started>(Started{std::move(request), std::move(delegate)}));
    return std::make_shared<Call>(started.back().get());
  }
  HttpDelegate& last() { return *started.back()->delegate; }
  std::vector<std::unique_ptr<Started>> started;
};

/// Work posted here runs only when the test drains it, on the test's thread.
class ManualQueue : public MainQueue {
 public:
  void post(std::function<void()> work) override;
  void postAfter(std::chrono::milliseconds delay, std::function<void()> work) override;
  bool isCurrent() const override { return draining_; }
  /// Runs everything due (including work posted meanwhile); returns how many items ran.
  int drain();
  void advance(std::chrono::milliseconds by);

 private:
  std::mutex mutex_;
  std::multimap<std::chrono::milliseconds, std::function<void()>> work_;
  std::chrono::milliseconds now_{0};
  bool draining_ = false;
};

class ManualClock : public Clock {
 public:
  Date now() const override { return now_; }
  Date now_ = dateFromReferenceSeconds(700000000);
};

/// A renewer whose state and outcomes the test sets. Renewals answer at once, on the caller's thread.
class FakeRenewer : public SessionRenewer {
 public:
  TokenState state;
  std::optional<std::string> token;
  /// What the next renewal ends with; a token outcome also makes the access token valid.
  RenewalResult outcome{true, nullptr};
  std::string renewedToken = "renewed-token";
  int refreshes = 0;
  int captives = 0;

  TokenState tokenState() const override {
    std::lock_guard lock(mutex_);
    return state;
  }
  std::optional<std::string> accessToken() const override {
    std::lock_guard lock(mutex_);
    return token;
  }
  void refresh(Completion completion) override { completion(renew(refreshes)); }
  void captiveReauth(Completion completion) override { completion(renew(captives)); }

 private:
  RenewalResult renew(int& counter);
  mutable std::mutex mutex_;  // renewals and token reads may come from many threads
};

/// Runs posted work at once on the posting thread: with the synchronous fake transport, a whole
/// request (renewals included) runs on the test's thread.
class InlineExecutor : public Executor {
 public:
  void post(std::function<void()> work) override { work(); }
};

/// Keychain items in memory.
class MemorySecureStore : public SecureStore {
 public:
  int add(const std::optional<std::string>& service, const std::string& account, const Bytes& data) override;
  int update(const std::optional<std::string>& service, const std::string& account, const Bytes& data) override;
  int copyMatching(const std::optional<std::string>& service, const std::string& account, Bytes* data) override;
  int remove(const std::optional<std::string>& service, const std::string& account) override;

 private:
  std::mutex mutex_;
  std::map<std::pair<std::optional<std::string>, std::string>, Bytes> items_;
};

/// A browser that answers every session with the callback URL `answer` returns (or an error).
class FakeBrowser : public BrowserAuthSession {
 public:
  std::function<std::optional<std::string>(const std::string& url)> answer = [](const std::string&) { return std::nullopt; };
  std::vector<std::string> opened;
  void start(const std::string& url, const std::string& scheme, Completion completion) override;
};

/// A platform of fakes with an in-memory defaults store and a host "test.app".
struct FakePlatform {
  std::shared_ptr<FakeTransport> transport = std::make_shared<FakeTransport>();
  std::shared_ptr<ManualQueue> queue = std::make_shared<ManualQueue>();
  std::shared_ptr<Executor> executor = std::make_shared<InlineExecutor>();
  std::shared_ptr<MemoryStore> defaults = std::make_shared<MemoryStore>();
  std::shared_ptr<ManualClock> clock = std::make_shared<ManualClock>();
  std::shared_ptr<MemorySecureStore> secureStore = std::make_shared<MemorySecureStore>();
  std::shared_ptr<FakeBrowser> browser = std::make_shared<FakeBrowser>();
  /// Absent unless a test sets one: no connectivity.
  std::shared_ptr<Reachability> reachability;
  std::shared_ptr<NotificationCenter> notifications = NotificationCenter::make();
  std::vector<std::string> consoleLines;
  std::optional<std::string> bundleIdentifier = "test.app";
  AnyCodable info;
  /// Tests run the same in every build type: assertions print unless a test asks otherwise.
  bool debugAssertionsStop = false;

  Platform platform();
};

/// A facade on `fakes` for `environment`; `loggedIn` installs a login layer holding a valid
/// token "tok".
std::shared_ptr<Orvane> makeTestFacade(FakePlatform& fakes, std::optional<EnvironmentModel> environment, bool loggedIn);

/// A loopback port where nothing listens (connecting to it is refused).
int closedLoopbackPort();

/// Everything a server on loopback `port` writes on a fresh connection after `request`, until it
/// closes: the bytes as sent, for what an HTTP client would rewrite or hide.
std::string rawExchange(int port, const std::string& request);

/// The reply `task` was refused with (its APIError's); a failure of the test when it succeeds.
template <class T>
ResponseMessage failureOf(Task<T> task) {
  try {
    task.get();
  } catch (const APIError& e) {
    return e.responseMessage;
  }
  ADD_FAILURE() << "the operation succeeded";
  return {};
}

/// The message `json` fails to decode as an R with, or "decoded" when it decodes.
template <class R>
std::string decodingError(const std::string& json) {
  try {
    decodeJSON<R>(json);
  } catch (const DecodingError& e) {
    return e.what();
  }
  return "decoded";
}

/// Polls `condition` until it holds; false when it still does not after `limit`.
bool eventually(const std::function<bool()>& condition, std::chrono::milliseconds limit = std::chrono::seconds(10));

}  // namespace velora::testing
