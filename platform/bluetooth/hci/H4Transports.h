#pragma once

#include <memory>

#include "platform/bluetooth/hci/HCITransport.h"
#include "platform/bluetooth/hci/RadioAddress.h"

namespace platform::hci {

/// H4 over a serial line, raw 8N1 with RTS/CTS. Any baud rate that the line can divide down to.
std::unique_ptr<HCITransport> makeH4SerialTransport(const H4SerialAddress& address);

/// H4 over a local stream socket, as a client.
std::unique_ptr<HCITransport> makeH4UnixTransport(const H4UnixAddress& address);

}  // namespace platform::hci
