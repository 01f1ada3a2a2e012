#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "gateway/mqtt/Login.h"
#include "gateway/mqtt/MqttClient.h"

namespace brenloft {

/// Where a broker is, and how it is spoken to.
struct Broker {
  std::string host = "localhost";
  uint16_t port = 1883;
  bool isEncrypted = false;  ///< TLS 1.2 at least
  bool isVersion5 = true;    ///< else MQTT 3.1.1
  std::string clientId{};
  // Of TLS; files, each may be absent. Without an authority of its own those of the system hold.
  std::string authority{};
  std::string certificate{};
  std::string key{};
  Login login{};
  Message will{};  ///< what the broker publishes once this client is gone

  /// "mqtt://HOST:PORT", without secrets.
  std::string text() const;
};

/// A client on libmosquitto. Each connection has a thread and a handle of its own: nothing that waits in a
/// lost one is ever sent, and one that hangs in a look-up is left alone.
///
/// Threads: one at a time.
class MosquittoClient final : public MqttClient {
 public:
  explicit MosquittoClient(Broker broker);
  /// Disconnects.
  ~MosquittoClient() override;

  void connect() override;
  void subscribe(const std::string& topics) override;
  void publish(uint64_t token, const Message& message) override;
  void disconnect() override;

  /// Readable when there are events. Watch it, do not read it.
  int wakeDescriptor() const;
  /// What happened since the last call; nothing of a connection that was ended.
  std::vector<Event> takeEvents();

 private:
  class Bell;
  class Connection;

  const std::shared_ptr<const Broker> broker_;
  const std::shared_ptr<Bell> bell_;
  std::shared_ptr<Connection> connection_;
};

}  // namespace brenloft
