#include <string>
#include <utility>

#include "platform/bluetooth/hci/HCIDriverCore.h"
#include "platform/dispatch/WakeUpsTogether.h"

namespace platform::hci {

void HCIDriverCore::takeOctets(const Data& octets) {
  const uint64_t begun = connection();
  const uint64_t skipped = decoder_.skippedOctets();
  const WakeUpsTogether together;
  decoder_.feed(octets, [this, begun](DataView packet) {
    // A packet may end the connection or have the driver closed; those behind it then count for nothing.
    if (begun == connection() && !isClosed()) takePacket(packet);
  });
  if (const uint64_t more = decoder_.skippedOctets() - skipped; more > 0) {
    counts_.skippedOctets += more;
    diagnostics_.log(std::to_string(more) + " octets between packets made no sense and were skipped");
  }
  if (begun == connection()) transport_->consumed();
}

void HCIDriverCore::takePacket(DataView packet) {
  if (octetAt(packet, 0) == kCommandPacket) {
    if (connectionTraits_.isShared) takeForeignCommand(packet);
    return;
  }
  if (octetAt(packet, 0) != kEventPacket) return;
  switch (octetAt(packet, 1)) {
    case event::kCommandComplete:
    case event::kCommandStatus:
      return takeAnswer(packet);
    case event::kLEMeta:
      return takeAdvertisingEvent(packet);
    case event::kHardwareError:
      return fail({Error::Kind::failed, "the controller reported a hardware error"});
    default:
      return;
  }
}

void HCIDriverCore::takeAnswer(DataView packet) {
  const auto answer = CommandAnswer::read(packet);
  if (!answer) return countMalformed("an answer that is too short");
  if (foreignOpcode_ != opcode::kNone && answer->opcode == foreignOpcode_) return takeForeignAnswer(*answer);
  switch (commands_.take(*answer)) {
    case HCICommandQueue::Taken::malformed:
      return countMalformed("too short an answer to " + textOfOpcode(answer->opcode));
    case HCICommandQueue::Taken::notOurs:
      return takeForeignAnswer(*answer);
    case HCICommandQueue::Taken::answered:
      return;
  }
}

void HCIDriverCore::takeAdvertisingEvent(DataView packet) {
  if (!wantScan_) return;
  const auto fault = events_.read(packet.subspan(1), dispatch().date(), [this](const auto& heard) {
    if (isClosed()) return;
    ++counts_.reports;
    report(heard);
  });
  if (!fault.empty()) countMalformed(fault);
}

void HCIDriverCore::takeForeignCommand(DataView packet) {
  foreignOpcode_ = uint16At(packet, 1);
  foreignParameters_ = toData(packet.subspan(4));
}

/// An answer to a command that this driver has not sent, or not sent lately.
void HCIDriverCore::takeForeignAnswer(const CommandAnswer& answer) {
  const bool isKnown = answer.opcode == foreignOpcode_;
  const Data sent = isKnown ? std::exchange(foreignParameters_, {}) : Data();
  if (isKnown) foreignOpcode_ = opcode::kNone;
  if (!answer.isComplete || answer.status != status::kSuccess) return;
  switch (answer.opcode) {
    case opcode::kReset:
      if (connectionTraits_.isShared) return scanDisturbed();
      if (phase_ == Phase::ready) initialise();  // it has forgotten everything
      return;
    case opcode::kLESetScanEnable:
    case opcode::kLESetExtendedScanEnable: {
      const bool hearsEverything = sent.size() >= 2 && octetAt(sent, 0) == 1 && octetAt(sent, 1) == 0;
      if (connectionTraits_.isShared && !hearsEverything) scanDisturbed();
      return;
    }
    default:
      return;
  }
}

}  // namespace platform::hci
