// Preloaded into an emulator that asks the kernel for ciphers (AF_ALG) which it does not need for what the
// tests do, on kernels that have none; and that keeps its server sockets under one fixed name, which two
// tests at a time could not use. Answers `socket` and `bind` accordingly and leaves all else to the kernel.

#include <cstdlib>
#include <cstring>

#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

constexpr char kServerPrefix[] = "/tmp/bt-server-";
constexpr std::size_t kPrefixSize = sizeof kServerPrefix - 1;

/// The same name in the folder that BTVIRT_DIR names.
bool moved(const sockaddr* address, sockaddr_un& to) {
  const char* folder = std::getenv("BTVIRT_DIR");
  if (folder == nullptr || address->sa_family != AF_UNIX) return false;
  std::memcpy(&to, address, sizeof to);
  if (std::strncmp(to.sun_path, kServerPrefix, kPrefixSize) != 0) return false;
  char kind[32] = {};
  std::strncpy(kind, to.sun_path + kPrefixSize, sizeof kind - 1);
  if (std::strlen(folder) + std::strlen(kind) + 2 > sizeof to.sun_path) return false;
  std::strcpy(to.sun_path, folder);
  std::strcat(to.sun_path, "/");
  std::strcat(to.sun_path, kind);
  return true;
}

}  // namespace

extern "C" {

__attribute__((visibility("default"))) int socket(int domain, int type, int protocol) noexcept {
  if (domain == AF_ALG) return static_cast<int>(::syscall(SYS_socket, AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  return static_cast<int>(::syscall(SYS_socket, domain, type, protocol));
}

__attribute__((visibility("default"))) int bind(int descriptor, const sockaddr* address,
                                                socklen_t size) noexcept {
  if (address->sa_family == AF_ALG) return 0;
  sockaddr_un elsewhere{};
  if (moved(address, elsewhere)) address = reinterpret_cast<const sockaddr*>(&elsewhere);
  return static_cast<int>(::syscall(SYS_bind, descriptor, address, size));
}
}
