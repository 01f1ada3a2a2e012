#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

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
    bursts,  ///< what is written in one go goes out together, by `flushSoon`; writing waits for nobody
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
  void flush();
  /// For bursts: flushes once the queue whose block this thread is in has done what waits there now, and at
  /// once when much is there or the thread is in none. Call it with no lock held that others need. This
  /// object must outlive the queues.
  void flushSoon();
  /// What `flushSoon` calls when it finds that nobody reads any more. Set before.
  void setOnClosed(std::function<void()> onClosed) { onClosed_ = std::move(onClosed); }
  /// Nobody reads any more, or the output cannot be written.
  bool isClosed() const { return error_ != 0; }
  /// Notices that nobody reads any more without writing; for whoever may have nothing to write for long.
  void checkReader();
  /// Flushes; throws `Failure` when the output could not be written for another reason than a closed pipe.
  void finish();

  static bool isTerminal();
  struct Size {
    std::size_t rows = 24;
    std::size_t columns = 80;

    friend bool operator==(const Size&, const Size&) = default;
  };
  /// Of the terminal as it is now; the usual one elsewhere.
  static Size screenSize();
  /// A terminal that takes control sequences, by what TERM says.
  static bool isScreen(int descriptor = STDOUT_FILENO);
  /// Shows the cursor and ends colours, where standard output is a screen. A signal handler may call it.
  static void restoreTerminal();

 private:
  bool isFull();
  void flushAndTell();
  void send(std::string_view text);
  bool awaitReader();

  const Buffering buffering_;
  const bool mayStall_;
  std::function<void()> onClosed_ = [] {};
  std::atomic<bool> isFlushAwaited_ = false;
  std::atomic<int> error_ = 0;

  std::mutex sending_;   // held while the reader is waited for; taken before the other
  std::string going_;    // guarded by sending_
  std::mutex mutex_;     // never held while somebody is waited for
  std::string pending_;  // guarded by mutex_
};

}  // namespace brenloft
