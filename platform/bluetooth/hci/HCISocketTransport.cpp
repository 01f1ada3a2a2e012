#include "platform/bluetooth/hci/HCISocketTransport.h"

#include <cerrno>
#include <utility>

#include <sys/socket.h>

#include "platform/bluetooth/hci/DescriptorTransport.h"
#include "platform/bluetooth/hci/HCIAdapters.h"
#include "platform/bluetooth/hci/HCIPackets.h"
#include "platform/bluetooth/hci/HCIPermission.h"
#include "platform/bluetooth/hci/HCISocket.h"
#include "platform/bluetooth/Rfkill.h"

namespace platform::hci {
namespace {

using Closed = HCITransport::Closed;
using Failure = HCITransport::Failure;
using Line = DescriptorTransport::Line;

constexpr int kReceiveBuffer = 1 << 20;

Closed notPermitted(const HCIAdapter& adapter) {
  return {Failure::notPermitted, adapter.name() + " may not be used: " + hciPermissionHint(ownExecutable())};
}

Closed blocked(const std::string& name) {
  const std::string_view why = rfkillBlockOf(name);
  return {Failure::off, (name + " is ").append(why.empty() ? kBlockedBySoftware : why)};
}

Closed down(const std::string& name, int index) {
  return {Failure::off, name +
                            " is down; 'bluetoothctl power on' brings it up, or without bluetoothd 'btmgmt "
                            "--index " +
                            std::to_string(index) + " power on'"};
}

std::string nameOf(const HCIAdapterAddress& address) {
  if (const int* index = std::get_if<int>(&address.adapter)) return "hci" + std::to_string(*index);
  return std::get<BluetoothAddress>(address.adapter).text();
}

Closed noSuchAdapter(const HCIAdapterAddress& address, const std::vector<HCIAdapter>& present) {
  std::string text = "no adapter " + nameOf(address);
  text += present.empty() ? "; none is plugged in" : "; there is";
  for (const auto& adapter : present) text += " " + adapter.name() + " (" + adapter.address.text() + ")";
  return {Failure::absent, text};
}

bool bindTo(const FileDescriptor& socket, int index, uint16_t channel) {
  HCISocketAddress name;
  name.device = static_cast<uint16_t>(index);
  name.channel = channel;
  return ::bind(socket.get(), reinterpret_cast<const sockaddr*>(&name), sizeof name) == 0;
}

void enlargeBuffer(const FileDescriptor& socket) {
  const int size = kReceiveBuffer;
  if (::setsockopt(socket.get(), SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof size) == 0) return;
  ::setsockopt(socket.get(), SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
}

constexpr uint32_t bit(uint8_t number) {
  return 1U << (number & 31U);
}

/// Answers, advertising reports and hardware errors; and the commands of other programs, of which the kernel
/// gives copies.
bool setRawFilter(const FileDescriptor& socket) {
  HCISocketFilter filter;
  filter.types = bit(kEventPacket) | bit(kCommandPacket);
  filter.events[0] = bit(event::kCommandComplete) | bit(event::kCommandStatus) | bit(event::kHardwareError);
  filter.events[1] = bit(event::kLEMeta);
  return ::setsockopt(socket.get(), kHCILevel, kHCIFilterOption, &filter, sizeof filter) == 0;
}

/// The raw channel stays open and silent when the adapter goes down.
std::optional<Closed> checkUp(int index) {
  HCIDeviceInfo info;
  const FileDescriptor socket = openHCISocket();
  const std::string name = "hci" + std::to_string(index);
  if (!readDeviceInfo(socket, index, info)) return Closed{Failure::absent, name + " was unplugged"};
  if ((info.flags & kFlagUp) != 0) return std::nullopt;
  return rfkillBlockOf(name).empty() ? down(name, index) : blocked(name);
}

using Opening = std::variant<Line, Closed>;

Opening openRaw(const HCIAdapter& adapter) {
  if (adapter.isBlocked) return blocked(adapter.name());
  if (!adapter.isUp) return down(adapter.name(), adapter.index);
  FileDescriptor socket = openHCISocket();
  if (!socket || !setRawFilter(socket) || !bindTo(socket, adapter.index, kRawChannel)) {
    return errno == EPERM ? notPermitted(adapter) : closedByError(errno, adapter.name());
  }
  enlargeBuffer(socket);
  Line line{std::move(socket), {adapter.name() + ", raw channel", true}, true, {}};
  line.check = [index = adapter.index] { return checkUp(index); };
  return line;
}

Opening openUser(const HCIAdapter& adapter) {
  FileDescriptor socket = openHCISocket();
  if (socket && bindTo(socket, adapter.index, kUserChannel)) {
    enlargeBuffer(socket);
    return Line{std::move(socket), {adapter.name() + ", user channel", false}, true, {}};
  }
  switch (errno) {
    case EPERM:
      return notPermitted(adapter);
    case ERFKILL:
      return blocked(adapter.name());
    case EBUSY:
      return Closed{Failure::lost, adapter.name() + " is in use; the user channel needs it down"};
    default:
      return closedByError(errno, adapter.name());
  }
}

Opening openAdapter(const HCIAdapterAddress& address, std::atomic<bool>& sharing) {
  std::string problem;
  const auto adapters = listHCIAdapters(problem);
  if (!problem.empty()) return Closed{Failure::unsupported, problem};
  const HCIAdapter* found = findHCIAdapter(adapters, address);
  if (found == nullptr) return noSuchAdapter(address, adapters);
  if (address.channel == HCIChannel::user) return openUser(*found);
  if (address.channel == HCIChannel::automatic) {
    if (found->isUp) sharing = true;
    if (!sharing) return openUser(*found);
  }
  return openRaw(*found);
}

}  // namespace

std::unique_ptr<HCITransport> makeHCISocketTransport(const HCIAdapterAddress& address,
                                                     std::shared_ptr<std::atomic<bool>> sharing) {
  return std::make_unique<DescriptorTransport>(
      [address, sharing = std::move(sharing)] { return openAdapter(address, *sharing); });
}

}  // namespace platform::hci
