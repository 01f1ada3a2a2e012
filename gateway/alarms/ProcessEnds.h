#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <thread>

namespace brenloft {

/// Tells when child processes have ended, so that nobody has to wait for one.
///
/// Threads: any. The handlers are called on a thread of its own and must be short; none is called any more
/// once the destructor has returned.
class ProcessEnds {
 public:
  ProcessEnds();
  ~ProcessEnds();
  ProcessEnds(const ProcessEnds&) = delete;
  ProcessEnds& operator=(const ProcessEnds&) = delete;

  /// Calls `onEnd` once the child has ended; whoever is told reaps it. False: it cannot be watched.
  bool watch(int process, std::function<void()> onEnd);

 private:
  void run();

  int wake_ = -1;
  std::mutex mutex_;  // guards what follows
  bool isClosing_ = false;
  std::map<int, std::function<void()>> watched_;  // by the descriptor of the process
  std::thread thread_;
};

}  // namespace brenloft
