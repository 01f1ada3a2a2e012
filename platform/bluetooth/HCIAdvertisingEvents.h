#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string_view>

#include "platform/bluetooth/AdvertisingReport.h"

namespace platform {

/// Reads HCI events (Bluetooth Core, Vol 4, Part E): LE Advertising Report and LE Extended Advertising
/// Report. Other events are passed over. Extended reports in fragments are put together before they are
/// handed on; fragments whose rest does not come within `kLongestGap` are forgotten, so that they do not
/// stand before the data of a later report.
///
/// Threads: one at a time.
class HCIAdvertisingEvents {
 public:
  using Handler = std::function<void(const AdvertisingReport&)>;

  /// Between two fragments of one report, which a controller sends one after the other.
  static constexpr std::chrono::seconds kLongestGap{1};

  HCIAdvertisingEvents();
  ~HCIAdvertisingEvents();

  /// One event: code, parameter length, parameters. Hands on every whole report before a fault; what is wrong
  /// is returned, an empty text when nothing is. `time` is given to the reports and is that of the fragments.
  std::string_view read(DataView event, Date time, const Handler& handler);
  /// Forgets unfinished fragments, as after a reset or a scan's end.
  void reset();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace platform
