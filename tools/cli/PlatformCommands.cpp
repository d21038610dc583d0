// check and device-config: the platform's utility operations.

#include <cstdio>
#include <memory>

#include <velora/core/DeviceConfiguration.hpp>
#include <velora/core/ResponseMessage.hpp>

#include "Command.hpp"
#include "Secrets.hpp"
#include "Session.hpp"

namespace velora::cli {
namespace {

std::string hexByte(std::uint8_t value) {
  char text[5];
  std::snprintf(text, sizeof text, "0x%02x", value);
  return text;
}

std::string describeCheck(const ResponseMessage& reply, const std::string& endpoint) {
  return fieldLines({{"endpoint", endpoint},
                     {"code", std::to_string(reply.code)},
                     {"message", reply.message.value_or("(none)")}});
}

std::string describeConfiguration(const NetworkResponseConfiguration& config) {
  const auto& adv = config.iosadvConf;
  const auto seconds = [](const std::optional<double>& v) { return v ? formatNumber(*v) + " s" : "-"; };
  std::vector<std::pair<std::string, std::string>> rows{
      {"tag id", adv.tagid},
      {"bytes", hexByte(adv.byte1) + " " + hexByte(adv.byte2)},
      {"tON/tOFF", seconds(adv.tON) + " / " + seconds(adv.tOFF)},
      {"app id", config.appId},
      {"device", config.uuid},
  };
  if (const auto& beacon = adv.enlightedConfig) {
    rows.emplace_back("beacon", beacon->uuid + " major " + std::to_string(beacon->major) + " minor " +
                                    std::to_string(beacon->minor));
  }
  return fieldLines(rows);
}

void check(Context& ctx) {
  Orvane& orvane = connectWithSession(ctx);
  const ResponseMessage reply = ctx.await("Checking the platform", orvane.checkConnection());
  logEntry("velora check: " + reply.message.value_or(std::to_string(reply.code)));
  ctx.out.show<ResponseMessage>(reply, [&](const auto& r) { return describeCheck(r, orvane.sdkEndpoint()); });
}

struct DeviceConfigOptions {
  std::string tagid;
  CLI::Option* tagidOption = nullptr;
};

void deviceConfig(Context& ctx, const DeviceConfigOptions& options) {
  std::optional<std::string> tagid;
  if (options.tagidOption->count() > 0) tagid = options.tagid;
  Orvane& orvane = connectWithSession(ctx);
  const auto config = ctx.await("Fetching the device configuration", orvane.getConfiguration(std::move(tagid)));
  logEntry("velora device-config: tag " + config.iosadvConf.tagid);
  ctx.out.show<NetworkResponseConfiguration>(config, describeConfiguration);
}

}  // namespace

void addPlatformCommands(CommandSet& commands) {
  commands.add("check", "Check that the platform answers", check);

  auto options = std::make_shared<DeviceConfigOptions>();
  CLI::App* config = commands.add("device-config", "Show this device's advertising configuration",
                                  [options](Context& ctx) { deviceConfig(ctx, *options); });
  options->tagidOption = config->add_option("--tagid", options->tagid, "Ask for this tag id instead of the assigned one");
}

}  // namespace velora::cli
