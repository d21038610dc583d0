// The sandbox's maintenance tickets over HTTP: the managers and their forms, filing a ticket with
// the app's multipart layout and reading its files back byte for byte, the bodies it refuses,
// who may delete what, and the notification a filed ticket posts. Also the multipart reader on
// its own, split at the places that are easy to get wrong.

#include <string>
#include <variant>
#include <vector>

#include "Multipart.hpp"
#include "SandboxClient.hpp"

namespace {

using nlohmann::json;
namespace demo = velora::sandbox::demo;
namespace detail = velora::sandbox::detail;

const std::string kBoundary = "3f1c9a2e-7b44-4d0e-9a51-c2d8e6f0b713";

using Platform = velora::testing::SandboxPlatform;
using Reply = Platform::Reply;

struct Piece {
  std::string disposition;
  std::string type;
  std::string bytes;
};

// The app's layout: "Content-Type :" with a space, no space after the file part's semicolon,
// every part ending with CRLF and the closing text starting with another.
std::string appBody(const std::vector<Piece>& parts, const std::string& boundary = kBoundary) {
  std::string body;
  for (const Piece& part : parts) {
    body += "--" + boundary + "\r\n" + part.disposition + "\r\nContent-Type : " + part.type + "\r\n\r\n" + part.bytes +
            "\r\n";
  }
  return body + "\r\n--" + boundary + "--\r\n";
}

Piece formPiece(const json& form) { return {R"(Content-Disposition: form-data; name="form")", "application/json", form.dump()}; }
Piece filePiece(const std::string& name, const std::string& type, const std::string& bytes) {
  return {"Content-Disposition: form-data; name=\"" + name + "\";filename=\"6c1d2b7e-0f55-4a8b-9d3e-1b2c3d4e5f60.bin\"", type, bytes};
}

// Photo bytes that look like delimiters and blank lines, and end as a part does.
const std::string kPhoto = std::string("\xFF\xD8\xFF\xE0\r\n--\r\n\r\n--", 14) + kBoundary.substr(0, 8) +
                          std::string("\0\r\n--x\xFF\xD9\r\n", 10);

Reply save(Platform& p, const std::string& manager, const std::string& body, const std::string& user = demo::kUser) {
  return p.send("POST", "/api/ticket/save/" + manager, body, "multipart/form-data; boundary=" + kBoundary, user);
}

std::vector<std::string> attributes(const json& form) {
  std::vector<std::string> found;
  for (const json& field : form) {
    found.push_back(field.value("formAttribute", ""));
  }
  return found;
}

json& field(json& form, const std::string& attribute) {
  for (json& f : form) {
    if (f["formAttribute"] == attribute) {
      return f;
    }
  }
  static json none;
  ADD_FAILURE() << "no field " << attribute;
  return none;
}

json choose(json form, const std::string& select, const std::string& choice) {
  for (json& c : field(form, select)["values"]) {
    c["selected"] = c["selectValueId"] == choice;
  }
  return form;
}

// A blank form of `manager` with `values` filled in, a select's by choice.
json filled(Platform& p, const std::string& manager, const std::vector<std::pair<std::string, std::string>>& values) {
  json form = p.call("GET", "/api/ticket/form/" + manager).body;
  for (const auto& [attribute, value] : values) {
    if (field(form, attribute)["formInputType"] == "select") {
      form = p.call("POST", "/api/ticket/form/" + manager, choose(form, attribute, value)).body;
    } else {
      field(form, attribute)["value"] = value;
    }
  }
  return form;
}

TEST(SandboxTickets, ManagerTypesKeepOneUnknownToClientsWhichHasNoForm) {
  Platform p;
  EXPECT_EQ(p.call("GET", "/api/ticket/manager/types").body, json({"INTERNAL", "IVIVA", "FACILITYX"}));
  EXPECT_EQ(p.call("GET", "/api/ticket/form/FACILITYX").status, 404);
  EXPECT_EQ(p.call("GET", "/api/ticket/manager/types", nullptr, "").status, 401);
}

TEST(SandboxTickets, SelectChoiceRecomputesTheFormAndKeepsFilledValues) {
  struct Case {
    std::string manager;
    std::string select;
    std::string choice;
    std::vector<std::string> expected;
  };
  const std::vector<Case> cases = {
      {"INTERNAL", "category", "electrical", {"description", "category", "circuit", "resourceId", "photo", "voice"}},
      {"INTERNAL", "category", "plumbing", {"description", "category", "leak", "resourceId", "photo", "voice"}},
      {"INTERNAL", "category", "cleaning", {"description", "category", "resourceId", "photo", "voice"}},
      {"IVIVA", "problemType", "hvac", {"description", "problemType", "temperature", "location", "priority", "photo"}},
      {"IVIVA", "problemType", "lighting", {"description", "problemType", "location", "priority", "photo"}},
  };
  Platform p;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.manager + " " + c.choice);
    json form = p.call("GET", "/api/ticket/form/" + c.manager).body;
    field(form, "description")["value"] = "Broken";
    const Reply recomputed = p.call("POST", "/api/ticket/form/" + c.manager, choose(form, c.select, c.choice));
    ASSERT_EQ(recomputed.status, 200);
    EXPECT_EQ(attributes(recomputed.body), c.expected);
    json body = recomputed.body;
    EXPECT_EQ(field(body, "description")["value"], "Broken");
    for (const json& choice : field(body, c.select)["values"]) {
      EXPECT_EQ(choice["selected"], choice["selectValueId"] == c.choice);
      EXPECT_FALSE(choice.contains("managerInfo"));
    }
  }
  // A field the new choice does not have goes, with its value.
  json electrical = filled(p, "INTERNAL", {{"category", "electrical"}, {"circuit", "Panel B"}});
  const json plumbing = p.call("POST", "/api/ticket/form/INTERNAL", choose(electrical, "category", "plumbing")).body;
  EXPECT_EQ(plumbing.dump().find("Panel B"), std::string::npos);
}

TEST(SandboxTickets, RecomputeRefusesWhatIsNoFormOfTheManager) {
  struct Case {
    std::string manager;
    std::string body;
    int status;
  };
  Platform p;
  const json blank = p.call("GET", "/api/ticket/form/INTERNAL").body;
  json unknownChoice = blank;
  field(unknownChoice, "category")["value"] = "gardening";
  json twoChosen = blank;
  for (json& c : field(twoChosen, "category")["values"]) {
    c["selected"] = true;
  }
  const std::vector<Case> cases = {
      {"INTERNAL", R"({"formAttribute":"description"})", 400},
      {"INTERNAL", R"([{"formAttribute":"description","value":"x"}])", 400},
      {"INTERNAL", "[", 400},
      {"INTERNAL", unknownChoice.dump(), 400},
      {"INTERNAL", twoChosen.dump(), 400},
      {"FACILITYX", blank.dump(), 404},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.body);
    const Reply reply = p.send("POST", "/api/ticket/form/" + c.manager, c.body, "application/json");
    EXPECT_EQ(reply.status, c.status);
    EXPECT_EQ(reply.body.value("code", 0), c.status);
  }
}

TEST(SandboxTickets, SavedTicketServesItsFilesByteForByteWhicheverPartComesLast) {
  Platform p;
  const std::string voice = std::string("\xFF\xF1\x50\x40\r\n--\r\n", 10);
  for (const bool formLast : {true, false}) {
    SCOPED_TRACE(formLast ? "form last" : "photo last");
    const json form = filled(p, "INTERNAL", {{"description", "Light out in desk 1.03"}, {"category", "electrical"},
                                             {"circuit", "Panel B"}, {"resourceId", "1103"}});
    std::vector<Piece> parts = {filePiece("sound", "audio/x-aac", voice), formPiece(form),
                               filePiece("image", "image/jpeg", kPhoto)};
    if (formLast) {
      std::swap(parts[1], parts[2]);
    }
    const Reply saved = save(p, "INTERNAL", appBody(parts));
    ASSERT_EQ(saved.status, 200) << saved.raw;

    const json ticket = p.call("GET", "/api/ticket/my").body.at(0);
    const std::string id = ticket["ticketId"];
    EXPECT_EQ(ticket["description"], "Light out in desk 1.03");
    EXPECT_EQ(ticket["resourceId"], "1103");
    EXPECT_EQ(ticket["position"]["roomId"], 12);
    EXPECT_EQ(ticket["image"], "/api/ticket/" + id + "/image");
    json answered = saved.body;
    EXPECT_EQ(field(answered, "photo")["value"], ticket["image"]);
    EXPECT_EQ(field(answered, "circuit")["value"], "Panel B");
    EXPECT_EQ(p.call("GET", "/api/ticket/form/INTERNAL/" + id).body, saved.body);

    const Reply image = p.send("GET", ticket["image"].get<std::string>());
    EXPECT_EQ(image.contentType, "image/jpeg");
    EXPECT_EQ(image.raw, kPhoto);
    const Reply sound = p.send("GET", ticket["sound"].get<std::string>());
    EXPECT_EQ(sound.contentType, "audio/x-aac");
    EXPECT_EQ(sound.raw, voice);
  }
}

TEST(SandboxTickets, ExternalManagerTicketsCarryWhatItsChoicesSay) {
  Platform p;
  const json form = filled(p, "IVIVA", {{"description", "Badge reader dead"}, {"problemType", "access"},
                                        {"door", "North entrance"}, {"location", "lobby"}, {"priority", "urgent"}});
  ASSERT_EQ(save(p, "IVIVA", appBody({formPiece(form)}), demo::kAliceUser).status, 200);
  const json ticket = p.call("GET", "/api/ticket").body.at(0);
  EXPECT_EQ(ticket["manager"], "IVIVA");
  EXPECT_EQ(ticket["integrationId"], "IV-" + ticket["ticketId"].get<std::string>());
  EXPECT_EQ(ticket["managerInfo"], json({{"requesterObjectKey", 7002}, {"requesterObjectType", "Contact"},
                                         {"problemTypeKey", 303}, {"problemType", "ACCESS"},
                                         {"serviceCategoryKey", 32}, {"serviceCategoryName", "Security"},
                                         {"locationKey", 1000}, {"locationFullName", "Velora HQ / Level 0 / Lobby"},
                                         {"priorityKey", 1}}));
  const Reply withSound = save(p, "IVIVA", appBody({formPiece(form), filePiece("sound", "audio/x-aac", "x")}));
  EXPECT_EQ(withSound.status, 400);
}

TEST(SandboxTickets, BrokenUploadsAnswer400NamingTheFault) {
  struct Case {
    std::string name;
    std::string contentType;
    std::string body;
    std::string message;
  };
  Platform p;
  const json form = filled(p, "INTERNAL", {{"description", "Door squeaks"}});
  const std::string good = appBody({formPiece(form)});
  const std::string multipart = "multipart/form-data; boundary=" + kBoundary;
  const std::vector<Case> cases = {
      {"no closing delimiter", multipart, good.substr(0, good.find("\r\n\r\n--" + kBoundary + "--")), "closing delimiter"},
      {"no boundary", "multipart/form-data", good, "boundary"},
      {"not multipart", "application/json", form.dump(), "multipart/form-data"},
      {"no first delimiter", multipart, "\r\n" + good, "does not start with the delimiter"},
      {"part without name", multipart, appBody({{"Content-Disposition: form-data", "application/json", "[]"}}), "no name"},
      {"header block open", multipart, "--" + kBoundary + "\r\nContent-Disposition: form-data; name=\"form\"\r\n[]\r\n--" + kBoundary + "--\r\n", "header block"},
      {"photo as png", multipart, appBody({formPiece(form), filePiece("image", "image/png", kPhoto)}), "image/jpeg"},
      {"form as text", multipart, appBody({{R"(Content-Disposition: form-data; name="form")", "text/plain", form.dump()}}), "application/json"},
      {"unknown part", multipart, appBody({formPiece(form), filePiece("video", "video/mp4", "x")}), "video"},
      {"no form part", multipart, appBody({filePiece("image", "image/jpeg", kPhoto)}), "form is missing"},
      {"empty form", multipart, appBody({{R"(Content-Disposition: form-data; name="form")", "application/json", ""}}), "description"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const Reply reply = p.send("POST", "/api/ticket/save/INTERNAL", c.body, c.contentType);
    EXPECT_EQ(reply.status, 400);
    EXPECT_EQ(reply.body.value("code", 0), 400);
    EXPECT_NE(reply.body.value("message", "").find(c.message), std::string::npos) << reply.raw;
  }
  EXPECT_EQ(p.call("GET", "/api/ticket/my").body.size(), 1u);  // the seeded one only
}

TEST(SandboxTickets, ListsShowEveryonesTicketsButOnlyTheOwnerDeletes) {
  Platform p;
  const json all = p.call("GET", "/api/ticket").body;
  ASSERT_EQ(all.size(), 3u);
  EXPECT_GT(all[0]["creationTimestamp"].get<double>(), all[1]["creationTimestamp"].get<double>());
  EXPECT_EQ(p.call("GET", "/api/ticket/my").body, json::array({p.call("GET", "/api/ticket/t-2").body}));
  // alice's ticket: visible, but neither its form nor its deletion are the demo user's.
  EXPECT_EQ(p.call("GET", "/api/ticket/t-1").status, 200);
  EXPECT_EQ(p.call("GET", "/api/ticket/form/INTERNAL/t-1").status, 404);
  EXPECT_EQ(p.call("DELETE", "/api/ticket/t-1").status, 403);
  EXPECT_EQ(p.call("GET", "/api/ticket/t-1").status, 200);
  const Reply deleted = p.call("DELETE", "/api/ticket/t-1", nullptr, demo::kAliceUser);
  EXPECT_EQ(deleted.status, 200);
  EXPECT_EQ(deleted.body["ticketId"], "t-1");
  EXPECT_EQ(p.call("GET", "/api/ticket/t-1").status, 404);
  EXPECT_EQ(p.call("DELETE", "/api/ticket/t-1").status, 404);
}

TEST(SandboxTickets, FilingPostsANotificationToTheFilersDevices) {
  Platform p;
  const json device = {{"projectId", "p"}, {"appId", "a"}, {"pushToken", "tok-1"}, {"uuid", "u"}, {"platform", "ANDROID"}};
  ASSERT_EQ(p.call("POST", "/api/ntfm/v1/device/register", device).status, 200);
  const json form = filled(p, "INTERNAL", {{"description", "Printer jammed"}});
  ASSERT_EQ(save(p, "INTERNAL", appBody({formPiece(form)})).status, 200);
  const std::string id = p.call("GET", "/api/ticket/my").body.at(0)["ticketId"];
  const json inbox =
      p.call("GET", "/api/ntfm/v1/notification/list?pushToken=tok-1&type=GENERIC_NOTIFICATION").body;
  ASSERT_FALSE(inbox.empty());
  EXPECT_EQ(inbox[0]["status"], "SENT");
  EXPECT_EQ(inbox[0]["message"], json({{"title", "Ticket " + id + " filed"}, {"body", "Printer jammed"}}));
  for (std::size_t i = 1; i < inbox.size(); ++i) {
    EXPECT_NE(inbox[i]["id"], inbox[0]["id"]);
  }
}

TEST(MultipartReader, SplitsOnlyAtRealDelimiters) {
  struct Case {
    std::string name;
    std::string body;
    std::vector<std::string> contents;  // empty: refused
  };
  const std::string b = "--B";
  const std::vector<Case> cases = {
      {"plain layout", b + "\r\nContent-Disposition: form-data; name=a\r\n\r\nx\r\n" + b + "--\r\n", {"x"}},
      {"app layout keeps a trailing CRLF of the content",
       b + "\r\ncontent-disposition : form-data;name=\"a\"\r\n\r\nx\r\n\r\n\r\n" + b + "--", {"x\r\n"}},
      {"boundary prefix inside content", b + "\r\nContent-Disposition: form-data; name=a\r\n\r\n1\r\n--BB\r\n" + b +
                                             " \r\nContent-Disposition: form-data; name=\"b;c\"\r\n\r\n\r\n" + b + "--",
       {"1\r\n--BB", ""}},
      {"no headers", b + "\r\n\r\nx\r\n" + b + "--", {}},
      {"quote never ends", b + "\r\nContent-Disposition: form-data; name=\"a\r\n\r\nx\r\n" + b + "--", {}},
      {"ends after a delimiter line", b + "\r\nContent-Disposition: form-data; name=a\r\n\r\nx\r\n" + b + "\r\n", {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const auto read = detail::readMultipart(c.body, "B");
    if (c.contents.empty()) {
      EXPECT_TRUE(std::holds_alternative<std::string>(read));
      continue;
    }
    ASSERT_TRUE(std::holds_alternative<std::vector<detail::MultipartEntry>>(read)) << std::get<std::string>(read);
    std::vector<std::string> contents;
    for (const auto& part : std::get<std::vector<detail::MultipartEntry>>(read)) {
      contents.emplace_back(part.content);
    }
    EXPECT_EQ(contents, c.contents);
  }
  EXPECT_EQ(detail::multipartBoundary(R"(Multipart/Form-Data; charset=utf-8; boundary="a b")"), "a b");
}

}  // namespace
