#pragma once

#include <memory>

#include "platform/bluetooth/hci/HCITransport.h"
#include "platform/bluetooth/hci/RadioAddress.h"

namespace platform::hci {

/// One of the kernel's HCI channels to an adapter. The user channel needs CAP_NET_ADMIN and an adapter that
/// is down; the raw channel needs CAP_NET_RAW and one that is up.
std::unique_ptr<HCITransport> makeHCISocketTransport(const HCIAdapterAddress& address);

}  // namespace platform::hci
