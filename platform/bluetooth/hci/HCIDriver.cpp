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
constexpr dispatch_time_t kLongestPause = seconds(60);
// Looking whether an adapter is back, or free, costs nothing and disturbs nobody.
constexpr dispatch_time_t kLongestWait = seconds(4);
// A connection that held for so long was a good one: the pauses start again with the shortest.
constexpr dispatch_time_t kGoodConnection = seconds(60);

CBManagerState stateOf(HCITransport::Failure failure) {
  switch (failure) {
    case HCITransport::Failure::lost:
      return CBManagerState::resetting;
    case HCITransport::Failure::busy:
    case HCITransport::Failure::absent:
    case HCITransport::Failure::off:
      return CBManagerState::poweredOff;
    case HCITransport::Failure::notPermitted:
      return CBManagerState::unauthorized;
    case HCITransport::Failure::unsupported:
      break;
  }
  return CBManagerState::unsupported;
}

bool isWaitingForAdapter(HCITransport::Failure failure) {
  return failure == HCITransport::Failure::busy || failure == HCITransport::Failure::absent ||
         failure == HCITransport::Failure::off;
}

}  // namespace

HCIDriverCore::HCIDriverCore(HCIDriverOptions options)
    : options_(std::move(options)),
      queue_(options_.dispatch->createQueue("HCIDriver")),
      gate_([this] { tearDown(); }),
      diagnostics_(*options_.dispatch, options_.onDiagnostic),
      pause_(kFirstPause),
      commandTimer_(options_.dispatch->createTimer(queue_)),
      commands_(*options_.dispatch, commandTimer_,
                {.send =
                     [this](Data packet) {
                       if (transport_) transport_->send(std::move(packet));
                     },
                 .onTimeout =
                     [this](uint16_t opcode) {
                       ++counts_.commandTimeouts;
                       diagnostics_.say("no answer to " + textOfOpcode(opcode));
                     },
                 .onDead =
                     [this](uint16_t opcode) {
                       fail(HCITransport::Failure::lost,
                            "the controller does not answer " + textOfOpcode(opcode));
                     }}) {}

HCIDriverCore::~HCIDriverCore() {
  gate_.close();
}

void HCIDriverCore::open(ReportHandler onReport, StateHandler onState) {
  gate_.open(std::move(onReport), std::move(onState));
  post([this] {
    commandTimer_->setEventHandler([weak = weak_from_this()] {
      if (const auto self = weak.lock()) self->gate_.call([&] { self->commands_.timerFired(); });
    });
    commandTimer_->resume();
    connectTimer_ = makeTimer(&HCIDriverCore::connect);
    scanTimer_ = makeTimer(&HCIDriverCore::scanTimerFired);
    connect();
  });
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

void HCIDriverCore::close() {
  gate_.close();
}

HCIDriverCounters HCIDriverCore::counters() const {
  return {.reports = counts_.reports,
          .malformed = counts_.malformed,
          .skippedOctets = counts_.skippedOctets,
          .commandTimeouts = counts_.commandTimeouts,
          .connections = counts_.connections,
          .scanStarts = counts_.scanStarts};
}

void HCIDriverCore::post(dispatch_block_t block) {
  queue_->async([weak = weak_from_this(), block = std::move(block)] {
    if (const auto self = weak.lock()) self->gate_.call(block);
  });
}

dispatch_source_t HCIDriverCore::makeTimer(void (HCIDriverCore::*handler)()) {
  auto timer = options_.dispatch->createTimer(queue_);
  timer->setEventHandler([weak = weak_from_this(), handler] {
    if (const auto self = weak.lock()) self->gate_.call([&] { (*self.*handler)(); });
  });
  timer->resume();
  return timer;
}

void HCIDriverCore::wakeAfter(const dispatch_source_t& timer, dispatch_time_t delay) {
  timer->setTimer(options_.dispatch->now() + delay, DISPATCH_TIME_FOREVER, {});
}

void HCIDriverCore::disarm(const dispatch_source_t& timer) {
  timer->setTimer(DISPATCH_TIME_FOREVER, DISPATCH_TIME_FOREVER, {});
}

void HCIDriverCore::tearDown() {
  for (const auto& timer : {commandTimer_, connectTimer_, scanTimer_}) {
    if (timer) timer->cancel();
  }
  if (!transport_) return;
  // Past the queue and without waiting for the answer: whoever uses the controller next finds it quiet.
  if (scan_ != Scan::off) transport_->send(scanDisablePacket());
  transport_->close();
  transport_.reset();
}

void HCIDriverCore::connect() {
  phase_ = Phase::opening;
  ++connection_;
  transport_ = options_.makeTransport();
  transport_->open(transportHandlers());
}

HCITransport::Handlers HCIDriverCore::transportHandlers() {
  // Called on the transport's thread, which must never hold the driver. A block of a transport that was given
  // up finds another connection's number.
  const auto hop = [weak = weak_from_this(), queue = queue_, connection = connection_](auto block) {
    queue->async([weak, connection, block = std::move(block)] {
      const auto self = weak.lock();
      if (!self) return;
      self->gate_.call([&] {
        if (self->connection_ == connection && self->transport_) block(*self);
      });
    });
  };
  return {
      .onOpened =
          [hop](const HCITransport::Opened& traits) {
            hop([traits](HCIDriverCore& self) { self.opened(traits); });
          },
      .onOctets =
          [hop](Data octets) {
            hop([octets = std::move(octets)](HCIDriverCore& self) { self.takeOctets(octets); });
          },
      .onFault =
          [hop](std::string fault) {
            hop([fault = std::move(fault)](HCIDriverCore& self) { self.countMalformed(fault); });
          },
      .onClosed =
          [hop](const HCITransport::Closed& closed) {
            hop([closed](HCIDriverCore& self) { self.fail(closed.failure, closed.reason); });
          },
  };
}

void HCIDriverCore::opened(const HCITransport::Opened& opened) {
  ++counts_.connections;
  connectionTraits_ = opened;
  toldOfOthers_ = false;
  decoder_ = {};
  provenPlan_.reset();
  initialise();
}

void HCIDriverCore::fail(HCITransport::Failure failure, const std::string& reason) {
  commands_.stop();
  disarm(scanTimer_);
  transport_->close();
  transport_.reset();
  scan_ = Scan::off;
  const dispatch_time_t pause = nextPause(failure);
  phase_ = Phase::idle;
  wakeAfter(connectTimer_, pause);
  setState(stateOf(failure), reason);
}

dispatch_time_t HCIDriverCore::nextPause(HCITransport::Failure failure) {
  const bool wasGood = phase_ == Phase::ready && options_.dispatch->now() - readySince_ >= kGoodConnection;
  if (wasGood) pause_ = kFirstPause;
  const auto longest = isWaitingForAdapter(failure) ? kLongestWait : kLongestPause;
  const dispatch_time_t pause = std::min(pause_, longest);
  pause_ = std::min(pause * 2, kLongestPause);
  return pause;
}

void HCIDriverCore::setState(CBManagerState state, std::string reason) {
  if ((state == told_.state && reason == told_.reason) || gate_.isClosed()) return;
  told_ = {state, std::move(reason)};
  gate_.state(told_);
}

void HCIDriverCore::countMalformed(std::string_view what) {
  ++counts_.malformed;
  diagnostics_.say("malformed packet passed over: " + std::string(what));
}

}  // namespace hci
}  // namespace platform
