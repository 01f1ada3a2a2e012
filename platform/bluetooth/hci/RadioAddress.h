#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "platform/bluetooth/AdvertisingReport.h"
#include "platform/foundation/Error.h"

namespace platform {

/// `h4:DEVICE[,BAUD]`: a controller on a serial line, 8N1 with RTS/CTS.
struct H4SerialAddress {
  std::string device;
  unsigned baud = 115200;
  friend bool operator==(const H4SerialAddress&, const H4SerialAddress&) = default;
};

/// `h4:unix:PATH`: a controller behind a local stream socket.
struct H4UnixAddress {
  std::string path;
  friend bool operator==(const H4UnixAddress&, const H4UnixAddress&) = default;
};

/// Which of the kernel's two HCI channels.
enum class HCIChannel {
  automatic,  ///< user on an adapter that is down; raw on one that is or, in this source, was ever up, unless
              ///< for a program that has it to itself, which is waited for
  user,       ///< the adapter to oneself; it must be down
  raw,        ///< beside bluetoothd; it must be up
};

/// `hci:N`, `hci:hciN` or `hci:C0:…` (the adapter's own address), each with an optional `?user` or `?raw`.
struct HCIAdapterAddress {
  std::variant<int, BluetoothAddress> adapter = 0;
  HCIChannel channel = HCIChannel::automatic;
  friend bool operator==(const HCIAdapterAddress&, const HCIAdapterAddress&) = default;
};

using RadioAddress = std::variant<H4SerialAddress, H4UnixAddress, HCIAdapterAddress>;

/// Reads one of the forms above. Unsupported when the text is none of them.
Result<RadioAddress> parseRadioAddress(std::string_view text);

/// The shortest text that reads as this address: `h4:/dev/ttyACM0,1000000`, `hci:0`, …
std::string textOf(const RadioAddress& address);

}  // namespace platform
