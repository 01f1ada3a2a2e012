#include <set>

#include <gmock/gmock.h>

#include "platform/simulated/SimulatedWorldSource.h"
#include "tests/sdk/ManagerFixture.h"

namespace {

using platform::BeaconWorld;
using testing::Contains;
using testing::SizeIs;

// As docs/testing-applications.md shows it.
class Crowd : public ManagerTest {
 protected:
  Crowd()
      : ManagerTest({.makeRadio = [](const auto& dispatch) {
          return platform::makeSimulatedWorldSource(dispatch, {.sensors = 4, .iBeacons = 3},
                                                    platform::DISPATCH_TIME_FOREVER);
        }}) {}

  /// The UUIDs that a minute's search reports.
  std::set<std::string> search(uint64_t beaconType) {
    startSearch(beaconType);
    simulated.advance(seconds(60));
    std::set<std::string> uuids;
    for (const auto& beacon : listener.beacons) {
      if (beacon->beaconType() == beaconType) uuids.insert(beacon->uuid().value());
    }
    return uuids;
  }
};

TEST_F(Crowd, IsHeardByTheScanAndByTheRegions) {
  EXPECT_THAT(search(1), SizeIs(4));
  for (const char* proximityUUID : BeaconWorld::kProximityUUIDs) {
    manager().setBeaconUUID(proximityUUID);
    EXPECT_THAT(search(2), Contains(proximityUUID));
  }
  EXPECT_DEATH(simulated.radio(), "radio is not part of this platform");
}

}  // namespace
