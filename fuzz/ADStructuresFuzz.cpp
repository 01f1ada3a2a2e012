#include <cstdint>
#include <cstdlib>

#include "platform/bluetooth/ADBuilder.h"
#include "platform/bluetooth/ADStructures.h"

// Any octets can be read, and what was read survives being written and read again.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* octets, size_t size) {
  platform::ADStructures heard;
  heard.read(std::as_bytes(std::span(octets, size)));
  platform::CBAdvertisementData data;
  heard.fill(data);
  if (!heard.serviceUUIDs.empty()) data.serviceUUIDs = heard.serviceUUIDs;

  platform::ADBuilder builder;
  builder.advertisement(data);
  platform::ADStructures again;
  if (!again.read(builder.octets())) std::abort();
  platform::CBAdvertisementData dataAgain;
  again.fill(dataAgain);
  const bool isSame = again.serviceUUIDs == heard.serviceUUIDs && dataAgain.localName == data.localName &&
                      dataAgain.manufacturerData == data.manufacturerData &&
                      dataAgain.txPowerLevel == data.txPowerLevel &&
                      dataAgain.serviceData == data.serviceData;
  if (!isSame) std::abort();
  return 0;
}
