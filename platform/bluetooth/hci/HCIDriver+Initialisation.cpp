#include <string>

#include "platform/bluetooth/hci/HCIDriverCore.h"

namespace platform::hci {
namespace {

using Answer = HCICommandQueue::Result;

constexpr unsigned kLESupportedByController = 1U << 6U;  // in octet 4 of the features

// The events that are on by default, and LE Meta.
Data eventMask(const HCIFeatures&) {
  return parameters({0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x1F, 0x00, 0x20});
}

// Advertising reports, and the extended ones where there are any: controllers refuse bits that they do not
// know.
Data leEventMask(const HCIFeatures& features) {
  return parameters({0x02, features.hasExtendedScanning() ? 0x10U : 0U, 0, 0, 0, 0, 0, 0});
}

Data noParameters(const HCIFeatures&) {
  return {};
}

void takeNothing(HCIFeatures&, const Answer&) {}

void takeVersion(HCIFeatures& features, const Answer& result) {
  if (result.isGood()) features.version = octetAt(result.returned, 0);
}

void takeCommands(HCIFeatures& features, const Answer& result) {
  if (result.isGood()) features.setCommands(result.returned);
}

void takeFeatures(HCIFeatures& features, const Answer& result) {
  if (result.isGood()) features.hasLE = (octetAt(result.returned, 4) & kLESupportedByController) != 0;
}

void takeLEFeatures(HCIFeatures& features, const Answer& result) {
  if (result.isGood()) features.leFeatures = uint64At(result.returned, 0);
  if (result.status == status::kUnknownCommand) features.hasLE = false;
}

struct Step {
  uint16_t opcode;
  bool whenShared;  ///< also where other programs use the controller
  bool isRequired;  ///< the controller is unusable when it refuses
  bool needsLE;     ///< a controller without LE is not asked
  std::size_t minimumReturned;
  Data (*parameters)(const HCIFeatures&);
  void (*take)(HCIFeatures&, const Answer&);
};

constexpr Step kSteps[] = {
    {opcode::kReset, false, true, false, 0, noParameters, takeNothing},
    {opcode::kReadLocalVersion, true, false, false, 8, noParameters, takeVersion},
    {opcode::kReadLocalSupportedCommands, true, false, false, 64, noParameters, takeCommands},
    {opcode::kReadLocalSupportedFeatures, true, false, false, 8, noParameters, takeFeatures},
    {opcode::kLEReadLocalSupportedFeatures, true, false, true, 8, noParameters, takeLEFeatures},
    {opcode::kSetEventMask, false, false, true, 0, eventMask, takeNothing},
    {opcode::kLESetEventMask, false, false, true, 0, leEventMask, takeNothing},
};

}  // namespace

void HCIDriverCore::initialise() {
  phase_ = Phase::initialising;
  scan_ = Scan::off;
  features_ = {};
  events_.reset();
  foreignOpcode_ = opcode::kNone;
  disarm(scanTimer_);
  commands_.start(!connectionTraits_.isShared);
  initialiseFrom(0);
}

void HCIDriverCore::initialiseFrom(std::size_t step) {
  const auto isNeeded = [this](const Step& candidate) {
    return (candidate.whenShared || !connectionTraits_.isShared) && (features_.hasLE || !candidate.needsLE);
  };
  while (step < std::size(kSteps) && !isNeeded(kSteps[step])) ++step;
  if (step == std::size(kSteps)) return becomeReady();
  const Step& next = kSteps[step];
  commands_.send({next.opcode, next.parameters(features_), next.minimumReturned},
                 [this, step, &next](const Answer& result) {
                   if (!result.isGood() && next.isRequired) {
                     return fail({Error::Kind::failed, "the controller refused " + textOfOpcode(next.opcode) +
                                                           " with " + textOfStatus(result.status)});
                   }
                   next.take(features_, result);
                   initialiseFrom(step + 1);
                 });
}

void HCIDriverCore::becomeReady() {
  phase_ = Phase::ready;
  readySince_ = dispatch().now();
  if (!features_.hasLE) {
    return setState(CBManagerState::unsupported,
                    connectionTraits_.description + " has no Bluetooth Low Energy");
  }
  setState(CBManagerState::poweredOn,
           connectionTraits_.description + ", " + features_.versionText() +
               (features_.hasExtendedScanning() ? ", extended scanning" : ", legacy scanning"));
  reconcileScan();
}

}  // namespace platform::hci
