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
  const auto connection = bluez::DBusConnection::open(busAddress);
  if (!connection) return {Daemon::noBus, connection.error().text, {}};

  const auto objects = bluez::getManagedObjects(**connection, std::chrono::seconds(5));
  if (!objects) {
    const auto& [kind, text] = objects.error();
    if (kind == Error::Kind::notPermitted) return {Daemon::notPermitted, text, {}};
    return {Daemon::absent, kind == Error::Kind::absent ? "bluetoothd is not running" : text, {}};
  }
  bluez::BlueZAdapters adapters;
  for (const auto& object : *objects) {
    if (object.adapter) adapters.update(object.path, *object.adapter);
  }
  return {Daemon::present, {}, adapters.list()};
}

}  // namespace platform
