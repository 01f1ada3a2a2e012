#pragma once

#include <cstdint>
#include <deque>

namespace brenloft {

/// How far one kind of rows was read from the history, and how far the broker has taken it. What is under way
/// may be acknowledged in any order; the cursor moves over the unbroken run of it only. A value.
class Lane {
 public:
  /// Names something that is under way.
  using Ticket = uint64_t;

  explicit Lane(int64_t cursor = 0) : cursor_(cursor), read_(cursor) {}

  /// Every row through this one is done with.
  int64_t cursor() const { return cursor_; }
  /// Every row through this one was taken up: it is done with or under way.
  int64_t read() const { return read_; }

  /// What ends with this row is under way.
  Ticket begin(int64_t through);
  /// Rows through this one are none that this lane has.
  void skip(int64_t through);
  void acknowledge(Ticket ticket);
  /// What is under way will be taken up again; its tickets mean nothing any more.
  void rewind();

 private:
  struct Part {
    int64_t through;
    bool isDone;
  };

  void advance();

  int64_t cursor_;
  int64_t read_;
  std::deque<Part> parts_;  // under way, in order
  Ticket first_ = 0;        // of the parts
};

}  // namespace brenloft
