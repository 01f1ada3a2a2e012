#pragma once

#include <atomic>
#include <utility>

#include "platform/bluetooth/AdvertisingReport.h"
#include "platform/dispatch/CallGate.h"

namespace platform {

/// The handlers of a source behind the gate that keeps the promise of `AdvertisingReportSource::close`: once
/// it has returned no handler runs, unless `close` was called from inside one. A source whose blocks pass the
/// gate, too, tears down in `onClosed`, with nothing of its own running any more.
///
/// Threads: any; `onClosed` and the end of the handlers as `CallGate` says.
class HandlerGate : public CallGate {
 public:
  explicit HandlerGate(std::function<void()> onClosed = {})
      : CallGate([this, onClosed = std::move(onClosed)] {
          if (onClosed) onClosed();
          onReport_ = nullptr;
          onState_ = nullptr;
        }) {}

  /// Nothing is handed on before; no effect once closed. Call once.
  void open(AdvertisingReportSource::ReportHandler onReport, AdvertisingReportSource::StateHandler onState) {
    call([&] {
      onReport_ = std::move(onReport);
      onState_ = std::move(onState);
      isOpen_ = true;
    });
  }

  void report(const AdvertisingReport& report) { handOn(onReport_, report); }
  void state(const RadioState& state) { handOn(onState_, state); }

  /// Any other handler that the same promise is made for.
  template <class Handler, class... Arguments>
  void handOn(const Handler& handler, const Arguments&... arguments) {
    call([&] {
      if (isOpen_ && handler) handler(arguments...);
    });
  }

 private:
  std::atomic<bool> isOpen_ = false;
  AdvertisingReportSource::ReportHandler onReport_;
  AdvertisingReportSource::StateHandler onState_;
};

}  // namespace platform
