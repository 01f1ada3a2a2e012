#include "gateway/mqtt/Forgetting.h"

#include <set>
#include <utility>

#include <poll.h>

#include "gateway/mqtt/Supply.h"

namespace brenloft {
namespace {

using platform::Error;

// A broker sends what it retains at once after a subscription.
constexpr std::chrono::seconds kCollecting{2};
constexpr std::chrono::seconds kMostTime{20};
constexpr int kLook = 100;  // milliseconds

class Forgetter {
 public:
  Forgetter(Broker broker, const Topics& topics, const Discovery& discovery,
            const std::vector<BeaconId>& beacons, platform::DispatchService& dispatch)
      : client_(std::move(broker)), topics_(topics), dispatch_(dispatch), isAll_(beacons.empty()) {
    for (const BeaconId& beacon : beacons) {
      for (auto& topic : {topics.state(beacon), topics.presence(beacon), topics.alarms(beacon)})
        found_.insert(topic);
      found_.insert(discovery.topicOf(beacon));
    }
  }

  platform::Result<std::size_t> run(const Discovery& discovery) {
    client_.connect();
    const Instant begun = dispatch_.now();
    while (!isDone()) {
      if (dispatch_.now() - begun > kMostTime) return Error{Error::Kind::failed, "the broker says nothing"};
      pollfd ready{client_.wakeDescriptor(), POLLIN, 0};
      ::poll(&ready, 1, kLook);
      for (const MqttClient::Event& event : client_.takeEvents())
        if (const auto problem = handle(event, discovery)) return *problem;
      if (sendAt_ && dispatch_.now() >= *sendAt_) send();
    }
    return found_.size();
  }

 private:
  bool isDone() const { return isSent_ && underWay_ == 0; }

  std::optional<Error> handle(const MqttClient::Event& event, const Discovery& discovery) {
    if (const auto* lost = std::get_if<MqttClient::Lost>(&event))
      return Error{Error::Kind::failed, lost->reason};
    if (std::holds_alternative<MqttClient::Greeted>(event)) {
      sendAt_ = dispatch_.now();
      if (isAll_) collect();
    } else if (const auto* arrived = std::get_if<MqttClient::Arrived>(&event)) {
      const Message& message = arrived->message;
      const bool isOurs = discovery.isOwn(message.topic) || message.topic.starts_with(topics_.begin());
      if (message.isRetained && !message.payload.empty() && isOurs) found_.insert(message.topic);
    } else if (const auto* one = std::get_if<MqttClient::Acknowledged>(&event)) {
      --underWay_;
      if (one->reason >= 0x80) return Error{Error::Kind::notPermitted, "the broker refuses to forget them"};
    }
    return std::nullopt;
  }

  void collect() {
    *sendAt_ += kCollecting;
    client_.subscribe(topics_.all());
    client_.subscribe(std::string(Discovery::kSubscription));
  }

  void send() {
    if (std::exchange(isSent_, true)) return;
    for (const std::string& topic : found_)
      client_.publish(++underWay_, {.topic = topic, .isRetained = true});
  }

  MosquittoClient client_;
  const Topics& topics_;
  platform::DispatchService& dispatch_;
  const bool isAll_;
  std::set<std::string> found_;
  std::optional<Instant> sendAt_{};
  bool isSent_ = false;
  uint64_t underWay_ = 0;
};

}  // namespace

platform::Result<std::size_t> forgetRetained(Broker broker, const Topics& topics, const Discovery& discovery,
                                             const std::vector<BeaconId>& beacons,
                                             platform::DispatchService& dispatch) {
  broker.will = {};
  broker.clientId += "-forget";
  const std::string place = broker.text();
  auto forgotten = Forgetter(std::move(broker), topics, discovery, beacons, dispatch).run(discovery);
  if (!forgotten) return forgotten.error().in(place);
  return forgotten;
}

}  // namespace brenloft
