#include "BrenloftSDK/BRLContextManagerDelegate.h"

void BRLContextManagerDelegate::contextManager_forBeacon(BRLContextManager&,
                                                         const std::shared_ptr<BRLBeaconDataModel>&) {}
void BRLContextManagerDelegate::contextManager_didRangeBeaconSensors(BRLContextManager&,
                                                                     const BRLRecordList&) {}
void BRLContextManagerDelegate::contextManager_didByteArray(BRLContextManager&,
                                                            const std::vector<std::string>&) {}
void BRLContextManagerDelegate::emergencyCallback_forBeacon(BRLContextManager&,
                                                            const std::shared_ptr<BRLBeaconDataModel>&) {}

void BRLDelegateHandlers::contextManager_forBeacon(BRLContextManager& manager, const Beacon& beacon) {
  forBeacon(manager, beacon);
}

void BRLDelegateHandlers::contextManager_didRangeBeaconSensors(BRLContextManager& manager,
                                                               const BRLRecordList& beacons) {
  didRangeBeaconSensors(manager, beacons);
}

void BRLDelegateHandlers::contextManager_didByteArray(BRLContextManager& manager,
                                                      const std::vector<std::string>& octets) {
  didByteArray(manager, octets);
}

void BRLDelegateHandlers::emergencyCallback_forBeacon(BRLContextManager& manager, const Beacon& beacon) {
  emergencyCallback(manager, beacon);
}

bool BRLDelegateHandlers::respondsTo(BRLDelegateOperation operation) const noexcept {
  switch (operation) {
    case BRLDelegateOperation::forBeacon:
      return static_cast<bool>(forBeacon);
    case BRLDelegateOperation::didRangeBeaconSensors:
      return static_cast<bool>(didRangeBeaconSensors);
    case BRLDelegateOperation::didByteArray:
      return static_cast<bool>(didByteArray);
    case BRLDelegateOperation::emergencyCallback:
      return static_cast<bool>(emergencyCallback);
  }
  return false;
}
