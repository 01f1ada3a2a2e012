#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "gateway/history/HistoryReader.h"
#include "gateway/mqtt/Lane.h"
#include "gateway/mqtt/Payloads.h"
#include "gateway/mqtt/Supply.h"
#include "gateway/mqtt/View.h"

namespace brenloft {

/// How far the broker has taken the rows of one history.
struct Cursor {
  std::string store{};  ///< the history's identifier
  int64_t urgent = 0;   ///< emergencies and alarms through this row
  int64_t calm = 0;     ///< the other events
  int64_t batches = 0;  ///< all rows, in batches

  friend bool operator==(const Cursor&, const Cursor&) = default;
};

/// What is sent to the broker, the most important first: emergencies and alarms, what is so now, other
/// events, announcements, and all rows of the history in batches. Events and rows are sent until the broker
/// has taken them, in the history's order each; what is so now is sent as it is by then.
///
/// Rows that waited for the broker are sent at a limited rate. Of a backlog that is too long the oldest
/// readings are left out; a `gap` in the next batch counts them, and what was deleted before it was sent.
///
/// Threads: as the session.
class Outbox final : public Supply {
 public:
  /// The history's rows. What cannot be read counts as not there yet.
  class Rows {
   public:
    Rows() = default;
    Rows(const Rows&) = delete;
    Rows& operator=(const Rows&) = delete;
    virtual ~Rows() = default;

    virtual HistoryPage rows(int64_t after, bool hasReadings, std::size_t limit) = 0;
    virtual int64_t lastSeq() = 0;
  };

  enum class Batches : uint8_t {
    off,
    on,
    collected,  ///< a batch is sent until somebody has subscribed to it; from MQTT 5 on
  };
  struct Options {
    uint64_t mostPerSecond = 1'000;     ///< rows that waited
    uint64_t mostBacklog = 10'000'000;  ///< rows
    Batches batches = Batches::on;
  };
  struct World {
    std::function<platform::Date()> date;
    std::function<ClockState()> clock;
    std::function<void(const std::string& line)> onLine;  ///< for people, once per change
  };

  static constexpr std::size_t kBatchRows = 100;
  static constexpr std::chrono::seconds kBatchTime{1};
  static constexpr std::size_t kMostBatchesUnderWay = 4;
  static constexpr int kAnnouncementsPerSecond = 10;
  /// After which what the broker forbids, or cannot take yet, is tried again.
  static constexpr std::chrono::seconds kForbiddenPause{60};
  static constexpr std::chrono::seconds kBusyPause{5};
  static constexpr std::chrono::seconds kInfoPeriod{60};

  Outbox(Payloads& payloads, View& view, Rows& rows, const Cursor& cursor, Options options, World world);

  void begin(Instant now, uint32_t largestMessage) override;
  std::optional<Outgoing> next(Instant now, std::size_t room) override;
  void settle(Instant now, uint64_t key, Outcome outcome) override;
  std::optional<Instant> due() const override;

  /// There may be new rows.
  void wake();
  /// Sends these, in their order and not many at once, and none that waits under the same topic.
  void announce(std::vector<Message> announcements);
  void setSource(std::string version, std::string source);

  Cursor cursor() const;
  const GatewayInfo& info() const { return info_; }

 private:
  enum Channel : std::size_t { kGateway, kUrgent, kView, kCalm, kAnnouncements, kBatches, kChannels };
  /// A lane and what was read for it.
  struct Track {
    Lane lane;
    std::deque<HistoryRow> waiting{};
    int64_t looked = 0;  // through which `waiting` was read
    bool isAtEnd = false;
  };
  struct InLane {
    Track* track;
    Lane::Ticket ticket;
  };
  using Origin = std::variant<std::monostate, InLane, View::Key, Message>;
  struct UnderWay {
    Channel channel;
    Origin origin;
  };
  using Found = std::optional<std::pair<Message, Origin>>;

  Found nextOf(Channel channel, Instant now);
  Found nextOfGateway(Instant now);
  Found nextEvent(Track& track, bool isUrgent);
  Found nextView();
  Found nextAnnouncement(Instant now);
  Found nextBatch(Instant now);
  int64_t endOfBatch(std::size_t rows) const;
  Message batchOf(std::size_t rows);
  bool isBatchDue(Instant now) const;
  void refill(Track& track, bool hasReadings);
  void refillEvents(Track& track, bool isUrgent);
  void refillBatches(Instant now);
  void rewind(Track& track);
  bool isKept(Channel channel, Outcome outcome) const;
  void hold(Instant now, Channel channel, Outcome outcome);
  // The rate holds over a second, not from batch to batch.
  Instant historicalDue() const { return historicalPaid_ - std::chrono::seconds(1); }
  bool hasBatches() const { return options_.batches != Batches::off; }
  bool isHistorical(int64_t seq) const { return seq <= backlogEnd_; }

  Payloads& payloads_;
  View& view_;
  Rows& rows_;
  const Options options_;
  const World world_;

  const std::string store_;
  Track urgent_;
  Track calm_;
  Track batches_;
  Instant batchBegun_{};      // when its first row was read
  Instant historicalPaid_{};  // the rate allows what was sent of the backlog until then
  std::size_t batchesUnderWay_ = 0;
  std::deque<Message> announcements_;
  Instant nextAnnouncement_{};
  bool isStatusTold_ = false;
  Instant nextInfo_{};
  std::string toldRadio_;
  GatewayInfo info_;

  std::array<Instant, kChannels> heldUntil_{};
  std::array<Outcome, kChannels> refused_{};  // how, for which it was told; `taken` where it is not
  std::map<uint64_t, UnderWay> underWay_;
  uint64_t nextKey_ = 1;
  uint32_t largestMessage_ = UINT32_MAX;
  int64_t backlogEnd_ = 0;
  bool wasBatch_ = false;
};

}  // namespace brenloft
