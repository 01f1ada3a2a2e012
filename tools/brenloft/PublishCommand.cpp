#include "tools/brenloft/PublishCommand.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>
#include <system_error>
#include <utility>

#include <fmt/format.h>
#include <sys/resource.h>
#include <unistd.h>

#include "gateway/history/HistoryWriter.h"
#include "gateway/mqtt/Forgetting.h"
#include "gateway/mqtt/Topics.h"
#include "platform/dispatch/RealTimeDispatch.h"
#include "tools/brenloft/BeaconNames.h"
#include "tools/brenloft/Commands.h"
#include "tools/brenloft/Following.h"
#include "tools/brenloft/Messages.h"
#include "tools/brenloft/Store.h"

namespace brenloft {
namespace {

void say(const std::string& line) {
  printMessage("brenloft: " + line);
}

// The machine's name up to its first dot, as far as it can be a part of a topic.
std::string nameOfMachine() {
  std::array<char, 256> name{};
  ::gethostname(name.data(), name.size() - 1);
  std::string text(name.data());
  text.resize(std::min(text.find('.'), text.size()));
  for (char& c : text)
    if (!Topics::isName({&c, 1})) c = '-';
  return text.empty() ? "gateway" : text;
}

// What systemd has put into the unit's folder for it alone; "" where there is none.
std::filesystem::path credential(const char* name) {
  const char* folder = std::getenv("CREDENTIALS_DIRECTORY");
  if (folder == nullptr) return {};
  std::filesystem::path file = std::filesystem::path(folder) / name;
  std::error_code error;
  return std::filesystem::exists(file, error) ? file : std::filesystem::path();
}

void requireReadable(const std::string& file) {
  if (!file.empty() && ::access(file.c_str(), R_OK) != 0)
    throw Failure(ExitStatus::failed, fmt::format("{}: {}", file, std::generic_category().message(errno)));
}

// Passwords are neither in an argument nor in what a crash leaves behind.
Broker settledBroker(const PublishOptions& options) {
  const rlimit none{0, 0};
  ::setrlimit(RLIMIT_CORE, &none);
  Broker broker = options.broker;
  const auto settle = [](std::string& file, const char* name) {
    if (file.empty()) file = credential(name);
    requireReadable(file);
  };
  settle(broker.authority, "mqtt-ca");
  settle(broker.certificate, "mqtt-cert");
  settle(broker.key, "mqtt-key");
  if (!options.broker.key.empty())
    if (const auto problem = secretProblem(broker.key)) throw Failure(ExitStatus::failed, problem->text);
  const auto login = options.login.empty() ? credential("mqtt-login") : options.login;
  if (!login.empty()) {
    auto read = readLogin(login);
    if (!read) throw Failure(ExitStatus::failed, read.error().text);
    broker.login = *std::move(read);
  }
  return broker;
}

PublisherOptions publisherOptions(const PublishOptions& options) {
  const std::filesystem::path folder = folderOfContainer(options.container);
  PublisherOptions publisher{.history = folder / kHistoryFileName,
                             .cursor = options.cursor.empty() ? folder / "publish.json" : options.cursor,
                             .from = options.from,
                             .isFromNow = options.isFromNow,
                             .gateway = options.name.empty() ? nameOfMachine() : options.name,
                             .broker = settledBroker(options),
                             .limits = options.limits,
                             .discovery = options.discovery,
                             .version = BRENLOFT_VERSION,
                             .source = options.hearing.source};
  publisher.discovery.version = BRENLOFT_VERSION;
  publisher.broker.clientId = "brenloft-" + publisher.gateway;
  return publisher;
}

ExitStatus forget(const PublishOptions& options, platform::DispatchService& dispatch) {
  const std::vector<BeaconId> beacons = beaconsFromTexts("--forget", options.forget, *options.settings);
  const PublisherOptions publisher = publisherOptions(options);
  const Topics topics(publisher.gateway);
  const auto forgotten =
      forgetRetained(publisher.broker, topics, Discovery(topics, publisher.discovery), beacons, dispatch);
  if (!forgotten) throw Failure(ExitStatus::failed, forgotten.error().text);
  printMessage(fmt::format("{} retained messages removed", *forgotten));
  return ExitStatus::done;
}

}  // namespace

ExitStatus runPublish(const PublishOptions& options) {
  if (!options.forget.empty() || options.isAllForgotten)
    return forget(options, *platform::RealTimeDispatch::make());
  return runFollowing({options.container, options.settings, options.hearing}, [&](const auto& dispatch) {
    const auto publisher =
        std::make_shared<Publisher>(publisherOptions(options), dispatch, options.settings, say);
    return Follower{.run = [publisher] { return publisher->run(); },
                    .stop = [publisher] { publisher->stop(); },
                    .wake = [publisher] { publisher->wake(); }};
  });
}

}  // namespace brenloft
