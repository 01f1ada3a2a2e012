#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "platform/bluetooth/AdvertisingReport.h"
#include "platform/bluetooth/CBCentralManager.h"
#include "platform/dispatch/Dispatch.h"
#include "platform/foundation/NSUUID.h"

namespace brenloft {

/// The iBeacons of a proximity UUID that have these numbers; an absent one means any.
struct IBeaconChoice {
  platform::NSUUID proximityUUID;
  std::optional<uint16_t> major;
  std::optional<uint16_t> minor;

  friend bool operator==(const IBeaconChoice&, const IBeaconChoice&) = default;
};

/// Which reports a search hears. What is empty, absent or 0 lets everything through.
struct ReportChoice {
  std::vector<platform::CBUUID> services{};      ///< one of them is listed
  std::optional<IBeaconChoice> iBeacons{};       ///< of this UUID no others
  std::vector<uint16_t> companies{};             ///< one of them begins the manufacturer data
  std::optional<int8_t> leastRssi{};             ///< dBm; what was not measured is heard
  std::set<std::array<uint8_t, 6>> addresses{};  ///< of the senders, most significant octet first
  uint64_t mostBeacons = 0;                      ///< others than the first so many are not heard
  uint64_t newPerMinute = 0;                     ///< nor more new ones than so many in a minute

  friend bool operator==(const ReportChoice&, const ReportChoice&) = default;
};

/// Keeps from the library what a search does not want, so that a flood of it costs neither memory nor log.
/// A beacon that has a report through `accepts` is a known one from then on: a sensor by its first service
/// UUID and its identifier, so that neither can be many, an iBeacon of the chosen UUID by its numbers.
///
/// Threads: what is made works on the source's queue.
class ReportFilter : public std::enable_shared_from_this<ReportFilter> {
 public:
  using Clock = std::function<platform::dispatch_time_t()>;
  using MessageSink = std::function<void(std::string_view line)>;

  /// `onMessage` takes a line when a limit is met for the first time.
  ReportFilter(ReportChoice choice, Clock now, MessageSink onMessage)
      : choice_(std::move(choice)), now_(std::move(now)), onMessage_(std::move(onMessage)) {}

  /// The source as far as a single report tells whether it is wanted: by its sender and its strength.
  std::shared_ptr<platform::AdvertisingReportSource> wrap(
      std::shared_ptr<platform::AdvertisingReportSource> source);

  /// The rest, for a report that is merged with its other half: either may hold what is asked for.
  bool accepts(const platform::CBAdvertisementData& data);

 private:
  class FilteredSource;
  bool isWanted(const platform::AdvertisingReport& report) const;
  bool isWanted(const platform::CBAdvertisementData& data) const;
  std::string identityOf(const platform::CBAdvertisementData& data) const;
  bool hasRoom();
  void warnOnce(bool& hasWarned, const std::string& line) const;

  const ReportChoice choice_;
  const Clock now_;
  const MessageSink onMessage_;
  std::unordered_set<std::string> known_;
  platform::dispatch_time_t minuteBegan_{};
  uint64_t newInMinute_ = 0;
  bool hasWarnedOfMost_ = false;
  bool hasWarnedOfRate_ = false;
};

}  // namespace brenloft
