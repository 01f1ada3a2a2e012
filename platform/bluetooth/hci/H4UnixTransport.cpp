#include <algorithm>
#include <cerrno>
#include <utility>

#include <sys/socket.h>
#include <sys/un.h>

#include "platform/bluetooth/hci/DescriptorTransport.h"
#include "platform/bluetooth/hci/H4Transports.h"

namespace platform::hci {
namespace {

Result<DescriptorTransport::Line> openUnix(const H4UnixAddress& address) {
  sockaddr_un name{};
  name.sun_family = AF_UNIX;
  if (address.path.size() >= sizeof name.sun_path) return errorOf(ENAMETOOLONG, address.path);
  std::copy(address.path.begin(), address.path.end(), std::begin(name.sun_path));
  FileDescriptor descriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (!descriptor) return errorOf(errno, address.path);
  if (::connect(descriptor.get(), reinterpret_cast<const sockaddr*>(&name), sizeof name) != 0) {
    return errorOf(errno, address.path);
  }
  return DescriptorTransport::Line{std::move(descriptor), {address.path, false}, false, {}};
}

}  // namespace

std::unique_ptr<HCITransport> makeH4UnixTransport(const H4UnixAddress& address) {
  return std::make_unique<DescriptorTransport>([address] { return openUnix(address); });
}

}  // namespace platform::hci
