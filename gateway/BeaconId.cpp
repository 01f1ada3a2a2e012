#include "gateway/BeaconId.h"

#include "platform/foundation/BeaconIdentifier.h"

namespace brenloft {

std::optional<BeaconId> BeaconId::fromText(std::string_view given) {
  auto text = platform::beaconIdentifierFrom(given);
  if (!text) return std::nullopt;
  const Kind kind = platform::isOfIBeacon(*text) ? Kind::iBeacon : Kind::sensor;
  return BeaconId(kind, *std::move(text));
}

}  // namespace brenloft
