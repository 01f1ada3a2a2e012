#pragma once

#include <csignal>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <sdbus-c++/sdbus-c++.h>
#include <sys/types.h>

namespace support {

using Properties = std::map<std::string, sdbus::Variant>;

/// A message bus of the test's own, in a folder of its own.
class PrivateBus {
 public:
  PrivateBus();
  ~PrivateBus();
  PrivateBus(const PrivateBus&) = delete;
  PrivateBus& operator=(const PrivateBus&) = delete;

  static bool isAvailable();
  const std::string& address() const { return address_; }
  /// `policy` goes into the bus's configuration. Returns when the bus can be reached.
  void start(const std::string& policy = {});
  void stop();
  /// From here on the bus takes no message and no connection further, but keeps them.
  void stall() const { ::kill(pid_, SIGSTOP); }
  void goOn() const { ::kill(pid_, SIGCONT); }

 private:
  std::string folder_;
  std::string address_;
  pid_t pid_ = -1;
};

/// bluetoothd as far as hearing goes: adapters, their discovery, and devices that change.
class FakeBlueZ {
 public:
  struct Adapter {
    std::string name = "hci0";
    std::string address = "00:AA:01:00:00:42";
    bool powered = true;
    std::string powerState = "on";
  };

  explicit FakeBlueZ(const std::string& busAddress);
  ~FakeBlueZ();
  FakeBlueZ(const FakeBlueZ&) = delete;
  FakeBlueZ& operator=(const FakeBlueZ&) = delete;

  /// Before the name is taken: adapters and devices that a client finds.
  void addAdapter(const Adapter& adapter);
  void addKnownDevice(const std::string& path, const Properties& properties);
  /// Takes the name org.bluez.
  void start();

  void removeAdapter(const std::string& name);
  void setPowered(const std::string& name, bool powered, const std::string& powerState);
  void endDiscovery(const std::string& name);
  /// Errors that the next calls of StartDiscovery give, in order.
  void failStarts(std::deque<std::string> errors);

  /// InterfacesAdded of a device that is new.
  void deviceAppears(const std::string& path, const Properties& properties);
  /// PropertiesChanged of a device.
  void deviceChanges(const std::string& path, const Properties& changed);

  /// "hci0.StartDiscovery", … in order; the filter as "Transport=le DuplicateData=1 UUIDs=…".
  std::vector<std::string> calls() const;
  std::size_t count(const std::string& call) const;

 private:
  struct LiveAdapter {
    Adapter adapter;
    bool isDiscovering = false;
    std::unique_ptr<sdbus::IObject> object;
  };

  void record(const std::string& call);
  void startDiscovery(LiveAdapter& live);

  mutable std::mutex mutex_;
  std::vector<std::string> calls_;
  std::deque<std::string> startErrors_;
  std::unique_ptr<sdbus::IConnection> connection_;
  std::unique_ptr<sdbus::IObject> root_;
  std::map<std::string, LiveAdapter> adapters_;
  std::vector<std::unique_ptr<sdbus::IObject>> devices_;
  std::thread thread_;
};

/// ManufacturerData and ServiceData of Device1 as the daemon shows them.
template <class Key>
sdbus::Variant octetsByKey(const std::map<Key, std::vector<uint8_t>>& values) {
  std::map<Key, sdbus::Variant> variants;
  for (const auto& [key, octets] : values) variants.emplace(key, sdbus::Variant(octets));
  return sdbus::Variant(variants);
}

}  // namespace support
