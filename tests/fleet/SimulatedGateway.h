#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "gateway/mqtt/Payloads.h"
#include "gateway/mqtt/Session.h"
#include "tests/fleet/FleetClient.h"

namespace brenloft::fleet {

struct GatewayPlan {
  std::string name{};
  std::string store{};  ///< the identifier of its history
  int beacons = 1;
  std::chrono::nanoseconds period{};  ///< of each beacon
  std::chrono::nanoseconds batch{};   ///< a batch of what was heard in so long
  bool hasStates = false;             ///< each reading as a state, too
};

/// Plays one gateway: what its beacons send goes to the broker as a gateway's does, and is sent again until
/// it was taken.
class SimulatedGateway final : Supply {
 public:
  SimulatedGateway(FleetLoop& loop, const FleetClient::Broker& broker, const GatewayPlan& plan,
                   std::function<double()> chance);

  void start(Instant now) { session_.start(now); }
  /// Hears what is due and sends what can be sent.
  void advance(Instant now, platform::Date date);
  /// Nothing more is heard.
  void silence(platform::Date date);
  void keepAlive() { client_.keepAlive(); }

  bool isConnected() const { return session_.state() == Session::State::sending; }
  int64_t heard() const { return lastSeq_; }
  std::size_t waiting() const { return batches_.size(); }
  uint64_t taken() const { return taken_; }

 private:
  struct Batch {
    uint64_t key;
    Message message;
    bool isUnderWay = false;
  };

  void begin(Instant now, uint32_t largestMessage) override;
  std::optional<Outgoing> next(Instant now, std::size_t room) override;
  void settle(Instant now, uint64_t key, Outcome outcome) override;
  std::optional<Instant> due() const override { return std::nullopt; }

  void hear(Instant now, platform::Date date);
  void endBatch(platform::Date date);

  const GatewayPlan plan_;
  Payloads payloads_;
  FleetClient client_;
  Session session_;
  Instant now_{};
  bool isSilent_ = false;
  std::vector<BeaconId> beacons_;
  Instant nextReading_{};
  std::size_t nextBeacon_ = 0;
  Instant nextBatch_{};
  int64_t lastSeq_ = 0;
  std::vector<HistoryRow> rows_;
  std::deque<Batch> batches_;
  std::deque<Message> states_;
  bool isStatusTold_ = false;
  Instant heldUntil_{};
  uint64_t nextKey_ = 1;
  uint64_t taken_ = 0;
};

}  // namespace brenloft::fleet
