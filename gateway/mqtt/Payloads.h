#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "gateway/Record.h"
#include "gateway/formats/RecordLines.h"
#include "gateway/history/HistoryReader.h"
#include "gateway/mqtt/Message.h"
#include "gateway/mqtt/Topics.h"
#include "platform/foundation/JSONWriter.h"

namespace brenloft {

/// How far the machine's clock can be trusted, so that times of one that was wrong can be repaired.
struct ClockState {
  bool isSynchronised = false;
  std::chrono::milliseconds error{};  ///< at the most, where it is synchronised
  std::string boot{};                 ///< names the time since the machine was started
  std::chrono::milliseconds sinceBoot{};
};

/// Readings of the history that were never sent: for want of room, or because they were deleted before.
struct Gap {
  int64_t first = 0;  ///< the numbers around them
  int64_t last = 0;
  uint64_t count = 0;
};

/// What people want to know of the gateway itself.
struct GatewayInfo {
  std::string version{};
  std::string source{};  ///< "" where another process hears
  std::string radio{};   ///< its state; "" before it is known
  std::string store{};
  uint64_t backlog = 0;   ///< rows of the history that wait for the broker
  uint64_t rejected = 0;  ///< messages that the broker will never take
  uint64_t dropped = 0;   ///< readings that gave way to newer ones
};

/// The messages of a gateway. Numbers are numbers, what is absent is null, and `v` is the version of the
/// form.
///
/// Threads: one at a time.
class Payloads {
 public:
  static constexpr int kVersion = 1;

  Payloads(Topics topics, Labels labels);

  const Topics& topics() const { return topics_; }

  Message status(bool isOnline) const;
  Message info(const GatewayInfo& info, const ClockState& clock, platform::Date now);
  /// The newest reading of a beacon.
  Message state(const Reading& reading, int64_t seq, std::chrono::seconds expiry);
  Message presence(const BeaconId& beacon, bool isHome) const;
  /// The alarms of a beacon that are raised, by name.
  Message alarms(const BeaconId& beacon, const std::set<std::string>& raised);

  struct Origin {
    std::string_view store;
    bool isHistorical = false;  ///< it waited for the broker
  };
  Message event(const Origin& origin, const HistoryRow& row);
  /// Rows in their order, behind the gap before them.
  Message batch(const Origin& origin, const std::vector<HistoryRow>& rows, const std::optional<Gap>& gap,
                const ClockState& clock, platform::Date now);

 private:
  void begin();
  void writeOrigin(const Origin& origin);
  void writeClock(const ClockState& clock);
  /// The members of a row as every output has them, without the braces around them.
  std::string_view membersOf(const HistoryRow& row);
  std::string end();

  const Topics topics_;
  const Labels labels_;
  RecordLines lines_;
  std::string line_;
  platform::JSONWriter json_;
};

}  // namespace brenloft
