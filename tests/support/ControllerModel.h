#pragma once

#include <cstdint>
#include <optional>

#include "platform/foundation/Data.h"

namespace support {

/// The rules of a Bluetooth LE controller, as far as a listening host meets them (Bluetooth Core, Vol 4,
/// Part E): what it supports, scan parameters only without a scan, legacy and extended commands exclusive
/// until a reset, reports only for a scan and an event mask that let them through.
class ControllerModel {
 public:
  struct Traits {
    bool hasLE = true;
    bool hasLegacy = true;
    bool hasExtended = false;
    bool hasCodedPhy = false;
    bool answersSupportedCommands = true;
  };
  struct Scan {
    bool isExtended = false;
    bool hidesDuplicates = false;
    platform::Data parameters;  ///< of the latest command that set them
  };

  explicit ControllerModel(Traits traits) : traits_(traits) { reset(); }

  /// The event, in H4 form, that answers a command packet; it gives `credits`.
  platform::Data answer(platform::DataView command, uint8_t credits = 1);
  /// As after power-up.
  void reset();
  const std::optional<Scan>& scan() const { return scan_; }
  /// Whether the host asked to be told of advertisements of this kind.
  bool isReporting(bool extended) const;

  static platform::Data commandComplete(uint16_t opcode, uint8_t credits, platform::DataView returned);
  /// One whole event with one legacy report: non-connectable, random address C0:00:00:00:xx:xx of `number`.
  static platform::Data legacyReport(uint16_t number, platform::DataView data);
  static platform::Data extendedReport(uint16_t number, platform::DataView data);

 private:
  enum class Family { none, legacy, extended };

  uint8_t execute(uint16_t opcode, platform::DataView parameters, platform::Data& returned);
  uint8_t setParameters(Family family, platform::DataView parameters);
  uint8_t setEnable(Family family, platform::DataView parameters);
  bool claim(Family family);

  Traits traits_;
  Family family_ = Family::none;
  std::optional<Scan> scan_;
  platform::Data scanParameters_;
  bool lets_ = false;          ///< LE Meta events through
  bool letsExtended_ = false;  ///< extended reports through
};

}  // namespace support
