#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "fuzz/LocationModel.h"
#include "platform/bluetooth/RadioService.h"
#include "platform/dispatch/VirtualDispatch.h"
#include "platform/location/BeaconLocationService.h"
#include "platform/simulated/SimulatedRadio.h"
#include "tests/support/LocationListener.h"

namespace {

using platform::CBManagerState;
using platform::CLAuthorizationStatus;
using platform::CLBeaconRegion;
using platform::CLBeaconRegionPtr;
using support::Lines;
using support::LocationListener;

constexpr std::size_t kMostOctets = 512;
constexpr std::size_t kMostRegions = 32;
/// On an action on the service: the next one comes before anything follows from this one.
constexpr unsigned kAtOnce = 0x80;

class Input {
 public:
  explicit Input(std::span<const uint8_t> octets) : rest_(octets) {}

  bool isEmpty() const { return rest_.empty(); }
  unsigned next() {
    if (rest_.empty()) return 0;
    const unsigned octet = rest_.front();
    rest_ = rest_.subspan(1);
    return octet;
  }
  /// One below `count`.
  unsigned pick(unsigned count) { return next() % count; }

 private:
  std::span<const uint8_t> rest_;
};

CLAuthorizationStatus pickAuthorization(Input& input) {
  return static_cast<CLAuthorizationStatus>(input.pick(5));
}

std::optional<CLAuthorizationStatus> pickAnswer(Input& input) {
  const auto answer = pickAuthorization(input);
  return answer == CLAuthorizationStatus::notDetermined ? std::nullopt : std::optional(answer);
}

platform::NSUUID pickUUID(Input& input) {
  return platform::NSUUID({static_cast<uint8_t>(input.pick(3))});
}

CLBeaconRegionPtr pickRegion(Input& input) {
  const std::string identifier(1, static_cast<char>('a' + input.pick(24)));
  const platform::NSUUID uuid = pickUUID(input);
  const unsigned numbers = input.next();
  const auto major = static_cast<uint16_t>(numbers & 1U);
  const auto minor = static_cast<uint16_t>(numbers >> 1U & 1U);
  const bool hasMajor = (numbers & 4U) != 0;
  const bool hasMinor = (numbers & 8U) != 0;
  auto region = !hasMajor   ? std::make_shared<CLBeaconRegion>(uuid, identifier)
                : !hasMinor ? std::make_shared<CLBeaconRegion>(uuid, major, identifier)
                            : std::make_shared<CLBeaconRegion>(uuid, major, minor, identifier);
  region->setNotifyOnEntry((numbers & 16U) == 0);
  region->setNotifyOnExit((numbers & 32U) == 0);
  return region;
}

/// The service and the model beside it, through one row of actions.
class Trial {
 public:
  explicit Trial(Input input)
      : input_(input), model_(authorization_, answer_, radioState_ == CBManagerState::poweredOn) {
    if (const unsigned seed = input_.next(); seed != 0) dispatch_->shuffleTies(seed);
    makeManager(0);
    makeManager(1);
    settle();
  }

  void run() {
    while (!input_.isEmpty()) act(input_.next());
    settle();
    advance(std::chrono::seconds(32));
  }

 private:
  using Managers = std::array<std::unique_ptr<platform::CLLocationManager>, fuzz::LocationModel::kManagers>;

  void act(unsigned octet) {
    const unsigned action = (octet & ~kAtOnce) % 16;
    if (action < 5) {
      settle();
      actOutside(action);
      settle();
    } else {
      const std::size_t manager = input_.pick(fuzz::LocationModel::kManagers);
      if (action < 10)
        actOnRegion(action, manager);
      else
        actOnService(action, manager);
      if ((octet & kAtOnce) == 0) settle();
    }
  }

  void actOutside(unsigned action) {
    if (action < 2) return hear();
    if (action == 2) return setRadio(static_cast<CBManagerState>(5 - input_.pick(6)));
    const auto duration = fuzz::LocationModel::kStep * input_.pick(64);
    if (action == 3) return advance(duration);
    dispatch_->skip(duration);
    model_.skip(duration);
  }

  void hear() {
    const platform::iBeaconFrame frame{.proximityUUID = pickUUID(input_),
                                       .major = static_cast<uint16_t>(input_.pick(2)),
                                       .minor = static_cast<uint16_t>(input_.pick(2)),
                                       .measuredPower = static_cast<int8_t>(input_.next())};
    const auto rssi = static_cast<int8_t>(input_.next());
    radio_->advertise(platform::iBeaconAdvertisement(
        {{0xC0, frame.proximityUUID.octets()[0], 0, 0, static_cast<uint8_t>(frame.major),
          static_cast<uint8_t>(frame.minor)},
         true},
        frame, rssi));
    model_.hear(frame,
                rssi == platform::AdvertisingReport::kNoRssi ? std::nullopt : std::optional<int>(rssi));
  }

  void advance(std::chrono::milliseconds duration) {
    dispatch_->advance(duration);
    model_.advance(duration);
    compare();
  }

  void setRadio(CBManagerState state) {
    radio_->setState(state);
    model_.setRadioOn(state == CBManagerState::poweredOn);
  }

  void actOnRegion(unsigned action, std::size_t manager) {
    const CLBeaconRegionPtr region = chooseRegion();
    switch (action) {
      case 5:
        managers_[manager]->startMonitoringForRegion(region);
        return model_.startMonitoring(manager, region);
      case 6:
        managers_[manager]->stopMonitoringForRegion(region);
        return model_.stopMonitoring(region);
      case 7:
        managers_[manager]->requestStateForRegion(region);
        return model_.requestState(manager, region);
      case 8:
        managers_[manager]->startRangingBeaconsInRegion(region);
        return model_.startRanging(manager, region);
      default:
        managers_[manager]->stopRangingBeaconsInRegion(region);
        return model_.stopRanging(manager, region);
    }
  }

  /// One that was there before, or a new one.
  CLBeaconRegionPtr chooseRegion() {
    const unsigned number = input_.next();
    if (number < regions_.size()) return regions_[number];
    if (regions_.size() == kMostRegions) return regions_[number % kMostRegions];
    return regions_.emplace_back(pickRegion(input_));
  }

  void actOnService(unsigned action, std::size_t manager) {
    switch (action) {
      case 10:
      case 11: {
        const auto status = pickAuthorization(input_);
        service_->setAuthorizationStatus(status);
        return model_.setAuthorization(status);
      }
      case 12:
        managers_[manager]->requestAlwaysAuthorization();
        return model_.requestAuthorization();
      case 13:
      case 14: {
        const bool isEnabled = action == 14;
        service_->setLocationServicesEnabled(isEnabled);
        return model_.setEnabled(isEnabled);
      }
      default:
        managers_[manager].reset();
        model_.removeManager(manager);
        return makeManager(manager);
    }
  }

  void makeManager(std::size_t manager) {
    managers_[manager] = service_->makeLocationManager();
    managers_[manager]->setDelegate(&listeners_[manager]);
    model_.addManager(manager);
  }

  void settle() {
    dispatch_->runDue();
    model_.settle();
    compare();
  }

  void compare() {
    for (std::size_t i = 0; i < managers_.size(); ++i) compare(listeners_[i].take(), model_.takeLines(i));
    const auto monitored = managers_[0]->monitoredRegions();
    if (!std::ranges::equal(monitored, model_.monitored())) fail("other regions are monitored", {}, {});
    if (model_.isListening() && !radio_->isScanning()) fail("the radio does not scan", {}, {});
  }

  /// Between ranging reports and all others there is no order, of those of one time.
  static void compare(Lines told, Lines expected) {
    const auto isOther = [](const std::string& line) { return !line.starts_with("ranged"); };
    std::stable_partition(told.begin(), told.end(), isOther);
    std::stable_partition(expected.begin(), expected.end(), isOther);
    if (told != expected) fail("other reports", told, expected);
  }

  [[noreturn]] static void fail(const char* what, const Lines& told, const Lines& expected) {
    std::fprintf(stderr, "%s\n", what);
    for (const std::string& line : told) std::fprintf(stderr, "  told:     %s\n", line.c_str());
    for (const std::string& line : expected) std::fprintf(stderr, "  expected: %s\n", line.c_str());
    std::abort();
  }

  Input input_;
  const CLAuthorizationStatus authorization_ = pickAuthorization(input_);
  const std::optional<CLAuthorizationStatus> answer_ = pickAnswer(input_);
  const CBManagerState radioState_ = static_cast<CBManagerState>(5 - input_.pick(6));
  const std::shared_ptr<platform::VirtualDispatch> dispatch_ = platform::VirtualDispatch::make();
  const std::shared_ptr<platform::SimulatedRadio> radio_ =
      platform::SimulatedRadio::make(dispatch_, {radioState_, {}});
  const std::shared_ptr<platform::BeaconLocationService> service_ =
      platform::makeBeaconLocationService({.bluetooth = platform::RadioService::make(radio_, dispatch_),
                                           .dispatch = dispatch_,
                                           .authorization = authorization_,
                                           .answerToRequest = answer_});
  fuzz::LocationModel model_;
  std::vector<CLBeaconRegionPtr> regions_;
  std::array<LocationListener, fuzz::LocationModel::kManagers> listeners_;
  Managers managers_;
};

}  // namespace

// The input is how things stand at first, then a row of actions on a location service: what its managers are
// told is what the model says.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* octets, size_t size) {
  if (size > kMostOctets) return -1;
  Trial(Input({octets, size})).run();
  return 0;
}
