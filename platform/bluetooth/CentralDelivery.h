#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "platform/bluetooth/AdvertisementMerger.h"
#include "platform/bluetooth/AdvertisingReport.h"
#include "platform/bluetooth/Backlog.h"
#include "platform/bluetooth/CBCentralManager.h"
#include "platform/dispatch/CallGate.h"
#include "platform/foundation/Mutex.h"

namespace platform {

/// The scan of one central manager and the way of its callbacks to its delegate. Blocks on the manager's
/// queue hold it, so it may outlive the manager; once closed it calls the delegate no more.
///
/// Threads: every operation from any thread. No lock is held while the delegate runs.
class CentralDelivery : public std::enable_shared_from_this<CentralDelivery> {
 public:
  /// Addresses that a scan without duplicates remembers; beyond that it forgets them all and begins anew.
  static constexpr std::size_t kMostAddresses = 20'000;

  /// At most `mostWaiting` reports wait on the queue. Beyond that the newest of a sender takes the place of
  /// the one before it that waits; where none does, it is dropped.
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

  using Merged = std::shared_ptr<const MergedAdvertisement>;
  struct Waiting {
    Merged merged;
    uint64_t sender = 0;  ///< the address's key; zero for those that hide theirs
    uint64_t scanNumber = 0;
    int8_t rssi = 0;
  };
  enum class Place { none, behind, replaced, dropped };

  void deliverNext();
  // They lock.
  Place place(const AdvertisingReport& report, const Merged& merged);
  Merged takeNext(int8_t& rssi);
  // With the lock held:
  Place put(Waiting&& heard);
  Waiting* newestOf(uint64_t sender);
  void note(uint64_t sender, uint64_t number);
  void forget(uint64_t sender, uint64_t number);

  CBCentralManager& central_;
  CBCentralManagerDelegate& delegate_;
  const dispatch_queue_t queue_;
  CallGate gate_;
  Backlog backlog_;

  mutable Mutex mutex_;  // guards what follows
  std::optional<Scan> scan_;
  uint64_t scanNumber_ = 0;
  std::deque<Waiting> waiting_;  ///< one for each block on the queue, in their order
  uint64_t taken_ = 0;           ///< the number of the first that waits
  /// The number of each sender's newest that waits; kept from when the bound is met until nothing waits.
  std::optional<std::unordered_map<uint64_t, uint64_t>> newest_;
};

}  // namespace platform
