#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>

#include "platform/bluetooth/hci/HCIDriver.h"
#include "platform/dispatch/VirtualDispatch.h"
#include "tests/support/ScriptedController.h"

// The input is one octet of traits, then what a controller sends besides its proper answers: an octet below
// 128 and as many octets of the stream, or one above and that many tenths of a second in which time passes.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* octets, size_t size) {
  if (size == 0) return 0;
  const auto dispatch = platform::VirtualDispatch::make();
  const unsigned traits = octets[0];
  support::ScriptedController controller(dispatch, {.hasLE = (traits & 1U) == 0,
                                                    .hasLegacy = (traits & 2U) == 0,
                                                    .hasExtended = (traits & 4U) != 0,
                                                    .hasCodedPhy = (traits & 8U) != 0});
  controller.setShared((traits & 16U) != 0);
  controller.cutInto(traits >> 5U);
  const auto driver = platform::HCIDriver::make({dispatch, controller.factory(), [](std::string_view) {}});
  uint64_t reports = 0;
  driver->open(
      [&](const platform::AdvertisingReport& report) { reports += report.data.size() <= 1650 ? 1 : 0; },
      [](const platform::RadioState&) {});
  driver->startScan({});
  platform::DataView rest = std::as_bytes(std::span(octets, size)).subspan(1);
  while (!rest.empty()) {
    const auto step = std::to_integer<unsigned>(rest[0]);
    const size_t length = step < 128 ? std::min<size_t>(step, rest.size() - 1) : 0;
    if (step < 128) controller.send(platform::toData(rest.subspan(1, length)));
    dispatch->advance(std::chrono::milliseconds(step < 128 ? 0 : (step - 128) * 100));
    rest = rest.subspan(length + 1);
  }
  if (reports != driver->counters().reports) std::abort();
  driver->close();
  dispatch->advance(std::chrono::minutes(5));
  if (reports != driver->counters().reports || controller.isConnected()) std::abort();
  return 0;
}
