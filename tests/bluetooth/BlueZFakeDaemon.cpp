#include "tests/bluetooth/BlueZFakeDaemon.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include <fcntl.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

// sdbus-c++ 1.2 leaks the bus object when a bus that is named by its address cannot be reached; the system
// bus, which programs use, is opened by sd-bus itself and does not.
// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp,readability-identifier-naming)
extern "C" const char* __lsan_default_suppressions() {
  return "leak:libsystemd.so";
}

// The library is not instrumented: how it hands memory from thread to thread is not seen.
// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp,readability-identifier-naming)
extern "C" const char* __tsan_default_suppressions() {
  return "race:sdbus::internal::Proxy::\nrace:sdbus::createPlainMessage";
}

namespace support {
namespace {

constexpr const char* kDaemon = "/usr/bin/dbus-daemon";
constexpr const char* kAdapter = "org.bluez.Adapter1";
constexpr const char* kDevice = "org.bluez.Device1";

std::string filterText(const Properties& filter) {
  std::string text = "Transport=" + filter.at("Transport").get<std::string>() +
                     " DuplicateData=" + std::to_string(filter.at("DuplicateData").get<bool>());
  if (!filter.contains("UUIDs")) return text;
  text += " UUIDs=";
  for (const auto& uuid : filter.at("UUIDs").get<std::vector<std::string>>()) text += uuid;
  return text;
}

/// Somebody listens; the file is there earlier.
bool isReachable(const std::string& path) {
  sockaddr_un name{.sun_family = AF_UNIX, .sun_path = {}};
  path.copy(name.sun_path, sizeof name.sun_path - 1);
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const bool isOpen = ::connect(fd, reinterpret_cast<const sockaddr*>(&name), sizeof name) == 0;
  ::close(fd);
  return isOpen;
}

}  // namespace

PrivateBus::PrivateBus() {
  std::string pattern = std::filesystem::temp_directory_path() / "brenloft-bus-XXXXXX";
  folder_ = ::mkdtemp(pattern.data());
  address_ = "unix:path=" + folder_ + "/bus";
}

PrivateBus::~PrivateBus() {
  stop();
  std::filesystem::remove_all(folder_);
}

bool PrivateBus::isAvailable() {
  return ::access(kDaemon, X_OK) == 0;
}

void PrivateBus::start(const std::string& policy) {
  const std::string config = folder_ + "/bus.conf";
  std::ofstream(config) << "<busconfig><type>session</type><listen>" << address_
                        << "</listen><auth>EXTERNAL</auth><policy context='default'>"
                           "<allow send_destination='*' eavesdrop='true'/><allow receive_sender='*'/>"
                           "<allow own='*'/>"
                        << policy << "</policy></busconfig>";
  std::string program = kDaemon;
  std::string option = "--config-file=" + config;
  char* const arguments[] = {program.data(), option.data(), nullptr};
  posix_spawn_file_actions_t quiet;
  ::posix_spawn_file_actions_init(&quiet);
  ::posix_spawn_file_actions_addopen(&quiet, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  const int error = ::posix_spawn(&pid_, kDaemon, &quiet, nullptr, arguments, environ);
  ::posix_spawn_file_actions_destroy(&quiet);
  if (error != 0) throw std::runtime_error("dbus-daemon does not start");
  while (!isReachable(folder_ + "/bus")) ::usleep(1000);
}

void PrivateBus::stop() {
  if (pid_ < 0) return;
  ::kill(pid_, SIGTERM);
  goOn();
  ::waitpid(pid_, nullptr, 0);
  pid_ = -1;
  std::filesystem::remove(folder_ + "/bus");
}

FakeBlueZ::FakeBlueZ(const std::string& busAddress)
    : connection_(sdbus::createSessionBusConnectionWithAddress(busAddress)),
      root_(sdbus::createObject(*connection_, "/")) {
  root_->addObjectManager();
}

FakeBlueZ::~FakeBlueZ() {
  connection_->leaveEventLoop();
  if (thread_.joinable()) thread_.join();
}

void FakeBlueZ::start() {
  connection_->requestName("org.bluez");
  thread_ = std::thread([this] {
    try {
      connection_->enterEventLoop();
    } catch (const sdbus::Error&) {
      return;  // the bus went away
    }
  });
}

void FakeBlueZ::addAdapter(const Adapter& adapter) {
  auto& live = adapters_[adapter.name];
  live.adapter = adapter;
  live.isDiscovering = false;
  live.object = sdbus::createObject(*connection_, "/org/bluez/" + adapter.name);
  auto& object = *live.object;
  object.registerMethod("SetDiscoveryFilter")
      .onInterface(kAdapter)
      .implementedAs([this, &live](const Properties& filter) {
        record(live.adapter.name + ".SetDiscoveryFilter " + filterText(filter));
      });
  object.registerMethod("StartDiscovery").onInterface(kAdapter).implementedAs([this, &live] {
    startDiscovery(live);
  });
  object.registerMethod("StopDiscovery").onInterface(kAdapter).implementedAs([this, &live] {
    record(live.adapter.name + ".StopDiscovery");
    const std::lock_guard lock(mutex_);
    live.isDiscovering = false;
  });
  const auto property = [&](const std::string& key, auto getter) {
    object.registerProperty(key).onInterface(kAdapter).withGetter([this, getter] {
      const std::lock_guard lock(mutex_);
      return getter();
    });
  };
  property("Address", [&live] { return live.adapter.address; });
  property("Powered", [&live] { return live.adapter.powered; });
  property("PowerState", [&live] { return live.adapter.powerState; });
  property("Discovering", [&live] { return live.isDiscovering; });
  object.finishRegistration();
  object.emitInterfacesAddedSignal();
}

void FakeBlueZ::startDiscovery(LiveAdapter& live) {
  record(live.adapter.name + ".StartDiscovery");
  {
    const std::lock_guard lock(mutex_);
    if (!startErrors_.empty()) {
      const std::string error = startErrors_.front();
      startErrors_.pop_front();
      throw sdbus::Error(error, "not now");
    }
    if (!live.adapter.powered) throw sdbus::Error("org.bluez.Error.NotReady", "Resource Not Ready");
    if (live.isDiscovering) throw sdbus::Error("org.bluez.Error.InProgress", "Operation already in progress");
    live.isDiscovering = true;
  }
  live.object->emitPropertiesChangedSignal(kAdapter, {"Discovering"});
}

void FakeBlueZ::addKnownDevice(const std::string& path, const Properties& properties) {
  auto object = sdbus::createObject(*connection_, path);
  const auto add = [&]<class T>(const std::string& key, const T& value) {
    object->registerProperty(key).onInterface(kDevice).withGetter([value] { return value; });
  };
  for (const auto& [key, value] : properties) {
    if (value.containsValueOfType<std::string>()) add(key, value.get<std::string>());
    if (value.containsValueOfType<int16_t>()) add(key, value.get<int16_t>());
    if (value.containsValueOfType<std::map<uint16_t, sdbus::Variant>>())
      add(key, value.get<std::map<uint16_t, sdbus::Variant>>());
  }
  object->finishRegistration();
  devices_.push_back(std::move(object));
}

void FakeBlueZ::removeAdapter(const std::string& name) {
  auto& live = adapters_.at(name);
  live.object->emitInterfacesRemovedSignal();
  live.object.reset();
}

void FakeBlueZ::setPowered(const std::string& name, bool powered, const std::string& powerState) {
  auto& live = adapters_.at(name);
  {
    const std::lock_guard lock(mutex_);
    live.adapter.powered = powered;
    live.adapter.powerState = powerState;
    if (!powered) live.isDiscovering = false;
  }
  live.object->emitPropertiesChangedSignal(kAdapter, {"Powered", "PowerState", "Discovering"});
}

void FakeBlueZ::endDiscovery(const std::string& name) {
  auto& live = adapters_.at(name);
  {
    const std::lock_guard lock(mutex_);
    live.isDiscovering = false;
  }
  live.object->emitPropertiesChangedSignal(kAdapter, {"Discovering"});
}

void FakeBlueZ::failStarts(std::deque<std::string> errors) {
  const std::lock_guard lock(mutex_);
  startErrors_ = std::move(errors);
}

void FakeBlueZ::deviceAppears(const std::string& path, const Properties& properties) {
  auto signal = root_->createSignal("org.freedesktop.DBus.ObjectManager", "InterfacesAdded");
  signal << sdbus::ObjectPath(path) << std::map<std::string, Properties>{{kDevice, properties}};
  root_->emitSignal(signal);
}

void FakeBlueZ::deviceChanges(const std::string& path, const Properties& changed) {
  const auto object = sdbus::createObject(*connection_, path);
  auto signal = object->createSignal("org.freedesktop.DBus.Properties", "PropertiesChanged");
  signal << std::string(kDevice) << changed << std::vector<std::string>{};
  object->emitSignal(signal);
}

void FakeBlueZ::record(const std::string& call) {
  const std::lock_guard lock(mutex_);
  calls_.push_back(call);
}

std::vector<std::string> FakeBlueZ::calls() const {
  const std::lock_guard lock(mutex_);
  return calls_;
}

std::size_t FakeBlueZ::count(const std::string& call) const {
  const auto all = calls();
  return static_cast<std::size_t>(std::count(all.begin(), all.end(), call));
}

}  // namespace support
