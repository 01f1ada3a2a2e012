#pragma once

#include <mutex>
#include <string>
#include <string_view>

namespace brenloft {

/// Standard output. A reader that goes away is no failure: writing then has no effect and `isClosed` says so.
///
/// Threads: any.
class Output {
 public:
  enum class Buffering {
    lines,   ///< each write goes out at once, for readers that follow
    blocks,  ///< for output that is made as fast as it can be
  };

  explicit Output(Buffering buffering) : buffering_(buffering) {}
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;
  ~Output() { flush(); }

  /// Whole lines, with their line ends, or octets as they are.
  void write(std::string_view text);
  void flush();
  /// Nobody reads any more, or the output cannot be written.
  bool isClosed() const;
  /// Flushes; fails when the output could not be written for another reason than a closed pipe.
  void finish();

  static bool isTerminal();

 private:
  void flushLocked();

  const Buffering buffering_;
  mutable std::mutex mutex_;
  std::string pending_;
  int error_ = 0;
};

}  // namespace brenloft
