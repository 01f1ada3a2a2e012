#include "platform/bluetooth/hci/HCISource.h"

#include <utility>

#include "platform/bluetooth/hci/H4Transports.h"
#include "platform/bluetooth/hci/HCISocketTransport.h"

namespace platform {
namespace {

std::unique_ptr<HCITransport> makeTransport(const H4SerialAddress& address) {
  return hci::makeH4SerialTransport(address);
}

std::unique_ptr<HCITransport> makeTransport(const H4UnixAddress& address) {
  return hci::makeH4UnixTransport(address);
}

std::unique_ptr<HCITransport> makeTransport(const HCIAdapterAddress& address) {
  return hci::makeHCISocketTransport(address);
}

}  // namespace

std::shared_ptr<HCIDriver> makeHCISource(HCISourceOptions options) {
  const auto make = [address = std::move(options.address)] {
    return std::visit([](const auto& kind) { return makeTransport(kind); }, address);
  };
  return HCIDriver::make({std::move(options.dispatch), make, std::move(options.onDiagnostic)});
}

}  // namespace platform
