#include <charconv>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "gateway/mqtt/Topics.h"
#include "tools/brenloft/BeaconNames.h"
#include "tools/brenloft/CommandSettings.h"
#include "tools/brenloft/ContainerFiles.h"
#include "tools/brenloft/HearingDeclarations.h"
#include "tools/brenloft/OptionDeclarations.h"
#include "tools/brenloft/PublishCommand.h"

namespace brenloft {
namespace {

constexpr uint16_t kPlainPort = 1883;
constexpr uint16_t kEncryptedPort = 8883;

const Choices<bool> kVersions{{"5", true}, {"3.1.1", false}};
const Choices<Discovery::Scope> kScopes{
    {"known", Discovery::Scope::known}, {"all", Discovery::Scope::all}, {"none", Discovery::Scope::none}};
const Choices<Outbox::Batches> kBatches{
    {"on", Outbox::Batches::on}, {"off", Outbox::Batches::off}, {"collected", Outbox::Batches::collected}};

// HOST or HOST:PORT; of an address of version 6 the brackets are no part of the host.
bool readPlace(std::string_view text, Broker& broker) {
  const std::size_t end = text.starts_with('[') ? text.find(']') : 0;
  if (end == std::string_view::npos) return false;
  const std::size_t colon = text.find(':', end);
  broker.host = text.substr(0, colon);
  if (end > 0) broker.host = broker.host.substr(1, broker.host.size() - 2);
  if (colon == std::string_view::npos) return !broker.host.empty();
  const std::string_view port = text.substr(colon + 1);
  const auto [stop, error] = std::from_chars(port.data(), port.data() + port.size(), broker.port);
  return error == std::errc() && stop == port.data() + port.size() && broker.port != 0 &&
         !broker.host.empty();
}

void readBroker(const std::string& text, Broker& broker) {
  // Who has put a password here must not find it in a message as well.
  if (text.find('@') != std::string::npos)
    throw CLI::ValidationError("--broker",
                               "user and password do not belong here, but in a file: --login FILE");
  std::string_view place = text;
  broker.isEncrypted = place.starts_with("mqtts://");
  const bool hasScheme = broker.isEncrypted || place.starts_with("mqtt://");
  place.remove_prefix(broker.isEncrypted ? 8 : hasScheme ? 7 : 0);
  broker.port = broker.isEncrypted ? kEncryptedPort : kPlainPort;
  if (!hasScheme || !readPlace(place, broker))
    throw CLI::ValidationError("--broker",
                               fmt::format("'{}' is neither mqtt://HOST:PORT nor mqtts://HOST:PORT", text));
}

void addBroker(CLI::App& command, Broker& broker) {
  command
      .add_option_function<std::string>(
          "--broker", [&broker](const std::string& text) { readBroker(text, broker); },
          "mqtt://HOST, or mqtts://HOST for TLS, with :PORT where it is not 1883 or 8883; default: "
          "mqtt://localhost")
      ->type_name("URL");
  addChoice(command, "--mqtt", broker.isVersion5, kVersions, "the version of the protocol; default: 5");
  addPath(command, "--ca", broker.authority,
          "the certificate of who signs the broker's; default: those that the system trusts");
  addPath(command, "--cert", broker.certificate, "the client's own certificate");
  addPath(command, "--key", broker.key, "the key of that certificate");
}

void addDiscovery(CLI::App& command, PublishOptions& options) {
  addChoice(command, "--discover", options.discovery.scope, kScopes,
            "which beacons Home Assistant shows by itself; known: those of the settings file; default: "
            "known");
  command.add_flag("--shared-ids", options.discovery.isShared,
                   "make one device of a beacon that several gateways hear; all of them need this option");
  auto* forget =
      command.add_option("--forget", options.forget,
                         "only remove what the broker keeps of this beacon, by name or identifier; "
                         "may be repeated");
  forget->type_name(kBeacon)->allow_extra_args(false)->expected(1, -1);
  command
      .add_flag("--all", options.isAllForgotten,
                "only remove everything that the broker keeps of this gateway")
      ->excludes(forget);
}

void addFrom(CLI::App& command, PublishOptions& options) {
  command
      .add_option_function<std::string>(
          "--from",
          [&options](const std::string& text) {
            int64_t seq = 1;
            const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), seq);
            const bool isNumber = error == std::errc() && stop == text.data() + text.size() && seq > 0;
            if (!isNumber && text != "all" && text != "now")
              throw CLI::ValidationError("--from",
                                         fmt::format("'{}' is neither a row's number, all nor now", text));
            options.isFromNow = text == "now";
            if (!options.isFromNow) options.from = isNumber ? seq : 1;
          },
          "begin with this row of the history, whatever was published before: its number, all or now")
      ->type_name("ROW|all|now");
}

std::string checkName(const std::string& text) {
  return Topics::isName(text) ? ""
                              : "'" + text + "' is not a name of letters, digits, - and _ (not in front)";
}

}  // namespace

void addPublish(CLI::App& app, ChosenCommand& run) {
  auto options = std::make_shared<PublishOptions>();
  auto* command = app.add_subcommand("publish", "Publish the history to an MQTT broker, and follow it");
  addBroker(*command, options->broker);
  addPath(*command, "--login", options->login,
          "a file with the user in its first line and the password in the second");
  command->add_option("--gateway", options->name, "the gateway's name in topics; default: the machine's")
      ->check(checkName)
      ->type_name("NAME");
  addContainer(*command, options->container);
  addPath(*command, "--cursor", options->cursor,
          "the file that says how far the history was published; default: publish.json in the container");
  addFrom(*command, *options);
  addNumber(*command, "--max-rate", options->limits.mostPerSecond, 1,
            "how many rows a second to send of what waited for the broker; default: 1000");
  addNumber(*command, "--max-backlog", options->limits.mostBacklog, 1,
            "how many rows may wait; beyond that the oldest readings are left out; default: 10000000",
            INT64_MAX);
  addChoice(
      *command, "--batches", options->limits.batches, kBatches,
      "also publish every row, for a fleet; collected: keep each until somebody has subscribed; default: on");
  addDiscovery(*command, *options);
  addHearing(*command, options->hearing);
  command->callback([&run, options] {
    refuseContainerFile("--cursor", options->cursor, options->container);
    options->settings = run.settings;
    chooseBeacons(options->hearing.gateway, run.settings.get());
    if (run.settings) static_cast<void>(beaconsFromTexts("--forget", options->forget, *run.settings));
    run = [options] { return runPublish(*options); };
  });
}

}  // namespace brenloft
