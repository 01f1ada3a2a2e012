#include "platform/bluetooth/hci/HCIAdapters.h"

#include <algorithm>
#include <cerrno>
#include <span>
#include <system_error>

#include <sys/socket.h>

#include "platform/bluetooth/Rfkill.h"
#include "platform/bluetooth/hci/HCISocket.h"

namespace platform {
namespace hci {

FileDescriptor openHCISocket() {
  return FileDescriptor(::socket(kBluetoothFamily, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, kHCIProtocol));
}

bool bindHCISocket(const FileDescriptor& socket, int index, uint16_t channel) {
  HCISocketAddress name;
  name.device = static_cast<uint16_t>(index);
  name.channel = channel;
  return ::bind(socket.get(), reinterpret_cast<const sockaddr*>(&name), sizeof name) == 0;
}

bool readDeviceInfo(const FileDescriptor& socket, int index, HCIDeviceInfo& info) {
  info = {};
  info.index = static_cast<uint16_t>(index);
  return ::ioctl(socket.get(), kGetDeviceInfo, &info) == 0;
}

BluetoothAddress addressOf(const HCIDeviceInfo& info) {
  return BluetoothAddress::fromPacket(std::as_bytes(std::span(info.address)), false);
}

}  // namespace hci

namespace {

std::string noSocketText(int error) {
  if (error == EAFNOSUPPORT || error == EPROTONOSUPPORT) {
    return "the kernel gives no Bluetooth socket: it has no Bluetooth, or this container or sandbox hides it";
  }
  return "the kernel gives no Bluetooth socket: " + std::generic_category().message(error);
}

/// On the user channel the kernel refuses every request for one adapter as busy, whoever makes it.
bool isTaken(int index) {
  const auto socket = hci::openHCISocket();
  return socket && hci::bindHCISocket(socket, index, hci::kRawChannel) &&
         ::ioctl(socket.get(), hci::kSetRaw, 0) != 0 && errno == EBUSY;
}

}  // namespace

Result<std::vector<HCIAdapter>> listHCIAdapters() {
  const auto socket = hci::openHCISocket();
  hci::HCIDeviceList list;
  if (!socket || ::ioctl(socket.get(), hci::kGetDeviceList, &list) != 0)
    return Error{Error::Kind::unsupported, noSocketText(errno)};
  std::vector<HCIAdapter> adapters;
  for (const auto& entry :
       std::span(list.entries).first(std::min<std::size_t>(list.count, hci::kMostAdapters))) {
    hci::HCIDeviceInfo info;
    if (!hci::readDeviceInfo(socket, entry.index, info)) continue;
    HCIAdapter adapter;
    adapter.index = entry.index;
    adapter.address = hci::addressOf(info);
    adapter.isUp = (info.flags & hci::kFlagUp) != 0;
    adapter.isBlocked = !adapter.isUp && !rfkillBlockOf(adapter.name()).empty();
    adapter.isTaken = adapter.isUp && isTaken(entry.index);
    adapters.push_back(adapter);
  }
  std::sort(adapters.begin(), adapters.end(), [](const auto& a, const auto& b) { return a.index < b.index; });
  return adapters;
}

const HCIAdapter* findHCIAdapter(const std::vector<HCIAdapter>& adapters, const HCIAdapterAddress& address) {
  const int* index = std::get_if<int>(&address.adapter);
  const auto found = std::ranges::find_if(adapters, [&](const HCIAdapter& adapter) {
    return index != nullptr ? adapter.index == *index
                            : adapter.address.octets == std::get<BluetoothAddress>(address.adapter).octets;
  });
  return found == adapters.end() ? nullptr : &*found;
}

}  // namespace platform
