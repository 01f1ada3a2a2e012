#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "gateway/configuration/LiveSettings.h"
#include "gateway/history/HistoryReader.h"
#include "tools/brenloft/ExitStatus.h"
#include "tools/brenloft/Options.h"

namespace CLI {
class App;
}

namespace brenloft {

class ChosenCommand;

enum class HistoryFormat { table, jsonl, csv, influx };

struct HistoryCommandOptions {
  enum class Action { show, exportRows, count, last, prune, check, backUp };
  Action action = Action::show;
  std::filesystem::path container;
  std::shared_ptr<LiveSettings> settings{};  ///< names
  HistoryFormat format = HistoryFormat::table;
  std::optional<TimeForm> time{};
  std::string since{};  ///< as `spanFromTexts` reads it
  std::string until{};
  std::vector<std::string> beacons{};  ///< names or identifiers; none: all
  bool readingsOnly = false;           ///< no events
  std::string at{};                    ///< of `last`: as it was then; as `instantFromText` reads it
  std::optional<std::chrono::microseconds> every{};
  std::string out{};               ///< of `export` and `backup`; none: standard output
  std::optional<uint64_t> last{};  ///< of `show`: only so many
  bool follow = false;
  bool isPlot = false;                 ///< of `show`: charts
  std::vector<Quantity> quantities{};  ///< of the charts; none: what each beacon measures
  bool yes = false;
  std::string before{};                ///< of `prune`
  std::optional<uint64_t> keepSize{};  ///< of `prune`
};

ExitStatus runHistory(const HistoryCommandOptions& options);

/// Declares `history` and its actions.
void addHistory(CLI::App& app, ChosenCommand& run);

}  // namespace brenloft
