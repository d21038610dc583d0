// The WebKitGTK web view against real pages, on a virtual display. Every callback must arrive on
// the GLib main loop's thread, which is the test's own thread here.

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>

#include <nlohmann/json.hpp>

#include <velora/platform/WebKitWebView.hpp>
#include <velora_sandbox/Sandbox.hpp>

#include "BrowserSupport.hpp"

namespace velora {
namespace {

constexpr auto kPatience = std::chrono::seconds(30);

// Objects cross from the page with their keys in no promised order, so JSON objects and arrays
// compare by value; any other text compares as it is.
void expectSameText(const std::optional<std::string>& actual, const std::optional<std::string>& expected) {
  if (actual && expected && !expected->empty() && (expected->front() == '{' || expected->front() == '[')) {
    EXPECT_EQ(nlohmann::json::parse(*actual, nullptr, false), nlohmann::json::parse(*expected)) << *actual;
  } else {
    EXPECT_EQ(actual, expected);
  }
}

using testing::percentEncode;

class WebViewTest : public ::testing::Test {
 protected:
  void SetUp() override {
    WebViewOptions options;
    options.offscreen = true;
    options.width = 320;
    options.height = 240;
    view = makeWebKitWebView(options);
    WebView::NavigationObserver observer;
    observer.started = [this](const std::string& url) { onQueue(); started.push_back(url); };
    observer.finished = [this](const std::string& url) { onQueue(); finished.push_back(url); };
    observer.failed = [this](const std::string& url, const std::string& error) {
      onQueue();
      failures.emplace_back(url, error);
    };
    view->setNavigationObserver(observer);
  }

  // Checked inside every callback the view makes.
  void onQueue() {
    EXPECT_TRUE(queue.isCurrent());
    EXPECT_EQ(std::this_thread::get_id(), testThread);
  }

  bool waitFor(const std::function<bool()>& done) { return queue.runUntil(done, kPatience); }

  std::string pageUrl(const std::string& html) {
    return sandbox.baseUrl() + "/test/status/200?type=" + percentEncode("text/html; charset=utf-8") +
           "&body=" + percentEncode(html);
  }

  void loadAndWait(const std::string& url, const HttpHeaders& headers = {}) {
    const auto before = finished.size() + failures.size();
    view->load(url, headers);
    ASSERT_TRUE(waitFor([&] { return finished.size() + failures.size() > before; })) << "no navigation result";
  }

  std::pair<std::optional<std::string>, std::optional<std::string>> evaluate(const std::string& script) {
    bool done = false;
    std::pair<std::optional<std::string>, std::optional<std::string>> outcome;
    view->evaluateScript(script, [&](std::optional<std::string> result, std::optional<std::string> error) {
      onQueue();
      outcome = {std::move(result), std::move(error)};
      done = true;
    });
    EXPECT_TRUE(waitFor([&] { return done; })) << "no result for " << script;
    return outcome;
  }

  GlibMainQueue queue;
  const std::thread::id testThread = std::this_thread::get_id();
  sandbox::Sandbox sandbox{testing::browserSandboxOptions()};
  std::shared_ptr<WebView> view;
  std::vector<std::string> started;
  std::vector<std::string> finished;
  std::vector<std::pair<std::string, std::string>> failures;
};

TEST_F(WebViewTest, NavigationReportsFinishedOrFailed) {
  struct Case {
    const char* name;
    bool reachable;
  };
  sandbox::Sandbox closed;
  closed.stop();
  for (const Case& c : {Case{"page", true}, Case{"closed port", false}}) {
    SCOPED_TRACE(c.name);
    started.clear();
    finished.clear();
    failures.clear();
    const std::string url = c.reachable ? pageUrl("<title>ok</title>") : closed.baseUrl() + "/";
    loadAndWait(url);
    ASSERT_EQ(started.size(), 1u);
    EXPECT_EQ(started[0], url);
    if (c.reachable) {
      EXPECT_EQ(finished, std::vector<std::string>{url});
      EXPECT_TRUE(failures.empty());
    } else {
      ASSERT_EQ(failures.size(), 1u);
      EXPECT_EQ(failures[0].first, url);
      EXPECT_FALSE(failures[0].second.empty());
      // A failed navigation reports no "finished" afterwards, even once the loop has run on.
      evaluate("1");
      EXPECT_TRUE(finished.empty());
    }
  }
}

TEST_F(WebViewTest, ScriptResultsAreRenderedAsText) {
  loadAndWait(pageUrl("<title>Map</title><body>x</body>"));
  struct Case {
    const char* script;
    std::optional<std::string> result;
    std::optional<std::string> errorContains;
  };
  const Case cases[] = {
      {"'plain ' + 'text'", "plain text", {}},
      {"'\"quoted\"'", "\"quoted\"", {}},
      {"''", "", {}},
      {"document.title", "Map", {}},
      {"6 * 7", "42", {}},
      {"1.5", "1.5", {}},
      {"true", "true", {}},
      {"null", "null", {}},
      {"({a: 1, b: [1, 'x'], c: {d: null}})", R"({"a":1,"b":[1,"x"],"c":{"d":null}})", {}},
      {"[]", "[]", {}},
      {"undefined", {}, {}},
      {"void document.title", {}, {}},
      {"throw new Error('boom')", {}, "boom"},
      {"notDefinedAnywhere", {}, "notDefinedAnywhere"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.script);
    const auto [result, error] = evaluate(c.script);
    expectSameText(result, c.result);
    if (c.errorContains) {
      ASSERT_TRUE(error.has_value());
      EXPECT_NE(error->find(*c.errorContains), std::string::npos) << *error;
    } else {
      EXPECT_EQ(error, std::nullopt);
    }
  }
}

TEST_F(WebViewTest, PostedMessagesReachTheNamedHandlerAsText) {
  std::vector<std::string> messages;
  view->addScriptMessageHandler("customJSHandler", [&](const std::string& body) {
    onQueue();
    messages.push_back(body);
  });
  // The page posts while it loads, before any script of ours runs.
  loadAndWait(pageUrl("<script>window.webkit.messageHandlers.customJSHandler.postMessage({kind: 'loaded'})</script>"));
  ASSERT_TRUE(waitFor([&] { return !messages.empty(); }));
  EXPECT_EQ(messages[0], R"({"kind":"loaded"})");

  struct Case {
    const char* posted;
    const char* received;
  };
  const Case cases[] = {
      {"{event: 'floorChanged', floor: 3, ids: [1, 2]}", R"({"event":"floorChanged","floor":3,"ids":[1,2]})"},
      {"'plain text'", "plain text"},
      {"'{\"already\":\"json\"}'", R"({"already":"json"})"},
      {"12.5", "12.5"},
      {"false", "false"},
      {"null", "null"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.posted);
    messages.clear();
    evaluate(std::string("window.webkit.messageHandlers.customJSHandler.postMessage(") + c.posted + ")");
    ASSERT_TRUE(waitFor([&] { return !messages.empty(); }));
    ASSERT_EQ(messages.size(), 1u);
    expectSameText(messages[0], c.received);
  }

  // Once removed, the name is gone from the page.
  view->removeScriptMessageHandler("customJSHandler");
  EXPECT_EQ(evaluate("typeof window.webkit?.messageHandlers?.customJSHandler").first, "undefined");
}

TEST_F(WebViewTest, ExtraHeadersGoWithThePageRequest) {
  const std::string url = pageUrl("<title>headers</title>");
  loadAndWait(url, HttpHeaders{{"Authorization", "Bearer page-token"}, {"X-Velora-Client", "map"}});
  ASSERT_EQ(failures.size(), 0u);
  const auto requests = sandbox.requests("/test/status/200");
  ASSERT_EQ(requests.size(), 1u);
  const auto header = [&](const std::string& name) {
    const auto found = requests[0].headers.find(name);
    return found == requests[0].headers.end() ? std::string("(missing)") : found->second;
  };
  EXPECT_EQ(header("authorization"), "Bearer page-token");
  EXPECT_EQ(header("x-velora-client"), "map");
}

TEST_F(WebViewTest, ColorSchemeReachesTheMediaQuery) {
  loadAndWait(pageUrl("<title>scheme</title>"));
  for (const auto& [scheme, dark] : {std::pair{ColorScheme::dark, "true"}, std::pair{ColorScheme::light, "false"}}) {
    SCOPED_TRACE(dark);
    view->setColorScheme(scheme);
    const std::string query = "matchMedia('(prefers-color-scheme: dark)').matches";
    EXPECT_TRUE(waitFor([&] { return evaluate(query).first == dark; }));
  }
}

TEST_F(WebViewTest, SnapshotIsAPngOfWhatIsShown) {
  loadAndWait(pageUrl("<body style='margin:0;background:rgb(255,0,0)'>"
                      "<div style='position:absolute;left:0;top:0;width:160px;height:240px;background:rgb(0,0,255)'>"
                      "</div></body>"));
  std::optional<std::vector<std::uint8_t>> png;
  std::optional<std::string> error;
  bool done = false;
  view->takeSnapshot([&](std::optional<std::vector<std::uint8_t>> image, std::optional<std::string> failure) {
    onQueue();
    png = std::move(image);
    error = std::move(failure);
    done = true;
  });
  ASSERT_TRUE(waitFor([&] { return done; }));
  ASSERT_TRUE(png.has_value()) << error.value_or("");
  const std::vector<std::uint8_t> signature{0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
  ASSERT_GE(png->size(), signature.size());
  EXPECT_TRUE(std::equal(signature.begin(), signature.end(), png->begin()));

  cairo_surface_t* image = testing::decodePng(*png);
  ASSERT_EQ(cairo_surface_status(image), CAIRO_STATUS_SUCCESS);
  EXPECT_EQ(cairo_image_surface_get_width(image), 320);
  EXPECT_EQ(cairo_image_surface_get_height(image), 240);
  cairo_surface_flush(image);
  const auto pixel = [&](int x, int y) {
    const auto* row = cairo_image_surface_get_data(image) + y * cairo_image_surface_get_stride(image);
    std::uint32_t argb;
    std::memcpy(&argb, row + x * 4, sizeof argb);
    return argb & 0xffffffu;
  };
  struct Case {
    int x, y;
    std::uint32_t rgb;
  };
  for (const Case& c : {Case{40, 120, 0x0000ffu}, Case{280, 120, 0xff0000u}}) {
    SCOPED_TRACE(std::to_string(c.x) + "," + std::to_string(c.y));
    EXPECT_EQ(pixel(c.x, c.y), c.rgb);
  }
  cairo_surface_destroy(image);
}

TEST(GlibMainQueueTest, WorkFromAnyThreadRunsOnTheLoopInOrder) {
  using Clock = std::chrono::steady_clock;
  constexpr auto kDelay = std::chrono::milliseconds(50);
  GlibMainQueue queue;
  const auto loopThread = std::this_thread::get_id();
  std::vector<std::string> ran;
  Clock::time_point delayedPosted;
  Clock::time_point delayedRan;
  EXPECT_FALSE(queue.isCurrent());
  std::thread other([&] {
    delayedPosted = Clock::now();
    queue.postAfter(kDelay, [&] {
      delayedRan = Clock::now();
      ran.push_back("delayed");
    });
    for (const char* name : {"first", "second", "third"}) {
      queue.post([&, name] {
        EXPECT_TRUE(queue.isCurrent());
        EXPECT_EQ(std::this_thread::get_id(), loopThread);
        ran.push_back(name);
      });
    }
  });
  other.join();
  ASSERT_TRUE(queue.runUntil([&] { return ran.size() == 4; }, kPatience));
  ran.erase(std::remove(ran.begin(), ran.end(), "delayed"), ran.end());
  EXPECT_EQ(ran, (std::vector<std::string>{"first", "second", "third"}));
  EXPECT_GE(delayedRan - delayedPosted, kDelay);

  // run() returns once quit() is posted through the queue itself.
  queue.post([&] { queue.quit(); });
  queue.run();
  EXPECT_FALSE(queue.isCurrent());
}

}  // namespace
}  // namespace velora
