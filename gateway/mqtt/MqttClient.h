#pragma once

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "gateway/mqtt/Message.h"

namespace brenloft {

/// One connection to a broker at a time. What is asked for is done later, on another thread; what happens
/// comes back as events, in order. After `connect` comes `Connected` and `Greeted`, or `Lost`; after `Lost`
/// nothing more comes of that connection, and nothing of it is tried again.
///
/// Implementers: what waits to be published is forgotten when the connection is lost.
class MqttClient {
 public:
  /// The broker can be reached; it has said nothing yet.
  struct Connected {};
  struct Greeted {
    uint16_t mostUnderWay = UINT16_MAX;  ///< messages that it has not acknowledged
    uint32_t largestMessage = UINT32_MAX;
  };
  struct Acknowledged {
    uint64_t token;
    int reason = 0;  ///< as MQTT 5 numbers them; 0 from older brokers
  };
  /// Under a topic that was subscribed to.
  struct Arrived {
    Message message;
  };
  struct Lost {
    std::string reason;
    bool isRefusal = false;  ///< the broker has answered, and does not want this client
  };
  using Event = std::variant<Connected, Greeted, Acknowledged, Arrived, Lost>;

  MqttClient() = default;
  MqttClient(const MqttClient&) = delete;
  MqttClient& operator=(const MqttClient&) = delete;
  virtual ~MqttClient() = default;

  virtual void connect() = 0;
  // Between `Greeted` and `Lost`; at other times nothing comes of it.
  virtual void subscribe(const std::string& topics) = 0;
  virtual void publish(uint64_t token, const Message& message) = 0;
  /// Ends the connection, also one that is only beginning. `Lost` does not come of it.
  virtual void disconnect() = 0;
};

}  // namespace brenloft
