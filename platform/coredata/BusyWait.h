#pragma once

#include <functional>

#include "platform/coredata/FileStamp.h"

namespace platform {

/// How a connection waits for one that holds a lock.
///
/// It waits as long as others work, which is seen by their writing. A process that dies loses its locks; what
/// can hold one and write nothing is a stopped process, or a transaction that somebody has left open. A
/// minute of that is taken for no end. (The longest silence that work needs is that of one large statement,
/// which first changes pages in memory.)
class BusyWait {
 public:
  /// `stamp` looks at the store's files.
  explicit BusyWait(std::function<StoreStamp()> stamp) : stamp_(std::move(stamp)) {}

  /// Called once for each wait that takes longer than a second.
  void setOnWaiting(std::function<void()> onWaiting) { onWaiting_ = std::move(onWaiting); }
  /// Naps once; false when there is no use in waiting longer. `turn` counts the naps of one wait from 0.
  bool nap(int turn);

  /// Between two steps of one long change, so that whoever waits gets his turn.
  static void letOthersGo();

 private:
  std::function<StoreStamp()> stamp_;
  std::function<void()> onWaiting_;
  StoreStamp last_;
  int quiet_ = 0;
};

}  // namespace platform
