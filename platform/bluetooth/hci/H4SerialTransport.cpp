// <termios.h> knows a fixed list of baud rates only; the kernel's own interface takes any. The two headers
// exclude each other.
#include <cerrno>
#include <utility>

#include <asm/ioctls.h>
#include <asm/termbits.h>
#include <fcntl.h>
#include <sys/ioctl.h>

#include "platform/bluetooth/hci/DescriptorTransport.h"
#include "platform/bluetooth/hci/H4Transports.h"

namespace platform::hci {
namespace {

bool makeRaw(int descriptor, unsigned baud) {
  termios2 settings{};
  if (::ioctl(descriptor, TCGETS2, &settings) != 0) return false;
  settings.c_iflag = IGNBRK;
  settings.c_oflag = 0;
  settings.c_lflag = 0;
  settings.c_cflag = CS8 | CREAD | CLOCAL | CRTSCTS | BOTHER | (BOTHER << IBSHIFT);
  settings.c_ispeed = baud;
  settings.c_ospeed = baud;
  settings.c_cc[VMIN] = 1;
  settings.c_cc[VTIME] = 0;
  return ::ioctl(descriptor, TCSETS2, &settings) == 0;
}

Result<DescriptorTransport::Line> openSerial(const H4SerialAddress& address) {
  FileDescriptor descriptor(::open(address.device.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
  if (!descriptor) return errorOf(errno, address.device);
  // Two readers would each get a part of the octets.
  if (::ioctl(descriptor.get(), TIOCEXCL) != 0 || !makeRaw(descriptor.get(), address.baud)) {
    return errorOf(errno, address.device);
  }
  ::ioctl(descriptor.get(), TCFLSH, TCIOFLUSH);
  return DescriptorTransport::Line{std::move(descriptor), {address.device, false}, false, {}};
}

}  // namespace

std::unique_ptr<HCITransport> makeH4SerialTransport(const H4SerialAddress& address) {
  return std::make_unique<DescriptorTransport>([address] { return openSerial(address); });
}

}  // namespace platform::hci
