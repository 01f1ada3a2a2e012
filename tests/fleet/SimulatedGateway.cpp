#include "tests/fleet/SimulatedGateway.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

namespace brenloft::fleet {
namespace {

constexpr std::chrono::seconds kStateExpiry{60};
constexpr std::size_t kMostStates = 100;
// After which a batch that was not taken is sent again.
constexpr std::chrono::seconds kPause{5};

std::vector<BeaconId> beaconsOf(const GatewayPlan& plan) {
  std::vector<BeaconId> beacons;
  const std::size_t place = std::hash<std::string>()(plan.name);
  for (int i = 0; i < plan.beacons; ++i) {
    std::array<char, 24> text{};
    std::snprintf(text.data(), text.size(), "C0-C1-%02X-%02X-%02X-%02X",
                  static_cast<unsigned>(place >> 16 & 0xFF), static_cast<unsigned>(place >> 8 & 0xFF),
                  static_cast<unsigned>(place & 0xFF), static_cast<unsigned>(i & 0xFF));
    beacons.push_back(BeaconId::sensor(text.data()));
  }
  return beacons;
}

}  // namespace

SimulatedGateway::SimulatedGateway(FleetLoop& loop, const FleetClient::Broker& broker,
                                   const GatewayPlan& plan, std::function<double()> chance)
    : plan_(plan),
      payloads_(Topics(plan.name), [](const BeaconId&) { return Label(); }),
      client_(loop, {broker.host, broker.port, payloads_.status(false)}, "brenloft_" + plan.name,
              [this](const MqttClient::Event& event) { session_.handle(now_, event); }),
      session_({.client = client_, .supply = *this, .chance = std::move(chance), .onLine = [](auto&) {}}),
      beacons_(beaconsOf(plan)) {}

void SimulatedGateway::advance(Instant now, platform::Date date) {
  now_ = now;
  if (!isSilent_) hear(now, date);
  session_.advance(now);
}

void SimulatedGateway::silence(platform::Date date) {
  isSilent_ = true;
  endBatch(date);
}

void SimulatedGateway::hear(Instant now, platform::Date date) {
  if (nextReading_ == Instant()) {
    // Gateways and their beacons are not in step.
    const auto offset = std::hash<std::string>()(plan_.name) % 1'000;
    nextReading_ = now + plan_.period * static_cast<int64_t>(offset) / (1'000 * plan_.beacons);
    nextBatch_ = now + plan_.batch * static_cast<int64_t>(offset) / 1'000;
  }
  while (nextReading_ <= now) {
    const BeaconId& beacon = beacons_[nextBeacon_++ % beacons_.size()];
    const Quantities measured{.temperature = static_cast<int32_t>(400 + lastSeq_ % 300),
                              .humidity = 55'00,
                              .battery = 90,
                              .emergency = 0,
                              .txPower = 4,
                              .xAccel = 0,
                              .yAccel = 0,
                              .zAccel = 1000};
    rows_.push_back({++lastSeq_, Reading{beacon, date, -60, measured, measured}});
    if (plan_.hasStates && states_.size() < kMostStates)
      states_.push_back(payloads_.state(std::get<Reading>(rows_.back().record), lastSeq_, kStateExpiry));
    nextReading_ += plan_.period / plan_.beacons;
  }
  if (now < nextBatch_) return;
  nextBatch_ += plan_.batch;
  endBatch(date);
}

void SimulatedGateway::endBatch(platform::Date date) {
  if (rows_.empty()) return;
  const ClockState clock{.isSynchronised = true, .error = std::chrono::milliseconds(1), .boot = "simulated"};
  batches_.push_back(
      {nextKey_++, payloads_.batch({plan_.store, !isConnected()}, rows_, std::nullopt, clock, date)});
  rows_.clear();
}

void SimulatedGateway::begin(Instant, uint32_t) {
  for (Batch& batch : batches_) batch.isUnderWay = false;
  states_.clear();
  isStatusTold_ = false;
}

std::optional<Supply::Outgoing> SimulatedGateway::next(Instant now, std::size_t) {
  if (!std::exchange(isStatusTold_, true)) return Outgoing{0, payloads_.status(true)};
  if (!states_.empty()) {
    Message state = std::move(states_.front());
    states_.pop_front();
    return Outgoing{0, std::move(state)};
  }
  if (now < heldUntil_) return std::nullopt;
  const auto batch = std::ranges::find(batches_, false, &Batch::isUnderWay);
  if (batch == batches_.end()) return std::nullopt;
  batch->isUnderWay = true;
  return Outgoing{batch->key, batch->message};
}

// As `publish --batches collected` has it.
void SimulatedGateway::settle(Instant now, uint64_t key, Outcome outcome) {
  if (outcome == Outcome::taken) ++taken_;
  const auto batch = std::ranges::find(batches_, key, &Batch::key);
  if (batch == batches_.end()) return;
  if (outcome == Outcome::taken) {
    batches_.erase(batch);
  } else {
    batch->isUnderWay = false;
    heldUntil_ = now + kPause;
  }
}

}  // namespace brenloft::fleet
