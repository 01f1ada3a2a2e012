#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "gateway/configuration/LiveSettings.h"
#include "gateway/mqtt/Publisher.h"
#include "tools/brenloft/ExitStatus.h"
#include "tools/brenloft/Options.h"

namespace CLI {
class App;
}

namespace brenloft {

class ChosenCommand;

struct PublishOptions {
  std::filesystem::path container;
  std::shared_ptr<LiveSettings> settings{};
  /// How it also hears; without a source another process does.
  SearchOptions hearing{.source = {}};
  std::string name{};  ///< the gateway's; none: the machine's
  Broker broker{};
  std::filesystem::path login{};   ///< none: the service's credential, or nobody
  std::filesystem::path cursor{};  ///< none: in the container
  std::optional<int64_t> from{};   ///< as `PublisherOptions` has them
  bool isFromNow = false;
  Outbox::Options limits{};
  Discovery::Options discovery{};
  std::vector<std::string> forget{};  ///< only removes what is retained of these, names or identifiers
  bool isAllForgotten = false;        ///< or of all
};

ExitStatus runPublish(const PublishOptions& options);

/// Declares `publish`.
void addPublish(CLI::App& app, ChosenCommand& run);

}  // namespace brenloft
