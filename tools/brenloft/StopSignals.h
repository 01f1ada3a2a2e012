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
  ~StopSignals();
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

  /// Calls `onStop` once, on a thread of its own, when a signal comes or came already. Call once;
  /// what it uses must outlive this object. `onHangUp`, where there is one, is called for each SIGHUP that
  /// somebody sent.
  void watch(std::function<void()> onStop, std::function<void()> onHangUp = {});
  /// Whether the stop was asked for. Threads: any.
  static bool isStopped() { return stopped_; }

 private:
  void wait(const std::function<void()>& onStop, const std::function<void()>& onHangUp) const;
  bool isTerminalGone() const;

  const bool hadTerminal_;

  int signals_ = -1;                                // signalfd
  int end_ = -1;                                    // eventfd that ends the thread
  inline static std::atomic<bool> stopped_{false};  // a signal is the whole process's
  std::thread thread_;
};

}  // namespace brenloft
