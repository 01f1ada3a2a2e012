#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "platform/bluetooth/AdvertisingReport.h"
#include "platform/foundation/NSUUID.h"

namespace brenloft {

/// The iBeacons of a proximity UUID that have these numbers; an absent one means any.
struct IBeaconChoice {
  platform::NSUUID proximityUUID;
  std::optional<uint16_t> major;
  std::optional<uint16_t> minor;
};

/// The source without the UUID's other iBeacons: as if they were out of reach.
std::shared_ptr<platform::AdvertisingReportSource> filtered(
    std::shared_ptr<platform::AdvertisingReportSource> source, const IBeaconChoice& choice);

}  // namespace brenloft
