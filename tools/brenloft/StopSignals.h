#pragma once

#include <atomic>
#include <functional>
#include <thread>

namespace brenloft {

/// Turns Ctrl-C, SIGTERM and a terminal that went away into one orderly stop; a second one ends the process.
/// SIGHUP is the last of them, unless the terminal is still there, or never was, and something else is to be
/// done then.
/// Make it before any other thread, so that all of them leave the signals alone.
class StopSignals {
 public:
  StopSignals();
  /// The calling thread, and those that it makes, leave the signals to an object that is made later.
  static void leaveToOthers();
  ~StopSignals();
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

  /// Calls `onStop` once, on a thread of its own, when a signal comes or came already. Call once;
  /// what it uses must outlive this object. `onHangUp`, where there is one, is called for each SIGHUP that
  /// somebody sent.
  void watch(std::function<void()> onStop, std::function<void()> onHangUp = {});
  /// Asks for the stop as a signal does. Threads: any.
  static void raise();
  /// Whether the stop was asked for. Threads: any.
  static bool isStopped() { return stopped_; }
  /// Whether that was most of a second ago, so that nobody is waited for any more; told while an object is
  /// there that was asked to watch. Threads: any.
  static bool isOverdue() { return overdue_; }

 private:
  void wait(const std::function<void()>& onStop, const std::function<void()>& onHangUp) const;
  bool isTerminalGone() const;

  const bool hadTerminal_;

  int signals_ = -1;  // signalfd
  int end_ = -1;      // eventfd that ends the thread
  // A signal is the whole process's.
  inline static std::atomic<bool> stopped_{false};
  inline static std::atomic<bool> overdue_{false};
  std::thread thread_;
};

}  // namespace brenloft
