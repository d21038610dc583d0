// Tickets over real HTTP: the library's multipart upload through curl into the sandbox's reader,
// and the photo and voice note read back as they were sent.

#include <gtest/gtest.h>

#include <future>
#include <random>

#include <velora/tickets/Tickets.hpp>

#include "OverHttp.hpp"

namespace velora {
namespace {

namespace demo = sandbox::demo;

/// Random bytes salted with what a careless multipart reader would cut at.
Bytes awkwardBytes(std::size_t size, std::uint32_t seed) {
  std::mt19937 random(seed);
  Bytes bytes(size);
  for (auto& b : bytes) b = static_cast<std::uint8_t>(random());
  const std::string_view traps[] = {"\r\n--", "\r\n\r\n", "--\r\n", "\r\n"};
  for (std::size_t at = 0; at + 8 < size; at += size / 7) {
    const auto trap = traps[(at / (size / 7)) % std::size(traps)];
    std::copy(trap.begin(), trap.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at));
  }
  bytes[0] = 0xFF, bytes[1] = 0xD8, bytes[2] = 0xFF;
  bytes[size - 2] = '\r', bytes[size - 1] = '\n';  // a file that itself ends in a line break
  return bytes;
}

class TicketsOverHttp : public ::testing::Test {
 protected:
  void SetUp() override {
    const KeycloakEnvironment keycloak = testing::passwordLoginIdentity(sandbox_);
    facade_ = testing::sandboxFacade(sandbox_, http_.platform("tickets.it"), false, keycloak, 30, sandbox_.baseUrl() + "/");
    facade_->backgroundLogin(demo::kUser, demo::kPassword, -1).get();
  }

  void setValue(std::vector<FormTicket>& form, const std::string& attribute, const std::string& value) {
    for (auto& field : form) {
      if (field.formAttribute != attribute) continue;
      field.value = value;
      if (field.values) {
        for (auto& choice : *field.values) choice.selected = choice.selectValueId == value;
      }
      return;
    }
    ADD_FAILURE() << "no field " << attribute;
  }

  sandbox::Sandbox sandbox_;
  testing::HttpPlatform http_;
  std::shared_ptr<Orvane> facade_;
};

TEST_F(TicketsOverHttp, ATicketFiledWithPhotoAndVoiceKeepsTheirBytes) {
  EXPECT_EQ(facade_->getTicketManagerTypes(true).get(), (std::vector{TicketManagerType::INTERNAL, TicketManagerType::IVIVA}));

  auto form = facade_->getTicketForm(TicketManagerType::INTERNAL).get();
  setValue(form, "category", "electrical");
  form = facade_->updateTicketForm(std::move(form), TicketManagerType::INTERNAL).get();
  setValue(form, "description", "Desk lamp flickers");
  setValue(form, "circuit", "B2");  // only there once the category is chosen

  const Bytes photo = awkwardBytes(3 << 20, 1);
  const Bytes voice = awkwardBytes(200 << 10, 2);
  std::vector<std::pair<std::uint64_t, std::uint64_t>> progress;  // main queue only
  std::promise<ResponseMessage> replied;
  facade_->saveTicket(
      SaveTicketRequest{photo, voice, form}, TicketManagerType::INTERNAL,
      [&](const ResponseMessage& message) { replied.set_value(message); },
      [&](std::uint64_t sent, std::uint64_t total) { progress.emplace_back(sent, total); });
  const ResponseMessage reply = replied.get_future().get();
  ASSERT_EQ(reply.code, 200) << reply.message.value_or("");

  const auto received = sandbox_.requests("/api/ticket/save/INTERNAL").at(0);
  ASSERT_FALSE(progress.empty());
  for (std::size_t i = 1; i < progress.size(); ++i) EXPECT_LE(progress[i - 1].first, progress[i].first);
  EXPECT_EQ(progress.back().first, received.body.size());
  EXPECT_EQ(progress.back().second, received.body.size());

  const auto mine = facade_->getMyTickets().get();
  const auto filed = std::find_if(mine.begin(), mine.end(), [](const Ticket& t) { return t.description == "Desk lamp flickers"; });
  ASSERT_NE(filed, mine.end());
  ASSERT_TRUE(filed->image && filed->sound);
  EXPECT_EQ(facade_->fetchResource(*filed->image).get(), photo);
  EXPECT_EQ(facade_->fetchResource(*filed->sound).get(), voice);
  const auto filedForm = facade_->getTicketForm(TicketManagerType::INTERNAL, filed->ticketId).get();
  EXPECT_TRUE(std::any_of(filedForm.begin(), filedForm.end(), [](const FormTicket& f) { return f.value == "B2"; }));

  EXPECT_EQ(facade_->deleteTicket(filed->ticketId).get().ticketId, filed->ticketId);
  EXPECT_THROW(facade_->getTicket(filed->ticketId).get(), APIError);
}

TEST_F(TicketsOverHttp, TheServersRefusalsReachTheCaller) {
  const struct {
    const char* name;
    std::function<Task<std::vector<FormTicket>>()> call;
    int code;
  } cases[] = {
      {"a mandatory field left empty", [&] { return facade_->saveTicket({std::nullopt, std::nullopt, {}}, TicketManagerType::INTERNAL); }, 400},
      {"a voice note the manager has no field for",
       [&] {
         auto form = facade_->getTicketForm(TicketManagerType::IVIVA).get();
         setValue(form, "description", "Too warm");
         setValue(form, "problemType", "lighting");
         return facade_->saveTicket({std::nullopt, Bytes{0xFF, 0xF1}, form}, TicketManagerType::IVIVA);
       },
       400},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const ResponseMessage refused = testing::failureOf(c.call());
    EXPECT_EQ(refused.code, c.code);
    EXPECT_TRUE(refused.message.has_value());
  }
  EXPECT_EQ(testing::failureOf(facade_->deleteTicket("t-1")).code, 403);  // someone else's
}

}  // namespace
}  // namespace velora
