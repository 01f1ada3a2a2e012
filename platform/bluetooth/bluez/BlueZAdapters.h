#pragma once

#include <filesystem>
#include <map>
#include <string>

#include "platform/bluetooth/AdvertisingReport.h"
#include "platform/bluetooth/bluez/BlueZObjects.h"
#include "platform/bluetooth/bluez/BlueZSource.h"

namespace platform::bluez {

/// The daemon's adapters, and which of them is meant.
class BlueZAdapters {
 public:
  struct Adapter {
    std::string address;
    bool isPowered = false;
    bool isBlocked = false;
    bool isDiscovering = false;
  };

  /// `wanted` and `root` as in `BlueZOptions`.
  explicit BlueZAdapters(std::string wanted = {}, std::filesystem::path root = "/")
      : wanted_(std::move(wanted)), root_(std::move(root)) {}

  void update(const std::string& path, const AdapterProperties& change);
  void remove(const std::string& path) { adapters_.erase(path); }
  void clear() { adapters_.clear(); }

  /// The path of the adapter to use, empty when there is none. Without a wish, stays with `current` while
  /// that is powered.
  std::string choose(const std::string& current) const;
  const Adapter* find(const std::string& path) const;
  /// The state of the adapter at `path` for hearing; an empty path means that there is none.
  RadioState stateOf(const std::string& path) const;
  std::vector<BlueZAdapter> list() const;

  /// "hci0" of "/org/bluez/hci0"
  static std::string nameOf(const std::string& path);

 private:
  /// hci2 before hci10.
  struct ByNumber {
    bool operator()(const std::string& a, const std::string& b) const {
      return a.size() != b.size() ? a.size() < b.size() : a < b;
    }
  };

  std::string wanted_;
  std::filesystem::path root_;
  std::map<std::string, Adapter, ByNumber> adapters_;
};

}  // namespace platform::bluez
