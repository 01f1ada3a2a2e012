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
  if (std::exchange(isAll_, false)) return parts_.announce(parts_.wanted());
  auto messages = parts_.discovery.reconcile(parts_.wanted(), retained_);
  if (!messages.empty()) parts_.announce(std::move(messages));
}

}  // namespace brenloft
