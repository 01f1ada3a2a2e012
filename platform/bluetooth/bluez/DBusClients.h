#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/bluetooth/bluez/BlueZObjects.h"
#include "platform/bluetooth/bluez/DBusConnection.h"

namespace sdbus {
class IProxy;
}  // namespace sdbus

namespace platform::bluez {

// One client per D-Bus interface, nothing but the messages. Make them, and let them watch, before the
// connection runs; destroy them after it has stopped. Calls return at once; replies and signals arrive on the
// connection's thread, a reply that the connection has ended perhaps on the caller's.

/// What a D-Bus match holds on to; released with it.
using Watch = std::shared_ptr<void>;

/// org.freedesktop.DBus, as far as the daemon's name on the bus is concerned.
class NameOwnerClient {
 public:
  /// Says whenever the name's owner changes whether it has one now.
  NameOwnerClient(DBusConnection& connection, const std::string& name, std::function<void(bool)> onOwner);

 private:
  Watch watch_;
};

/// org.freedesktop.DBus.ObjectManager of the daemon.
class ObjectManagerClient {
 public:
  struct Handlers {
    std::function<void(Object)> onAdded;
    std::function<void(std::string path, std::vector<std::string> interfaces)> onRemoved;
  };
  using Objects = std::vector<Object>;

  ObjectManagerClient(DBusConnection& connection, Handlers handlers);
  ~ObjectManagerClient();

  void getManagedObjects(std::function<void(Result<Objects>)> onReply);

 private:
  std::unique_ptr<sdbus::IProxy> proxy_;
  Watch added_;
  Watch removed_;
};

/// org.freedesktop.DBus.Properties of every object of the daemon.
class PropertiesClient {
 public:
  PropertiesClient(DBusConnection& connection, std::function<void(Object)> onChanged);

 private:
  Watch watch_;
};

/// org.bluez.Adapter1 of one adapter.
class Adapter1Client {
 public:
  using Reply = std::function<void(std::optional<Error>)>;

  Adapter1Client(DBusConnection& connection, const std::string& path);
  ~Adapter1Client();

  /// LE only, with duplicates; `uuids` in the daemon's 36-character form.
  void setDiscoveryFilter(const std::vector<std::string>& uuids, Reply onReply);
  void startDiscovery(Reply onReply);
  void stopDiscovery(Reply onReply);
  /// For a connection that nobody runs: returns with the answer, whatever it is, or after `timeout`.
  void stopDiscovery(std::chrono::milliseconds timeout);

 private:
  template <class... Arguments>
  void call(const std::string& method, Reply onReply, const Arguments&... arguments);

  std::unique_ptr<sdbus::IProxy> proxy_;
};

/// The same question with the answer as return value, for a connection that nobody runs.
Result<ObjectManagerClient::Objects> getManagedObjects(DBusConnection& connection,
                                                       std::chrono::seconds timeout);

}  // namespace platform::bluez
