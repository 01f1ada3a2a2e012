#include "platform/sources/SourceInventory.h"

#include <utility>

#include "platform/bluetooth/radios/RadioInventory.h"

namespace platform {

SourceInventory SourceInventory::take() {
  const auto radios = RadioInventory::take();
  auto choice = chooseRadio(radios);
  SourceInventory result{{}, std::move(choice.address), std::move(choice.why), radios.adapterError};
  for (const auto& [address, name, state, why] : radios.candidates)
    result.sources.push_back({address, name, textOf(state), why});
  const std::string_view usable = textOf(RadioCandidate::State::usable);
  result.sources.push_back({"demo", "simulated beacons", usable, "needs no radio"});
  result.sources.push_back({"capture:FILE", "recorded advertisements", usable, "btsnoop, pcap, pcapng"});
  return result;
}

}  // namespace platform
