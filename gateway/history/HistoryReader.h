#pragma once

#include <cstdint>
#include <filesystem>
#include <limits>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "gateway/KeptState.h"
#include "gateway/Record.h"
#include "platform/foundation/Error.h"

namespace brenloft {

/// A record and its number. Numbers grow in the order of writing and have no holes but what was deleted.
struct HistoryRow {
  int64_t seq = 0;
  Record record;
};

/// From `since` on and before `until`.
struct HistorySpan {
  platform::Date since = platform::Date::min();
  platform::Date until = platform::Date::max();

  bool contains(platform::Date date) const { return since <= date && date < until; }
};

struct HistoryFilter {
  std::vector<BeaconId> beacons{};  ///< none: all, and the gateway's own events
  bool hasGateway = false;          ///< of `beacons`, also none, and the gateway's own events
  HistorySpan span{};
  bool hasReadings = true;
  bool hasEvents = true;
};

struct HistoryPage {
  std::vector<HistoryRow> rows{};
  int64_t through = 0;  ///< where the next page begins: after this number
  bool isLast = false;  ///< nothing came after it at that moment
};

enum class Quantity : uint8_t {
  rssi,
  temperature,
  humidity,
  battery,
  emergency,
  txPower,
  xAccel,
  yAccel,
  zAccel,
};

/// What a quantity did in a while, as it is shown. None has a count of 0.
struct HistoryPoint {
  platform::Date start;
  uint64_t count = 0;
  int32_t minimum = 0;
  int32_t maximum = 0;
  double mean = 0;
};

/// What a beacon left in the history.
struct HistoryBeacon {
  BeaconId beacon;
  std::optional<HistoryRow> latest{};  ///< its newest reading; none where no reading is left
};

/// Reads the history beside whoever writes it, in short reads: no snapshot outlives a call. It also reads
/// where it may not write. It never makes a history.
///
/// Every call may fail, because the file may be lost or damaged at any time. Threads: one at a time.
class HistoryReader {
 public:
  /// `absent` where there is none.
  static platform::Result<std::unique_ptr<HistoryReader>> open(const std::filesystem::path& file);
  /// Whether a process writes the history now; nothing where that cannot be told. Takes no part in it.
  static std::optional<bool> isWritten(const std::filesystem::path& file);
  ~HistoryReader();
  HistoryReader(const HistoryReader&) = delete;
  HistoryReader& operator=(const HistoryReader&) = delete;

  /// The store's own identifier, a UUID: with a row's number it names a record in every copy for ever.
  platform::Result<std::string> storeId();
  /// The newest row's number, also when it was deleted; 0 in a new history.
  platform::Result<int64_t> lastSeq();
  /// How many rows there are.
  platform::Result<uint64_t> count();
  /// From the earliest time of a row to behind the latest; empty without rows.
  platform::Result<HistorySpan> extent();
  /// What a process that goes on for long keeps of beacons at the most: a flood of new identifiers leaves
  /// millions.
  static constexpr std::size_t kMostBeacons = 10'000;
  /// Every beacon with a row, by identifier, each with its newest reading. Where they are more than `most`:
  /// those that were heard last, about as many, and `always`.
  platform::Result<std::vector<HistoryBeacon>> latest(
      std::size_t most = std::numeric_limits<std::size_t>::max(), const std::vector<BeaconId>& always = {});
  /// What was in force at an instant: of each of these beacons, or of all, its newest reading at or before
  /// then. By the time of hearing, whatever the order of writing. Those that have none are left out.
  /// Readings before `since` need not be found.
  platform::Result<std::vector<HistoryBeacon>> latestAt(const std::vector<BeaconId>& beacons,
                                                        platform::Date instant,
                                                        platform::Date since = platform::Date::min());
  /// When the newest row before an instant was heard.
  platform::Result<std::optional<platform::Date>> newestBefore(platform::Date instant);
  /// Rows after a number, in order; at most `limit`, and fewer, or none, where it had to look at many others.
  platform::Result<HistoryPage> rows(int64_t after, const HistoryFilter& filter, std::size_t limit);
  /// A quantity of a beacon in pieces of a width, in whole seconds, that begin at its multiples since 1970;
  /// those in which nothing was heard are left out.
  platform::Result<std::vector<HistoryPoint>> pieces(const BeaconId& beacon, Quantity quantity,
                                                     HistorySpan span, std::chrono::seconds width);
  /// The same of several quantities, in their order; the history is looked through once.
  platform::Result<std::vector<std::vector<HistoryPoint>>> pieces(const BeaconId& beacon,
                                                                  std::span<const Quantity> quantities,
                                                                  HistorySpan span,
                                                                  std::chrono::seconds width);
  /// Those of one in so many points at most.
  platform::Result<std::vector<HistoryPoint>> series(const BeaconId& beacon, Quantity quantity,
                                                     HistorySpan span, std::size_t points);
  /// What the newest event of the radio says; nothing where there is none.
  platform::Result<std::optional<std::string>> radioState();
  /// The first event of the radio, in their order, at an instant or later.
  platform::Result<std::optional<HistoryRow>> firstRadioEvent(platform::Date since);
  /// What was kept with events, by owner and subject.
  platform::Result<std::vector<KeptState>> states();

 private:
  class Core;
  explicit HistoryReader(std::unique_ptr<Core> core);

  const std::unique_ptr<Core> core_;
};

}  // namespace brenloft
