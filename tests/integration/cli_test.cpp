// The velora client as a user runs it: a subprocess against an in-process sandbox, with its state
// in private XDG folders and none of the caller's VELORA_* variables.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include <velora/core/OperationRegistry.hpp>

#include "velora_sandbox/Sandbox.hpp"

#include "CliProcess.hpp"
#include "Fakes.hpp"
#include "StoreSteps.hpp"

namespace {

namespace fs = std::filesystem;
namespace demo = velora::sandbox::demo;
using velora::sandbox::Sandbox;
using velora::sandbox::SandboxOptions;

using velora::testing::TempDir;

using Result = velora::testing::CliResult;
using velora::testing::slurp;
using velora::testing::finishCli;

pid_t startCli(const fs::path& home, const std::vector<std::string>& args, const std::vector<std::string>& extraEnv) {
  return velora::testing::startCli(VELORA_CLI_PATH, home, args, extraEnv);
}

Result runCli(const fs::path& home, const std::vector<std::string>& args, const std::vector<std::string>& extraEnv) {
  return finishCli(home, startCli(home, args, extraEnv));
}

/// Standard error without the library's notice that secrets are kept in files (no Secret Service
/// runs here), which it prints on every start.
std::string withoutStoreNotice(const std::string& err) {
  return std::regex_replace(err, std::regex("velora: no Secret Service [^\n]*\n"), "");
}

nlohmann::json parseOnly(const std::string& out) {
  // The whole of standard output must be one JSON document: library console lines must not leak.
  return nlohmann::json::parse(out, nullptr, /*allow_exceptions=*/false);
}

// A row of a table of client runs, all against one state folder unless freshState.
struct Case {
  const char* name;
  bool freshState;  // otherwise the state left by the rows above (the rows run in order)
  std::vector<std::string> args;
  std::vector<std::string> env;
  int exitCode;
  const char* outContains;
  const char* errContains;
  std::function<void(const Result&)> more = {};
};

/// Runs the rows in order, in `state` unless given none; `after` sees every run and the state
/// folder it used.
void runCases(const std::vector<Case>& cases, const std::vector<std::string>& commonEnv = {},
              const std::function<void(const Result&, const fs::path&)>& after = {}, const fs::path& state = {}) {
  TempDir shared;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    TempDir fresh;
    const fs::path& home = c.freshState ? fresh.path : state.empty() ? shared.path : state;
    std::vector<std::string> env = commonEnv;
    env.insert(env.end(), c.env.begin(), c.env.end());
    const Result r = runCli(home, c.args, env);
    EXPECT_EQ(r.exitCode, c.exitCode) << "stdout: " << r.out << "\nstderr: " << r.err;
    EXPECT_NE(r.out.find(c.outContains), std::string::npos) << r.out;
    EXPECT_NE(r.err.find(c.errContains), std::string::npos) << r.err;
    if (c.more) c.more(r);
    if (after) after(r, home);
  }
}

// ---- secrets ---------------------------------------------------------------------------------

fs::path consoleLog(const fs::path& home) { return home / "data" / "velora-cli" / "console.log"; }

/// Neither a known secret nor anything shaped like the realm's tokens (43 base64url characters;
/// any run of 40 or more counts) appears in `text`.
void expectNoSecrets(const std::string& where, const std::string& text, const std::vector<std::string>& secrets) {
  static const std::regex tokenLike("[A-Za-z0-9_-]{40,}");
  for (const auto& secret : secrets) {
    EXPECT_EQ(text.find(secret), std::string::npos) << where << " shows '" << secret << "':\n" << text;
  }
  std::smatch match;
  EXPECT_FALSE(std::regex_search(text, match, tokenLike)) << where << " shows a token: " << match.str(0);
}

std::function<void(const Result&, const fs::path&)> checkNoSecrets(std::vector<std::string> secrets) {
  return [secrets = std::move(secrets)](const Result& r, const fs::path& home) {
    expectNoSecrets("stdout", r.out, secrets);
    expectNoSecrets("stderr", r.err, secrets);
    expectNoSecrets("console.log", slurp(consoleLog(home)), secrets);
  };
}

// ---- the realm, as the tests watch it --------------------------------------------------------

const std::string kTokenPath = "/realms/velora/protocol/openid-connect/token";
const std::string kDemoPhoto = VELORA_SANDBOX_DATA_DIR "/demo-photo.jpg";
const std::string kDemoVoice = VELORA_SANDBOX_DATA_DIR "/demo-voice.aac";
std::size_t tokenRequests(const Sandbox& sandbox) { return sandbox.requestCount(kTokenPath); }

// ---- tests -----------------------------------------------------------------------------------

TEST(Cli, CommandsAgainstTheSandbox) {
  Sandbox sandbox;
  const std::string closedUrl = "http://127.0.0.1:" + std::to_string(velora::testing::closedLoopbackPort());

  const std::vector<Case> cases{
      {"check reaches the platform", false, {"--endpoint", sandbox.baseUrl() + "/", "check"}, {}, 0,
       "Velora sandbox is up", ""},
      {"the endpoint is remembered", false, {"login", "guest"}, {}, 0, "logged in (GUEST)", ""},
      {"--json record carries the tag id", false, {"device-config", "--tagid", "cli-tag-7", "--json"}, {}, 0, "", "",
       [](const Result& r) {
         const auto record = parseOnly(r.out);
         ASSERT_TRUE(record.is_object()) << r.out;
         EXPECT_EQ(record["iosadvConf"]["tagid"], "cli-tag-7");
         EXPECT_EQ(record["appId"], "velora-cli");
         EXPECT_EQ(withoutStoreNotice(r.err), "");
       }},
      {"settings come from the environment too", false, {"check"}, {"VELORA_JSON=1"}, 0, "", "",
       [](const Result& r) {
         const auto record = parseOnly(r.out);
         ASSERT_TRUE(record.is_object()) << r.out;
         EXPECT_EQ(record["code"], 200);
       }},
      {"log show lists what the commands did", false, {"log", "show"}, {}, 0,
       "velora check: Velora sandbox is up", "",
       [](const Result& r) {
         EXPECT_NE(r.out.find("velora login: GUEST"), std::string::npos) << r.out;
         EXPECT_NE(r.out.find("velora device-config: tag cli-tag-7"), std::string::npos) << r.out;
       }},
      {"a day that is not in the calendar is refused before anything is sent", false,
       {"book", "search", "--date", "2026-02-30"}, {}, 2, "", "velora: --date: 2026-02-30 is not a day of the calendar",
       [&](const Result&) { EXPECT_EQ(sandbox.requestCount("/api/v2/search"), 0u); }},
      {"a time that does not read is refused too", false, {"book", "DESK", "1101", "--from", "25:00", "--to", "26:00"}, {}, 2,
       "", "velora: --from must be a time as HH:mm, not '25:00'"},
      {"a free desk is booked", false, {"book", "desk", "1102", "--date", "tomorrow", "--json"}, {}, 0, "\"elementId\":\"1102\"", ""},
      {"booking it again is refused with the platform's message", false, {"book", "DESK", "1102", "--date", "tomorrow"}, {}, 1,
       "", "Desk 1.02 is already booked on"},
      {"the home screen lists containers and widgets", false, {"home"}, {}, 0, "    bookings  Your next bookings", "",
       [](const Result& r) { EXPECT_NE(r.out.find("(a \"CHART\" widget, unknown to this client)"), std::string::npos) << r.out; }},
      {"languages are listed with the default marked", false, {"languages"}, {}, 0, "en    English", "",
       [](const Result& r) {
         const auto line = r.out.substr(r.out.find("en    English"));
         EXPECT_TRUE(line.substr(0, line.find('\n')).ends_with("default")) << r.out;
         EXPECT_EQ(r.out.find("Deutsch    default"), std::string::npos) << r.out;
       }},
      {"the language is changed as the guest", false, {"languages", "--set", "fr", "--json"}, {}, 0,
       R"("code":"fr")", "", [&](const Result&) { EXPECT_EQ(sandbox.requests("/api/v2/setLanguage").back().query, "language=fr"); }},
      {"an unknown language fails with the platform's message", false, {"languages", "--set", "xx"}, {}, 1, "",
       "Unknown language xx"},
      {"the device registers for notifications", false, {"notifications", "register", "--json"}, {}, 0,
       "\"platform\":\"IOS\"", ""},
      {"notifications are listed with the statuses in the order given", false,
       {"notifications", "list", "--status", "READ", "--status", "SENT"}, {}, 0, "(no notifications)", "",
       [&](const Result&) {
         const auto query = sandbox.requests("/api/ntfm/v1/notification/list").back().query;
         EXPECT_TRUE(query.ends_with("&type=GENERIC_NOTIFICATION&status=READ&status=SENT")) << query;
       }},
      {"the count finds the registered device", false, {"notifications", "count", "--type", "pool"}, {}, 0, "0 to read, 0 read", ""},
      {"a status that does not exist is refused before anything is sent", false,
       {"notifications", "list", "--status", "UNSEEN"}, {}, 2, "", "--status must be SENT, READ or DELETED, not 'UNSEEN'"},
      {"do-not-disturb names the fields a form has", false, {"dnd", "set", "--resource", "me", "dnd-nope=1"}, {}, 2, "",
       "the form has no field 'dnd-nope'; its fields are dnd-day and dnd-time"},
      {"a ticket is filed with a photo and a voice note", false,
       {"tickets", "new", "--photo", kDemoPhoto, "--voice", kDemoVoice, "description=Lamp out", "category=electrical", "circuit=B2"},
       {}, 0, "circuit      Circuit or panel  text", ""},
      {"a photo that is missing is refused before anything is sent", false,
       {"tickets", "new", "--photo", "/nonexistent.jpg", "description=x"}, {}, 2, "", "velora: --photo: cannot read '/nonexistent.jpg'"},
      {"a photo that is not a JPEG is sent with a warning", false,
       {"tickets", "new", "--photo", kDemoVoice, "description=Swapped"}, {}, 0, "Filed t-", "is not a JPEG photo"},
      {"a field the form lacks is named with the form's fields", false, {"tickets", "form", "colour=red"}, {}, 2, "",
       "the form has no field colour; its fields are description, category, resourceId, photo and voice"},
      {"the tag advertises its identity on a simulated peripheral", false,
       {"advertise", "--simulate", "--tagid", "0123456789AB", "--frequency", "low", "--seconds", "1"}, {}, 0, "on air", "switches"},
      {"a malformed tag puts nothing on air", false, {"advertise", "--simulate", "--tagid", "12345", "--seconds", "1"}, {}, 1, "",
       "velora: Invalid tag format. Please contact support. (code -50001)"},
      {"log clear empties the log", false, {"log", "clear"}, {}, 0, "log cleared", ""},
      {"log show after clear", false, {"log", "show"}, {}, 0, "(the log is empty)", ""},
      {"no endpoint at all", true, {"check"}, {}, 2, "",
       "velora: no platform endpoint; pass --endpoint URL or set VELORA_ENDPOINT"},
      {"unreachable endpoint", true, {"--endpoint", closedUrl, "check"}, {}, 1, "",
       "(code -27003)\nvelora: if nothing answered at http://127.0.0.1:"},
      {"discovery at an endpoint that refuses connections says why, and where it tried", true,
       {"--endpoint", closedUrl, "login", "guest"}, {}, 1, "", "velora: Unknown Error Occurred (discoverConfiguration): Could",
       [&](const Result& r) {
         EXPECT_NE(r.err.find("(code -23010)\nvelora: nothing answered at " + closedUrl +
                              "/realms/velora/.well-known/openid-configuration: check --endpoint"),
                   std::string::npos)
             << r.err;
       }},
      {"an endpoint that does not parse is named, with what is wrong", true, {"--endpoint", "http://[bad", "check"}, {}, 2,
       "", "endpoint 'http://[bad' is not usable: the '[' of its IPv6 address is never closed",
       [](const Result& r) { EXPECT_EQ(r.err.find("couldn't be parsed"), std::string::npos) << r.err; }},
      {"invalid setting is a usage error", true, {"--timeout", "0", "check"}, {}, 2, "", "timeout"},
      {"an identity setting is checked like the others", true, {"--discover-url", "realm", "status"}, {}, 2, "",
       "discover URL 'realm' is not usable: it does not start with http"},
  };
  runCases(cases);
  EXPECT_EQ(sandbox.requestCount("/api/v1/device/ios/conf"), 3u);  // device-config and the two advertise runs
}

TEST(Cli, LoginSessionsAcrossRuns) {
  Sandbox sandbox;
  const std::string wrongPassword = "not-the-demo-password";
  std::size_t tokensAfterLogin = 0;

  const auto status = [](const char* authStatus, const char* loginMode) {
    return [=](const Result& r) {
      const auto record = parseOnly(r.out);
      ASSERT_TRUE(record.is_object()) << r.out;
      EXPECT_EQ(record["authStatus"], authStatus);
      if (loginMode) {
        EXPECT_EQ(record["loginMode"], loginMode);
      } else {
        EXPECT_TRUE(record["loginMode"].is_null()) << record;
      }
      EXPECT_TRUE(record["connectivity"].is_boolean()) << record;
      EXPECT_EQ(record.size(), 5u) << record;
    };
  };
  const std::vector<Case> cases{
      {"no session before any login", false, {"status", "--json"}, {}, 0, "", "", status("unknown", nullptr)},
      {"platform routes refuse a client without a session, and say how to get one", false, {"items", "list"}, {}, 1, "",
       "(code 401)\nvelora: this needs a session; log in first: velora login guest, velora login password USER, "
       "velora login browser or velora login qr CODE\n"},
      {"guest login", false, {"login", "guest"}, {}, 0, "logged in (GUEST)", "",
       [&](const Result&) { tokensAfterLogin = tokenRequests(sandbox); }},
      {"a new process resumes the session without logging in", false, {"device-config"}, {}, 0, "tag id", "",
       [&](const Result&) { EXPECT_EQ(tokenRequests(sandbox), tokensAfterLogin); }},
      {"status of the resumed session", false, {"status", "--json"}, {}, 0, "", "", status("authenticated", "GUEST")},
      {"password login replaces the guest session", false, {"login", "password", demo::kUser},
       {std::string("VELORA_PASSWORD=") + demo::kPassword}, 0, "logged in (BACKGROUND)", ""},
      {"a wrong password is the identity server's refusal", false, {"login", "password", demo::kUser},
       {"VELORA_PASSWORD=" + wrongPassword}, 1, "", "velora: Invalid user credentials (code -23005)"},
      {"no password without a terminal or VELORA_PASSWORD", false, {"login", "password", demo::kUser}, {}, 2, "",
       "VELORA_PASSWORD"},
      {"logout", false, {"logout"}, {}, 0, "logged out", ""},
      {"status after logout", false, {"status"}, {}, 0, "not authenticated", ""},
      {"after logout no run logs in behind the user's back", false, {"device-config"}, {}, 1, "", "(code 401)"},
      {"qr login while logged out", false, {"login", "qr", demo::kLoginCode}, {}, 0, "logged in (BACKGROUND)", ""},
      {"expired qr credentials are refused", false, {"login", "qr", demo::kExpiredLoginCode}, {}, 1, "", "(code -23022)"},
  };
  // The library's console lines are on throughout, as the place a secret would most likely slip.
  runCases(cases, {"VELORA_ENDPOINT=" + sandbox.baseUrl(), "VELORA_VERBOSE=1"},
           checkNoSecrets({demo::kGuestSecret, demo::kPassword, wrongPassword}));
}

/// The columns of a text table's line: the cells are separated by runs of two or more spaces.
std::vector<std::string> cells(const std::string& line) {
  static const std::regex separator(" {2,}");
  std::vector<std::string> out;
  std::sregex_token_iterator it(line.begin(), line.end(), separator, -1), end;
  for (; it != end; ++it) out.push_back(*it);
  return out;
}

std::vector<int> itemIds(const nlohmann::json& items) {
  std::vector<int> ids;
  for (const auto& item : items) ids.push_back(item["id"]);
  return ids;
}

TEST(Cli, CallRunsAnyOperationOfTheRegistry) {
  Sandbox sandbox;
  TempDir files;
  const fs::path arguments = files.path / "arguments.json";
  std::ofstream(arguments) << R"({"filter": {"types": ["LIGHT"], "roomId": 11, "radius": 0, "hasPosition": false,
                                             "widgetNames": []}})";
  // The filter record's members without a default of their own are part of every filter.
  const auto filter = [](const std::string& type) {
    return R"(filter={"radius":0,"hasPosition":false,"widgetNames":[],"types":[")" + type + R"("]})";
  };
  const auto& operations = velora::operationRegistry();
  ASSERT_FALSE(operations.empty());

  const auto json = [](const std::function<void(const nlohmann::json&)>& check) {
    return [=](const Result& r) {
      const auto reply = parseOnly(r.out);
      ASSERT_FALSE(reply.is_discarded()) << r.out;
      check(reply);
    };
  };
  const std::vector<Case> cases{
      {"--list shows every operation, required arguments marked", false, {"call", "--list"}, {}, 0, "", "",
       [&](const Result& r) {
         std::istringstream lines(r.out);
         std::vector<std::vector<std::string>> rows;
         for (std::string line; std::getline(lines, line);) rows.push_back(cells(line));
         for (const auto& operation : operations) {
           std::string arguments;
           for (const auto& a : operation.arguments) arguments += (arguments.empty() ? "" : " ") + a.name + (a.required ? "*" : "");
           const std::vector<std::string> row{operation.name, operation.method, operation.path, operation.replyType,
                                              arguments.empty() ? "-" : arguments};
           EXPECT_NE(std::find(rows.begin(), rows.end(), row), rows.end()) << operation.name << " in\n" << r.out;
         }
       }},
      {"--list --json", false, {"call", "--list", "--json"}, {}, 0, "", "", json([&](const nlohmann::json& list) {
         ASSERT_EQ(list.size(), operations.size());
         for (std::size_t i = 0; i < operations.size(); ++i) {
           EXPECT_EQ(list[i]["name"], operations[i].name);
           EXPECT_EQ(list[i]["replyType"], operations[i].replyType);
           ASSERT_EQ(list[i]["arguments"].size(), operations[i].arguments.size());
           for (std::size_t a = 0; a < operations[i].arguments.size(); ++a) {
             EXPECT_EQ(list[i]["arguments"][a]["required"], operations[i].arguments[a].required) << list[i];
           }
         }
       })},
      {"a public operation needs no login", false, {"call", "checkConnection"}, {}, 0, "message  Velora sandbox is up\n", ""},
      {"guest login", false, {"login", "guest"}, {}, 0, "logged in (GUEST)", ""},
      {"a list of records as a table, nested members below each row", false, {"call", "getControllableItems"}, {}, 0,
       "", "", [](const Result& r) {
         EXPECT_TRUE(std::regex_search(r.out, std::regex("^id +logicName +widgetName +name +type\n"))) << r.out;
         EXPECT_TRUE(std::regex_search(r.out, std::regex("\n1 +light\\.f1\\.meeting-room +light +Meeting room light +LIGHT\n"
                                                         "    position +\\{\"mapId\":1,"))) << r.out;
         EXPECT_TRUE(std::regex_search(r.out, std::regex("\n    controls +\\[\\{\"name\":\"power\""))) << r.out;
       }},
      {"name=value takes JSON", false, {"call", "getControllableItems", filter("DOOR"), "--json"}, {}, 0, "",
       "", json([](const nlohmann::json& items) { EXPECT_EQ(itemIds(items), (std::vector<int>{4, 5})); })},
      {"name=value takes anything else as text", false, {"call", "getConfiguration", "tagid=cli-pair-tag"}, {}, 0,
       "", "", [](const Result& r) {
         EXPECT_TRUE(std::regex_search(r.out, std::regex("\niosadvConf +\\{\"tagid\":\"cli-pair-tag\""))) << r.out;
       }},
      {"--body @FILE", false, {"call", "getControllableItems", "--body", "@" + arguments.string(), "--json"}, {}, 0, "",
       "", json([](const nlohmann::json& items) { EXPECT_EQ(itemIds(items), (std::vector<int>{1})); })},
      {"name=value overrides --body", false,
       {"call", "getControllableItems", "--body", "@" + arguments.string(), filter("BLIND"), "--json"}, {},
       0, "", "", json([](const nlohmann::json& items) { EXPECT_EQ(itemIds(items), (std::vector<int>{3})); })},
      {"a secret in a reply is masked", false, {"call", "getLoginParameters", std::string("from=") + demo::kLoginCode}, {},
       0, "username", "", [](const Result& r) {
         EXPECT_TRUE(std::regex_search(r.out, std::regex("\npassword +<redacted>\n"))) << r.out;
         EXPECT_EQ(r.out.find(demo::kPassword), std::string::npos) << r.out;
       }},
  };
  runCases(cases, {"VELORA_ENDPOINT=" + sandbox.baseUrl()});
}

TEST(Cli, CallRefusesWhatCannotBeSent) {
  Sandbox sandbox;
  struct Row {
    const char* name;
    std::vector<std::string> args;
    std::vector<const char*> errContains;
  };
  const std::vector<Row> rows{
      {"no operation", {"call"}, {"name the operation to call", "velora call --list"}},
      {"unknown operation", {"call", "getItems"},
       {"unknown operation 'getItems'; did you mean getControllableItems?", "velora call --list shows every operation"}},
      {"unknown argument", {"call", "getConfiguration", "tagId=x"},
       {"getConfiguration has no argument 'tagId' (did you mean tagid?); arguments of getConfiguration: tagid\n"}},
      {"missing arguments", {"call", "downloadSdkImage"},
       {"downloadSdkImage needs the arguments path and publicFlag; "
        "arguments of downloadSdkImage: path (required), publicFlag (required)\n"}},
      {"not name=value", {"call", "getConfiguration", "demo-tag"},
       {"arguments are written name=value, not 'demo-tag'", "arguments of getConfiguration: tagid"}},
      {"value of the wrong shape", {"call", "getControllableItems", "filter=[1]"},
       {"getControllableItems: argument $.filter: expected an object", "arguments of getControllableItems: filter\n"}},
      {"digits where text is wanted", {"call", "getConfiguration", "tagid=123"},
       {"expected a string", "quote text such as 123 or true"}},
      {"--body that is not an object", {"call", "getConfiguration", "--body", "[1]"},
       {"--body must be a JSON object keyed by argument name"}},
      {"--body that is not JSON", {"call", "getConfiguration", "--body", "{tagid:"}, {"--body is not JSON: "}},
      {"--body file that is missing", {"call", "getConfiguration", "--body", "@/nonexistent/arguments.json"},
       {"cannot read the --body file '/nonexistent/arguments.json': No such file"}},
  };
  TempDir home;
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const Result r = runCli(home.path, row.args, {"VELORA_ENDPOINT=" + sandbox.baseUrl()});
    EXPECT_EQ(r.exitCode, 2) << r.err;
    for (const char* text : row.errContains) EXPECT_NE(r.err.find(text), std::string::npos) << r.err;
  }
  // Refused before anything went out.
  EXPECT_EQ(sandbox.requestCount("/api/v1/device/ios/conf") + sandbox.requestCount("/api/v1/item/list"), 0u);
}

/// Waits until the sandbox has `count` streams open; false after 10 s.
bool streamsOpen(const Sandbox& sandbox, std::size_t count) {
  return velora::testing::eventually([&] { return sandbox.openStreamCount() == count; });
}

TEST(Cli, ItemsAndWatch) {
  Sandbox sandbox;
  TempDir home;
  const auto run = [&](const std::vector<std::string>& args) { return runCli(home.path, args, {}); };
  ASSERT_EQ(run({"--endpoint", sandbox.baseUrl(), "login", "guest"}).exitCode, 0);

  const std::vector<Case> cases{
      {"list", false, {"items", "list"}, {}, 0, "Meeting room light", ""},
      {"filtered list as JSON", false, {"items", "list", "--type", "LIGHT", "--json"}, {}, 0, "", "",
       [](const Result& r) {
         const auto items = parseOnly(r.out);
         ASSERT_TRUE(items.is_array()) << r.out;
         EXPECT_GE(items.size(), 2u);
         for (const auto& item : items) EXPECT_EQ(item["type"], "LIGHT");
       }},
      {"set", false, {"items", "set", "1", "power", "on"}, {}, 0, "Meeting room light: power = on", ""},
      {"unknown item", false, {"items", "set", "99", "power", "on"}, {}, 2, "", "no item with id 99"},
      {"unknown control", false, {"items", "set", "1", "volume", "3"}, {}, 2, "", "has no control named 'volume'"},
      {"value the light refuses", false, {"items", "set", "1", "power", "purple"}, {}, 1, "", "(code 400)"},
  };
  runCases(cases, {}, {}, home.path);

  // A change made while watching arrives as the second event. The watcher runs in a copy of the
  // state, so that its output files are its own.
  TempDir watchOutput;
  fs::copy(home.path, watchOutput.path, fs::copy_options::recursive | fs::copy_options::overwrite_existing);
  const pid_t watcher = startCli(watchOutput.path, {"watch", "items", "--item", "1", "--count", "2", "--json"}, {});
  ASSERT_TRUE(streamsOpen(sandbox, 1));
  ASSERT_EQ(run({"items", "set", "1", "power", "off"}).exitCode, 0);
  const Result watched = finishCli(watchOutput.path, watcher);
  EXPECT_EQ(watched.exitCode, 0) << watched.err;
  std::istringstream lines(watched.out);
  std::string complete, change;
  std::getline(lines, complete);
  std::getline(lines, change);
  EXPECT_EQ(parseOnly(complete)["event"], "complete") << watched.out;
  EXPECT_EQ(parseOnly(change)["data"], nlohmann::json::parse(R"([{"id":101,"value":"off"}])")) << watched.out;
  EXPECT_NE(watched.err.find("velora: stream connected"), std::string::npos) << watched.err;

  // Ctrl-C ends a watch cleanly and closes its stream.
  const pid_t homeWatcher = startCli(watchOutput.path, {"watch", "home", demo::kDemoTagId}, {});
  velora::testing::eventually(
      [&] { return slurp(watchOutput.path / "stdout").find("subscription") != std::string::npos; });
  kill(homeWatcher, SIGINT);
  const Result interrupted = finishCli(watchOutput.path, homeWatcher);
  EXPECT_EQ(interrupted.exitCode, 0) << interrupted.err;
  EXPECT_NE(interrupted.out.find("subscription  home:"), std::string::npos) << interrupted.out;
  EXPECT_NE(interrupted.err.find("velora: stopped after"), std::string::npos) << interrupted.err;
  EXPECT_TRUE(streamsOpen(sandbox, 0));
}

}  // namespace
