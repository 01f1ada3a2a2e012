#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "gateway/mqtt/Message.h"

namespace brenloft {

/// Whether any of several gateways hears a beacon. Each says for itself whether it does; the first that hears
/// one says for all that it is there, and the last that no longer does says that it is not. One that is
/// offline hears nothing. What a gateway itself says comes back from the broker, so that all of them decide
/// by the same. Pure.
///
/// Threads: one at a time.
class SharedPresence {
 public:
  /// Of a beacon that is not known nothing stays with the broker for long.
  explicit SharedPresence(std::function<bool(const std::string& beacon)> isKnown)
      : isKnown_(std::move(isKnown)) {}

  /// What is subscribed to for `arrived`.
  static std::vector<std::string> subscriptions() {
    return {"brenloft/+/status", "brenloft/+/beacon/+/presence"};
  }
  static constexpr std::chrono::hours kStrangersAbsence{24};
  /// Nothing is known of a new broker.
  void begin();
  void arrived(const Message& message);
  /// What is to be said for all by now; each once.
  std::vector<Message> changes();

 private:
  bool isHome(const std::string& beacon) const;

  const std::function<bool(const std::string&)> isKnown_;
  std::set<std::string> offline_;                         // gateways
  std::map<std::string, std::set<std::string>> hearers_;  // gateways by the beacon's word
  std::map<std::string, bool> told_;                      // by the beacon's word, as the broker has it
  std::set<std::string> changed_;                         // beacons
};

}  // namespace brenloft
