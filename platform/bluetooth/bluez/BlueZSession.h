#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/bluetooth/bluez/DBusClients.h"

namespace platform::bluez {

/// One connection to the bus and the clients on it: what the source asks of the daemon and hears from it.
/// Handlers are called on the connection's thread from `run` on until the session is destroyed.
class BlueZSession {
 public:
  struct Handlers {
    std::function<void(bool isThere)> onDaemon;
    std::function<void(Object)> onAdded;
    std::function<void(Object)> onChanged;
    std::function<void(std::string path, std::vector<std::string> interfaces)> onRemoved;
    std::function<void(std::string reason)> onLost;
  };

  /// Fails when the bus cannot be reached. A bus that is there but stalled is waited for,
  /// up to minutes.
  static Result<std::unique_ptr<BlueZSession>> open(const std::string& busAddress, Handlers handlers);
  ~BlueZSession();

  BlueZSession(const BlueZSession&) = delete;
  BlueZSession& operator=(const BlueZSession&) = delete;

  void run();
  /// Ends the connection's thread, then waits until the daemon has answered that an adapter's discovery is
  /// over, or for `timeout`.
  void endDiscovery(const std::string& adapterPath, std::chrono::milliseconds timeout);

  ObjectManagerClient& objects() { return objects_; }
  Adapter1Client& adapter(const std::string& path);

 private:
  BlueZSession(std::unique_ptr<DBusConnection> connection, Handlers& handlers);

  std::unique_ptr<DBusConnection> connection_;
  std::function<void(std::string reason)> onLost_;
  NameOwnerClient nameOwner_;
  ObjectManagerClient objects_;
  PropertiesClient properties_;
  std::map<std::string, std::unique_ptr<Adapter1Client>> adapters_;
};

}  // namespace platform::bluez
