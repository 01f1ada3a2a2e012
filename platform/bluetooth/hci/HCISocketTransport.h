#pragma once

#include <atomic>
#include <memory>

#include "platform/bluetooth/hci/HCITransport.h"
#include "platform/bluetooth/hci/RadioAddress.h"

namespace platform::hci {

/// One of the kernel's HCI channels to an adapter. The user channel needs CAP_NET_ADMIN and an adapter that
/// is down; the raw channel needs CAP_NET_RAW and one that is up.
///
/// `sharing` is kept from one transport to the next: it becomes true when an automatic channel finds the
/// adapter up, and from then on only the raw channel is tried. An adapter that somebody else merely switched
/// off is not to be taken from him. One that a program has on the user channel is up for nobody else; it is
/// waited for.
std::unique_ptr<HCITransport> makeHCISocketTransport(const HCIAdapterAddress& address,
                                                     std::shared_ptr<std::atomic<bool>> sharing);

}  // namespace platform::hci
