#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/bluetooth/hci/HCITransport.h"
#include "platform/dispatch/VirtualDispatch.h"
#include "tests/support/ControllerModel.h"

namespace support {

/// A controller behind transports of its own, on virtual time, with faults to order. It keeps its state from
/// one connection to the next, as a chip does.
class ScriptedController {
 public:
  ScriptedController(std::shared_ptr<platform::VirtualDispatch> dispatch, ControllerModel::Traits traits);

  platform::HCITransportFactory factory();

  // Faults, each for commands to come.
  void loseAnswers(uint16_t opcode, int count) { lost_[opcode] = count; }
  /// Answers with nothing but this status, be it success.
  void refuse(uint16_t opcode, uint8_t status, int count) { refused_[opcode] = {status, count}; }
  void giveCredits(uint8_t credits) { credits_ = credits; }
  /// What is sent from now on arrives in pieces of so many octets; 0 for each packet in one piece.
  void cutInto(std::size_t octets) { piece_ = octets; }
  /// The next connections are refused.
  void refuseConnections(platform::HCITransport::Closed closed, int count);
  /// Connections to come are shared with other programs.
  void setShared(bool shared) { isShared_ = shared; }

  /// Octets to the host, as they are.
  void send(platform::Data octets);
  /// A report, if the host scans for its kind.
  void advertise(uint16_t number, platform::Data data, bool extended = false);
  /// What another program commands over the same adapter: executed, and copied to the host if it shares.
  void commandByOther(platform::Data packet);
  void breakLine(std::string reason);

  ControllerModel& model() { return model_; }
  bool isConnected() const { return line_ != nullptr; }
  /// The opcodes that came since the last call.
  std::vector<uint16_t> takeCommands() { return std::exchange(commands_, {}); }
  int connectionCount() const { return connections_; }
  /// When a connection was tried, since the last call.
  std::vector<platform::dispatch_time_t> takeTries() { return std::exchange(tries_, {}); }

 private:
  class Transport;

  void receive(platform::DataView packet);
  platform::Data answerTo(platform::DataView packet);

  std::shared_ptr<platform::VirtualDispatch> dispatch_;
  platform::dispatch_queue_t queue_;
  ControllerModel model_;
  Transport* line_ = nullptr;
  std::map<uint16_t, int> lost_;
  std::map<uint16_t, std::pair<uint8_t, int>> refused_;
  platform::HCITransport::Closed refusal_;
  int refusals_ = 0;
  uint8_t credits_ = 1;
  std::size_t piece_ = 0;
  bool isShared_ = false;
  int connections_ = 0;
  std::vector<platform::dispatch_time_t> tries_;
  std::vector<uint16_t> commands_;
};

}  // namespace support
