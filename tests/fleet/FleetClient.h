#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>

#include <mosquitto.h>

#include "gateway/mqtt/MqttClient.h"

namespace brenloft::fleet {

/// Many connections on one thread, each a client of its own.
class FleetLoop {
 public:
  FleetLoop();
  ~FleetLoop();
  FleetLoop(const FleetLoop&) = delete;
  FleetLoop& operator=(const FleetLoop&) = delete;

  /// Waits so long at the most for what the sockets bring.
  void turn(int milliseconds);

 private:
  friend class FleetClient;

  const int poll_;
};

/// A client on libmosquitto that its loop drives. Events come from inside the loop's turn, or of `connect`.
class FleetClient final : public MqttClient {
 public:
  struct Broker {
    std::string host;
    int port = 0;
    Message will;
  };
  using Handler = std::function<void(const Event&)>;

  FleetClient(FleetLoop& loop, Broker broker, std::string clientId, Handler handler);
  ~FleetClient() override;

  void connect() override;
  void subscribe(const std::string& topics) override;
  void publish(uint64_t token, const Message& message) override;
  void disconnect() override;

  /// Once a second: what the library has to do by itself.
  void keepAlive();

 private:
  friend class FleetLoop;

  void ready(uint32_t events);
  void check(int result);
  void watch();
  void close();

  FleetLoop& loop_;
  const Broker broker_;
  const std::string clientId_;
  const Handler handler_;
  mosquitto* handle_ = nullptr;
  int socket_ = -1;
  bool isWriting_ = false;
  std::unordered_map<int, uint64_t> tokens_;
};

}  // namespace brenloft::fleet
