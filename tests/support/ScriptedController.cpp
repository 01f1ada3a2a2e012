#include "tests/support/ScriptedController.h"

#include <algorithm>
#include <utility>

#include "platform/bluetooth/hci/HCIPackets.h"

namespace support {

using namespace platform;
using namespace platform::hci;

/// The host's end of one connection. Everything arrives through the controller's queue.
class ScriptedController::Transport : public HCITransport {
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
    later([reason = std::move(reason)](const Handlers& to) { to.onClosed({Failure::lost, reason}); });
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

ScriptedController::ScriptedController(std::shared_ptr<VirtualDispatch> dispatch,
                                       ControllerModel::Traits traits)
    : dispatch_(std::move(dispatch)), queue_(dispatch_->createQueue("controller")), model_(traits) {}

HCITransportFactory ScriptedController::factory() {
  return [this] { return std::make_unique<Transport>(*this); };
}

void ScriptedController::refuseConnections(HCITransport::Closed closed, int count) {
  refusal_ = std::move(closed);
  refusals_ = count;
}

void ScriptedController::send(Data octets) {
  if (line_ == nullptr) return;
  const std::size_t piece = piece_ == 0 ? octets.size() : piece_;
  for (std::size_t at = 0; at < octets.size(); at += piece) {
    line_->deliver(toData(DataView(octets).subspan(at, std::min(piece, octets.size() - at))));
  }
}

void ScriptedController::advertise(uint16_t number, Data data, bool extended) {
  if (!model_.isReporting(extended)) return;
  send(extended ? ControllerModel::extendedReport(number, data)
                : ControllerModel::legacyReport(number, data));
}

void ScriptedController::commandByOther(Data packet) {
  const Data answer = model_.answer(packet, credits_);
  send(std::move(packet));
  send(answer);
}

void ScriptedController::breakLine(std::string reason) {
  if (line_ != nullptr) line_->broken(std::move(reason));
}

void ScriptedController::receive(DataView packet) {
  const uint16_t opcode = uint16At(packet, 1);
  commands_.push_back(opcode);
  const Data answer = answerTo(packet);
  if (int& left = lost_[opcode]; left > 0)
    --left;
  else
    send(answer);
}

Data ScriptedController::answerTo(DataView packet) {
  const uint16_t opcode = uint16At(packet, 1);
  if (auto found = refused_.find(opcode); found != refused_.end() && found->second.second-- > 0) {
    return ControllerModel::commandComplete(opcode, credits_, parameters({found->second.first}));
  }
  return model_.answer(packet, credits_);
}

}  // namespace support
