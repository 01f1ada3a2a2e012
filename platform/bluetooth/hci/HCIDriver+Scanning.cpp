#include <algorithm>
#include <chrono>

#include "platform/bluetooth/hci/HCIDriverCore.h"

namespace platform::hci {
namespace {

using Command = HCICommandQueue::Command;
using Answer = HCICommandQueue::Result;
using std::chrono::seconds;

// Window equal to interval, so that the radio always listens: 30 ms, in units of 0.625 ms. That can be kept
// on one PHY only, which is LE 1M, where beacons send; Coded PHY beside it would take half of the time.
constexpr unsigned kWindow = 0x0030;
constexpr unsigned kLE1M = 0x01;
constexpr unsigned kActive = 1;

constexpr dispatch_time_t kQuietAfterDisturbance = seconds(5);

constexpr int kRefusalsBeforeReset = 3;

Command parametersCommand(bool isExtended) {
  if (!isExtended) {
    return {opcode::kLESetScanParameters, parameters({kActive, kWindow, 0, kWindow, 0, 0, 0}), 0};
  }
  return {opcode::kLESetExtendedScanParameters, parameters({0, 0, kLE1M, kActive, kWindow, 0, kWindow, 0}),
          0};
}

// Duplicates are wanted; an extended scan goes on without limit.
Command enableCommand(bool isExtended, bool on) {
  const unsigned enable = on ? 1 : 0;
  if (!isExtended) return {opcode::kLESetScanEnable, parameters({enable, 0}), 0};
  return {opcode::kLESetExtendedScanEnable, parameters({enable, 0, 0, 0, 0, 0}), 0};
}

}  // namespace

void HCIDriverCore::reconcileScan() {
  if (phase_ != Phase::ready || announced_.state != CBManagerState::poweredOn) return;
  if (wantScan_ && scan_ == Scan::off) {
    beginScan(false);
  } else if (!wantScan_ && scan_ == Scan::on) {
    endScan();
  }
}

/// Lists the ways to a scan, the likeliest first, and tries them in turn. The two families of commands
/// exclude each other until a reset, and neither may set parameters during a scan; somebody else may have
/// begun either.
void HCIDriverCore::beginScan(bool disableFirst) {
  disarm(scanTimer_);
  events_.reset();
  isDisturbed_ = false;
  std::vector<ScanPlan> ways;
  if (provenPlan_) ways.push_back(*provenPlan_);
  if (features_.hasExtendedScanning()) ways.push_back({.isExtended = true});
  if (features_.hasLegacyScanning() || ways.empty()) ways.push_back({});
  plans_.clear();
  for (ScanPlan way : ways) {
    for (const bool first : {false, true}) {
      way.disableFirst = first;
      if (first || !disableFirst) plans_.push_back(way);
    }
  }
  planIndex_ = 0;
  scan_ = Scan::starting;
  tryPlan();
}

void HCIDriverCore::tryPlan() {
  if (planIndex_ == plans_.size()) return scanRefused();
  if (!plan().disableFirst) return sendScanParameters();
  commands_.send(enableCommand(plan().isExtended, false), [this](const Answer&) { sendScanParameters(); });
}

void HCIDriverCore::sendScanParameters() {
  const Command command = parametersCommand(plan().isExtended);
  commands_.send(command, [this, command](const Answer& result) {
    if (!result.isGood()) return nextPlan(command, result);
    sendScanEnable();
  });
}

void HCIDriverCore::sendScanEnable() {
  const Command command = enableCommand(plan().isExtended, true);
  commands_.send(command, [this, command](const Answer& result) {
    if (!result.isGood()) return nextPlan(command, result);
    scanAgreed();
  });
}

void HCIDriverCore::nextPlan(const Command& refused, const Answer& result) {
  refusal_ =
      "the controller refused " + textOfOpcode(refused.opcode) + " with " + textOfStatus(result.status);
  ++planIndex_;
  tryPlan();
}

void HCIDriverCore::scanRefused() {
  scan_ = Scan::off;
  provenPlan_.reset();
  if (!wantScan_) return;
  if (++refusals_ >= kRefusalsBeforeReset && !connectionTraits_.isShared) {
    endRefusals();
    return fail({Error::Kind::failed, refusal_});
  }
  const auto pause = std::chrono::duration_cast<seconds>(refusalPauses_.next());
  diagnostics_.log(refusal_ + "; next try in " + std::to_string(pause.count()) + " s");
  wakeAfter(scanTimer_, pause);
}

void HCIDriverCore::endRefusals() {
  refusals_ = 0;
  refusalPauses_.reset();
}

void HCIDriverCore::scanAgreed() {
  ++counts_.scanStarts;
  endRefusals();
  provenPlan_ = plan();
  scan_ = Scan::on;
  scanBegan_ = dispatch().now();
  reconcileScan();
}

void HCIDriverCore::endScan() {
  scan_ = Scan::stopping;
  commands_.send(enableCommand(plan().isExtended, false), [this](const Answer&) {
    scan_ = Scan::off;
    reconcileScan();
  });
}

Data HCIDriverCore::scanDisablePacket() const {
  const Command command = enableCommand(plan().isExtended, false);
  return commandPacket(command.opcode, command.parameters);
}

/// Somebody else ended the scan, or began one that hides duplicates. Who does so soon after each new
/// beginning is given way to for longer and longer.
void HCIDriverCore::scanDisturbed() {
  if (!wantScan_ || scan_ != Scan::on || isDisturbed_) return;
  isDisturbed_ = true;
  if (!hasLoggedOthers_) diagnostics_.log("another program also scans with " + connectionTraits_.description);
  hasLoggedOthers_ = true;
  if (dispatch().now() - scanBegan_ >= kQuietAfterDisturbance) disturbances_.reset();
  wakeAfter(scanTimer_, disturbances_.next());
}

void HCIDriverCore::scanTimerFired() {
  if (!wantScan_ || phase_ != Phase::ready || scan_ == Scan::starting || scan_ == Scan::stopping) return;
  beginScan(scan_ == Scan::on);
}

}  // namespace platform::hci
