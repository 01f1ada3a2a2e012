#include "platform/bluetooth/hci/HCISource.h"

#include <utility>

#include "platform/bluetooth/hci/H4Transports.h"
#include "platform/bluetooth/hci/HCISocketTransport.h"

namespace platform {
namespace {

using Sharing = std::shared_ptr<std::atomic<bool>>;

std::unique_ptr<HCITransport> makeTransport(const H4SerialAddress& address, const Sharing&) {
  return hci::makeH4SerialTransport(address);
}

std::unique_ptr<HCITransport> makeTransport(const H4UnixAddress& address, const Sharing&) {
  return hci::makeH4UnixTransport(address);
}

std::unique_ptr<HCITransport> makeTransport(const HCIAdapterAddress& address, const Sharing& sharing) {
  return hci::makeHCISocketTransport(address, sharing);
}

}  // namespace

std::shared_ptr<HCIDriver> makeHCISource(HCISourceOptions options) {
  const auto make = [address = std::move(options.address), sharing = std::move(options.sharing)] {
    return std::visit([&](const auto& kind) { return makeTransport(kind, sharing); }, address);
  };
  return HCIDriver::make(
      {std::move(options.dispatch), make, std::move(options.onDiagnostic), std::move(options.queue)});
}

}  // namespace platform
