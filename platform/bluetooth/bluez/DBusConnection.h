#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "platform/bluetooth/bluez/BlueZObjects.h"
#include "platform/foundation/Error.h"

namespace sdbus {
class IConnection;
}  // namespace sdbus

namespace platform::bluez {

/// A connection to a message bus, read by a thread of its own. Handlers of the clients on it are called on
/// that thread; they must hop away and not destroy the connection.
class DBusConnection {
 public:
  /// An empty address means the system bus (as DBUS_SYSTEM_BUS_ADDRESS names it). Fails when the
  /// bus cannot be reached.
  static Result<std::unique_ptr<DBusConnection>> open(const std::string& busAddress);
  ~DBusConnection();

  DBusConnection(const DBusConnection&) = delete;
  DBusConnection& operator=(const DBusConnection&) = delete;

  /// Starts the thread, once the clients have said what they want to hear. `onLost` tells, on the thread,
  /// that the bus ended the connection.
  void run(std::function<void(const std::string& reason)> onLost);
  /// Ends the thread; no handler is called once this has returned.
  void stop();

  sdbus::IConnection& bus() { return *bus_; }

 private:
  explicit DBusConnection(std::unique_ptr<sdbus::IConnection> bus);
  void readUntilStopped(const std::function<void(const std::string& reason)>& onLost);
  void readOnce();
  void endSocket();

  std::unique_ptr<sdbus::IConnection> bus_;
  const int stopEvent_;
  std::atomic<bool> isStopping_ = false;
  std::thread thread_;
};

}  // namespace platform::bluez
