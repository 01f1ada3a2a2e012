#include "platform/coredata/BusyWait.h"

#include <chrono>
#include <thread>

namespace platform {
namespace {

// Naps are counted rather than timed: a machine that was suspended meanwhile has not waited.
constexpr std::chrono::milliseconds kNap{4};
constexpr std::chrono::milliseconds kPause = 2 * kNap;
constexpr int kNapsBeforeNotice = std::chrono::seconds(1) / kNap;
constexpr int kQuietNaps = std::chrono::seconds(60) / kNap;

}  // namespace

bool BusyWait::nap(int turn) {
  const StoreStamp now = stamp_();
  quiet_ = turn == 0 || now != last_ ? 0 : quiet_ + 1;
  last_ = now;
  if (quiet_ >= kQuietNaps) return false;
  if (turn == kNapsBeforeNotice && onWaiting_) onWaiting_();
  std::this_thread::sleep_for(kNap);
  return true;
}

void BusyWait::letOthersGo() {
  std::this_thread::sleep_for(kPause);
}

}  // namespace platform
