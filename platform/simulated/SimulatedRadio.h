#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "platform/bluetooth/AdvertisingReport.h"
#include "platform/dispatch/Dispatch.h"
#include "platform/foundation/Export.h"
#include "platform/simulated/SimulatedAdvertisement.h"

namespace platform {

/// A radio whose air is a script. What is advertised is heard only while somebody scans and the radio is
/// powered on, as with a real one; it is dated when it is heard.
///
/// Threads: any. Everything that is scripted happens on the radio's own queue, in the order of the calls.
class BRL_EXPORT SimulatedRadio : public AdvertisingReportSource {
 public:
  static std::shared_ptr<SimulatedRadio> make(std::shared_ptr<DispatchService> dispatch,
                                              RadioState initial = {CBManagerState::poweredOn, {}});

  /// Sends one packet.
  virtual void advertise(const SimulatedAdvertisement& advertisement) = 0;
  /// Sends a packet now and then every `interval`, until `stopAdvertising` is called with the returned
  /// number.
  virtual int startAdvertising(SimulatedAdvertisement advertisement, dispatch_time_t interval) = 0;
  virtual void stopAdvertising(int number) = 0;
  /// Hands in a report as a controller would, octets and all; only its time is set anew.
  virtual void report(const AdvertisingReport& report) = 0;

  /// Switches the radio, or breaks it. A scan that was asked for begins by itself once it is powered on.
  virtual void setState(CBManagerState state, std::string reason = {}) = 0;
  /// A deaf radio says that it is powered on and hears nothing.
  virtual void setDeaf(bool deaf) = 0;

  /// Whether a scan was asked for and not ended.
  virtual bool isScanning() const = 0;
  /// The services of the newest scan request.
  virtual std::vector<CBUUID> scannedServices() const = 0;
  /// How many packets were heard so far.
  virtual std::size_t heardCount() const = 0;
};

}  // namespace platform
