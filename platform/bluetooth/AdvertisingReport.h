#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/bluetooth/CBManagerState.h"
#include "platform/bluetooth/CBUUID.h"
#include "platform/foundation/Data.h"
#include "platform/foundation/Date.h"
#include "platform/foundation/Export.h"

namespace platform {

/// A device address, most significant octet first, with its type.
struct BRL_EXPORT BluetoothAddress {
  std::array<uint8_t, 6> octets{};
  bool isRandom = false;

  /// "C0:00:00:00:00:01"
  std::string text() const;
  /// Accepts that form in either case; the type is left public.
  static std::optional<BluetoothAddress> fromText(std::string_view text);
  /// From the six octets of a packet, least significant first.
  static BluetoothAddress fromPacket(std::span<const std::byte, 6> octets, bool isRandom);
  /// True for the zero address, which stands for a sender that did not tell its address.
  bool isAnonymous() const { return key() << 16 == 0; }
  /// The address and its type as one number.
  uint64_t key() const {
    const auto octet = [this](std::size_t at) { return uint64_t{octets[at]}; };
    return uint64_t{isRandom} << 48 | octet(0) << 40 | octet(1) << 32 | octet(2) << 24 | octet(3) << 16 |
           octet(4) << 8 | octet(5);
  }
  friend auto operator<=>(const BluetoothAddress&, const BluetoothAddress&) = default;
};

/// The kinds of advertising PDU that a report can stand for. Extended ones can carry more than 31 octets.
enum class AdvertisingKind : uint8_t {
  connectable,     ///< ADV_IND
  directed,        ///< ADV_DIRECT_IND
  scannable,       ///< ADV_SCAN_IND
  nonConnectable,  ///< ADV_NONCONN_IND
  scanResponse,    ///< SCAN_RSP
  extended,        ///< ADV_EXT_IND, neither connectable nor scannable
  extendedConnectable,
  extendedScannable,
  extendedScanResponse,
};

/// One text per kind: the legacy PDUs by their names in Bluetooth Core, Vol 6, Part B, 2.3 ("ADV_IND",
/// "ADV_DIRECT_IND", "ADV_SCAN_IND", "ADV_NONCONN_IND", "SCAN_RSP"), the extended ones as "EXT_ADV",
/// "EXT_ADV_CONN", "EXT_ADV_SCAN" and "EXT_SCAN_RSP", because one PDU type serves them all on the air.
BRL_EXPORT std::string_view textOf(AdvertisingKind kind);
constexpr bool isScanResponse(AdvertisingKind kind) {
  return kind == AdvertisingKind::scanResponse || kind == AdvertisingKind::extendedScanResponse;
}

/// False for a scan response, which does not tell.
constexpr bool isConnectable(AdvertisingKind kind) {
  return kind == AdvertisingKind::connectable || kind == AdvertisingKind::directed ||
         kind == AdvertisingKind::extendedConnectable;
}

/// One advertising report as the radio gave it (Bluetooth Core, Vol 4, Part E, 7.7.65.2 and 7.7.65.13).
struct AdvertisingReport {
  static constexpr int8_t kNoRssi = 127;

  Date time{};                 ///< when it was heard
  BluetoothAddress address{};  ///< the sender
  AdvertisingKind kind = AdvertisingKind::nonConnectable;
  int8_t rssi = kNoRssi;     ///< dBm
  bool isTruncated = false;  ///< the controller said that data is missing
  DataView data{};           ///< AD structures, lent for the call
};

/// Why a radio is in the state that it is in; the text is for people and may be empty.
struct RadioState {
  CBManagerState state = CBManagerState::unknown;
  std::string reason{};
};

/// A radio, or what stands in for one: it reports what it hears, undecoded.
///
/// Threads: operations may be called from any thread. Both handlers are called on the source's own queue, one
/// at a time. They are never called from inside an operation, and never after `close` has returned (unless
/// `close` is called from inside a handler). They do not wait for what they submit to other queues.
class BRL_EXPORT AdvertisingReportSource {
 public:
  using ReportHandler = std::function<void(const AdvertisingReport&)>;
  using StateHandler = std::function<void(const RadioState&)>;

  virtual ~AdvertisingReportSource() = default;

  /// Sets the handlers and powers the source up; the first state follows. Call once.
  virtual void open(ReportHandler onReport, StateHandler onState) = 0;
  /// Starts hearing, with duplicates. `services` lets a source that shares its radio ask for less; reports of
  /// other devices may come all the same. A source that is not powered on remembers this and starts later.
  virtual void startScan(const std::vector<CBUUID>& services) = 0;
  virtual void stopScan() = 0;
  virtual void close() = 0;
};

}  // namespace platform
