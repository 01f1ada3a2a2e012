#include "gateway/mqtt/Session.h"

#include <algorithm>
#include <type_traits>
#include <utility>

namespace brenloft {
namespace {

// Reasons in an acknowledgement, as MQTT 5 numbers them.
constexpr int kNoMatchingSubscribers = 0x10;
constexpr int kFailures = 0x80;
constexpr int kNotAuthorised = 0x87;
constexpr int kTopicNameInvalid = 0x90;
constexpr int kPacketTooLarge = 0x95;
constexpr int kPayloadFormatInvalid = 0x99;

Supply::Outcome outcomeOf(int reason) {
  if (reason == kNoMatchingSubscribers) return Supply::Outcome::unheard;
  if (reason < kFailures) return Supply::Outcome::taken;
  if (reason == kNotAuthorised) return Supply::Outcome::forbidden;
  const bool isWrong =
      reason == kTopicNameInvalid || reason == kPacketTooLarge || reason == kPayloadFormatInvalid;
  return isWrong ? Supply::Outcome::wrong : Supply::Outcome::busy;
}

}  // namespace

void Session::start(Instant now) {
  if (state_ == State::absent) connect(now);
}

void Session::stop() {
  if (state_ == State::absent) return;
  parts_.client.disconnect();
  state_ = State::absent;
  deadline_.reset();
  underWay_.clear();
}

void Session::connect(Instant now) {
  state_ = State::connecting;
  since_ = now;
  deadline_.reset();  // the system's own
  parts_.client.connect();
}

void Session::handle(Instant now, const MqttClient::Event& event) {
  const bool isTrying = state_ == State::connecting || state_ == State::greeting;
  std::visit(
      [&](const auto& one) {
        using Kind = std::decay_t<decltype(one)>;
        if constexpr (std::is_same_v<Kind, MqttClient::Connected>) {
          if (state_ != State::connecting) return;
          state_ = State::greeting;
          deadline_ = now + kPatience;
        } else if constexpr (std::is_same_v<Kind, MqttClient::Greeted>) {
          if (isTrying) greeted(now, one);
        } else if constexpr (std::is_same_v<Kind, MqttClient::Acknowledged>) {
          if (state_ == State::sending) acknowledged(now, one);
        } else if constexpr (std::is_same_v<Kind, MqttClient::Arrived>) {
          if (state_ == State::sending && parts_.onMessage) parts_.onMessage(one.message);
        } else {
          if (isTrying || state_ == State::sending) lost(now, one);
        }
      },
      event);
}

void Session::greeted(Instant now, const MqttClient::Greeted& greeting) {
  state_ = State::sending;
  since_ = now;
  deadline_.reset();
  mostUnderWay_ = std::clamp<std::size_t>(greeting.mostUnderWay, 1, kMostUnderWay);
  tell("connected");
  for (const std::string& topics : parts_.subscriptions) parts_.client.subscribe(topics);
  parts_.supply.begin(now, greeting.largestMessage);
  send(now);
}

void Session::acknowledged(Instant now, const MqttClient::Acknowledged& one) {
  const auto found = underWay_.find(one.token);
  if (found == underWay_.end()) return;  // a second time
  const uint64_t key = found->second.key;
  underWay_.erase(found);
  parts_.supply.settle(now, key, outcomeOf(one.reason));
  send(now);
}

void Session::lost(Instant now, const MqttClient::Lost& loss) {
  if (state_ == State::sending && now - since_ >= kLasting) pause_ = {};
  state_ = loss.isRefusal ? State::refused : State::waiting;
  since_ = now;
  underWay_.clear();
  pause_ = std::clamp<std::chrono::nanoseconds>(pause_ * 2, kShortestPause, kLongestPause / 2);
  deadline_ = now + pause_ + std::chrono::duration_cast<Instant>(pause_ * parts_.chance());
  tell(loss.reason + "; what it does not take is kept, and this is tried again");
}

void Session::advance(Instant now) {
  if (deadline_ && now >= *deadline_) {
    if (state_ == State::waiting || state_ == State::refused) return connect(now);
    parts_.client.disconnect();
    return lost(now, {"the broker says nothing"});
  }
  if (state_ != State::sending) return;
  if (!underWay_.empty() && now - underWay_.begin()->second.since >= kPatience) {
    parts_.client.disconnect();
    return lost(now, {"the broker takes nothing"});
  }
  send(now);
}

void Session::send(Instant now) {
  while (underWay_.size() < mostUnderWay_) {
    const auto outgoing = parts_.supply.next(now, mostUnderWay_ - underWay_.size());
    if (!outgoing) return;
    const uint64_t token = nextToken_++;
    underWay_[token] = {outgoing->key, now};
    parts_.client.publish(token, outgoing->message);
  }
}

std::optional<Instant> Session::due() const {
  if (state_ != State::sending) return deadline_;
  auto due = underWay_.size() < mostUnderWay_ ? parts_.supply.due() : std::nullopt;
  if (!underWay_.empty()) {
    const Instant patience = underWay_.begin()->second.since + kPatience;
    due = due ? std::min(*due, patience) : patience;
  }
  return due;
}

void Session::tell(std::string line) {
  if (line == told_) return;
  told_ = std::move(line);
  parts_.onLine(told_);
}

}  // namespace brenloft
