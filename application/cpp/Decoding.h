#pragma once

#include <optional>
#include <string>
#include <vector>

#include "application/cpp/brenloft.hpp"
#include "platform/bluetooth/CBCentralManager.h"
#include "platform/location/iBeaconFrame.h"
#include "platform/simulated/SimulatedAdvertisement.h"

namespace brenloft {

/// Of an advertisement that has a sensor frame and a service, one of `services` unless that is empty; nothing
/// of others.
std::optional<Reading> readingIn(const platform::CBAdvertisementData& advertisement,
                                 const std::vector<platform::CBUUID>& services);
/// Whether they say the same but for when and how they were heard.
bool hasSameFrame(const Reading& one, const Reading& other);
/// Of an iBeacon's.
std::optional<Sighting> sightingIn(const platform::CBAdvertisementData& advertisement);

/// What a beacon sends that measures this. Throws std::invalid_argument for what no frame can carry.
platform::SensorFrame frameOf(const Reading& reading);
platform::iBeaconFrame frameOf(const Sighting& sighting);
/// The address that a simulated sensor sends from: that of its id.
platform::BluetoothAddress addressOf(const Reading& reading);

}  // namespace brenloft
