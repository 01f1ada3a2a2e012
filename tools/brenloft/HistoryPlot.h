#pragma once

#include <string>
#include <vector>

#include "gateway/configuration/Settings.h"
#include "gateway/history/HistoryReader.h"
#include "tools/brenloft/Chart.h"

namespace brenloft {

struct PlotRequest {
  HistorySpan span{};  ///< both ends given
  platform::Date now{};
  std::vector<BeaconId> beacons{};     ///< none: all
  std::vector<Quantity> quantities{};  ///< none: what the beacon measures
};

/// A chart of each beacon and quantity; empty where nothing was heard.
platform::Result<std::string> plotHistory(HistoryReader& reader, const Settings& settings,
                                          const PlotRequest& request, const ChartForm& form);

/// As the locale and the terminal have it.
ChartForm chartFormOfTerminal();

}  // namespace brenloft
