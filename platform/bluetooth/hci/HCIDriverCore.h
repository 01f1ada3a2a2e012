#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/bluetooth/Backoff.h"
#include "platform/bluetooth/HCIAdvertisingEvents.h"
#include "platform/bluetooth/QueuedSource.h"
#include "platform/bluetooth/hci/DiagnosticLimiter.h"
#include "platform/bluetooth/hci/H4Decoder.h"
#include "platform/bluetooth/hci/HCICommandQueue.h"
#include "platform/bluetooth/hci/HCIDriver.h"
#include "platform/bluetooth/hci/HCIFeatures.h"

namespace platform::hci {

/// The driver's state machine.
///
/// Nothing but the blocks of its queue and who made the driver ever holds it, so it does not end on its
/// transport's thread, which ending waits for.
class HCIDriverCore final : public QueuedSource<HCIDriver> {
 public:
  explicit HCIDriverCore(HCIDriverOptions options);
  ~HCIDriverCore() override { close(); }

  void startScan(const std::vector<CBUUID>& services) override;
  void stopScan() override;
  HCIDriverCounters counters() const override;

 private:
  enum class Phase { idle, opening, initialising, ready };
  enum class Scan { off, starting, on, stopping };

  /// One way to get a scan going; the next is tried when the controller refuses.
  struct ScanPlan {
    bool isExtended = false;
    bool disableFirst = false;
  };

  struct Counts {
    std::atomic<uint64_t> reports{0}, malformed{0}, skippedOctets{0}, commandTimeouts{0}, connections{0},
        scanStarts{0};
  };

  // HCIDriver.cpp: timers, connection
  void didOpen() override;
  void didClose() override;
  void wakeAfter(const dispatch_source_t& timer, dispatch_time_t delay);
  static void disarm(const dispatch_source_t& timer);
  void connect();
  HCITransport::Handlers transportHandlers();
  void opened(const HCITransport::Opened& opened);
  void fail(const Error& error);
  dispatch_time_t nextPause(Error::Kind kind);
  void setState(CBManagerState state, std::string reason);
  void countMalformed(std::string_view what);

  // HCIDriver+Events.cpp: what comes in
  void takeOctets(const Data& octets);
  void takePacket(DataView packet);
  void takeAnswer(DataView packet);
  void takeAdvertisingEvent(DataView packet);
  void takeForeignCommand(DataView packet);
  void takeForeignAnswer(const CommandAnswer& answer);

  // HCIDriver+Initialisation.cpp
  void initialise();
  void initialiseFrom(std::size_t step);
  void becomeReady();

  // HCIDriver+Scanning.cpp
  void reconcileScan();
  void beginScan(bool disableFirst);
  void tryPlan();
  void sendScanParameters();
  void sendScanEnable();
  void nextPlan(const HCICommandQueue::Command& refused, const HCICommandQueue::Result& result);
  void scanRefused();
  void endRefusals();
  void scanAgreed();
  void endScan();
  void scanDisturbed();
  void scanTimerFired();
  Data scanDisablePacket() const;
  const ScanPlan& plan() const { return plans_[planIndex_]; }

  const HCIDriverOptions options_;
  DiagnosticLimiter diagnostics_;
  Counts counts_;

  std::unique_ptr<HCITransport> transport_;
  HCITransport::Opened connectionTraits_;
  H4Decoder decoder_;
  HCIAdvertisingEvents events_;
  Phase phase_ = Phase::idle;
  RadioState announced_;
  HCIFeatures features_;
  dispatch_time_t readySince_{};
  Backoff tries_;

  bool wantScan_ = false;
  Scan scan_ = Scan::off;
  std::vector<ScanPlan> plans_;
  std::size_t planIndex_ = 0;
  std::optional<ScanPlan> provenPlan_;  ///< the one that the controller agreed to last
  std::string refusal_;                 ///< of the latest plan
  int refusals_ = 0;                    ///< of all plans, in a row
  Backoff refusalPauses_;
  dispatch_time_t scanBegan_{};
  Backoff disturbances_;
  bool isDisturbed_ = false;
  bool hasLoggedOthers_ = false;
  uint16_t foreignOpcode_ = opcode::kNone;  ///< of a command that another program sent, until its answer
  Data foreignParameters_;

  dispatch_source_t commandTimer_;
  dispatch_source_t connectTimer_;
  dispatch_source_t scanTimer_;
  HCICommandQueue commands_;
};

}  // namespace platform::hci
