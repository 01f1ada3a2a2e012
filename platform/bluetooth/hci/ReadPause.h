#pragma once

#include <chrono>

namespace platform::hci {

/// Leaves a busy line alone for a moment after each read, so that the next read takes several events. The
/// threads that a read wakes cost more than the events in it. An event then comes up to `kLength` later. A
/// line that is not busy is read at once, and so is one on which a command was just sent.
class ReadPause {
 public:
  /// The shortest interval at which a sender may advertise: there is one of its advertisements in a read.
  static constexpr std::chrono::milliseconds kLength{20};
  /// A line is busy when so many reads in a row each came within `kLength`.
  static constexpr int kBusyReads = 8;

  /// `hasMore`: not all that waited was read.
  void wasRead(bool hasMore = false) {
    if (quickReads_ < kBusyReads) ++quickReads_;
    state_ = quickReads_ == kBusyReads && !hasMore ? State::paused : State::watching;
  }
  void wasWritten() { endBusy(); }
  /// The wait that `isTimed` took its whole time.
  void timedOut() {
    if (state_ == State::paused) {
      state_ = State::watching;
    } else {
      endBusy();
    }
  }

  /// The line must not be read now.
  bool isPaused() const { return state_ == State::paused; }
  /// The next wait is for `kLength` at the most, and `timedOut` is told when nothing ended it before.
  bool isTimed() const { return state_ != State::idle; }

 private:
  enum class State { idle, watching, paused };

  void endBusy() {
    quickReads_ = 0;
    state_ = State::idle;
  }

  State state_ = State::idle;
  int quickReads_ = 0;
};

}  // namespace platform::hci
