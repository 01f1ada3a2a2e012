#include "platform/bluetooth/hci/HCISocketTransport.h"

#include <cerrno>
#include <utility>

#include <sys/socket.h>

#include "platform/bluetooth/Rfkill.h"
#include "platform/bluetooth/hci/DescriptorTransport.h"
#include "platform/bluetooth/hci/HCIAdapters.h"
#include "platform/bluetooth/hci/HCIPackets.h"
#include "platform/bluetooth/hci/HCIPermission.h"
#include "platform/bluetooth/hci/HCISocket.h"

namespace platform::hci {
namespace {

using Line = DescriptorTransport::Line;

constexpr int kReceiveBuffer = 1 << 20;

Error notPermitted(const HCIAdapter& adapter) {
  return {Error::Kind::notPermitted,
          adapter.name() + " may not be used: " + HCIPermissions::ofThisProcess().hint(ownExecutable())};
}

Error blocked(const std::string& name) {
  const std::string_view why = rfkillBlockOf(name);
  return {Error::Kind::off, (name + " is ").append(why.empty() ? kBlockedBySoftware : why)};
}

Error down(const std::string& name, int index) {
  return {Error::Kind::off,
          name +
              " is down; 'bluetoothctl power on' brings it up, or without bluetoothd 'btmgmt "
              "--index " +
              std::to_string(index) + " power on'"};
}

std::string nameOf(const HCIAdapterAddress& address) {
  if (const int* index = std::get_if<int>(&address.adapter)) return "hci" + std::to_string(*index);
  return std::get<BluetoothAddress>(address.adapter).text();
}

Error noSuchAdapter(const HCIAdapterAddress& address, const std::vector<HCIAdapter>& present) {
  std::string text = "waiting for adapter " + nameOf(address);
  text += present.empty() ? "; none is plugged in" : "; there is";
  for (const auto& adapter : present) text += " " + adapter.title();
  return {Error::Kind::absent, text};
}

Error taken(const HCIAdapter& adapter) {
  return {Error::Kind::busy, "another program has " + adapter.title() + " to itself; waiting for its end"};
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

/// A socket breaks when its adapter goes, whose number may have another owner by now, or the same one again;
/// the raw channel stays open and silent when the adapter goes down.
std::optional<Error> check(const HCIAdapter& adapter, std::optional<Error> broken) {
  HCIDeviceInfo info;
  const bool isThere =
      readDeviceInfo(openHCISocket(), adapter.index, info) && addressOf(info) == adapter.address;
  if (!isThere || (broken && broken->kind == Error::Kind::failed))
    return Error{Error::Kind::absent, adapter.title() + " was unplugged"};
  if ((info.flags & kFlagUp) != 0) return broken;
  return rfkillBlockOf(adapter.name()).empty() ? down(adapter.name(), adapter.index)
                                               : blocked(adapter.name());
}

Line lineTo(const HCIAdapter& adapter, FileDescriptor socket, bool isShared) {
  enlargeBuffer(socket);
  Line line{std::move(socket),
            {adapter.title() + (isShared ? ", raw channel" : ", user channel"), isShared},
            true,
            {}};
  line.check = [adapter](std::optional<Error> broken) { return check(adapter, std::move(broken)); };
  return line;
}

using Opening = Result<Line>;

Opening openRaw(const HCIAdapter& adapter) {
  if (adapter.isBlocked) return blocked(adapter.name());
  if (!adapter.isUp) return down(adapter.name(), adapter.index);
  FileDescriptor socket = openHCISocket();
  if (!socket || !setRawFilter(socket) || !bindHCISocket(socket, adapter.index, kRawChannel)) {
    return errno == EPERM ? notPermitted(adapter) : errorOf(errno, adapter.name());
  }
  return lineTo(adapter, std::move(socket), true);
}

Opening openUser(const HCIAdapter& adapter) {
  FileDescriptor socket = openHCISocket();
  if (socket && bindHCISocket(socket, adapter.index, kUserChannel))
    return lineTo(adapter, std::move(socket), false);
  switch (errno) {
    case EPERM:
      return notPermitted(adapter);
    case ERFKILL:
      return blocked(adapter.name());
    case EBUSY:
      return Error{Error::Kind::busy, adapter.name() + " is up; the user channel needs it down"};
    default:
      return errorOf(errno, adapter.name());
  }
}

Opening openAdapter(const HCIAdapterAddress& address, std::atomic<bool>& sharing) {
  const auto adapters = listHCIAdapters();
  if (!adapters) return adapters.error();
  const HCIAdapter* found = findHCIAdapter(*adapters, address);
  if (found == nullptr) return noSuchAdapter(address, *adapters);
  if (found->isTaken) return taken(*found);
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
