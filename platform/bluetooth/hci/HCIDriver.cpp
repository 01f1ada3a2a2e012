#include "platform/bluetooth/hci/HCIDriver.h"

#include <algorithm>
#include <utility>

#include "platform/bluetooth/hci/HCIDriverCore.h"

namespace platform {

std::shared_ptr<HCIDriver> HCIDriver::make(HCIDriverOptions options) {
  return std::make_shared<hci::HCIDriverCore>(std::move(options));
}

namespace hci {
namespace {

using std::chrono::seconds;

constexpr dispatch_time_t kFirstPause = seconds(1);
// Another program ends its scan, sets parameters and begins anew; it is left to finish.
constexpr dispatch_time_t kFirstDisturbancePause = std::chrono::milliseconds(200);
constexpr dispatch_time_t kLongestPause = seconds(60);
// Looking whether an adapter is back, or free, costs nothing and disturbs nobody.
constexpr dispatch_time_t kLongestWait = seconds(4);
// A connection that held for so long was a good one: the pauses start again with the shortest.
constexpr dispatch_time_t kGoodConnection = seconds(60);

CBManagerState stateOf(Error::Kind kind) {
  switch (kind) {
    case Error::Kind::failed:
      return CBManagerState::resetting;
    case Error::Kind::busy:
    case Error::Kind::absent:
    case Error::Kind::off:
      return CBManagerState::poweredOff;
    case Error::Kind::notPermitted:
      return CBManagerState::unauthorized;
    case Error::Kind::unsupported:
      break;
  }
  return CBManagerState::unsupported;
}

bool isWaitingForAdapter(Error::Kind kind) {
  return kind == Error::Kind::busy || kind == Error::Kind::absent || kind == Error::Kind::off;
}

}  // namespace

HCIDriverCore::HCIDriverCore(HCIDriverOptions options)
    : QueuedSource(options.dispatch, "radio", options.queue),
      options_(std::move(options)),
      diagnostics_(*options_.dispatch, options_.onDiagnostic),
      tries_(kFirstPause, kLongestPause),
      refusalPauses_(kFirstPause, kLongestPause),
      disturbances_(kFirstDisturbancePause, kLongestPause),
      commandTimer_(dispatch().createTimer(queue())),
      commands_(*options_.dispatch, commandTimer_,
                {.send =
                     [this](Data packet) {
                       if (transport_) transport_->send(std::move(packet));
                     },
                 .onTimeout =
                     [this](uint16_t opcode) {
                       ++counts_.commandTimeouts;
                       diagnostics_.log("no answer to " + textOfOpcode(opcode));
                     },
                 .onDead =
                     [this](uint16_t opcode) {
                       fail({Error::Kind::failed, "the controller does not answer " + textOfOpcode(opcode)});
                     }}) {}

void HCIDriverCore::didOpen() {
  useTimer(commandTimer_, [this] { commands_.timerFired(); });
  connectTimer_ = makeTimer(&HCIDriverCore::connect);
  scanTimer_ = makeTimer(&HCIDriverCore::scanTimerFired);
  connect();
}

void HCIDriverCore::startScan(const std::vector<CBUUID>& services) {
  (void)services;  // the controller has nothing that could look for them; the central does
  post([this] {
    wantScan_ = true;
    reconcileScan();
  });
}

void HCIDriverCore::stopScan() {
  post([this] {
    wantScan_ = false;
    events_.reset();
    reconcileScan();
  });
}

HCIDriverCounters HCIDriverCore::counters() const {
  return {.reports = counts_.reports,
          .malformed = counts_.malformed,
          .skippedOctets = counts_.skippedOctets,
          .commandTimeouts = counts_.commandTimeouts,
          .connections = counts_.connections,
          .scanStarts = counts_.scanStarts};
}

void HCIDriverCore::wakeAfter(const dispatch_source_t& timer, dispatch_time_t delay) {
  timer->setTimer(dispatch().now() + delay, DISPATCH_TIME_FOREVER, {});
}

void HCIDriverCore::disarm(const dispatch_source_t& timer) {
  timer->setTimer(DISPATCH_TIME_FOREVER, DISPATCH_TIME_FOREVER, {});
}

void HCIDriverCore::didClose() {
  if (!transport_) return;
  // Past the queue and without waiting for the answer: whoever uses the controller next finds it quiet.
  if (scan_ != Scan::off) transport_->send(scanDisablePacket());
  transport_->close();
  transport_.reset();
}

void HCIDriverCore::connect() {
  phase_ = Phase::opening;
  beginConnection();
  transport_ = options_.makeTransport();
  transport_->open(transportHandlers());
}

/// Called on the transport's thread, which must never hold the driver.
HCITransport::Handlers HCIDriverCore::transportHandlers() {
  return {.onOpened = hop(&HCIDriverCore::opened),
          .onOctets = hop(&HCIDriverCore::takeOctets),
          .onFault = hop(&HCIDriverCore::countMalformed),
          .onClosed = hop(&HCIDriverCore::fail)};
}

void HCIDriverCore::opened(const HCITransport::Opened& opened) {
  ++counts_.connections;
  connectionTraits_ = opened;
  hasLoggedOthers_ = false;
  decoder_ = {};
  provenPlan_.reset();
  initialise();
}

void HCIDriverCore::fail(const Error& error) {
  commands_.stop();
  disarm(scanTimer_);
  beginConnection();  // what the lost one still says counts no more
  transport_->close();
  transport_.reset();
  scan_ = Scan::off;
  const dispatch_time_t pause = nextPause(error.kind);
  phase_ = Phase::idle;
  wakeAfter(connectTimer_, pause);
  setState(stateOf(error.kind), error.text);
}

dispatch_time_t HCIDriverCore::nextPause(Error::Kind kind) {
  const bool wasGood = phase_ == Phase::ready && dispatch().now() - readySince_ >= kGoodConnection;
  if (wasGood) tries_.reset();
  return tries_.next(isWaitingForAdapter(kind) ? kLongestWait : kLongestPause);
}

void HCIDriverCore::setState(CBManagerState state, std::string reason) {
  if ((state == announced_.state && reason == announced_.reason) || isClosed()) return;
  announced_ = {state, std::move(reason)};
  announce(announced_);
}

void HCIDriverCore::countMalformed(std::string_view what) {
  ++counts_.malformed;
  diagnostics_.log("malformed packet passed over: " + std::string(what));
}

}  // namespace hci
}  // namespace platform
