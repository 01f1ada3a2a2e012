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

using Kind = RadioProblem::Kind;
using Daemon = BlueZInventory::Daemon;

constexpr std::string_view kBlueZ = "bluez";

RadioSourceResult failed(Kind kind, std::string text) {
  return {nullptr, RadioProblem{kind, std::move(text)}};
}

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
  return {makeScanWatchdog(
              {.makeSource = std::move(makeSource), .dispatch = options.dispatch, .queue = options.queue}),
          std::nullopt};
}

RadioSourceResult makeBlueZ(const RadioSourceOptions& options) {
  std::string_view selector = std::string_view(options.address).substr(kBlueZ.size());
  std::string adapter;
  if (!selector.empty()) {
    selector.remove_prefix(1);
    const auto named = bluezAdapterFrom(selector);
    if (!named)
      return failed(Kind::usage,
                    "no adapter in '" + options.address + "': bluez, bluez:hciN or bluez:ADDRESS");
    adapter = *named;
  }
  const auto inventory = options.probe.listBlueZ();
  if (inventory.daemon == Daemon::notPermitted)
    return failed(Kind::notPermitted, bluezRefusal(inventory.problem));
  if (inventory.daemon != Daemon::present)
    return failed(Kind::noRadio, "looked for bluetoothd on the system bus: " + inventory.problem);
  const bool isThere = std::ranges::any_of(inventory.adapters, [&](const BlueZAdapter& candidate) {
    return adapter.empty() || candidate.name == adapter || candidate.address == adapter;
  });
  if (!isThere)
    return failed(Kind::noRadio,
                  "looked for " + (adapter.empty() ? "an adapter" : adapter) + " at bluetoothd: not there");
  BlueZOptions bluez{.adapter = adapter,
                     .busAddress = {},
                     .dispatch = options.dispatch,
                     .onDiagnostic = options.onDiagnostic};
  return watched(options, [bluez](const dispatch_queue_t& queue) mutable {
    bluez.queue = queue;
    return makeBlueZSource(bluez);
  });
}

std::optional<RadioProblem> problemOf(const HCIAdapterAddress& address, const RadioProbe& probe) {
  std::string problem;
  const auto adapters = probe.listAdapters(problem);
  const HCIAdapter* found = findHCIAdapter(adapters, address);
  if (found == nullptr) {
    return RadioProblem{Kind::noRadio,
                        "looked for " + textOf(RadioAddress(address)) +
                            " among the kernel's adapters: " + (problem.empty() ? "not there" : problem)};
  }
  const auto permissions = HCIPermissions::ofThisProcess(probe.root);
  const bool takesOver = address.channel == HCIChannel::user ||
                         (address.channel == HCIChannel::automatic && found->isToTakeOver());
  if (permissions.allow(takesOver)) return std::nullopt;
  return RadioProblem{Kind::notPermitted,
                      found->name() + " may not be used: " + permissions.hint(ownExecutable(probe.root))};
}

/// Why there is nothing of this type under a path, though it may not be permitted; `what` names it for
/// people.
std::optional<RadioProblem> lookFor(const std::string& what, const std::string& path, mode_t type) {
  struct stat status {};
  const bool isThere = ::stat(path.c_str(), &status) == 0;
  if (isThere && (status.st_mode & S_IFMT) == type) return std::nullopt;
  std::string why = "that is none";
  if (!isThere)
    why = errno == ENOENT || errno == ENOTDIR ? "not there" : std::generic_category().message(errno);
  return RadioProblem{Kind::noRadio, "looked for the " + what + " " + path + ": " + why};
}

std::optional<RadioProblem> problemOf(const H4SerialAddress& address, const RadioProbe&) {
  if (auto problem = lookFor("serial line", address.device, S_IFCHR)) return problem;
  if (::access(address.device.c_str(), R_OK | W_OK) == 0) return std::nullopt;
  return RadioProblem{
      Kind::notPermitted,
      address.device + " may not be opened: 'usermod -aG dialout USER' permits it from the next login on"};
}

std::optional<RadioProblem> problemOf(const H4UnixAddress& address, const RadioProbe&) {
  if (auto problem = lookFor("socket", address.path, S_IFSOCK)) return problem;
  if (::access(address.path.c_str(), W_OK) == 0) return std::nullopt;
  return RadioProblem{Kind::notPermitted,
                      address.path + " may not be opened: its owner can permit it with chmod"};
}

RadioSourceResult makeHCI(const RadioSourceOptions& options) {
  std::string problem;
  const auto address = parseRadioAddress(options.address == "hci" ? "hci:0" : options.address, problem);
  if (!address) return failed(Kind::usage, problem);
  if (auto found = std::visit([&](const auto& known) { return problemOf(known, options.probe); }, *address))
    return failed(found->kind, std::move(found->text));
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
    return failed(choice.isForbidden ? Kind::notPermitted : Kind::noRadio, choice.why);
  if (options.onDiagnostic) options.onDiagnostic(choice.why);
  options.address = choice.address;
  return makeRadioSource(options);
}

}  // namespace

bool isRadioAddress(std::string_view address) {
  const auto scheme = address.substr(0, address.find(':'));
  return address == "auto" || scheme == "bluez" || scheme == "hci" || (scheme == "h4" && scheme != address);
}

RadioSourceResult makeRadioSource(const RadioSourceOptions& options) {
  if (!isRadioAddress(options.address)) {
    return failed(Kind::usage,
                  "'" + options.address +
                      "' names no radio: auto, bluez[:hciN|:ADDRESS], hci[:N|:ADDRESS][?user|?raw], "
                      "h4:DEVICE[,BAUD] or h4:unix:PATH");
  }
  if (options.address == "auto") return makeChosen(options);
  return options.address.starts_with(kBlueZ) ? makeBlueZ(options) : makeHCI(options);
}

}  // namespace platform
