#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>

#include "platform/Platform.h"
#include "platform/bluetooth/RadioService.h"
#include "platform/dispatch/RealTimeDispatch.h"
#include "platform/dispatch/VirtualDispatch.h"
#include "platform/location/BeaconLocationService.h"
#include "platform/simulated/RecordingLog.h"
#include "platform/simulated/ScriptedBluetooth.h"
#include "platform/simulated/ScriptedLocationService.h"
#include "platform/simulated/SimulatedRadio.h"

namespace platform {

/// How a simulated platform is put together; the defaults suit most tests.
struct SimulatedPlatformOptions {
  enum class Clock {
    virtualTime,  ///< nothing happens until the test moves the clock
    realTime,     ///< queues on threads of their own; the test runs the main queue
  };
  enum class Bluetooth {
    radio,     ///< centrals hear the simulated radio
    scripted,  ///< centrals record calls and deliver what they are told
  };
  enum class Location {
    advertisements,  ///< regions are found in what the centrals hear
    scripted,        ///< managers record calls and report what they are told
  };

  Clock clock = Clock::virtualTime;
  Bluetooth bluetooth = Bluetooth::radio;
  Location location = Location::advertisements;
  /// Makes the radio that centrals and regions hear, on the platform's dispatch service; without it, a
  /// SimulatedRadio, which only then is `radio()`. Not used when both are scripted. Must not return null.
  std::function<std::shared_ptr<AdvertisingReportSource>(const std::shared_ptr<DispatchService>&)>
      makeRadio{};
  /// The date at which virtual time begins.
  Date start = dateWithTimeIntervalSince1970(1'767'225'600);  // 2026-01-01T00:00:00Z
  /// The state in which a SimulatedRadio or a scripted central begins.
  CBManagerState radioState = CBManagerState::poweredOn;
  CLAuthorizationStatus authorization = CLAuthorizationStatus::authorizedAlways;
  /// What the user answers when the application asks for the authorization (location from advertisements).
  std::optional<CLAuthorizationStatus> answerToRequest = CLAuthorizationStatus::authorizedAlways;
  /// The documents folder; without one a temporary folder is made, and removed with the platform.
  std::filesystem::path documents{};
  /// Settings kept from an earlier run; without them, empty ones in memory.
  std::shared_ptr<NSUserDefaults> userDefaults{};
  /// Resources; without them, the library's own.
  std::shared_ptr<const NSBundle> bundle{};
};

/// A whole platform for an application's own tests: clock, radio, permissions, settings, log and files, all
/// in the hands of the test. Events go through queues as on a real machine.
///
///     platform::SimulatedPlatform simulated;
///     simulated.install();                       // before the first use of the library
///     BRLContextManager::Class::startLeScan();   // the application's own work
///     simulated.radio().advertise(platform::sensorAdvertisement(address, service, frame));
///     simulated.advance(std::chrono::seconds(6));
///
/// The library's singletons live as long as the process: run each test in a process of its own. The services
/// stay valid after this object is gone; a temporary documents folder does not.
///
/// Threads: construct, install and destroy on one thread; advance the clock on that thread.
class BRL_EXPORT SimulatedPlatform {
 public:
  explicit SimulatedPlatform(const SimulatedPlatformOptions& options = {});
  SimulatedPlatform(const SimulatedPlatform&) = delete;
  SimulatedPlatform& operator=(const SimulatedPlatform&) = delete;
  ~SimulatedPlatform();

  /// The services; a member can be exchanged before `install`.
  Platform& services();
  /// Makes this the platform that the library runs on: once in a process, before its first use, or the
  /// process ends (see Platform::install).
  void install() const;

  /// Moves virtual time, running what becomes due, each at its own instant.
  void advance(dispatch_time_t duration);

  /// A part that the options did not choose is a programming error: the process ends with a line about it.
  VirtualDispatch& clock();
  RealTimeDispatch& realTime();
  SimulatedRadio& radio();
  RadioService& radioService();
  ScriptedBluetooth& scriptedBluetooth();
  BeaconLocationService& beaconLocation();
  ScriptedLocationService& scriptedLocation();

  RecordingLog& log();
  const std::filesystem::path& documents() const;

 private:
  struct Parts;
  std::unique_ptr<Parts> parts_;
};

}  // namespace platform
