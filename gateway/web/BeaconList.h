#pragma once

#include <cstdint>
#include <string>

#include "gateway/web/PageModel.h"

namespace brenloft::web {

/// What `/api/beacons` says: every beacon of the page with its newest values, as of a row of the history.
std::string beaconList(const PageModel& page, int64_t seq);

struct HealthText {
  bool isWell = false;  ///< something listens
  std::string json;
};
/// What `/healthz` says.
HealthText healthOf(const PageModel& page);

}  // namespace brenloft::web
