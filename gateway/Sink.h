#pragma once

#include <functional>
#include <string>

#include "gateway/Record.h"

namespace brenloft {

/// Where records go: a terminal, a file, the history. It never makes its caller wait for the medium and never
/// throws for it: a medium that fails makes the sink stop, which is a state, and it goes on when it can.
///
/// Threads: one call at a time, on the gateway's queue.
class Sink {
 public:
  struct State {
    bool isWorking = true;
    std::string reason{};  ///< one line, where it is not

    friend bool operator==(const State&, const State&) = default;
  };
  /// Told once per change, both ways, and never from inside a call of this sink's.
  using StateHandler = std::function<void(const State&)>;

  Sink() = default;
  Sink(const Sink&) = delete;
  Sink& operator=(const Sink&) = delete;
  virtual ~Sink() = default;

  virtual void accept(const Record& record) = 0;
  /// What was accepted reaches the medium before this returns, as far as the medium can.
  virtual void flush() = 0;
  /// The medium may have been rotated away: opens it by its name again.
  virtual void reopen() {}
  virtual State state() const = 0;
};

}  // namespace brenloft
