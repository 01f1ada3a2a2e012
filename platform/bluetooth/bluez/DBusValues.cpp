#include "platform/bluetooth/bluez/DBusValues.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string_view>

#include <unistd.h>

namespace platform::bluez {
namespace {

template <class T>
std::optional<T> valueOf(const PropertyMap& properties, const char* name) {
  const auto found = properties.find(name);
  if (found == properties.end() || !found->second.containsValueOfType<T>()) return std::nullopt;
  return found->second.get<T>();
}

Data dataFrom(const std::vector<uint8_t>& octets) {
  Data data(octets.size());
  if (!octets.empty()) std::memcpy(data.data(), octets.data(), octets.size());
  return data;
}

template <class Key>
std::optional<std::map<Key, Data>> octetsByKey(const PropertyMap& properties, const char* name) {
  const auto variants = valueOf<std::map<Key, sdbus::Variant>>(properties, name);
  if (!variants) return std::nullopt;
  std::map<Key, Data> result;
  for (const auto& [key, variant] : *variants) {
    if (variant.template containsValueOfType<std::vector<uint8_t>>())
      result.emplace(key, dataFrom(variant.template get<std::vector<uint8_t>>()));
  }
  return result;
}

Error::Kind kindOf(std::string_view name) {
  if (name == "org.freedesktop.DBus.Error.AccessDenied" || name == "org.bluez.Error.NotAuthorized" ||
      name == "org.bluez.Error.NotPermitted")
    return Error::Kind::notPermitted;
  if (name == "org.freedesktop.DBus.Error.ServiceUnknown" ||
      name == "org.freedesktop.DBus.Error.NameHasNoOwner" ||
      name.starts_with("org.freedesktop.DBus.Error.Spawn"))
    return Error::Kind::absent;
  return name == "org.bluez.Error.InProgress" ? Error::Kind::busy : Error::Kind::failed;
}

}  // namespace

AdapterProperties adapterProperties(const PropertyMap& properties) {
  return {.address = valueOf<std::string>(properties, "Address"),
          .powerState = valueOf<std::string>(properties, "PowerState"),
          .powered = valueOf<bool>(properties, "Powered"),
          .discovering = valueOf<bool>(properties, "Discovering")};
}

DeviceProperties deviceProperties(const PropertyMap& properties) {
  return {.address = valueOf<std::string>(properties, "Address"),
          .addressType = valueOf<std::string>(properties, "AddressType"),
          .name = valueOf<std::string>(properties, "Name"),
          .rssi = valueOf<int16_t>(properties, "RSSI"),
          .txPower = valueOf<int16_t>(properties, "TxPower"),
          .uuids = valueOf<std::vector<std::string>>(properties, "UUIDs"),
          .manufacturerData = octetsByKey<uint16_t>(properties, "ManufacturerData"),
          .serviceData = octetsByKey<std::string>(properties, "ServiceData")};
}

Object objectFrom(const std::string& path, const InterfaceMap& interfaces) {
  Object object{.path = path, .adapter = {}, .device = {}};
  if (const auto found = interfaces.find(kAdapterInterface); found != interfaces.end())
    object.adapter = adapterProperties(found->second);
  if (const auto found = interfaces.find(kDeviceInterface); found != interfaces.end())
    object.device = deviceProperties(found->second);
  return object;
}

Error errorFrom(const sdbus::Error& error) {
  return {kindOf(error.getName()), error.getMessage()};
}

Error connectErrorFrom(const sdbus::Error& error) {
  constexpr std::string_view kHungUp[] = {"System.Error.ENOTCONN", "System.Error.ECONNRESET",
                                          "System.Error.EPIPE", "org.freedesktop.DBus.Error.Disconnected"};
  if (std::ranges::find(kHungUp, error.getName()) == std::end(kHungUp))
    return errorFrom(error).in("the system bus cannot be reached");
  return {Error::Kind::failed,
          "the system bus hung up on user " + std::to_string(::geteuid()) +
              ", as it does when it knows no such user, a DynamicUser= for instance; a service then needs "
              "'User=' with one of the system's"};
}

}  // namespace platform::bluez
