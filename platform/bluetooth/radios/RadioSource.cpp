#include "platform/bluetooth/radios/RadioSource.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <system_error>
#include <utility>

#include <sys/stat.h>
#include <unistd.h>

#include "platform/bluetooth/hci/HCISource.h"
#include "platform/bluetooth/radios/ScanWatchdog.h"

namespace platform {
namespace {

using Kind = Error::Kind;
using Daemon = BlueZInventory::Daemon;

constexpr std::string_view kBlueZ = "bluez";

bool isNumber(std::string_view text) {
  unsigned value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return error == std::errc() && end == text.data() + text.size();
}

/// "hci1", "1" and addresses become what `BlueZOptions::adapter` takes; nothing when the text is none.
std::optional<std::string> bluezAdapterFrom(std::string_view text) {
  if (const auto address = BluetoothAddress::fromText(text)) return address->text();
  if (text.starts_with("hci")) text.remove_prefix(3);
  return isNumber(text) ? std::optional("hci" + std::string(text)) : std::nullopt;
}

/// A radio that is restarted when it falls silent.
RadioSourceResult watched(const RadioSourceOptions& options,
                          decltype(ScanWatchdogOptions::makeSource) makeSource) {
  return makeScanWatchdog(
      {.makeSource = std::move(makeSource), .dispatch = options.dispatch, .queue = options.queue});
}

/// Of `bluez[:ADAPTER]`; "" where it names none.
Result<std::string> bluezAdapterOf(const std::string& address) {
  std::string_view selector = std::string_view(address).substr(kBlueZ.size());
  if (selector.empty()) return std::string();
  selector.remove_prefix(1);
  auto named = bluezAdapterFrom(selector);
  if (!named)
    return Error{Kind::unsupported, "no adapter in '" + address + "': bluez, bluez:hciN or bluez:ADDRESS"};
  return *std::move(named);
}

/// Of `hci[:…]` and `h4:…`.
Result<RadioAddress> radioAddressOf(const std::string& address) {
  return parseRadioAddress(address == "hci" ? "hci:0" : address);
}

RadioSourceResult makeBlueZ(const RadioSourceOptions& options) {
  const auto named = bluezAdapterOf(options.address);
  if (!named) return named.error();
  const std::string& adapter = *named;
  const auto inventory = options.probe.listBlueZ();
  if (inventory.daemon == Daemon::notPermitted)
    return Error{Kind::notPermitted, bluezRefusal(inventory.problem)};
  if (inventory.daemon != Daemon::present)
    return Error{Kind::absent, "looked for bluetoothd on the system bus: " + inventory.problem};
  const bool isThere = std::ranges::any_of(inventory.adapters, [&](const BlueZAdapter& candidate) {
    return adapter.empty() || candidate.name == adapter || candidate.address == adapter;
  });
  if (!isThere)
    return Error{Kind::absent,
                 "looked for " + (adapter.empty() ? "an adapter" : adapter) + " at bluetoothd: not there"};
  BlueZOptions bluez{.adapter = adapter,
                     .busAddress = {},
                     .dispatch = options.dispatch,
                     .onDiagnostic = options.onDiagnostic};
  return watched(options, [bluez](const dispatch_queue_t& queue) mutable {
    bluez.queue = queue;
    return makeBlueZSource(bluez);
  });
}

std::optional<Error> errorOf(const HCIAdapterAddress& address, const RadioProbe& probe) {
  const auto adapters = probe.listAdapters();
  const HCIAdapter* found = adapters ? findHCIAdapter(*adapters, address) : nullptr;
  if (found == nullptr) {
    return Error{Kind::absent,
                 "looked for " + textOf(RadioAddress(address)) +
                     " among the kernel's adapters: " + (adapters ? "not there" : adapters.error().text)};
  }
  const auto permissions = HCIPermissions::ofThisProcess(probe.root);
  const bool takesOver = address.channel == HCIChannel::user ||
                         (address.channel == HCIChannel::automatic && found->isToTakeOver());
  if (permissions.allow(takesOver)) return std::nullopt;
  return Error{Kind::notPermitted,
               found->name() + " may not be used: " + permissions.hint(ownExecutable(probe.root))};
}

/// Why there is nothing of this type under a path, though it may not be permitted; `what` names it for
/// people.
std::optional<Error> lookFor(const std::string& what, const std::string& path, mode_t type) {
  struct stat status {};
  const bool isThere = ::stat(path.c_str(), &status) == 0;
  if (isThere && (status.st_mode & S_IFMT) == type) return std::nullopt;
  std::string why = "that is none";
  if (!isThere)
    why = errno == ENOENT || errno == ENOTDIR ? "not there" : std::generic_category().message(errno);
  return Error{Kind::absent, "looked for the " + what + " " + path + ": " + why};
}

std::optional<Error> errorOf(const H4SerialAddress& address, const RadioProbe&) {
  if (auto error = lookFor("serial line", address.device, S_IFCHR)) return error;
  if (::access(address.device.c_str(), R_OK | W_OK) == 0) return std::nullopt;
  return Error{
      Kind::notPermitted,
      address.device + " may not be opened: 'usermod -aG dialout USER' permits it from the next login on"};
}

std::optional<Error> errorOf(const H4UnixAddress& address, const RadioProbe&) {
  if (auto error = lookFor("socket", address.path, S_IFSOCK)) return error;
  if (::access(address.path.c_str(), W_OK) == 0) return std::nullopt;
  return Error{Kind::notPermitted, address.path + " may not be opened: its owner can permit it with chmod"};
}

RadioSourceResult makeHCI(const RadioSourceOptions& options) {
  const auto address = radioAddressOf(options.address);
  if (!address) return address.error();
  if (auto found = std::visit([&](const auto& known) { return errorOf(known, options.probe); }, *address))
    return *std::move(found);
  HCISourceOptions hci{
      .address = *address, .dispatch = options.dispatch, .onDiagnostic = options.onDiagnostic};
  return watched(options, [hci](const dispatch_queue_t& queue) mutable {
    hci.queue = queue;
    return makeHCISource(hci);
  });
}

RadioSourceResult makeChosen(RadioSourceOptions options) {
  const auto inventory = RadioInventory::take(options.probe);
  const auto choice = chooseRadio(inventory);
  if (choice.address.empty())
    return Error{choice.isForbidden ? Kind::notPermitted : Kind::absent, choice.why};
  if (options.onDiagnostic) options.onDiagnostic(choice.why);
  options.address = choice.address;
  return makeRadioSource(options);
}

}  // namespace

bool isRadioAddress(std::string_view address) {
  const auto scheme = address.substr(0, address.find(':'));
  return address == "auto" || scheme == "bluez" || scheme == "hci" || (scheme == "h4" && scheme != address);
}

std::optional<Error> radioAddressProblem(const std::string& address) {
  if (!isRadioAddress(address))
    return Error{Kind::unsupported,
                 "'" + address +
                     "' names no radio: auto, bluez[:hciN|:ADDRESS], hci[:N|:ADDRESS][?user|?raw], "
                     "h4:DEVICE[,BAUD] or h4:unix:PATH"};
  const auto errorIn = [](const auto& read) { return read ? std::nullopt : std::optional(read.error()); };
  if (address == "auto") return std::nullopt;
  return address.starts_with(kBlueZ) ? errorIn(bluezAdapterOf(address)) : errorIn(radioAddressOf(address));
}

RadioSourceResult makeRadioSource(const RadioSourceOptions& options) {
  if (auto problem = radioAddressProblem(options.address)) return *std::move(problem);
  if (options.address == "auto") return makeChosen(options);
  return options.address.starts_with(kBlueZ) ? makeBlueZ(options) : makeHCI(options);
}

}  // namespace platform
