#pragma once

#include <algorithm>
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
  ScriptedController(std::shared_ptr<VirtualDispatch> dispatch, ControllerModel::Traits traits)
      : dispatch_(std::move(dispatch)), queue_(dispatch_->createQueue("controller")), model_(traits) {}

  HCITransportFactory factory() {
    return [this] { return std::make_unique<Transport>(*this); };
  }

  // Faults, each for commands to come.
  void loseAnswers(uint16_t opcode, int count) { lost_[opcode] = count; }
  /// Answers with nothing but this status, be it success.
  void refuse(uint16_t opcode, uint8_t status, int count) { refused_[opcode] = {status, count}; }
  void giveCredits(uint8_t credits) { credits_ = credits; }
  /// What is sent from now on arrives in pieces of so many octets; 0 for each packet in one piece.
  void cutInto(std::size_t octets) { piece_ = octets; }
  /// The next connections are refused.
  void refuseConnections(Error closed, int count) {
    refusal_ = std::move(closed);
    refusals_ = count;
  }
  /// Connections to come are shared with other programs.
  void setShared(bool shared) { isShared_ = shared; }

  /// Octets to the host, as they are.
  void send(Data octets) {
    if (line_ == nullptr) return;
    const std::size_t piece = piece_ == 0 ? octets.size() : piece_;
    for (std::size_t at = 0; at < octets.size(); at += piece) {
      line_->deliver(toData(DataView(octets).subspan(at, std::min(piece, octets.size() - at))));
    }
  }
  /// A report, if the host scans for its kind.
  void advertise(uint16_t number, Data data, bool extended = false) {
    if (!model_.isReporting(extended)) return;
    send(extended ? ControllerModel::extendedReport(number, data)
                  : ControllerModel::legacyReport(number, data));
  }
  /// What another program commands over the same adapter: executed, and copied to the host if it shares.
  void commandByOther(Data packet) {
    const Data answer = model_.answer(packet, credits_);
    send(std::move(packet));
    send(answer);
  }
  void breakLine(std::string reason) {
    if (line_ != nullptr) line_->broken(std::move(reason));
  }

  ControllerModel& model() { return model_; }
  bool isConnected() const { return line_ != nullptr; }
  /// The opcodes that came since the last call.
  std::vector<uint16_t> takeCommands() { return std::exchange(commands_, {}); }
  int connectionCount() const { return connections_; }
  /// When a connection was tried, since the last call.
  std::vector<dispatch_time_t> takeTries() { return std::exchange(tries_, {}); }

 private:
  /// The host's end of one connection. Everything arrives through the controller's queue.
  class Transport : public HCITransport {
   public:
    explicit Transport(ScriptedController& controller) : controller_(controller) {}
    ~Transport() override { close(); }

    void open(Handlers handlers) override {
      handlers_ = std::make_shared<Handlers>(std::move(handlers));
      controller_.tries_.push_back(controller_.dispatch_->now());
      if (controller_.refusals_ > 0) {
        --controller_.refusals_;
        later([closed = controller_.refusal_](const Handlers& to) { to.onClosed(closed); });
        return;
      }
      controller_.line_ = this;
      ++controller_.connections_;
      later([shared = controller_.isShared_](const Handlers& to) { to.onOpened({"scripted", shared}); });
    }

    void send(Data packet) override {
      if (controller_.line_ != this) return;
      controller_.receive(packet);  // at once, so that nothing is left over for `close` to send
    }

    void consumed() override {}

    void close() override {
      if (controller_.line_ == this) controller_.line_ = nullptr;
      handlers_.reset();
    }

    void deliver(Data octets) {
      later([octets = std::move(octets)](const Handlers& to) { to.onOctets(octets); });
    }

    void broken(std::string reason) {
      controller_.line_ = nullptr;
      later([reason = std::move(reason)](const Handlers& to) { to.onClosed({Error::Kind::failed, reason}); });
    }

   private:
    template <class Block>
    void later(Block block) {
      controller_.queue_->async([weak = std::weak_ptr(handlers_), block = std::move(block)] {
        if (const auto handlers = weak.lock()) block(*handlers);
      });
    }

    ScriptedController& controller_;
    std::shared_ptr<Handlers> handlers_;
  };

  void receive(DataView packet) {
    const uint16_t opcode = uint16At(packet, 1);
    commands_.push_back(opcode);
    const Data answer = answerTo(packet);
    if (int& left = lost_[opcode]; left > 0)
      --left;
    else
      send(answer);
  }
  Data answerTo(DataView packet) {
    const uint16_t opcode = uint16At(packet, 1);
    if (auto found = refused_.find(opcode); found != refused_.end() && found->second.second-- > 0) {
      return ControllerModel::commandComplete(opcode, credits_, parameters({found->second.first}));
    }
    return model_.answer(packet, credits_);
  }

  std::shared_ptr<VirtualDispatch> dispatch_;
  dispatch_queue_t queue_;
  ControllerModel model_;
  Transport* line_ = nullptr;
  std::map<uint16_t, int> lost_;
  std::map<uint16_t, std::pair<uint8_t, int>> refused_;
  Error refusal_;
  int refusals_ = 0;
  uint8_t credits_ = 1;
  std::size_t piece_ = 0;
  bool isShared_ = false;
  int connections_ = 0;
  std::vector<dispatch_time_t> tries_;
  std::vector<uint16_t> commands_;
};

}  // namespace support
