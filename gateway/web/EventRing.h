#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>

namespace brenloft::web {

/// The newest events as the stream says them: one text for all clients, who only count how far they are. So
/// a client costs the same however slow it is.
///
/// Threads: one at a time.
class EventRing {
 public:
  static constexpr std::size_t kMostEvents = 4096;

  struct Event {
    int64_t seq = 0;
    std::shared_ptr<const std::string> text;
  };

  /// It begins behind this row.
  explicit EventRing(int64_t through) : through_(through), before_(through) {}

  void add(int64_t seq, std::string text);
  /// Whether every event after this number is still here.
  bool reaches(int64_t seq) const { return seq >= before_; }
  /// The next after a number; null when there is none. It must be reached.
  const Event* after(int64_t seq) const;
  /// The newest row's number.
  int64_t through() const { return through_; }

 private:
  std::deque<Event> events_;  // by number
  int64_t through_;
  int64_t before_;  // the row before the first that is here
};

}  // namespace brenloft::web
