#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "gateway/history/HistoryReader.h"
#include "platform/foundation/Date.h"

namespace brenloft::web {

// Times as people read them: in the local zone (TZ, else /etc/localtime), in English.

/// "CET"; "UTC+5:30" where the zone has no name of letters.
std::string zoneName(platform::Date date);
std::chrono::seconds zoneOffset(platform::Date date);  ///< east of UTC

std::string clockText(platform::Date date);   ///< "14:31"
std::string secondText(platform::Date date);  ///< "14:31:20"
std::string dayText(platform::Date date);     ///< "Sat 21 Nov"
std::string dateText(platform::Date date);    ///< "Sat 21 Nov 2026"
/// "Sat 21 Nov", with the year where that is another than now's.
std::string dayText(platform::Date date, platform::Date now);
/// "14:31", or with the day in front where that is another than now's.
std::string sinceText(platform::Date date, platform::Date now);
/// "20 s", "24 min", "2 h 03 min", "5 days".
std::string durationText(std::chrono::microseconds duration);

/// The midnight on which the local day of a date began.
platform::Date midnight(platform::Date date);

/// From when on which offset holds.
struct ZoneChange {
  platform::Date since;
  std::chrono::seconds offset;
  std::string name;
};
/// What holds at the beginning of a span, and each change in it.
std::vector<ZoneChange> zoneChanges(const HistorySpan& span);

}  // namespace brenloft::web
