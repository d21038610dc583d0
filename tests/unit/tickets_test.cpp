// Tickets beyond their request line: the upload body byte for byte, the bytes it shares instead of
// copying, the local identifiers, and the manager types a client does not know.

#include <gtest/gtest.h>

#include <velora/velora.hpp>

#include "Fakes.hpp"

namespace velora {
namespace {

using testing::FakePlatform;
using Reply = testing::FakeTransport::Reply;

/// "UUID-1", "UUID-2", ... so that bodies can be written out in full.
SaveTicketRequest::UUIDSource counting() {
  return [n = 0]() mutable { return "UUID-" + std::to_string(++n); };
}

Bytes bytes(std::string_view text) { return Bytes(text.begin(), text.end()); }

std::vector<FormTicket> descriptionForm() {
  FormTicket field;
  field.formName = "Description";
  field.formAttribute = "description";
  field.formInputType = "text";
  field.value = "Lamp \"broken\"";
  field.mandatory = true;
  return {field};
}

constexpr const char* kForm =
    R"([{"formName":"Description","formAttribute":"description","formInputType":"text","value":"Lamp \"broken\"","mandatory":true}])";

TEST(Tickets, TheUploadBodyIsLaidOutByteForByte) {
  const std::string imagePart =
      "--UUID-1\r\n"
      "Content-Disposition: form-data; name=\"image\";filename=\"UUID-2.jpg\"\r\n"
      "Content-Type : image/jpeg\r\n\r\n"
      "\xFF\xD8\r\n--UUID-1\xFF\xD9\r\n";
  const auto soundPart = [](int file) {
    return "--UUID-1\r\n"
           "Content-Disposition: form-data; name=\"sound\";filename=\"UUID-" +
           std::to_string(file) +
           ".aac\"\r\n"
           "Content-Type : audio/x-aac\r\n\r\n"
           "\xFF\xF1voice\r\n";
  };
  const std::string formPart = std::string("--UUID-1\r\n") +
                               "Content-Disposition: form-data; name=\"form\"\r\n"
                               "Content-Type : application/json\r\n\r\n" +
                               kForm + "\r\n";
  const std::string closing = "\r\n--UUID-1--\r\n";

  const struct {
    const char* name;
    bool image;
    bool sound;
    std::string expected;
  } cases[] = {
      {"form only", false, false, formPart + closing},
      {"photo only", true, false, imagePart + formPart + closing},
      {"voice only", false, true, soundPart(2) + formPart + closing},
      {"photo and voice", true, true, imagePart + soundPart(3) + formPart + closing},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    SaveTicketRequest request;
    if (c.image) request.image = bytes("\xFF\xD8\r\n--UUID-1\xFF\xD9");
    if (c.sound) request.sound = bytes("\xFF\xF1voice");
    request.form = descriptionForm();
    const auto data = request.formData(counting());
    EXPECT_EQ(data.boundary, "UUID-1");
    EXPECT_EQ(data.body.text(), c.expected);
    EXPECT_EQ(data.body.size(), c.expected.size());
  }
}

TEST(Tickets, EachBodyHasItsOwnUpperCaseBoundaryAndFileNames) {
  SaveTicketRequest request{bytes("photo"), bytes("voice"), descriptionForm()};
  const auto first = request.formData();
  const auto second = request.formData();
  EXPECT_NE(first.boundary, second.boundary);
  EXPECT_EQ(first.boundary.size(), 36u);
  EXPECT_EQ(first.boundary.find_first_of("abcdef"), std::string::npos);
  const auto fileNames = [](const std::string& body) {
    std::vector<std::string> names;
    for (auto at = body.find("filename=\""); at != std::string::npos; at = body.find("filename=\"", at + 1)) {
      names.push_back(body.substr(at + 10, body.find('"', at + 10) - at - 10));
    }
    return names;
  };
  const auto a = fileNames(first.body.text());
  const auto b = fileNames(second.body.text());
  ASSERT_EQ(a.size(), 2u);
  ASSERT_EQ(b.size(), 2u);
  EXPECT_TRUE(a[0].ends_with(".jpg") && a[1].ends_with(".aac"));
  EXPECT_NE(a[0], b[0]);
  EXPECT_NE(a[1], b[1]);
  EXPECT_NE(a[0], a[1]);
}

TEST(Tickets, ThePhotoGoesOutFromTheCallersBytes) {
  SaveTicketRequest request;
  request.image = Bytes(1 << 20, 0xAB);
  const auto* photo = reinterpret_cast<const char*>(request.image->data());
  const auto data = std::move(request).formData();
  const auto& segments = data.body.segments();
  EXPECT_TRUE(std::any_of(segments.begin(), segments.end(), [&](const auto& s) { return s.bytes.data() == photo; }));
}

TEST(Tickets, SavingSendsTheBodyWithItsLengthAndReportsProgressBeforeTheReply) {
  FakePlatform fakes;
  fakes.transport->responder = [](const HttpRequest& request) {
    // Progress as a transport reports it, from its own thread, before the reply.
    request.uploadProgress(request.body.size() / 2, request.body.size());
    request.uploadProgress(request.body.size(), request.body.size());
    return Reply{200, "[]"};
  };
  auto facade = testing::makeTestFacade(fakes, EnvironmentModel("http://platform.test/", 30), true);
  std::vector<std::string> seen;
  facade->saveTicket(
      SaveTicketRequest{bytes("photo"), std::nullopt, descriptionForm()}, TicketManagerType::IVIVA,
      [&](const ResponseMessage& message) { seen.push_back("reply " + std::to_string(message.code)); },
      [&](std::uint64_t sent, std::uint64_t total) { seen.push_back(std::to_string(sent) + "/" + std::to_string(total)); });
  fakes.queue->drain();
  const auto request = fakes.transport->requests().at(0);
  const auto size = std::to_string(request.body.size());
  EXPECT_EQ(request.url, "http://platform.test/api/ticket/save/IVIVA");
  EXPECT_EQ(request.headers.get("Content-Length"), size);
  // Reports that arrive while one waits on the main queue are merged into it.
  EXPECT_EQ(seen, (std::vector<std::string>{size + "/" + size, "reply 200"}));
}

TEST(Tickets, RecordsGetLocalIdentifiersAndUnknownKindsAreTolerated) {
  const auto form = decodeJSON<std::vector<FormTicket>>(R"([
    {"formName":"Kind","formAttribute":"kind","formInputType":"select","mandatory":true,
     "values":[{"selectValueId":"a","name":"A","selected":true},{"selectValueId":"b","name":"B","selected":false}]},
    {"formName":"Rating","formAttribute":"rating","formInputType":"stars","mandatory":false}])");
  ASSERT_EQ(form.size(), 2u);
  EXPECT_EQ(form[0].inputType(), FormInputType::select);
  EXPECT_EQ(form[1].inputType(), FormInputType::unknown);
  EXPECT_EQ(form[1].formInputType, "stars");
  EXPECT_NE(form[0].id, form[1].id);
  EXPECT_NE(form[0].values->at(0).id, form[0].values->at(1).id);
  EXPECT_EQ(encode(form[0]).dump().find("\"id\""), std::string::npos);

  const auto ticket = decodeJSON<Ticket>(R"({"ticketId":"t-1","description":"d","creationTimestamp":1.7e9,
    "manager":"FACILITY_X","status":"OPEN","managerInfo":{"problemTypeKey":4,"problemType":"HVAC"}})");
  EXPECT_EQ(ticket.manager, TicketManagerType::UNKNOWN);
  EXPECT_EQ(ticket.managerInfo->problemTypeKey, 4);
  EXPECT_EQ(ticket, decodeJSON<Ticket>(encodeJSON(ticket)));
}

TEST(Tickets, FilteringDropsManagerTypesThisLibraryDoesNotKnow) {
  FakePlatform fakes;
  fakes.transport->responder = [](const HttpRequest&) { return Reply{200, R"(["INTERNAL","FACILITY_X"])"}; };
  auto facade = testing::makeTestFacade(fakes, EnvironmentModel("http://platform.test/", 30), true);
  EXPECT_EQ(facade->getTicketManagerTypes(true).get(), std::vector<TicketManagerType>{TicketManagerType::INTERNAL});
  EXPECT_EQ(facade->getTicketManagerTypes().get(),
            (std::vector<TicketManagerType>{TicketManagerType::INTERNAL, TicketManagerType::UNKNOWN}));
}

}  // namespace
}  // namespace velora
