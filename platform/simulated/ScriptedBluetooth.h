#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "platform/bluetooth/CBCentralManager.h"
#include "platform/foundation/Export.h"

namespace platform {

/// A central role that does nothing by itself: it records what is asked of it, and delivers what the test
/// tells it to.
///
/// Threads: any. States and advertisements reach every central manager on the queue that it was made with.
class BRL_EXPORT ScriptedBluetooth : public BluetoothService {
 public:
  struct Operation {
    enum class Kind { makeCentralManager, scan, stopScan };
    Kind kind = Kind::makeCentralManager;
    std::optional<std::vector<CBUUID>> services{};  ///< of a scan
    CBCentralManagerScanOptions options{};          ///< of a scan
  };

  /// Managers begin in this state and report it once.
  static std::shared_ptr<ScriptedBluetooth> make(CBManagerState initial = CBManagerState::poweredOn);

  /// Everything asked for so far, in order.
  virtual std::vector<Operation> operations() const = 0;
  virtual void clearOperations() = 0;

  /// Managers answer the new state at once, and are told of it.
  virtual void setState(CBManagerState state) = 0;
  /// Delivers an advertisement, whether or not somebody scans, and without a filter.
  virtual void discover(CBPeripheral peripheral, CBAdvertisementData advertisementData, int64_t rssi) = 0;
};

}  // namespace platform
