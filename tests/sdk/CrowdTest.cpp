#include "platform/simulated/SimulatedWorldSource.h"
#include "tests/sdk/ManagerFixture.h"

namespace {

using platform::BeaconWorld;

// As docs/testing-applications.md shows it.
class Crowd : public ManagerTest {
 protected:
  Crowd()
      : ManagerTest({.makeRadio = [](const auto& dispatch) {
          return platform::makeSimulatedWorldSource(dispatch, {.sensors = 4, .iBeacons = 3},
                                                    platform::DISPATCH_TIME_FOREVER);
        }}) {}
};

TEST_F(Crowd, IsHeardByTheScanAndByTheRegions) {
  startSearch(1);
  simulated.advance(seconds(60));
  EXPECT_EQ(manager().rangeBeaconSensors().size(), 4U);
  manager().setBeaconUUID(BeaconWorld::kProximityUUIDs[0]);
  startSearch(2);
  simulated.advance(seconds(60));
  EXPECT_EQ(record(4).uuid(), BeaconWorld::kProximityUUIDs[0]);
}

}  // namespace
