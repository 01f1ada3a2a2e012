#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>

#include "platform/bluetooth/AdvertisingReport.h"
#include "platform/dispatch/RunLoop.h"
#include "platform/foundation/Error.h"
#include "platform/foundation/Export.h"
#include "platform/foundation/NSLog.h"

namespace platform {

/// What a source tells beside its reports, on any thread, and what ends it. Each may be left out.
struct SourceOptions {
  std::function<void()> onEnd{};                                       ///< nothing more will come
  LogSink onMessage{};                                                 ///< one line for people
  std::function<void(uint64_t position, uint64_t size)> onProgress{};  ///< octets of a capture
  std::stop_token stop{};  ///< ends the wait for a pipe that brings nothing
};

/// Where reports come from, and the loop on the clock that belongs to it.
struct Source {
  std::shared_ptr<RunLoop> loop{};
  std::shared_ptr<AdvertisingReportSource> reports{};
  bool isRadio = false;   ///< states are worth telling, and the air has gaps
  std::string capture{};  ///< the file that is read, if any
};

/// Opens what an address names:
///
///     capture:FILE       a recording (btsnoop, pcap, pcapng; "-": standard input), as fast as it can be read
///     demo               a minute of simulated beacons, as fast as it can be simulated
///     auto               the machine's radio: the kernel's HCI where that is permitted, bluetoothd otherwise
///     bluez[:ADAPTER]    an adapter (hci0, C0:…) by way of bluetoothd
///     hci[:ADAPTER]      an adapter by way of the kernel
///     h4:DEVICE[,BAUD]   a controller on a serial line
///     h4:unix:PATH       a controller behind a local stream socket
///
/// `?paced` behind the first two gives them the pace at which they were recorded; `demo?paced` has no end.
/// Without it their loop is on virtual time, which the loop's `run` moves.
///
/// The error's text is one line for people. Its kind is `unsupported` when what is named cannot be listened
/// to, `notPermitted` when this process may not, else it says why that cannot be heard now.
BRL_EXPORT Result<Source> openSource(const std::string& address, SourceOptions options = {});

/// What is wrong with the form of an address, whether or not its source is there; "" when nothing is.
BRL_EXPORT std::string addressProblem(const std::string& address);

/// The file of `capture:FILE` when it is to be read without a pace; else "".
BRL_EXPORT std::string captureFileOf(const std::string& address);

/// Whether everything that there is to hear can be read at once, without a wait for a part of it.
BRL_EXPORT bool isReadAtOnce(const std::string& address);

/// The address of the same source at its own pace, not all of it at once.
BRL_EXPORT std::string pacedSource(const std::string& address);

/// Whether its beacons are simulated.
BRL_EXPORT bool isDemo(const std::string& address);

/// For help texts: every form that `openSource` takes.
inline constexpr std::string_view kSourceForms =
    "capture:FILE[?paced], demo[?paced], auto, bluez[:ADAPTER], hci[:ADAPTER], h4:DEVICE[,BAUD], "
    "h4:unix:PATH";

}  // namespace platform
