#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/foundation/Data.h"
#include "platform/foundation/Error.h"

namespace platform {

/// Carries HCI packets in H4 form (Bluetooth Core, Vol 4, Part A): one octet of type, then the packet.
///
/// One object is one connection: it is opened once, closes once, and is then thrown away.
/// Threads: operations come from one thread at a time. Handlers are called on the transport's own thread or
/// queue, one at a time, never from inside an operation and never after `close` has returned. They must not
/// block and must not call operations; the driver hops to its own queue.
class HCITransport {
 public:
  struct Opened {
    std::string description;  ///< for people: "hci0, user channel"
    /// Other programs use the controller too: it must not be reset, their commands are seen, and the other
    /// side keeps account of the command credits.
    bool isShared = false;
  };

  struct Handlers {
    std::function<void(const Opened&)> onOpened;
    /// What came from the controller, in order; packets may be cut anywhere.
    std::function<void(Data octets)> onOctets;
    /// A packet that could not be taken over; for people.
    std::function<void(std::string fault)> onFault;
    /// It never opened or works no more; the last handler called. Failed: it worked, or could have, and
    /// broke. Off: the adapter is down or blocked by rfkill.
    std::function<void(const Error&)> onClosed;
  };

  virtual ~HCITransport() = default;

  virtual void open(Handlers handlers) = 0;
  /// One whole packet; no effect before `onOpened` and after `onClosed`.
  virtual void send(Data packet) = 0;
  /// Says that the octets of one `onOctets` have been dealt with. A transport holds back after a few chunks
  /// that have not been.
  virtual void consumed() = 0;
  /// Sends what is waiting as far as that is possible at once, then closes.
  virtual void close() = 0;
};

using HCITransportFactory = std::function<std::unique_ptr<HCITransport>()>;

}  // namespace platform
