#include "platform/bluetooth/bluez/DBusClients.h"

#include "platform/bluetooth/bluez/DBusValues.h"

namespace platform::bluez {
namespace {

constexpr const char* kObjectManager = "org.freedesktop.DBus.ObjectManager";
constexpr std::chrono::seconds kCallTimeout{15};

using ManagedObjects = std::map<sdbus::ObjectPath, InterfaceMap>;

/// A message that is not as its interface says is passed over: who sent it is not ours to correct.
template <class Read>
Watch watch(DBusConnection& connection, const std::string& rule, Read read) {
  auto slot = connection.bus().addMatch(rule, [read = std::move(read)](sdbus::Message& message) {
    try {
      read(message);
    } catch (const sdbus::Error&) {
      return;
    }
  });
  return std::make_shared<sdbus::Slot>(std::move(slot));
}

std::string signalRule(const std::string& sender, const std::string& interface, const std::string& member) {
  return "type='signal',sender='" + sender + "',interface='" + interface + "',member='" + member + "'";
}

std::optional<Error> optionalError(const sdbus::Error* error) {
  return error == nullptr ? std::nullopt : std::optional(errorFrom(*error));
}

/// A connection that has ended throws instead of answering.
template <class Call, class Fail>
void attempt(const Call& call, const Fail& fail) {
  try {
    call();
  } catch (const sdbus::Error& error) {
    fail(errorFrom(error));
  }
}

ObjectManagerClient::Objects objectsFrom(const ManagedObjects& managed) {
  ObjectManagerClient::Objects objects;
  objects.reserve(managed.size());
  for (const auto& [path, interfaces] : managed) objects.push_back(objectFrom(path, interfaces));
  return objects;
}

}  // namespace

NameOwnerClient::NameOwnerClient(DBusConnection& connection, const std::string& name,
                                 std::function<void(bool)> onOwner)
    : watch_(watch(connection,
                   signalRule("org.freedesktop.DBus", "org.freedesktop.DBus", "NameOwnerChanged") +
                       ",arg0='" + name + "'",
                   [onOwner = std::move(onOwner)](sdbus::Message& message) {
                     std::string changed;
                     std::string oldOwner;
                     std::string newOwner;
                     message >> changed >> oldOwner >> newOwner;
                     onOwner(!newOwner.empty());
                   })) {}

ObjectManagerClient::ObjectManagerClient(DBusConnection& connection, Handlers handlers)
    : proxy_(sdbus::createProxy(connection.bus(), kService, "/")),
      added_(watch(connection, signalRule(kService, kObjectManager, "InterfacesAdded"),
                   [onAdded = std::move(handlers.onAdded)](sdbus::Message& message) {
                     sdbus::ObjectPath path;
                     InterfaceMap interfaces;
                     message >> path >> interfaces;
                     onAdded(objectFrom(path, interfaces));
                   })),
      removed_(watch(connection, signalRule(kService, kObjectManager, "InterfacesRemoved"),
                     [onRemoved = std::move(handlers.onRemoved)](sdbus::Message& message) {
                       sdbus::ObjectPath path;
                       std::vector<std::string> interfaces;
                       message >> path >> interfaces;
                       onRemoved(path, interfaces);
                     })) {}

ObjectManagerClient::~ObjectManagerClient() = default;

void ObjectManagerClient::getManagedObjects(std::function<void(Result<Objects>)> onReply) {
  const auto ask = [&] {
    proxy_->callMethodAsync("GetManagedObjects")
        .onInterface(kObjectManager)
        .withTimeout(kCallTimeout)
        .uponReplyInvoke([onReply](const sdbus::Error* error, const ManagedObjects& managed) {
          if (error != nullptr) return onReply(errorFrom(*error));
          onReply(objectsFrom(managed));
        });
  };
  attempt(ask, onReply);
}

PropertiesClient::PropertiesClient(DBusConnection& connection, std::function<void(Object)> onChanged)
    : watch_(watch(connection,
                   signalRule(kService, "org.freedesktop.DBus.Properties", "PropertiesChanged") +
                       ",path_namespace='/org/bluez'",
                   [onChanged = std::move(onChanged)](sdbus::Message& message) {
                     std::string interface;
                     PropertyMap changed;
                     message >> interface >> changed;
                     onChanged(objectFrom(message.getPath(), {{interface, std::move(changed)}}));
                   })) {}

Adapter1Client::Adapter1Client(DBusConnection& connection, const std::string& path)
    : proxy_(sdbus::createProxy(connection.bus(), kService, path)) {}

Adapter1Client::~Adapter1Client() = default;

void Adapter1Client::setDiscoveryFilter(const std::vector<std::string>& uuids, Reply onReply) {
  PropertyMap filter{{"Transport", sdbus::Variant(std::string("le"))},
                     {"DuplicateData", sdbus::Variant(true)}};
  if (!uuids.empty()) filter.emplace("UUIDs", sdbus::Variant(uuids));
  call("SetDiscoveryFilter", std::move(onReply), filter);
}

void Adapter1Client::startDiscovery(Reply onReply) {
  call("StartDiscovery", std::move(onReply));
}

void Adapter1Client::stopDiscovery(Reply onReply) {
  call("StopDiscovery", std::move(onReply));
}

void Adapter1Client::stopDiscovery(std::chrono::milliseconds timeout) {
  const auto ask = [&] {
    proxy_->callMethod("StopDiscovery").onInterface(kAdapterInterface).withTimeout(timeout);
  };
  attempt(ask, [](const Error&) {});  // the end of the connection tells the daemon, too
}

template <class... Arguments>
void Adapter1Client::call(const std::string& method, Reply onReply, const Arguments&... arguments) {
  const auto ask = [&] {
    proxy_->callMethodAsync(method)
        .onInterface(kAdapterInterface)
        .withTimeout(kCallTimeout)
        .withArguments(arguments...)
        .uponReplyInvoke([onReply](const sdbus::Error* error) { onReply(optionalError(error)); });
  };
  attempt(ask, onReply);
}

Result<ObjectManagerClient::Objects> getManagedObjects(DBusConnection& connection,
                                                       std::chrono::seconds timeout) {
  try {
    ManagedObjects managed;
    sdbus::createProxy(connection.bus(), kService, "/")
        ->callMethod("GetManagedObjects")
        .onInterface(kObjectManager)
        .withTimeout(timeout)
        .storeResultsTo(managed);
    return objectsFrom(managed);
  } catch (const sdbus::Error& failure) {
    return errorFrom(failure);
  }
}

}  // namespace platform::bluez
