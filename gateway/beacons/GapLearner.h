#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace brenloft {

/// Learns from the gaps between a beacon's advertisements how long its silence may last. The last gaps alone
/// would forget, in a burst, the sleep before it, so that a beacon that bursts and sleeps would be lost at
/// each sleep: the longest gaps are remembered beside them, for an hour and for a multiple of their own
/// length.
///
/// Times are those of a clock that never goes back and counts only while the radio listened. Pure: a value.
class GapLearner {
 public:
  using Time = std::chrono::milliseconds;

  static constexpr Time kLeast = std::chrono::seconds(10);
  static constexpr Time kMost = std::chrono::hours(1);
  /// Before anything is known.
  static constexpr Time kUnlearned = std::chrono::seconds(30);
  static constexpr std::size_t kRecent = 16;
  static constexpr std::size_t kLongest = 8;
  /// A long gap counts while so much is listened, and so many times its own length.
  static constexpr Time kMemory = std::chrono::hours(1);
  static constexpr int kMemoryInGaps = 16;

  /// `expected` is the usual gap, where it is known beforehand.
  explicit GapLearner(std::optional<Time> expected = std::nullopt) : expected_(expected) {}

  void heard(Time at);
  /// The gap that is open tells nothing of the beacon.
  void radioPaused() { last_.reset(); }

  /// The silence that is longer than any this beacon is known for, with a margin.
  Time limit() const;
  /// In the middle of the last gaps; nothing before the second advertisement.
  std::optional<Time> usualGap() const;

  /// What is learned, as text, and back; `now` is the instant on either's clock. What is no such text teaches
  /// nothing.
  std::string text(Time now) const;
  void restore(std::string_view text, Time now);

 private:
  struct Remembered {
    Time gap;
    Time until;
  };

  static Time memoryOf(Time gap) { return std::max(kMemory, gap * kMemoryInGaps); }
  void learn(Time gap, Time at);
  void remember(Time gap, Time until);

  std::optional<Time> expected_;
  std::optional<Time> last_;
  std::vector<Time> recent_;  // a ring, once it is full
  std::size_t next_ = 0;
  std::vector<Remembered> longest_;  // the longest first
};

}  // namespace brenloft
