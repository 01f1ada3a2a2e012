#pragma once

#include <chrono>
#include <mutex>
#include <string>
#include <string_view>

#include <unistd.h>

namespace brenloft {

/// Standard output. A reader that goes away is no failure: writing then has no effect and `isClosed` says so.
/// Writing waits for a reader that stalls or is slow, but for a second in all once a stop was asked for
/// (`StopSignals`); then it counts as gone.
///
/// Threads: any.
class Output {
 public:
  enum class Buffering {
    lines,   ///< each write goes out at once, for readers that follow
    blocks,  ///< for output that is made as fast as it can be
  };

  /// How often to call `checkReader`; nothing is lost by asking seldom, and each time wakes the machine.
  static constexpr std::chrono::milliseconds kReaderCheck{2000};

  explicit Output(Buffering buffering);
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;
  ~Output() { flush(); }

  /// Whole lines, with their line ends, or octets as they are.
  void write(std::string_view text);
  /// The same for lines that others follow at once: both go out together.
  void hold(std::string_view text);
  void flush();
  /// Nobody reads any more, or the output cannot be written.
  bool isClosed() const;
  /// Notices that nobody reads any more without writing; for whoever may have nothing to write for long.
  void checkReader();
  /// Flushes; throws `Failure` when the output could not be written for another reason than a closed pipe.
  void finish();

  static bool isTerminal();
  /// A terminal that takes control sequences, by what TERM says.
  static bool isScreen(int descriptor = STDOUT_FILENO);
  /// Shows the cursor and ends colours, where standard output is a screen. A signal handler may call it.
  static void restoreTerminal();

 private:
  void flushLocked();
  bool awaitReader();

  const Buffering buffering_;
  const bool mayStall_;
  mutable std::mutex mutex_;
  std::string pending_;
  int error_ = 0;
};

}  // namespace brenloft
