#include "gateway/mqtt/Announcer.h"

#include <algorithm>
#include <utility>

namespace brenloft {

std::vector<std::string> Announcer::subscriptions() {
  return {std::string(Discovery::kBirthTopic), std::string(Discovery::kSubscription)};
}

void Announcer::begin(Instant now) {
  retained_.clear();
  isAll_ = false;
  due_ = now + kSettling;
}

void Announcer::arrived(Instant now, const Message& message) {
  if (message.topic == Discovery::kBirthTopic) {
    // One that is retained tells of a start long ago.
    if (message.payload != Discovery::kBirth || message.isRetained) return;
    isAll_ = true;
    due_ = now + std::chrono::duration_cast<Instant>(Instant(kLongestPause) * parts_.chance());
  } else if (message.payload.empty()) {
    retained_.erase(message.topic);
  } else if (message.topic.starts_with(Discovery::kOwnTopics)) {
    retained_[message.topic] = message.payload;
  }
}

void Announcer::advance(Instant now) {
  if (!due_ || now < *due_) return;
  due_ = now + kPeriod;
  auto messages = parts_.wanted();
  if (!std::exchange(isAll_, false)) {
    messages = parts_.discovery.reconcile(messages, retained_);
    std::erase_if(messages, [this](const Message& one) { return isSaidAndCorrected(one); });
  }
  for (const Message& one : messages) said_[one.topic] = one.payload;
  if (!messages.empty()) parts_.announce(std::move(messages));
}

// Of what several gateways say each has its say once. Two that differ would correct each other for ever.
bool Announcer::isSaidAndCorrected(const Message& message) const {
  const auto said = said_.find(message.topic);
  return !parts_.discovery.isOwn(message.topic) && retained_.contains(message.topic) && said != said_.end() &&
         said->second == message.payload;
}

}  // namespace brenloft
