#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "gateway/mqtt/Discovery.h"
#include "gateway/mqtt/MosquittoClient.h"
#include "platform/dispatch/Dispatch.h"
#include "platform/foundation/Error.h"

namespace brenloft {

/// Removes what a broker retains of a gateway: of these beacons, or of all and of the gateway itself where
/// there are none. Says how many messages that were.
platform::Result<std::size_t> forgetRetained(Broker broker, const Topics& topics, const Discovery& discovery,
                                             const std::vector<BeaconId>& beacons,
                                             platform::DispatchService& dispatch);

}  // namespace brenloft
