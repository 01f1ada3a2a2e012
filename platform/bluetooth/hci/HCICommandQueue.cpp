#include "platform/bluetooth/hci/HCICommandQueue.h"

#include <utility>

namespace platform::hci {

HCICommandQueue::HCICommandQueue(DispatchService& dispatch, dispatch_source_t timer, Hooks hooks)
    : dispatch_(dispatch), timer_(std::move(timer)), hooks_(std::move(hooks)) {}

void HCICommandQueue::start(bool countCredits) {
  stop();
  countCredits_ = countCredits;
  credits_ = 1;
}

void HCICommandQueue::stop() {
  waiting_.clear();
  inFlight_ = false;
  arm(false);
}

void HCICommandQueue::send(Command command, Completion completion) {
  waiting_.push_back({std::move(command), std::move(completion)});
  sendNext();
}

void HCICommandQueue::sendNext() {
  if (inFlight_ || waiting_.empty()) return;
  triesLeft_ = kTries;
  if (credits_ == 0) {
    arm(true);  // some controllers never give a credit back; after the time-out they get the command all the
                // same
    return;
  }
  transmit();
}

void HCICommandQueue::transmit() {
  inFlight_ = true;
  --triesLeft_;
  if (countCredits_ && credits_ > 0) --credits_;
  arm(true);
  const Command& command = waiting_.front().command;
  hooks_.send(commandPacket(command.opcode, command.parameters));
}

HCICommandQueue::Taken HCICommandQueue::take(const CommandAnswer& answer) {
  if (countCredits_) credits_ = answer.credits;
  const bool isOurs = inFlight_ && answer.opcode == waiting_.front().command.opcode;
  if (!isOurs) {
    if (!inFlight_) sendNext();
    return Taken::notOurs;
  }
  const bool isGood = answer.status == status::kSuccess;
  if (!answer.isComplete && isGood) return Taken::answered;  // begun; the completion follows
  if (isGood && answer.returned.size() < waiting_.front().command.minimumReturned) return Taken::malformed;
  const Completion completion = std::move(waiting_.front().completion);
  waiting_.pop_front();
  inFlight_ = false;
  arm(false);
  completion({answer.status, answer.returned});
  sendNext();
  return Taken::answered;
}

void HCICommandQueue::timerFired() {
  isArmed_ = false;
  if (waiting_.empty()) return;
  if (inFlight_) {
    const uint16_t opcode = waiting_.front().command.opcode;
    hooks_.onTimeout(opcode);
    if (triesLeft_ == 0) {
      hooks_.onDead(opcode);
      return;
    }
  }
  transmit();
}

void HCICommandQueue::arm(bool on) {
  if (!on && !isArmed_) return;
  isArmed_ = on;
  timer_->setTimer(on ? dispatch_.now() + kTimeout : DISPATCH_TIME_FOREVER, DISPATCH_TIME_FOREVER, {});
}

}  // namespace platform::hci
