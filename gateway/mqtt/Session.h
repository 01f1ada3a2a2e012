#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "gateway/mqtt/MqttClient.h"
#include "gateway/mqtt/Supply.h"

namespace brenloft {

/// What keeps a connection to a broker alive, and as many messages under way as it takes. It decides and
/// reads no clock: time, chance, the client's events and the supply's messages are what it is given.
///
/// A connection that ends is tried again after a pause, which grows from one second to a minute and is
/// forgotten after a connection that lasted. Nothing is sent before the broker's greeting.
///
/// Threads: one at a time.
class Session {
 public:
  enum class State {
    absent,      ///< before `start`, and after `stop`
    connecting,  ///< to where the broker should be
    greeting,    ///< the broker is there and has said nothing yet
    sending,
    waiting,  ///< for the next try
    refused,  ///< the same: the broker has answered, and does not want this client
  };

  static constexpr std::chrono::seconds kShortestPause{1};
  static constexpr std::chrono::seconds kLongestPause{60};
  /// A connection of this age was a good one.
  static constexpr std::chrono::seconds kLasting{30};
  /// What a broker may take for its greeting, and for an acknowledgement.
  static constexpr std::chrono::seconds kPatience{30};
  static constexpr std::size_t kMostUnderWay = 100;

  struct Parts {
    MqttClient& client;
    Supply& supply;
    std::vector<std::string> subscriptions{};
    std::function<double()> chance;                   ///< from 0 to below 1
    std::function<void(const Message&)> onMessage{};  ///< under what was subscribed to
    /// One line for people: once per change, not at each try.
    std::function<void(const std::string& line)> onLine;
  };

  explicit Session(Parts parts) : parts_(std::move(parts)) {}

  void start(Instant now);
  void handle(Instant now, const MqttClient::Event& event);
  /// Sends what may be sent; to be called when something is new, and when it is `due`.
  void advance(Instant now);
  void stop();

  State state() const { return state_; }
  std::optional<Instant> due() const;

 private:
  struct UnderWay {
    uint64_t key;
    Instant since;
  };

  void connect(Instant now);
  void greeted(Instant now, const MqttClient::Greeted& greeting);
  void acknowledged(Instant now, const MqttClient::Acknowledged& one);
  void lost(Instant now, const MqttClient::Lost& loss);
  void send(Instant now);
  void tell(std::string line);

  const Parts parts_;
  State state_ = State::absent;
  Instant since_{};                    // of the state
  std::chrono::nanoseconds pause_{};   // before the next try; 0: none has failed
  std::optional<Instant> deadline_{};  // of the state
  std::size_t mostUnderWay_ = 0;
  std::map<uint64_t, UnderWay> underWay_;  // by token, and so by age
  uint64_t nextToken_ = 1;
  std::string told_;
};

}  // namespace brenloft
