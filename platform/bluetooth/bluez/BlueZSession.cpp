#include "platform/bluetooth/bluez/BlueZSession.h"

#include "platform/bluetooth/bluez/DBusValues.h"

namespace platform::bluez {

Result<std::unique_ptr<BlueZSession>> BlueZSession::open(const std::string& busAddress, Handlers handlers) {
  auto connection = DBusConnection::open(busAddress);
  if (!connection) return connection.error();
  try {
    return std::unique_ptr<BlueZSession>(new BlueZSession(*std::move(connection), handlers));
  } catch (const sdbus::Error& error) {
    return connectErrorFrom(error);
  }
}

BlueZSession::BlueZSession(std::unique_ptr<DBusConnection> connection, Handlers& handlers)
    : connection_(std::move(connection)),
      onLost_(std::move(handlers.onLost)),
      nameOwner_(*connection_, kService, std::move(handlers.onDaemon)),
      objects_(*connection_, {std::move(handlers.onAdded), std::move(handlers.onRemoved)}),
      properties_(*connection_, std::move(handlers.onChanged)) {}

BlueZSession::~BlueZSession() {
  connection_->stop();
}

void BlueZSession::run() {
  connection_->run(std::move(onLost_));
}

void BlueZSession::endDiscovery(const std::string& adapterPath, std::chrono::milliseconds timeout) {
  connection_->stop();
  adapter(adapterPath).stopDiscovery(timeout);
}

Adapter1Client& BlueZSession::adapter(const std::string& path) {
  auto& client = adapters_[path];
  if (!client) client = std::make_unique<Adapter1Client>(*connection_, path);
  return *client;
}

}  // namespace platform::bluez
