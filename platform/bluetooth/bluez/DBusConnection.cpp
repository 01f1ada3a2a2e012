#include "platform/bluetooth/bluez/DBusConnection.h"

#include "platform/bluetooth/bluez/DBusValues.h"

namespace platform::bluez {

std::unique_ptr<DBusConnection> DBusConnection::open(const std::string& busAddress, CallError& problem) {
  try {
    auto bus = busAddress.empty() ? sdbus::createSystemBusConnection()
                                  : sdbus::createSessionBusConnectionWithAddress(busAddress);
    return std::unique_ptr<DBusConnection>(new DBusConnection(std::move(bus)));
  } catch (const sdbus::Error& error) {
    problem = callErrorFrom(error);
    return nullptr;
  }
}

DBusConnection::DBusConnection(std::unique_ptr<sdbus::IConnection> bus) : bus_(std::move(bus)) {}

DBusConnection::~DBusConnection() {
  stop();
}

void DBusConnection::run(std::function<void(const std::string& why)> onLost) {
  thread_ = std::thread([this, onLost = std::move(onLost)] { readUntilStopped(onLost); });
}

void DBusConnection::readUntilStopped(const std::function<void(const std::string& why)>& onLost) {
  std::string why = "the connection ended";
  try {
    bus_->enterEventLoop();
  } catch (const std::exception& error) {
    why = error.what();
  }
  if (!isStopping_) onLost(why);
}

void DBusConnection::stop() {
  if (!thread_.joinable()) return;
  isStopping_ = true;
  bus_->leaveEventLoop();
  thread_.join();
}

}  // namespace platform::bluez
