#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/bluetooth/CBManagerState.h"
#include "platform/bluetooth/CBUUID.h"
#include "platform/dispatch/Dispatch.h"
#include "platform/foundation/Data.h"
#include "platform/foundation/Export.h"

namespace platform {

// The Bluetooth central role, as far as listening to advertisements needs it.
//
// Threads: operations may be called from any thread; every callback arrives on the queue that the manager was
// made with. No callback is made from inside an operation.
// Implementers: deliver what the radio heard, without decoding and without a cache of your own beyond the
// merging of an advertisement with its scan response.

/// The sender of an advertisement.
struct CBPeripheral {
  /// The device address, "C0:00:00:00:00:01", upper case; empty when the platform hides it.
  std::string identifier{};
};

/// What an advertisement carries; absent entries were not sent.
struct CBAdvertisementData {
  std::optional<Data> manufacturerData{};  ///< CBAdvertisementDataManufacturerDataKey, company id first
  std::optional<std::vector<CBUUID>>
      serviceUUIDs{};                      ///< CBAdvertisementDataServiceUUIDsKey, in the order sent
  std::optional<std::string> localName{};  ///< CBAdvertisementDataLocalNameKey
  std::map<CBUUID, Data> serviceData{};    ///< CBAdvertisementDataServiceDataKey
  std::optional<int> txPowerLevel{};       ///< CBAdvertisementDataTxPowerLevelKey, dBm
  bool isConnectable = false;              ///< CBAdvertisementDataIsConnectable
};

class CBCentralManager;

class BRL_EXPORT CBCentralManagerDelegate {
 public:
  virtual ~CBCentralManagerDelegate() = default;
  virtual void centralManagerDidUpdateState(CBCentralManager& central) = 0;
  /// `rssi` in dBm; 127 when none was measured. The arguments live for the call.
  virtual void centralManager_didDiscoverPeripheral_advertisementData_RSSI(
      CBCentralManager& central, const CBPeripheral& peripheral, const CBAdvertisementData& advertisementData,
      int64_t rssi) = 0;
};

struct CBCentralManagerScanOptions {
  bool allowDuplicates = false;  ///< CBCentralManagerScanOptionAllowDuplicatesKey
};

class BRL_EXPORT CBCentralManager {
 public:
  /// No callback begins or goes on once this has returned: it waits for one that runs on another thread.
  /// Called on the manager's own queue it does not wait.
  virtual ~CBCentralManager() = default;

  virtual CBManagerState state() const = 0;
  /// Starts the scan, or restarts it with other services. An advertisement is delivered when it lists at
  /// least one of the services; without services every one is. Nothing happens unless the state is poweredOn.
  /// A scan ends when the state changes to another one. Without duplicates a peripheral is delivered once in
  /// a scan.
  virtual void scanForPeripheralsWithServices_options(const std::optional<std::vector<CBUUID>>& services,
                                                      const CBCentralManagerScanOptions& options) = 0;
  /// No delivery begins once this has returned, not even of what was heard before.
  virtual void stopScan() = 0;
};

/// Makes central managers over one radio. The delegate is not owned and must outlive the manager. The first
/// state callback follows soon after the manager was made. A null queue stands for the main queue.
class BRL_EXPORT BluetoothService {
 public:
  virtual ~BluetoothService() = default;
  virtual std::unique_ptr<CBCentralManager> makeCentralManager(CBCentralManagerDelegate& delegate,
                                                               dispatch_queue_t queue) = 0;
};

}  // namespace platform
