#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "gateway/configuration/LiveSettings.h"
#include "gateway/web/ListenAddress.h"
#include "tools/brenloft/ExitStatus.h"
#include "tools/brenloft/Options.h"

namespace CLI {
class App;
}

namespace brenloft {

class ChosenCommand;

struct ServeOptions {
  std::filesystem::path container{};
  std::shared_ptr<LiveSettings> settings{};  ///< names, places and alarms
  /// How it also hears; without a source another process does.
  SearchOptions hearing{.source = {}};
  std::string title = "Beacons";
  web::ListenAddress listen{};
  std::filesystem::path token{};  ///< none: whoever reaches the address may look
  bool isInsecure = false;        ///< others may reach it without a token
};

ExitStatus runServe(const ServeOptions& options);

/// Declares `serve`.
void addServe(CLI::App& app, ChosenCommand& run);

}  // namespace brenloft
