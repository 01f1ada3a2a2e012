#include <algorithm>
#include <map>
#include <set>

#include "LocationFixture.h"
#include "platform/bluetooth/ADStructures.h"
#include "platform/simulated/BeaconWorld.h"
#include "platform/simulated/SimulatedWorldSource.h"

namespace {

using platform::BeaconWorld;
using platform::BeaconWorldOptions;

/// A report that may be kept.
struct Heard {
  platform::AdvertisingReport report;
  platform::Data octets;

  platform::ADStructures structures() const {
    platform::ADStructures read;
    EXPECT_TRUE(read.read(octets)) << platform::hexText(octets);
    return read;
  }
};

std::vector<Heard> play(const BeaconWorldOptions& options, seconds duration) {
  BeaconWorld world(options);
  std::vector<Heard> all;
  for (auto report = world.next(); report.time <= options.start + duration; report = world.next())
    all.push_back({report, platform::toData(report.data)});
  return all;
}

std::string textOf(const std::vector<Heard>& all) {
  std::string text;
  for (const Heard& one : all)
    text += std::to_string(one.report.time.time_since_epoch().count()) + one.report.address.text() +
            std::to_string(static_cast<int>(one.report.kind)) + std::to_string(one.report.rssi) +
            platform::hexText(one.octets) + "\n";
  return text;
}

/// How many senders were silent for longer between two packets.
int64_t sendersSilentFor(platform::dispatch_time_t duration, const std::vector<Heard>& all) {
  std::map<std::string, platform::Date> last;
  std::set<std::string> silent;
  for (const Heard& one : all) {
    const std::string sender = one.report.address.text();
    const auto before = last.try_emplace(sender, one.report.time).first;
    if (one.report.time - before->second > duration) silent.insert(sender);
    before->second = one.report.time;
  }
  return std::ssize(silent);
}

TEST(BeaconWorld, GivesItsReportsInTimeOrderAtAboutTheirInterval) {
  const BeaconWorldOptions options{.sensors = 3, .iBeacons = 2, .seed = 7, .interval = milliseconds(100)};
  const auto all = play(options, seconds(10));
  EXPECT_GT(all.size(), 5U * 40U);
  EXPECT_LT(all.size(), 5U * 106U);
  EXPECT_TRUE(std::ranges::is_sorted(all, {}, [](const Heard& one) { return one.report.time; }));
}

TEST(BeaconWorld, SendsSensorFramesThatALegacyRadioCanCarry) {
  std::set<std::string> shortUUIDs;
  std::set<std::string> longUUIDs;
  for (const Heard& one : play({.sensors = 8, .seed = 3}, seconds(30))) {
    ASSERT_LE(one.octets.size(), 31U);
    const auto structures = one.structures();
    if (platform::isScanResponse(one.report.kind)) {
      ASSERT_EQ(structures.serviceUUIDs.size(), 1U);
      EXPECT_TRUE(structures.localName);
      longUUIDs.insert(structures.serviceUUIDs.front().UUIDString());
      continue;
    }
    ASSERT_TRUE(structures.manufacturerData);
    const platform::DataView frame = *structures.manufacturerData;
    ASSERT_EQ(frame.size(), 22U);
    EXPECT_TRUE(std::ranges::equal(frame.subspan(7, 6), one.report.address.octets,
                                   [](std::byte a, uint8_t b) { return std::to_integer<uint8_t>(a) == b; }));
    if (!structures.serviceUUIDs.empty()) shortUUIDs.insert(structures.serviceUUIDs.front().UUIDString());
  }
  EXPECT_EQ(shortUUIDs.size(), 6U);
  EXPECT_EQ(longUUIDs.size(), 2U);
}

TEST(BeaconWorld, ShowsALossAndAnEmergencyWithinTheFirstTenSeconds) {
  for (uint64_t seed = 0; seed < 50; ++seed) {
    const auto all = play({.sensors = 3, .seed = seed}, seconds(10));
    EXPECT_EQ(sendersSilentFor(seconds(5), all), 1) << seed;
    std::set<bool> emergencies;
    for (const Heard& one : all)
      emergencies.insert(one.structures().manufacturerData->operator[](6) != std::byte{0});
    EXPECT_EQ(emergencies, (std::set{false, true})) << seed;
  }
}

TEST(BeaconWorld, ItsIBeaconsDifferAndEveryThirdLeavesAndReturns) {
  const auto all = play({.sensors = 0, .iBeacons = 12, .seed = 5}, seconds(300));
  std::set<platform::iBeaconFrame> frames;
  std::set<platform::NSUUID> uuids;
  std::set<uint16_t> majors;
  for (const Heard& one : all) {
    const auto frame =
        platform::parseIBeaconFrame(one.structures().manufacturerData.value_or(platform::DataView{}));
    ASSERT_TRUE(frame);
    frames.insert(*frame);
    uuids.insert(frame->proximityUUID);
    majors.insert(frame->major);
  }
  EXPECT_EQ(frames.size(), 12U);
  EXPECT_EQ(uuids.size(), 2U);
  EXPECT_EQ(majors.size(), 4U);
  EXPECT_EQ(sendersSilentFor(seconds(30), all), 4);
}

TEST(BeaconWorld, WithoutBeaconsHasNothingToSay) {
  EXPECT_EQ(BeaconWorld({.sensors = 0}).next().time, platform::Date::max());
}

TEST(SimulatedWorldSource, PlaysTheWorldFromTheFirstScanAndEndsOnTime) {
  platform::SimulatedPlatform simulated;
  platform::Platform& services = simulated.services();
  BeaconWorldOptions options{.sensors = 4, .iBeacons = 2, .seed = 11};
  std::optional<platform::Date> end;
  const auto source = platform::makeSimulatedWorldSource(services.dispatch, options, seconds(20),
                                                         [&] { end = services.dispatch->date(); });
  std::vector<Heard> all;
  Lines states;
  source->open(
      [&](const auto& report) {
        all.push_back({report, platform::toData(report.data)});
      },
      [&](const auto& state) { states.push_back(std::to_string(static_cast<int>(state.state))); });
  simulated.advance(seconds(5));
  EXPECT_TRUE(all.empty());
  EXPECT_EQ(states, Lines{"5"});

  source->startScan({});
  options.start = services.dispatch->date();
  simulated.advance(seconds(60));
  EXPECT_EQ(textOf(all), textOf(play(options, seconds(20))));
  EXPECT_EQ(end, options.start + seconds(20));
}

}  // namespace
