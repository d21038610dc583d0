// notifications: registers this installation for notifications, lists the unread ones and marks
// them read.
//
//   notifications [URL]
//
// Form: callbacks. Every answer arrives on a velora::RunLoop that main() runs; each step starts
// the next from its callback, and the last one (or a failure, or the time limit) stops the loop.

#include <cctype>
#include <chrono>
#include <iostream>

#include "Connect.hpp"

namespace {

using velora::NTFMNotificationType;

/// Without a push service the device's token is made up once: the installation identifier's hex
/// digits, which the library keeps between runs, so every run reads the same inbox.
std::string pushToken(const velora::Orvane& orvane) {
  std::string token;
  for (const char c : orvane.envUUID) {
    if (std::isxdigit(static_cast<unsigned char>(c))) token.push_back(static_cast<char>(std::tolower(static_cast<unsigned char>(c))));
  }
  return token;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  auto loop = std::make_shared<velora::RunLoop>();
  int status = 1;
  const auto finish = [&](int code, const std::string& line) {
    (code == 0 ? std::cout : std::cerr) << line << '\n';
    status = code;
    loop->stop();
  };
  const auto failed = [&](const std::string& step, const std::string& why) { finish(1, "notifications failed: " + step + ": " + why); };

  velora::Orvane& orvane = example::connect(example::platform("notifications", loop), example::platformUrl(args));
  example::forgetStoredSession(orvane);
  const std::string token = pushToken(orvane);
  const auto type = NTFMNotificationType::generic;

  // Marks the listed notifications read; the reply counts what is left.
  const auto markRead = [&](const std::vector<std::string>& ids) {
    orvane.readNotifications(ids, token, type, [&, marked = ids.size()](const velora::ResponseMessage& reply) {
      if (reply.code != 200) return failed("marking them read", example::describe(reply));
      const auto update = reply.payloadAs<velora::UpdateNotificationResponse>();
      const auto count = update.count.value_or(velora::NTFMNotificationCount{});
      if (count.toRead != 0) return failed("marking them read", std::to_string(count.toRead) + " are still unread");
      finish(0, "notifications ok: marked " + std::to_string(marked) + " read; " + std::to_string(count.read) + " read, none unread");
    });
  };

  const auto listUnread = [&] {
    const std::vector statuses{velora::NTFMNotificationStatus::sent};
    orvane.getNotifications(token, type, statuses, [&](const velora::ResponseMessage& reply) {
      if (reply.code != 200) return failed("listing the notifications", example::describe(reply));
      std::vector<std::string> ids;
      for (const auto& n : reply.payloadAs<std::vector<velora::NTFMNotification>>()) {
        std::cout << "  " << n.id << "  " << n.creationDate << "  " << n.message.title << ": " << n.message.body << '\n';
        ids.push_back(n.id);
      }
      std::cout << ids.size() << " unread\n";
      if (ids.empty()) return finish(0, "notifications ok: nothing unread");
      markRead(ids);
    });
  };

  // The registration names this application (its bundle identifier) and installation; it throws
  // when the platform has no bundle identifier.
  std::optional<velora::RegistrationInfoRequest> registration;
  try {
    registration = orvane.registrationRequest("velora-examples", token);
  } catch (...) {
    return example::fail("notifications", example::describe(std::current_exception()));
  }
  orvane.backgroundLogin(example::user(), example::password(), -1, [&](auto, std::optional<velora::PlatformError> error) {
    if (error) return failed("logging in", example::describe(*error));
    orvane.ntfmRegister(*registration, [&](const velora::ResponseMessage& reply) {
      if (reply.code != 200) return failed("registering the device", example::describe(reply));
      std::cout << "registered for " << reply.payloadAs<velora::RegistrationInfoResponse>().username.value_or("?") << '\n';
      listUnread();
    });
  });
  loop->postAfter(std::chrono::seconds(20), [&] { failed("waiting", "no answer within 20 s"); });
  loop->run();
  return status;
}
