#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <unordered_set>
#include <vector>

#include "platform/bluetooth/AdvertisementMerger.h"
#include "platform/bluetooth/AdvertisingReport.h"
#include "platform/bluetooth/Backlog.h"
#include "platform/bluetooth/CBCentralManager.h"
#include "platform/dispatch/CallGate.h"

namespace platform {

/// The scan of one central manager and the way of its callbacks to its delegate. Blocks on the manager's
/// queue hold it, so it may outlive the manager; once closed it calls the delegate no more.
///
/// Threads: every operation from any thread. No lock is held while the delegate runs.
class CentralDelivery : public std::enable_shared_from_this<CentralDelivery> {
 public:
  /// Addresses that a scan without duplicates remembers; beyond that it forgets them all and begins anew.
  static constexpr std::size_t kMostAddresses = 20'000;

  /// At most `mostWaiting` reports wait on the queue.
  CentralDelivery(CBCentralManager& central, CBCentralManagerDelegate& delegate, dispatch_queue_t queue,
                  int mostWaiting, LogSink onDiagnostic);

  /// What was heard for an earlier scan is not delivered any more. No services means every advertisement.
  void startScan(std::vector<CBUUID> services, bool allowDuplicates);
  void stopScan();
  /// The services of the scan; nothing while there is none.
  std::optional<std::vector<CBUUID>> scan() const;

  void didUpdateState();
  void didHear(const AdvertisingReport& report, const std::shared_ptr<const MergedAdvertisement>& merged);

  /// No callback begins afterwards. Waits for one that runs, unless it is the caller.
  void close();

 private:
  struct Scan {
    std::vector<CBUUID> services;
    bool allowDuplicates = false;
    std::unordered_set<uint64_t> delivered;
  };

  std::optional<uint64_t> scanThatWants(const AdvertisingReport& report, const CBAdvertisementData& data);
  bool isCurrent(uint64_t scanNumber) const;

  CBCentralManager& central_;
  CBCentralManagerDelegate& delegate_;
  const dispatch_queue_t queue_;
  CallGate gate_;
  Backlog backlog_;

  mutable std::mutex mutex_;  // guards what follows
  std::optional<Scan> scan_;
  uint64_t scanNumber_ = 0;
};

}  // namespace platform
