#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "platform/bluetooth/AdvertisingReport.h"
#include "platform/dispatch/Dispatch.h"
#include "platform/foundation/NSLog.h"

namespace platform {

// Hearing through bluetoothd, by its D-Bus interface (org.bluez: Adapter1, Device1).
//
// What arrives is a device's merged state, not its packets: an advertisement and its scan response come as
// one report, an advertisement without manufacturer data shows the device's earlier one, and how often a
// device is reported is up to the daemon and the controller (docs/radios.md).

struct BlueZOptions {
  /// Empty: the first adapter that is powered. Else "hci1" or the adapter's Bluetooth address, which is
  /// looked up anew whenever an adapter comes, so that it may be renumbered.
  std::string adapter;
  /// The message bus, in D-Bus address syntax; empty for the system bus.
  std::string busAddress;
  std::shared_ptr<DispatchService> dispatch;
  std::filesystem::path root = "/";  ///< holds sys/class/rfkill; for tests
  /// The pause before what failed is tried again; it doubles up to 30 seconds, unless the daemon is merely
  /// busy.
  std::chrono::milliseconds firstPause{1000};
  dispatch_queue_t queue = nullptr;  ///< the source's; without one, a queue of its own
  /// One line for people: that the daemon says more than is taken, which cannot hold it back.
  LogSink onDiagnostic = {};
};

/// Survives the daemon, the bus or the adapter going away: the states say so, and a scan resumes by itself.
/// Nothing is opened before `open`. Once `close` has returned, the daemon has been told to stop; of a daemon
/// or a bus that does not answer this makes no more than two seconds.
std::shared_ptr<AdvertisingReportSource> makeBlueZSource(BlueZOptions options);

/// An adapter as bluetoothd shows it.
struct BlueZAdapter {
  std::string name;     ///< "hci0"
  std::string address;  ///< upper case
  bool isPowered = false;
  bool isBlocked = false;  ///< by rfkill
};

/// What a message bus has to say about bluetoothd.
struct BlueZInventory {
  enum class Daemon { present, absent, notPermitted, noBus };

  Daemon daemon = Daemon::noBus;
  std::string problem;  ///< for people, when the daemon is not present
  std::vector<BlueZAdapter> adapters;
};

/// For people: that bluetoothd or the bus said no, with their `problem`, and what permits it.
std::string bluezRefusal(const std::string& problem);

/// Asks the bus at `busAddress` (empty: the system bus); waits for the answer, five seconds at most.
BlueZInventory listBlueZAdapters(const std::string& busAddress = {});

}  // namespace platform
