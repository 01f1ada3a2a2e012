#pragma once

#include <functional>
#include <memory>
#include <string_view>

#include "platform/bluetooth/AdvertisingReport.h"

namespace platform {

/// Reads HCI events (Bluetooth Core, Vol 4, Part E): LE Advertising Report and LE Extended Advertising
/// Report. Other events are passed over. Extended reports in fragments are put together before they are
/// handed on.
///
/// Threads: one at a time.
class HCIAdvertisingEvents {
 public:
  using Handler = std::function<void(const AdvertisingReport&)>;

  HCIAdvertisingEvents();
  ~HCIAdvertisingEvents();

  /// One event: code, parameter length, parameters. Hands on every whole report before a fault; what is wrong
  /// is returned, an empty text when nothing is. `time` is given to the reports.
  std::string_view read(DataView event, Date time, const Handler& handler);
  /// Forgets unfinished fragments, as after a reset.
  void reset();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace platform
