#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "application/cpp/brenloft.hpp"
#include "platform/bluetooth/CBCentralManager.h"
#include "platform/dispatch/RunLoop.h"
#include "platform/sources/Source.h"

namespace brenloft {

/// The reason of a radio's newest state, which a central manager does not tell. Threads: any.
class StateReason {
 public:
  std::string text() const;
  void set(std::string text);
  /// The same source, whose states are noted here.
  static std::shared_ptr<platform::AdvertisingReportSource> noting(
      std::shared_ptr<platform::AdvertisingReportSource> source, std::shared_ptr<StateReason> reason);

 private:
  mutable std::mutex mutex_;
  std::string text_;
};

/// What a search hears by.
struct Hearing {
  std::shared_ptr<platform::DispatchService> dispatch;
  std::shared_ptr<platform::BluetoothService> bluetooth;
  std::shared_ptr<StateReason> reason;
  /// Moves the clock, where nobody else does; on a thread of the search's own.
  std::shared_ptr<platform::RunLoop> loop{};
  /// Nobody waits on this clock: what is there now is all that there is.
  bool isOfTest = false;
};

/// Opens what the settings name. `onEnd` is called once nothing more will come.
Result<Hearing> openHearing(const Settings& settings, std::function<void()> onEnd);

}  // namespace brenloft
