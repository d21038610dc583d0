// equipment: lists the building's controllable items, switches a light on (or off, when it is on)
// and prints the event of the item stream with which the platform reports the switch.
//
//   equipment [URL]
//
// Form: callbacks. Every answer arrives on a velora::RunLoop that main() runs; each step starts
// the next from its callback, and the last one (or a failure, or the time limit) stops the loop.

#include <algorithm>
#include <chrono>
#include <iostream>

#include "Connect.hpp"

namespace {

using velora::ItemControl;
using velora::ItemControllable;

/// The first on/off control of a light, with its item.
std::pair<const ItemControllable*, std::shared_ptr<ItemControl>> findLightSwitch(const std::vector<ItemControllable>& items) {
  for (const auto& item : items) {
    if (item.type != velora::ControllableElementType::LIGHT) continue;
    for (const auto& control : item.controls.value_or(std::vector<std::shared_ptr<ItemControl>>{})) {
      if (control && control->type == velora::ItemControlType::CTRL_TOGGLE) return {&item, control};
    }
  }
  return {nullptr, nullptr};
}

void printItems(const std::vector<ItemControllable>& items) {
  for (const auto& item : items) {
    std::cout << "  " << item.id << "  " << velora::rawValue(item.type) << "  " << item.name.value_or(item.logicName) << '\n';
    for (const auto& control : item.controls.value_or(std::vector<std::shared_ptr<ItemControl>>{})) {
      std::cout << "      " << control->name << " = " << control->currentValue().value.value_or("-") << '\n';
    }
  }
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
  const auto failed = [&](const std::string& step, const std::string& why) { finish(1, "equipment failed: " + step + ": " + why); };

  velora::Orvane& orvane = example::connect(example::platform("equipment", loop), example::platformUrl(args));
  example::forgetStoredSession(orvane);
  std::shared_ptr<velora::SSEManager> stream;
  std::optional<velora::ItemCurrentValue> sent;  // the switch, once sent

  // Follows the light's values, then switches it: the stream's "complete" event says the
  // subscription stands, so the change that follows cannot be missed.
  const auto switchLight = [&](const ItemControllable& light) {
    stream = orvane.startControllableItems(
        std::vector<int>{light.id}, std::nullopt, /*check interval, ms*/ 10000,
        [&](const std::vector<ItemControllable>& subscribed) {
          auto [item, toggle] = findLightSwitch(subscribed);
          if (sent || !toggle) return;
          const bool isOn = toggle->currentValue().value == toggle->toggleOnValue;
          sent = velora::ItemCurrentValue{toggle->currentValue().id, isOn ? toggle->toggleOffValue : toggle->toggleOnValue};
          std::cout << "switching " << item->name.value_or(item->logicName) << ": " << toggle->name << " = " << sent->value.value_or("-")
                    << '\n';
          // The stream's controls are bound to the facade: setting a value sends it to the platform.
          // The call does not report the platform's answer; the stream's event below confirms it,
          // and the time limit catches a refused value.
          toggle->setCurrentValue(*sent);
        },
        [&](const std::vector<velora::ItemCurrentValue>& changed) {
          if (sent && std::find(changed.begin(), changed.end(), *sent) != changed.end()) {
            finish(0, "equipment ok: the stream reported value " + std::to_string(sent->id) + " = " + sent->value.value_or("-"));
          }
        });
    if (!stream) failed("following the light", "the stream request cannot be built for " + orvane.sdkEndpoint());
  };

  orvane.backgroundLogin(example::user(), example::password(), -1, [&](auto, std::optional<velora::PlatformError> error) {
    if (error) return failed("logging in", example::describe(*error));
    orvane.getControllableItems(std::nullopt, [&](const velora::ResponseMessage& reply) {
      if (reply.code != 200) return failed("listing the equipment", example::describe(reply));
      const auto items = reply.payloadAs<std::vector<ItemControllable>>();
      std::cout << items.size() << " controllable items:\n";
      printItems(items);
      const auto [light, toggle] = findLightSwitch(items);
      if (!light) return failed("finding a light", "no item of type LIGHT has an on/off control");
      switchLight(*light);
    });
  });
  loop->postAfter(std::chrono::seconds(20), [&] { failed("waiting", "no report of the switch within 20 s"); });
  loop->run();
  if (stream) stream->removeAllListenersAndDisconnect();
  return status;
}
