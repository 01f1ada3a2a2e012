#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/bluetooth/AdvertisingReport.h"

namespace brenloft {

/// One line on standard error, whatever the text holds. Threads: any.
void printMessage(std::string_view line);

/// "poweredOn", …: one text per state.
std::string_view textOf(platform::CBManagerState state);
/// "radio: poweredOff (blocked by rfkill)"
std::string radioLine(const platform::RadioState& state);

/// The line for a command that ends for want of a radio: the reason, and what works without one.
std::string noRadioLine(std::string_view reason);

/// How far a long file was read, on standard error when that is a terminal and the data goes elsewhere.
/// Clear it before another line is written there. Threads: one at a time.
class ProgressBar {
 public:
  ProgressBar();
  ~ProgressBar() { clear(); }
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  void show(uint64_t position, uint64_t size);
  void clear();

 private:
  bool isShown_;
  uint64_t shown_ = UINT64_MAX;  // percent
};

}  // namespace brenloft
