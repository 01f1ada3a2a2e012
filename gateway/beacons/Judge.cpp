#include "gateway/beacons/Judge.h"

namespace brenloft {
namespace {

bool isOutside(const std::optional<int32_t>& value, int32_t least, int32_t most) {
  return value && (*value < least || *value > most);
}

// The memory of a device that nobody gave an identifier.
bool isNobodys(const std::string& identifier) {
  return identifier == "00-00-00-00-00-00" || identifier == "FF-FF-FF-FF-FF-FF";
}

}  // namespace

Verdict judge(const Reading& reading) {
  if (reading.beacon.kind() == BeaconId::Kind::iBeacon) return Verdict::plausible;
  if (isNobodys(reading.beacon.text())) return Verdict::identity;
  if (isOutside(reading.raw.temperature, kColdest, kHottest)) return Verdict::temperature;
  if (isOutside(reading.raw.humidity, 0, kWettest)) return Verdict::humidity;
  if (isOutside(reading.raw.battery, 0, kFullBattery)) return Verdict::battery;
  return Verdict::plausible;
}

}  // namespace brenloft
