#include "platform/bluetooth/bluez/BlueZAdapters.h"
#include "platform/bluetooth/bluez/BlueZSource.h"
#include "platform/bluetooth/bluez/DBusClients.h"

namespace platform {

std::string bluezRefusal(const std::string& problem) {
  return "bluetoothd refuses this user: " + problem +
         "; 'usermod -aG bluetooth USER' or a bus policy for org.bluez permits it";
}

BlueZInventory listBlueZAdapters(const std::string& busAddress) {
  using Daemon = BlueZInventory::Daemon;
  bluez::CallError unreachable;
  const auto connection = bluez::DBusConnection::open(busAddress, unreachable);
  if (!connection) return {Daemon::noBus, unreachable.message, {}};

  std::optional<bluez::CallError> error;
  const auto objects = bluez::getManagedObjects(*connection, std::chrono::seconds(5), error);
  if (error) {
    if (error->isAccessDenied()) return {Daemon::notPermitted, error->message, {}};
    return {Daemon::absent, error->isAbsent() ? "bluetoothd is not running" : error->message, {}};
  }
  bluez::BlueZAdapters adapters;
  for (const auto& object : objects) {
    if (object.adapter) adapters.update(object.path, *object.adapter);
  }
  return {Daemon::present, {}, adapters.list()};
}

}  // namespace platform
