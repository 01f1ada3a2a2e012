#pragma once

#include <functional>
#include <optional>
#include <vector>

#include "gateway/mqtt/Discovery.h"
#include "gateway/mqtt/MqttClient.h"
#include "gateway/mqtt/Supply.h"

namespace brenloft {

/// When Home Assistant is told of devices: after a greeting what the broker has not retained, all of it when
/// Home Assistant starts, and afterwards what has changed.
///
/// Threads: one at a time.
class Announcer {
 public:
  /// After the greeting retained messages come; after that a change may wait so long.
  static constexpr std::chrono::seconds kSettling{2};
  static constexpr std::chrono::seconds kPeriod{60};
  /// Every gateway of a house hears at once that Home Assistant has started.
  static constexpr std::chrono::seconds kLongestPause{5};

  struct Parts {
    Discovery discovery;
    std::function<std::vector<Message>()> wanted;  ///< by now
    std::function<void(std::vector<Message>)> announce;
    std::function<double()> chance;  ///< from 0 to below 1
  };
  explicit Announcer(Parts parts) : parts_(std::move(parts)) {}

  /// What is subscribed to for `arrived`.
  static std::vector<std::string> subscriptions();
  void begin(Instant now);
  void arrived(Instant now, const Message& message);
  /// The settings have changed.
  void changed(Instant now) { due_ = now; }
  void advance(Instant now);
  std::optional<Instant> due() const { return due_; }

 private:
  bool isSaidAndCorrected(const Message& message) const;

  const Parts parts_;
  Discovery::Retained retained_;
  Discovery::Retained said_;  // by this gateway
  std::optional<Instant> due_{};
  bool isAll_ = false;
};

}  // namespace brenloft
