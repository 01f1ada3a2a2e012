#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>

#include "application/cpp/brenloft.hpp"

namespace brenloft {

/// Events on their way from the search to who pulls them. Threads: any; `take` by one at a time.
class Mailbox {
 public:
  enum class WhenFull { wait, dropOldest };

  Mailbox(std::size_t capacity, WhenFull whenFull);
  Mailbox(const Mailbox&) = delete;
  Mailbox& operator=(const Mailbox&) = delete;
  ~Mailbox();

  /// Waits for room, where it is to; no effect once closed.
  void put(Event event);
  /// The next event; before those that were dropped, how many they were.
  std::optional<Event> take();
  std::optional<Event> take(std::chrono::milliseconds timeout);
  /// The next event if there is one.
  std::optional<Event> takeNow();
  /// Nothing more comes in; what waits can be taken.
  void close();
  bool isEmpty() const;
  /// Closed, and empty.
  bool isDrained() const;
  int fileDescriptor() const { return descriptor_; }

 private:
  bool hasSomething() const { return isClosed_ || missed_ > 0 || !events_.empty(); }
  std::optional<Event> takeLocked();
  void signal() const;

  const std::size_t capacity_;
  const WhenFull whenFull_;
  const int descriptor_;

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Event> events_;
  uint64_t missed_ = 0;
  bool isClosed_ = false;
};

}  // namespace brenloft
