#include <gtest/gtest.h>

#include "BrenloftSDK/BRLContextManagerDelegate.h"

namespace {

using Beacon = std::shared_ptr<BRLBeaconDataModel>;
using Operation = BRLDelegateOperation;

class BytesOnly final : public BRLDelegateOf<BytesOnly> {
 public:
  void contextManager_didByteArray(BRLContextManager&, const std::vector<std::string>&) override {}
};

class Earlier : public BRLDelegateOf<Earlier> {
 public:
  using BRLOpenDelegate = Earlier;
  void contextManager_forBeacon(BRLContextManager&, const Beacon&) override {}
};

class Extended final : public BRLDelegateOf<Extended, Earlier> {
 public:
  void emergencyCallback_forBeacon(BRLContextManager&, const Beacon&) override {}
};

std::string answersOf(const BRLContextManagerDelegate& delegate) {
  std::string answers;
  for (const Operation operation : {Operation::forBeacon, Operation::didRangeBeaconSensors,
                                    Operation::didByteArray, Operation::emergencyCallback}) {
    answers += delegate.respondsTo(operation) ? '1' : '0';
  }
  return answers;
}

TEST(Delegate, RespondsToExactlyWhatItsTypeOverridesOrWhatIsSet) {
  EXPECT_EQ(answersOf(BytesOnly{}), "0010");
  EXPECT_EQ(answersOf(Earlier{}), "1000");
  EXPECT_EQ(answersOf(Extended{}), "1001");

  BRLDelegateHandlers handlers;
  EXPECT_EQ(answersOf(handlers), "0000");
  handlers.didRangeBeaconSensors = [](BRLContextManager&, const BRLRecordList&) {};
  handlers.emergencyCallback = [](BRLContextManager&, const Beacon&) {};
  EXPECT_EQ(answersOf(handlers), "0101");
}

}  // namespace
