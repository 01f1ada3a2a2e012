#include "tests/fleet/FleetClient.h"

#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

#include <mqtt_protocol.h>
#include <sys/epoll.h>
#include <unistd.h>

namespace brenloft::fleet {
namespace {

constexpr int kKeepAlive = 60;
constexpr int kMostEvents = 256;

}  // namespace

FleetLoop::FleetLoop() : poll_(::epoll_create1(EPOLL_CLOEXEC)) {
  mosquitto_lib_init();
}

FleetLoop::~FleetLoop() {
  ::close(poll_);
  mosquitto_lib_cleanup();
}

void FleetLoop::turn(int milliseconds) {
  std::array<epoll_event, kMostEvents> events;
  const int count = ::epoll_wait(poll_, events.data(), kMostEvents, milliseconds);
  for (int i = 0; i < count; ++i)
    static_cast<FleetClient*>(events[static_cast<std::size_t>(i)].data.ptr)
        ->ready(events[static_cast<std::size_t>(i)].events);
}

FleetClient::FleetClient(FleetLoop& loop, Broker broker, std::string clientId, Handler handler)
    : loop_(loop), broker_(std::move(broker)), clientId_(std::move(clientId)), handler_(std::move(handler)) {}

FleetClient::~FleetClient() {
  disconnect();
}

void FleetClient::connect() {
  close();
  handle_ = mosquitto_new(clientId_.c_str(), true, this);
  mosquitto_int_option(handle_, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
  mosquitto_int_option(handle_, MOSQ_OPT_TCP_NODELAY, 1);
  mosquitto_int_option(handle_, MOSQ_OPT_SEND_MAXIMUM, UINT16_MAX);
  mosquitto_will_set(handle_, broker_.will.topic.c_str(), static_cast<int>(broker_.will.payload.size()),
                     broker_.will.payload.data(), 1, broker_.will.isRetained);
  mosquitto_connect_v5_callback_set(
      handle_, [](mosquitto*, void* self, int reason, int, const mosquitto_property* properties) {
        Greeted greeting;
        mosquitto_property_read_int16(properties, MQTT_PROP_RECEIVE_MAXIMUM, &greeting.mostUnderWay, false);
        if (reason == 0) static_cast<FleetClient*>(self)->handler_(greeting);
      });
  mosquitto_publish_v5_callback_set(
      handle_, [](mosquitto*, void* self, int number, int reason, const mosquitto_property*) {
        auto& client = *static_cast<FleetClient*>(self);
        const auto token = client.tokens_.extract(number);
        if (!token.empty()) client.handler_(Acknowledged{token.mapped(), reason});
      });
  const int result = mosquitto_connect(handle_, broker_.host.c_str(), broker_.port, kKeepAlive);
  if (result != MOSQ_ERR_SUCCESS) return check(result);
  socket_ = mosquitto_socket(handle_);
  epoll_event event{.events = EPOLLIN, .data = {.ptr = this}};
  ::epoll_ctl(loop_.poll_, EPOLL_CTL_ADD, socket_, &event);
  isWriting_ = false;
  handler_(Connected{});
  watch();
}

void FleetClient::subscribe(const std::string& topics) {
  mosquitto_subscribe(handle_, nullptr, topics.c_str(), 1);
  watch();
}

void FleetClient::publish(uint64_t token, const Message& message) {
  if (handle_ == nullptr) return;
  mosquitto_property* properties = nullptr;
  if (message.expiry)
    mosquitto_property_add_int32(&properties, MQTT_PROP_MESSAGE_EXPIRY_INTERVAL,
                                 static_cast<uint32_t>(message.expiry->count()));
  int number = 0;
  const int result =
      mosquitto_publish_v5(handle_, &number, message.topic.c_str(), static_cast<int>(message.payload.size()),
                           message.payload.data(), 1, message.isRetained, properties);
  mosquitto_property_free_all(&properties);
  if (result == MOSQ_ERR_SUCCESS) tokens_[number] = token;
  watch();
}

void FleetClient::disconnect() {
  if (handle_ != nullptr) mosquitto_disconnect(handle_);
  close();
}

void FleetClient::keepAlive() {
  if (handle_ == nullptr) return;
  check(mosquitto_loop_misc(handle_));
  watch();
}

void FleetClient::ready(uint32_t events) {
  if (handle_ == nullptr) return;
  if ((events & EPOLLOUT) != 0) check(mosquitto_loop_write(handle_, 1));
  if (handle_ != nullptr && (events & ~static_cast<uint32_t>(EPOLLOUT)) != 0)
    check(mosquitto_loop_read(handle_, 1));
  watch();
}

void FleetClient::check(int result) {
  if (result == MOSQ_ERR_SUCCESS) return;
  const std::string reason =
      result == MOSQ_ERR_ERRNO ? std::generic_category().message(errno) : mosquitto_strerror(result);
  close();
  handler_(Lost{reason});
}

// Room to write is waited for only while there is something to write.
void FleetClient::watch() {
  if (handle_ == nullptr) return;
  const bool isWriting = mosquitto_want_write(handle_);
  if (isWriting == std::exchange(isWriting_, isWriting)) return;
  epoll_event event{.events = isWriting ? EPOLLIN | EPOLLOUT : EPOLLIN, .data = {.ptr = this}};
  ::epoll_ctl(loop_.poll_, EPOLL_CTL_MOD, socket_, &event);
}

void FleetClient::close() {
  tokens_.clear();
  if (handle_ != nullptr) mosquitto_destroy(std::exchange(handle_, nullptr));
  socket_ = -1;
}

}  // namespace brenloft::fleet
