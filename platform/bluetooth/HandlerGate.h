#pragma once

#include <condition_variable>
#include <mutex>
#include <thread>
#include <utility>

#include "platform/bluetooth/AdvertisingReport.h"

namespace platform {

/// Keeps the promise of `AdvertisingReportSource::close`: once `close` has returned no handler runs, unless
/// `close` was called from inside one. Handlers run without the lock, one at a time (the caller sees to
/// that).
class HandlerGate {
 public:
  void open(AdvertisingReportSource::ReportHandler onReport, AdvertisingReportSource::StateHandler onState) {
    const std::lock_guard lock(mutex_);
    onReport_ = std::move(onReport);
    onState_ = std::move(onState);
    isOpen_ = true;
  }

  void report(const AdvertisingReport& report) { call(onReport_, report); }
  void state(const RadioState& state) { call(onState_, state); }

  /// Any other handler that the same promise is made for.
  template <class Handler, class... Arguments>
  void call(const Handler& handler, const Arguments&... arguments) {
    {
      const std::lock_guard lock(mutex_);
      if (!isOpen_ || !handler) return;
      caller_ = std::this_thread::get_id();
    }
    handler(arguments...);
    const std::lock_guard lock(mutex_);
    caller_ = std::thread::id();
    returned_.notify_all();
  }

  void close() {
    std::unique_lock lock(mutex_);
    isOpen_ = false;
    if (caller_ == std::this_thread::get_id()) return;
    returned_.wait(lock, [this] { return caller_ == std::thread::id(); });
    onReport_ = nullptr;
    onState_ = nullptr;
  }

 private:
  std::mutex mutex_;
  std::condition_variable returned_;
  bool isOpen_ = false;
  std::thread::id caller_;
  AdvertisingReportSource::ReportHandler onReport_;
  AdvertisingReportSource::StateHandler onState_;
};

}  // namespace platform
