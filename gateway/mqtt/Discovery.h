#pragma once

#include <chrono>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "gateway/configuration/Settings.h"
#include "gateway/mqtt/Message.h"
#include "gateway/mqtt/Topics.h"

namespace platform {
class JSONWriter;
}

namespace brenloft {

/// What Home Assistant is told so that it shows beacons and the gateway by itself: one retained message for
/// each device. Pure.
class Discovery {
 public:
  enum class Scope {
    known,  ///< beacons of the settings
    all,    ///< and every other sensor; no stranger that changes its address
    none,
  };
  struct Options {
    Scope scope = Scope::known;
    /// One entity of what several gateways hear: their names are no part of the identifiers.
    bool isShared = false;
    std::string version{};
  };
  struct Beacon {
    BeaconId id;
    std::chrono::seconds freshness{};  ///< of a reading
  };
  /// What is retained, by topic.
  using Retained = std::map<std::string, std::string>;

  /// Where it says that it has started, and wants to be told again.
  static constexpr std::string_view kBirthTopic = "homeassistant/status";
  static constexpr std::string_view kBirth = "online";
  /// What every gateway of this kind publishes begins so.
  static constexpr std::string_view kOwnTopics = "homeassistant/device/brenloft_";
  /// Everybody's.
  static constexpr std::string_view kSubscription = "homeassistant/device/+/config";

  Discovery(Topics topics, Options options) : topics_(std::move(topics)), options_(std::move(options)) {}

  /// The gateway first.
  std::vector<Message> wanted(const Settings& settings, const std::vector<Beacon>& beacons) const;
  /// What is to be sent so that just what is wanted is retained, of this gateway's.
  std::vector<Message> reconcile(const std::vector<Message>& wanted, const Retained& retained) const;
  std::string topicOf(const BeaconId& beacon) const;
  /// Whether a message is this gateway's alone.
  bool isOwn(std::string_view topic) const;

 private:
  Message gateway(const Settings& settings) const;
  Message beacon(const Beacon& beacon, const Settings& settings) const;
  void writeOrigin(platform::JSONWriter& json) const;
  void writeAvailability(platform::JSONWriter& json) const;
  void writeReadings(platform::JSONWriter& json, const Beacon& beacon) const;
  void writePresence(platform::JSONWriter& json, const BeaconId& beacon) const;
  void writeAlarms(platform::JSONWriter& json, const BeaconId& beacon, const Settings& settings,
                   bool isNamed) const;
  std::string identifierOf(const BeaconId& beacon) const;
  std::string gatewayIdentifier() const { return "brenloft_" + topics_.gateway(); }

  const Topics topics_;
  const Options options_;
};

}  // namespace brenloft
