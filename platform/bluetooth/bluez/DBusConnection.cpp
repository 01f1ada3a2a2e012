#include "platform/bluetooth/bluez/DBusConnection.h"

#include <algorithm>
#include <array>

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include "platform/bluetooth/bluez/DBusValues.h"
#include "platform/dispatch/WakeUpsTogether.h"

namespace platform::bluez {
namespace {

// What another thread's call has read and queued inside the library wakes no poll; this bounds how long it
// waits.
constexpr int kLongestPoll = 200;  // milliseconds

}  // namespace

Result<std::unique_ptr<DBusConnection>> DBusConnection::open(const std::string& busAddress) {
  try {
    auto bus = busAddress.empty() ? sdbus::createSystemBusConnection()
                                  : sdbus::createSessionBusConnectionWithAddress(busAddress);
    return std::unique_ptr<DBusConnection>(new DBusConnection(std::move(bus)));
  } catch (const sdbus::Error& error) {
    return connectErrorFrom(error);
  }
}

DBusConnection::DBusConnection(std::unique_ptr<sdbus::IConnection> bus)
    : bus_(std::move(bus)), stopEvent_(::eventfd(0, EFD_CLOEXEC)) {}

DBusConnection::~DBusConnection() {
  stop();
  endSocket();
  ::close(stopEvent_);
}

/// The library sends what it still holds before it closes, and would wait without limit for a bus that takes
/// nothing.
void DBusConnection::endSocket() {
  try {
    ::shutdown(bus_->getEventLoopPollData().fd, SHUT_RDWR);
  } catch (const sdbus::Error&) {
    return;  // it has ended already
  }
}

void DBusConnection::run(std::function<void(const std::string& reason)> onLost) {
  thread_ = std::thread([this, onLost = std::move(onLost)] { readUntilStopped(onLost); });
}

void DBusConnection::readUntilStopped(const std::function<void(const std::string& reason)>& onLost) {
  std::string reason = "the connection ended";
  try {
    while (!isStopping_) readOnce();
  } catch (const std::exception& error) {
    reason = error.what();
  }
  if (!isStopping_) onLost(reason);
}

void DBusConnection::readOnce() {
  {
    const WakeUpsTogether together;
    while (!isStopping_ && bus_->processPendingRequest()) {
    }
  }
  const auto wanted = bus_->getEventLoopPollData();
  const int due = wanted.getPollTimeout();
  std::array<pollfd, 2> ready{{{wanted.fd, wanted.events, 0}, {stopEvent_, POLLIN, 0}}};
  ::poll(ready.data(), ready.size(), due < 0 ? kLongestPoll : std::min(due, kLongestPoll));
}

void DBusConnection::stop() {
  if (!thread_.joinable()) return;
  isStopping_ = true;
  ::eventfd_write(stopEvent_, 1);
  thread_.join();
}

}  // namespace platform::bluez
