#pragma once

#include <string>
#include <vector>

#include "gateway/web/PageModel.h"

namespace brenloft::web {

/// What charts show of one beacon in a span, however long that is.
struct BeaconHistory {
  BeaconId id;
  Label label{};
  PageLayer layer{};
  std::vector<HistorySpan> outages{};   ///< nothing listened
  std::vector<HistorySpan> presence{};  ///< outages are not taken out
  platform::Date knownSince{};          ///< before it nothing is known of its presence
  std::vector<PageMark> marks{};
};

/// In at most so many points, whose width is a whole part of a day.
platform::Result<BeaconHistory> readBeaconHistory(HistoryReader& reader, const Settings& settings,
                                                  const BeaconId& beacon, const HistorySpan& span,
                                                  std::size_t points, const PageEnd& end);

// docs/serve.md describes both.
std::string historyJson(const BeaconHistory& history);
std::string historyCsv(const BeaconHistory& history);

}  // namespace brenloft::web
