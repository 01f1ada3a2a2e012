#include "platform/location/CLLocationManager.h"

#include <utility>

namespace platform {
namespace {

std::string textOf(const std::optional<uint16_t>& number) {
  return number ? std::to_string(*number) : "(null)";
}

}  // namespace

std::string CLRegion::description() const {
  return "CLRegion (identifier:'" + identifier_ + "')";
}

CLBeaconRegion::CLBeaconRegion(const NSUUID& proximityUUID, std::string identifier)
    : CLRegion(std::move(identifier)), proximityUUID_(proximityUUID) {}

CLBeaconRegion::CLBeaconRegion(const NSUUID& proximityUUID, uint16_t major, std::string identifier)
    : CLRegion(std::move(identifier)), proximityUUID_(proximityUUID), major_(major) {}

CLBeaconRegion::CLBeaconRegion(const NSUUID& proximityUUID, uint16_t major, uint16_t minor,
                               std::string identifier)
    : CLRegion(std::move(identifier)), proximityUUID_(proximityUUID), major_(major), minor_(minor) {}

std::string CLBeaconRegion::description() const {
  return "CLBeaconRegion (identifier:'" + identifier() + "', uuid:" + proximityUUID_.UUIDString() +
         ", major:" + textOf(major_) + ", minor:" + textOf(minor_) + ")";
}

}  // namespace platform
