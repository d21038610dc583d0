// Every command of the client, each with --verbose, through sessions whose secrets the test can
// read back: none of those secrets may show in what the client prints or in any file it writes
// outside its credential store, and that store must be readable by its owner only.

#include <gtest/gtest.h>
#include <httplib.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "velora_sandbox/Sandbox.hpp"

#include "CliProcess.hpp"
#include "Fakes.hpp"
#include "StoreSteps.hpp"

namespace {

namespace fs = std::filesystem;
namespace demo = velora::sandbox::demo;
using velora::testing::CliResult;
using velora::testing::finishCli;
using velora::testing::slurp;
using velora::testing::TempDir;

const std::string kDemoPhoto = VELORA_SANDBOX_DATA_DIR "/demo-photo.jpg";

/// The values a secret-looking key holds anywhere in `text`, when `text` is JSON.
void collectSecretValues(const nlohmann::json& value, const std::string& key, std::set<std::string>& into) {
  static const std::regex secretKey("token|password|secret", std::regex::icase);
  if (value.is_object()) {
    for (const auto& [k, v] : value.items()) collectSecretValues(v, k, into);
  } else if (value.is_array()) {
    for (const auto& v : value) collectSecretValues(v, key, into);
  } else if (value.is_string() && std::regex_search(key, secretKey) && value.get<std::string>().size() >= 8) {
    into.insert(value.get<std::string>());
  }
}

/// The secrets as they are stored: every token and password in the credential store's files.
/// Each run may replace them, so they are gathered after every run and checked at the end.
void collectStoredSecrets(const fs::path& store, std::set<std::string>& into) {
  if (!fs::exists(store)) return;
  for (const auto& entry : fs::recursive_directory_iterator(store)) {
    if (!entry.is_regular_file()) continue;
    const auto json = nlohmann::json::parse(slurp(entry.path()), nullptr, /*allow_exceptions=*/false);
    collectSecretValues(json, "", into);
  }
}

/// Folder and file modes of the credential store, where they are not 0700 and 0600.
std::vector<std::string> looseModes(const fs::path& store) {
  std::vector<std::string> loose;
  const auto check = [&](const fs::path& p, mode_t wanted) {
    struct stat info {};
    if (::stat(p.c_str(), &info) != 0 || (info.st_mode & 07777) != wanted) {
      loose.push_back(p.string() + " is " + std::to_string(info.st_mode & 07777));
    }
  };
  check(store, 0700);
  for (const auto& entry : fs::recursive_directory_iterator(store)) check(entry.path(), entry.is_directory() ? 0700 : 0600);
  return loose;
}

/// `text` read as base64 (either alphabet); characters outside it are skipped.
std::string fromBase64(const std::string& text) {
  static const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  unsigned value = 0;
  int bits = 0;
  for (char c : text) {
    const auto at = alphabet.find(c == '-' ? '+' : c == '_' ? '/' : c);
    if (at == std::string::npos) continue;
    value = (value << 6) | static_cast<unsigned>(at);
    bits += 6;
    if (bits >= 8) {
      bits -= 8;
      out.push_back(static_cast<char>((value >> bits) & 0xFF));
    }
  }
  return out;
}

struct CliRun {
  std::vector<std::string> args;
  std::vector<std::string> env = {};
  /// Fills a placeholder ("{desk}") from a field of the run's --json output.
  std::string captures = {};
  std::string field = {};
};

std::string substituted(std::string arg, const std::map<std::string, std::string>& values) {
  for (const auto& [name, value] : values) {
    for (auto at = arg.find(name); at != std::string::npos; at = arg.find(name)) arg.replace(at, name.size(), value);
  }
  return arg;
}

/// The first value of `field` anywhere in `json`, as text.
std::string findField(const nlohmann::json& json, const std::string& field) {
  if (json.is_object()) {
    if (json.contains(field)) return json[field].is_string() ? json[field].get<std::string>() : json[field].dump();
    for (const auto& [k, v] : json.items()) {
      if (auto found = findField(v, field); !found.empty()) return found;
    }
  } else if (json.is_array()) {
    for (const auto& v : json) {
      if (auto found = findField(v, field); !found.empty()) return found;
    }
  }
  return {};
}

TEST(CliSecrets, NoCommandShowsOrWritesASecret) {
  velora::sandbox::SandboxOptions options;
  options.autoLoginUser = demo::kUser;
  options.positionIntervalMs = 50;
  options.widgetIntervalMs = 50;
  velora::sandbox::Sandbox sandbox(options);
  TempDir home;
  const fs::path store = home.path / "data" / "velora-cli" / "keychain";
  const int callbackPort = velora::testing::closedLoopbackPort();
  const std::string redirect = "http://127.0.0.1:" + std::to_string(callbackPort) + "/callback";

  // Each session kind in turn, so that each kind's stored secrets are exercised.
  const std::vector<CliRun> runs{
      {{"--endpoint", sandbox.baseUrl(), "--guest-secret", demo::kGuestSecret, "--redirect-uri", redirect, "check"}},
      {{"login", "guest"}},
      {{"status", "--json"}},
      {{"device-config"}},
      {{"items", "list"}},
      {{"items", "set", "1", "power", "on"}},
      {{"call", "checkConnection"}},
      {{"languages"}},
      {{"watch", "items", "--seconds", "1"}},
      {{"watch", "events", "--seconds", "1"}},
      {{"watch", "positions", "--tag", demo::kDemoTagId, "--count", "1"}},
      {{"watch", "diagnostic", "--tag", demo::kDemoTagId, "--count", "1"}},
      {{"watch", "home", demo::kDemoTagId, "--count", "1"}},
      {{"login", "password", demo::kUser}, {std::string("VELORA_PASSWORD=") + demo::kPassword}},
      {{"book", "search", "--date", "tomorrow", "--type", "DESK", "--json"}, {}, "{desk}", "id"},
      {{"book", "DESK", "{desk}", "--date", "tomorrow", "--json"}, {}, "{booking}", "bookingId"},
      {{"slots", "{desk}", "--date", "tomorrow"}},
      {{"favourite", "{desk}"}},
      {{"agenda", "--from", "tomorrow", "--to", "tomorrow"}},
      {{"home"}},
      {{"locker", "nearest", "M", "--json"}, {}, "{locker}", "id"},
      {{"locker", "unlock", "{locker}"}},
      {{"locker", "release", "{locker}"}},
      {{"book", "cancel", "{booking}"}},
      {{"notifications", "register"}},
      {{"tickets", "managers"}},
      {{"tickets", "form", "category=electrical"}},
      {{"tickets", "new", "--photo", kDemoPhoto, "description=Lamp flickers", "category=electrical", "circuit=B2", "--json"},
       {}, "{ticket}", "ticketId"},
      {{"tickets", "list"}},
      {{"tickets", "mine"}},
      {{"tickets", "show", "{ticket}"}},
      {{"tickets", "delete", "{ticket}"}},
      {{"notifications", "list", "--json"}, {}, "{notification}", "id"},
      {{"notifications", "count"}},
      {{"notifications", "read", "{notification}"}},
      {{"notifications", "delete", "{notification}"}},
      {{"dnd", "show"}},
      {{"dnd", "set", "--resource", "demo", "dnd-day=2030-05-04"}},
      {{"advertise", "--simulate", "--seconds", "1"}},
      {{"map", "--seconds", "1"}, {"DISPLAY="}},
      {{"login", "qr", demo::kLoginCode}},
      {{"watch", "group", "11", "--count", "1"}},
      {{"logout"}},
      {{"log", "show"}},
  };
  const std::vector<std::string> env{"VELORA_VERBOSE=1"};

  std::set<std::string> secrets{demo::kGuestSecret, demo::kPassword};
  std::map<std::string, std::string> captured;
  std::vector<std::pair<std::string, std::string>> outputs;  // (what ran, everything it printed)
  const auto keep = [&](const std::string& what, const CliResult& r) {
    EXPECT_LT(r.exitCode, 128) << what << " was killed:\n" << r.err;
    outputs.emplace_back(what, r.out + "\n" + r.err);
    collectStoredSecrets(store, secrets);
  };
  for (const CliRun& run : runs) {
    std::vector<std::string> args;
    std::string what = "velora";
    for (const auto& arg : run.args) {
      args.push_back(substituted(arg, captured));
      what += " " + args.back();
    }
    std::vector<std::string> runEnv = env;
    runEnv.insert(runEnv.end(), run.env.begin(), run.env.end());
    const CliResult r = finishCli(home.path, velora::testing::startCli(VELORA_CLI_PATH, home.path, args, runEnv));
    keep(what, r);
    if (!run.captures.empty()) {
      const std::string value = findField(nlohmann::json::parse(r.out, nullptr, false), run.field);
      ASSERT_FALSE(value.empty()) << what << " gave no " << run.field << ":\n" << r.out << r.err;
      captured[run.captures] = value;
    }
  }

  // The browser login, with this test as the browser: the sandbox's login page signs the demo user
  // in at once and sends the code to the client's loopback callback.
  const pid_t browser = velora::testing::startCli(VELORA_CLI_PATH, home.path, {"login", "browser"}, env);
  std::smatch address;
  static const std::regex loginAddress("(http://127\\.0\\.0\\.1:[0-9]+)(/realms/[^\\s]+)");
  std::string prompt;  // outlives `address`, which points into it
  for (int i = 0; i < 1000; ++i) {
    prompt = slurp(home.path / "stderr");
    if (std::regex_search(prompt, address, loginAddress)) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  ASSERT_FALSE(address.empty()) << prompt;
  httplib::Client browserClient(address[1].str());
  browserClient.set_follow_location(true);
  browserClient.Get(address[2].str());
  const CliResult browserLogin = finishCli(home.path, browser);
  EXPECT_EQ(browserLogin.exitCode, 0) << browserLogin.err;
  keep("velora login browser", browserLogin);
  keep("velora status", finishCli(home.path, velora::testing::startCli(VELORA_CLI_PATH, home.path, {"status"}, env)));

  // Tokens of every kind were issued, so the checks below had something to find.
  EXPECT_GE(secrets.size(), 6u);
  const auto expectNoSecret = [&](const std::string& where, const std::string& text) {
    for (const auto& secret : secrets) {
      EXPECT_EQ(text.find(secret), std::string::npos) << where << " shows '" << secret << "'";
    }
  };
  // What is printed holds nothing even shaped like a token; files may hold encoded data (the
  // settings keep the environment as base64), so those are searched decoded as well.
  static const std::regex tokenLike("[A-Za-z0-9_-]{40,}");
  static const std::regex encoded("[A-Za-z0-9+/_-]{16,}");
  for (const auto& [what, printed] : outputs) {
    expectNoSecret(what, printed);
    std::smatch token;
    EXPECT_FALSE(std::regex_search(printed, token, tokenLike)) << what << " shows a token: " << token.str(0);
  }
  for (const auto& entry : fs::recursive_directory_iterator(home.path)) {
    if (!entry.is_regular_file() || entry.path().string().starts_with(store.string())) continue;
    const std::string text = slurp(entry.path());
    expectNoSecret(entry.path().string(), text);
    for (std::sregex_iterator it(text.begin(), text.end(), encoded), end; it != end; ++it) {
      expectNoSecret(entry.path().string() + " (decoded)", fromBase64(it->str()));
    }
  }
  EXPECT_EQ(looseModes(store), std::vector<std::string>{});
}

}  // namespace
