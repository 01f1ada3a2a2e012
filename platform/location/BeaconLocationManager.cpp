#include "platform/location/BeaconLocationCore.h"

namespace platform {

BeaconLocationManager::BeaconLocationManager(std::shared_ptr<BeaconLocationCore> service)
    : service_(std::move(service)) {}

BeaconLocationManager::~BeaconLocationManager() {
  gate_->setDelegate(nullptr);
  service_->remove(*this);
}

void BeaconLocationManager::setDelegate(CLLocationManagerDelegate* delegate) {
  gate_->setDelegate(delegate);
}

std::vector<CLRegionPtr> BeaconLocationManager::monitoredRegions() const {
  return service_->monitoredRegions();
}

void BeaconLocationManager::startMonitoringForRegion(CLRegionPtr region) {
  if (region) service_->startMonitoring(*this, region);
}

void BeaconLocationManager::stopMonitoringForRegion(const CLRegionPtr& region) {
  if (region) service_->stopMonitoring(region);
}

void BeaconLocationManager::requestStateForRegion(const CLRegionPtr& region) {
  if (region) service_->requestState(*this, region);
}

void BeaconLocationManager::startRangingBeaconsInRegion(CLBeaconRegionPtr region) {
  if (region) service_->startRanging(*this, region);
}

void BeaconLocationManager::stopRangingBeaconsInRegion(const CLRegionPtr& region) {
  if (region) service_->stopRanging(*this, region);
}

void BeaconLocationManager::requestAlwaysAuthorization() {
  service_->requestAuthorization();
}

// The service knows no place; what is left of this is the question to the user that comes with it.
void BeaconLocationManager::startMonitoringSignificantLocationChanges() {
  service_->requestAuthorization();
}

}  // namespace platform
