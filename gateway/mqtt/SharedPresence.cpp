#include "gateway/mqtt/SharedPresence.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "gateway/mqtt/Topics.h"

namespace brenloft {
namespace {

// The levels of a topic.
std::vector<std::string> levelsOf(std::string_view topic) {
  std::vector<std::string> levels;
  while (true) {
    const std::size_t end = std::min(topic.find('/'), topic.size());
    levels.emplace_back(topic.substr(0, end));
    if (end == topic.size()) return levels;
    topic.remove_prefix(end + 1);
  }
}

}  // namespace

void SharedPresence::begin() {
  offline_.clear();
  hearers_.clear();
  told_.clear();
  changed_.clear();
}

void SharedPresence::arrived(const Message& message) {
  const auto levels = levelsOf(message.topic);
  if (levels.front() != "brenloft") return;
  if (levels.size() == 3 && levels[2] == "status") {
    if (message.payload == "offline")
      offline_.insert(levels[1]);
    else
      offline_.erase(levels[1]);
    for (const auto& [beacon, gateways] : hearers_)
      if (gateways.contains(levels[1])) changed_.insert(beacon);
  }
  if (levels.size() != 5 || levels[4] != "presence") return;
  const std::string& beacon = levels[3];
  const bool isHome = message.payload == "home";
  if (levels[1] == Topics::shared().gateway()) {
    told_[beacon] = isHome;
    if (message.payload.empty()) told_.erase(beacon);
  } else if (isHome) {
    hearers_[beacon].insert(levels[1]);
  } else {
    hearers_[beacon].erase(levels[1]);
  }
  changed_.insert(beacon);
}

bool SharedPresence::isHome(const std::string& beacon) const {
  const auto found = hearers_.find(beacon);
  return found != hearers_.end() &&
         std::ranges::any_of(found->second, [&](const auto& gateway) { return !offline_.contains(gateway); });
}

std::vector<Message> SharedPresence::changes() {
  std::vector<Message> messages;
  for (const std::string& beacon : std::exchange(changed_, {})) {
    const auto told = told_.find(beacon);
    const bool isNow = isHome(beacon);
    const bool isGoneStranger = !isNow && !isKnown_(beacon);
    // What nobody ever said anything of needs no word that it is not there.
    if (told == told_.end() ? isNow || hearers_.contains(beacon) : told->second != isNow) {
      told_[beacon] = isNow;
      messages.push_back({Topics::shared().presenceOf(beacon), isNow ? "home" : "not_home", true});
      if (isGoneStranger) messages.back().expiry = kStrangersAbsence;
    }
    if (!isGoneStranger) continue;
    told_.erase(beacon);
    hearers_.erase(beacon);
  }
  return messages;
}

}  // namespace brenloft
