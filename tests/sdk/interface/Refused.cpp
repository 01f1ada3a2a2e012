#include "BrenloftSDK/BRLContextManagerDelegate.h"

// Four operations that would hide the protocol's and never be called; interface_test.sh counts the refusals.

using Beacon = std::shared_ptr<BRLBeaconDataModel>;

class WithAnotherReference final : public BRLDelegateOf<WithAnotherReference> {
 public:
  void contextManager_forBeacon(BRLContextManager&, Beacon&) {}
};

class WithoutTheManager final : public BRLDelegateOf<WithoutTheManager> {
 public:
  static void contextManager_didRangeBeaconSensors(const BRLRecordList&) {}
};

class WithOtherOctets final : public BRLDelegateOf<WithOtherOctets> {
 public:
  void contextManager_didByteArray(BRLContextManager&, const std::vector<int>&) {}
};

class Constant final : public BRLDelegateOf<Constant> {
 public:
  void emergencyCallback_forBeacon(BRLContextManager&, const Beacon&) const {}
};

WithAnotherReference withAnotherReference;
WithoutTheManager withoutTheManager;
WithOtherOctets withOtherOctets;
Constant constant;
