#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "gateway/web/EventRing.h"

namespace brenloft::web {

/// What one client of the stream is to get: first what it missed, out of the history, then what the ring has.
///
/// Threads: one at a time.
class EventStream {
 public:
  enum class State {
    ready,    ///< there is something to read
    waiting,  ///< nothing is new
    ended,    ///< it cannot go on: the client asks again with the number that it had last
  };
  /// Asks for the rows after a number that the ring does not reach; the answer comes to `missed`.
  using AskMissed = std::function<void(int64_t after)>;

  /// Begins behind a row. `greeting` is said first.
  EventStream(std::shared_ptr<const EventRing> ring, int64_t after, std::string greeting, AskMissed askMissed)
      : ring_(std::move(ring)),
        askMissed_(std::move(askMissed)),
        after_(after),
        text_(std::make_shared<const std::string>(std::move(greeting))) {}

  State state();
  /// Takes up to so many octets; 0 unless it is ready.
  std::size_t read(char* to, std::size_t most);
  /// Out of the history: the events through a row, maybe none.
  void missed(std::string text, int64_t through);
  /// Something without a number, unless it has something to say anyway.
  void say(const std::string& text);
  /// Something without a number that it has to say, as soon as it has said what it is at; the newest only.
  void tell(std::shared_ptr<const std::string> notice) {
    if (!isEnded_) notice_ = std::move(notice);
  }
  /// Once it has said what it is at, and its notice.
  void end() { isEnded_ = true; }

 private:
  bool isEmpty() const { return offset_ >= text_->size(); }
  void take(std::shared_ptr<const std::string> text);

  const std::shared_ptr<const EventRing> ring_;
  const AskMissed askMissed_;
  int64_t after_;  // the newest that was taken
  bool isAsking_ = false;
  bool isLive_ = false;  // the ring reached it once
  bool isEnded_ = false;
  std::shared_ptr<const std::string> text_;
  std::size_t offset_ = 0;
  std::shared_ptr<const std::string> notice_;
};

}  // namespace brenloft::web
