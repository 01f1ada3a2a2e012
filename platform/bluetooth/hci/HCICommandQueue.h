#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>

#include "platform/bluetooth/hci/HCIPackets.h"
#include "platform/dispatch/Dispatch.h"

namespace platform::hci {

/// Sends commands one after the other, each when the one before has been answered and the controller has
/// room.
///
/// A command that is not answered within two seconds is sent again, three times in all; then the controller
/// counts as dead. Threads: one at a time.
class HCICommandQueue {
 public:
  struct Command {
    uint16_t opcode = opcode::kNone;
    Data parameters;
    std::size_t minimumReturned = 0;  ///< octets after the status; a shorter good answer is none
  };
  struct Result {
    uint8_t status = status::kSuccess;
    DataView returned;  ///< lent for the call
    bool isGood() const { return status == status::kSuccess; }
  };
  using Completion = std::function<void(const Result&)>;

  struct Hooks {
    std::function<void(Data packet)> send;
    std::function<void(uint16_t opcode)> onTimeout;
    std::function<void(uint16_t opcode)> onDead;
  };
  enum class Taken { answered, notOurs, malformed };

  static constexpr dispatch_time_t kTimeout = std::chrono::seconds(2);
  static constexpr int kTries = 3;

  /// `timer` is for this queue alone; its handler has to call `timerFired`.
  HCICommandQueue(DispatchService& dispatch, dispatch_source_t timer, Hooks hooks);

  /// With a new connection: nothing is waiting, one command may be sent. Without `countCredits` somebody on
  /// the way to the controller keeps account of them.
  void start(bool countCredits);
  /// Forgets all commands; their completions are not called.
  void stop();
  void send(Command command, Completion completion);
  Taken take(const CommandAnswer& answer);
  void timerFired();

 private:
  struct Waiting {
    Command command;
    Completion completion;
  };

  void sendNext();
  void transmit();
  void arm(bool on);

  DispatchService& dispatch_;
  dispatch_source_t timer_;
  Hooks hooks_;
  std::deque<Waiting> waiting_;  ///< the first one is on the way when `inFlight_`
  bool inFlight_ = false;
  bool isArmed_ = false;
  bool countCredits_ = true;
  int credits_ = 1;
  int triesLeft_ = kTries;
};

}  // namespace platform::hci
