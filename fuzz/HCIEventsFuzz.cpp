#include <algorithm>
#include <cstdint>

#include "platform/bluetooth/AdvertisementMerger.h"
#include "platform/bluetooth/HCIAdvertisingEvents.h"

// The input is a row of events, each after an octet with its size, as read one after the other by one reader
// into one small merger.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* octets, size_t size) {
  platform::HCIAdvertisingEvents events;
  platform::AdvertisementMerger merger({.addresses = 2, .octets = 300});
  const platform::HCIAdvertisingEvents::Handler take = [&](const platform::AdvertisingReport& report) {
    merger.merge(report);
  };
  platform::DataView rest = std::as_bytes(std::span(octets, size));
  while (!rest.empty()) {
    const size_t length = std::min(std::to_integer<size_t>(rest[0]), rest.size() - 1);
    events.read(rest.subspan(1, length), {}, take);
    rest = rest.subspan(length + 1);
  }
  return 0;
}
