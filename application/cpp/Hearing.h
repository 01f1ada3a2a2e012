#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "application/cpp/brenloft.hpp"
#include "platform/bluetooth/AdvertisingReport.h"
#include "platform/bluetooth/CBCentralManager.h"
#include "platform/dispatch/RunLoop.h"
#include "platform/sources/Source.h"

namespace brenloft {

/// The platform's states, in its order.
static_assert(static_cast<int>(RadioState::restarting) ==
              static_cast<int>(platform::CBManagerState::resetting));
static_assert(static_cast<int>(RadioState::listening) ==
              static_cast<int>(platform::CBManagerState::poweredOn));

/// The states of a radio with their reasons: a central manager tells no reason, and not that one changed.
/// Threads: any.
class RadioStates {
 public:
  using Handler = std::function<void(const platform::RadioState& state)>;

  /// Tells the newest state, if there is one, and each that follows, as long as what is returned is held.
  /// Calls with a lock held: the handler only submits.
  std::shared_ptr<const Handler> watch(Handler handler);
  /// The same source, whose states are told here, too, before its own handler has them.
  static std::shared_ptr<platform::AdvertisingReportSource> noting(
      std::shared_ptr<platform::AdvertisingReportSource> source, std::shared_ptr<RadioStates> states);

 private:
  class NotedSource;
  void tell(const platform::RadioState& state);

  std::mutex mutex_;
  std::optional<platform::RadioState> newest_;
  std::vector<std::weak_ptr<const Handler>> handlers_;
};

/// What a search hears by.
struct Hearing {
  std::shared_ptr<platform::DispatchService> dispatch;
  std::shared_ptr<platform::BluetoothService> bluetooth;
  std::shared_ptr<RadioStates> states;
  /// Moves the clock, where nobody else does; on a thread of the search's own.
  std::shared_ptr<platform::RunLoop> loop{};
  /// Nobody waits on this clock: what is there now is all that there is.
  bool isOfTest = false;
};

/// Opens what the settings name. `onEnd` is called once nothing more will come.
Result<Hearing> openHearing(const Settings& settings, std::function<void()> onEnd);

}  // namespace brenloft
