#include "gateway/mqtt/MosquittoClient.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

#include <mosquitto.h>
#include <mqtt_protocol.h>
#include <openssl/crypto.h>
#include <openssl/ssl.h>
#include <openssl/x509_vfy.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace brenloft {
namespace {

constexpr int kKeepAlive = 30;      // seconds
constexpr int kMiscellany = 1'000;  // milliseconds between two looks at what libmosquitto has to do by itself
// What the end of a connection may take that is not stuck in the system.
constexpr std::chrono::milliseconds kFarewell{300};
constexpr int kQualityOfService = 1;
constexpr const char* kSystemAuthorities = "/etc/ssl/certs";
// Beside the library's own problems: the broker has said what it is.
constexpr int kSaid = 1'000;

// Once for the process; libmosquitto's own end comes with the process's. OpenSSL's does not: a connection
// that is stuck in the system may still use it then.
void initialise() {
  static const int done = [] {
    OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr);
    return mosquitto_lib_init();
  }();
  static_cast<void>(done);
}

class Properties {
 public:
  Properties() = default;
  ~Properties() { mosquitto_property_free_all(&list_); }
  Properties(const Properties&) = delete;
  Properties& operator=(const Properties&) = delete;

  void add(int name, uint32_t number) { mosquitto_property_add_int32(&list_, name, number); }
  const mosquitto_property* get() const { return list_; }

 private:
  mosquitto_property* list_ = nullptr;
};

// A key with a passphrase would have the library ask on the terminal.
int noPassphrase(char*, int, int, void*) {
  return 0;
}

const char* orNull(const std::string& text) {
  return text.empty() ? nullptr : text.c_str();
}

}  // namespace

std::string Broker::text() const {
  return (isEncrypted ? "mqtts://" : "mqtt://") + host + ':' + std::to_string(port);
}

// An event descriptor: rung from any thread, heard by one.
class MosquittoClient::Bell {
 public:
  Bell() : descriptor_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}
  ~Bell() { ::close(descriptor_); }
  Bell(const Bell&) = delete;
  Bell& operator=(const Bell&) = delete;

  int descriptor() const { return descriptor_; }
  void ring() const { ::eventfd_write(descriptor_, 1); }
  void clear() const {
    eventfd_t count = 0;
    ::eventfd_read(descriptor_, &count);
  }

 private:
  const int descriptor_;
};

// One connection. What is asked for waits in `orders_` for its thread, which alone calls the library.
class MosquittoClient::Connection : public std::enable_shared_from_this<Connection> {
 public:
  Connection(std::shared_ptr<const Broker> broker, std::shared_ptr<const Bell> listener)
      : broker_(std::move(broker)), listener_(std::move(listener)) {}

  void begin() {
    std::thread([self = shared_from_this()] {
      self->run();
      const std::scoped_lock lock(self->mutex_);
      self->isOver_ = true;
      self->over_.notify_all();
    }).detach();
  }

  void order(std::function<void(Connection&)> order) {
    {
      const std::scoped_lock lock(mutex_);
      orders_.push_back(std::move(order));
    }
    orderBell_.ring();
  }

  void end() {
    std::unique_lock lock(mutex_);
    isEnding_ = true;
    orderBell_.ring();
    over_.wait_for(lock, kFarewell, [this] { return isOver_; });
  }

  std::vector<Event> takeEvents() {
    const std::scoped_lock lock(mutex_);
    return std::exchange(events_, {});
  }

  // On the thread.

  void publish(uint64_t token, const Message& message) {
    if (!isGreeted_) return;
    Properties properties;
    if (message.expiry && broker_->isVersion5)
      properties.add(MQTT_PROP_MESSAGE_EXPIRY_INTERVAL, static_cast<uint32_t>(message.expiry->count()));
    int number = 0;
    const int result = mosquitto_publish_v5(handle_, &number, message.topic.c_str(),
                                            static_cast<int>(message.payload.size()), message.payload.data(),
                                            kQualityOfService, message.isRetained, properties.get());
    if (result == MOSQ_ERR_SUCCESS)
      tokens_[number] = token;
    else if (result == MOSQ_ERR_NO_CONN)
      problem_ = result;
    else
      tell(Acknowledged{
          token, result == MOSQ_ERR_OVERSIZE_PACKET ? MQTT_RC_PACKET_TOO_LARGE : MQTT_RC_TOPIC_NAME_INVALID});
  }
  void subscribe(const std::string& topics) {
    if (isGreeted_) mosquitto_subscribe(handle_, nullptr, topics.c_str(), kQualityOfService);
  }

 private:
  void tell(Event event) {
    {
      const std::scoped_lock lock(mutex_);
      events_.push_back(std::move(event));
    }
    listener_->ring();
  }

  void run() {
    handle_ = mosquitto_new(broker_->clientId.c_str(), true, this);
    if (handle_ == nullptr) return tell(Lost{std::generic_category().message(errno)});
    const int prepared = prepare();
    const int result = prepared == MOSQ_ERR_SUCCESS ? connect() : prepared;
    if (result == MOSQ_ERR_SUCCESS) {
      tell(Connected{});
      converse();
    } else {
      problem_ = result;
      error_ = errno;
    }
    mosquitto_destroy(handle_);
    if (refusal_)
      tell(Lost{*refusal_, true});
    else
      tell(Lost{reason()});
  }

  int connect() {
    return mosquitto_connect_bind_v5(handle_, broker_->host.c_str(), broker_->port, kKeepAlive, nullptr,
                                     nullptr);
  }

  int prepare() {
    setCallbacks();
    mosquitto_int_option(handle_, MOSQ_OPT_PROTOCOL_VERSION,
                         broker_->isVersion5 ? MQTT_PROTOCOL_V5 : MQTT_PROTOCOL_V311);
    mosquitto_int_option(handle_, MOSQ_OPT_TCP_NODELAY, 1);
    mosquitto_int_option(handle_, MOSQ_OPT_SEND_MAXIMUM, UINT16_MAX);
    int result =
        broker_->will.topic.empty()
            ? int{MOSQ_ERR_SUCCESS}
            : mosquitto_will_set(handle_, broker_->will.topic.c_str(),
                                 static_cast<int>(broker_->will.payload.size()), broker_->will.payload.data(),
                                 kQualityOfService, broker_->will.isRetained);
    if (result == MOSQ_ERR_SUCCESS && !broker_->login.user.empty())
      result = mosquitto_username_pw_set(handle_, broker_->login.user.c_str(),
                                         orNull(broker_->login.password.revealed()));
    if (result == MOSQ_ERR_SUCCESS && broker_->isEncrypted) result = encrypt();
    return result;
  }

  int encrypt() {
    const bool isSystems = broker_->authority.empty();
    if (isSystems) mosquitto_int_option(handle_, MOSQ_OPT_TLS_USE_OS_CERTS, 1);
    // The system's authorities need no more, but a certificate of the client's own wants some beside it.
    const bool isSet = isSystems && broker_->certificate.empty();
    const int result =
        isSet
            ? int{MOSQ_ERR_SUCCESS}
            : mosquitto_tls_set(handle_, orNull(broker_->authority), isSystems ? kSystemAuthorities : nullptr,
                                orNull(broker_->certificate), orNull(broker_->key), noPassphrase);
    if (result != MOSQ_ERR_SUCCESS) return result;
    return mosquitto_tls_opts_set(handle_, 1, "tlsv1.2", nullptr);
  }

  // Until the connection is over, or nobody wants it any more.
  void converse() {
    while (isWanted() && !problem_ && !refusal_) {
      std::array<pollfd, 2> ready{
          {{mosquitto_socket(handle_), POLLIN, 0}, {orderBell_.descriptor(), POLLIN, 0}}};
      if (mosquitto_want_write(handle_)) ready[0].events |= POLLOUT;
      ::poll(ready.data(), ready.size(), kMiscellany);
      if ((ready[0].revents & (POLLIN | POLLERR | POLLHUP)) != 0) check(mosquitto_loop_read(handle_, 1));
      takeOrders();
      if (!problem_ && mosquitto_want_write(handle_)) check(mosquitto_loop_write(handle_, 1));
      if (!problem_) check(mosquitto_loop_misc(handle_));
    }
    // The will tells the rest of the world, so that one message tells every kind of end.
    if (!isWanted() && isGreeted_ && broker_->isVersion5)
      mosquitto_disconnect_v5(handle_, MQTT_RC_DISCONNECT_WITH_WILL_MSG, nullptr);
  }

  bool isWanted() {
    const std::scoped_lock lock(mutex_);
    return !isEnding_;
  }

  void takeOrders() {
    orderBell_.clear();
    std::deque<std::function<void(Connection&)>> orders;
    {
      const std::scoped_lock lock(mutex_);
      orders.swap(orders_);
    }
    for (const auto& order : orders) {
      if (problem_) return;
      order(*this);
    }
  }

  void check(int result) {
    if (result == MOSQ_ERR_SUCCESS || problem_) return;
    problem_ = result;
    error_ = errno;
  }

  std::string reason() const {
    const bool isSaid = problem_ == kSaid || problem_ == MOSQ_ERR_TLS || problem_ == MOSQ_ERR_TLS_HANDSHAKE;
    if (isSaid && !said_.empty()) return said_;
    if (problem_ == MOSQ_ERR_ERRNO) return std::generic_category().message(error_);
    std::string text = mosquitto_strerror(problem_.value_or(MOSQ_ERR_CONN_LOST));
    if (text.ends_with('.')) text.pop_back();
    return text;
  }

  void setCallbacks();
  static Connection& of(void* self) { return *static_cast<Connection*>(self); }
  void hearError(std::string_view text);
  void hearVerdict();
  void greeted(int reason, const mosquitto_property* properties);
  void disconnected(int reason);

  const std::shared_ptr<const Broker> broker_;
  const std::shared_ptr<const Bell> listener_;
  const Bell orderBell_;

  std::mutex mutex_;  // guards what follows
  std::vector<Event> events_;
  std::condition_variable over_;
  std::deque<std::function<void(Connection&)>> orders_;
  bool isEnding_ = false;
  bool isOver_ = false;

  // The thread's own.
  mosquitto* handle_ = nullptr;
  bool isGreeted_ = false;
  std::map<int, uint64_t> tokens_;  // by the library's number
  std::optional<int> problem_;
  int error_ = 0;
  std::optional<std::string> refusal_;
  std::string said_;  // the library's or the broker's own words on what is wrong
  bool hasVerdict_ = false;
};

void MosquittoClient::Connection::setCallbacks() {
  mosquitto_connect_v5_callback_set(
      handle_, [](mosquitto*, void* self, int reason, int, const mosquitto_property* properties) {
        of(self).greeted(reason, properties);
      });
  mosquitto_publish_v5_callback_set(
      handle_, [](mosquitto*, void* self, int number, int reason, const mosquitto_property*) {
        auto& tokens = of(self).tokens_;
        const auto token = tokens.find(number);
        if (token == tokens.end()) return;
        const Acknowledged one{token->second, reason};
        tokens.erase(token);
        of(self).tell(one);
      });
  mosquitto_message_callback_set(handle_, [](mosquitto*, void* self, const mosquitto_message* message) {
    const auto size = static_cast<std::size_t>(message->payloadlen);
    std::string payload(size == 0 ? "" : static_cast<const char*>(message->payload), size);
    of(self).tell(Arrived{{message->topic, std::move(payload), message->retain}});
  });
  mosquitto_disconnect_v5_callback_set(
      handle_,
      [](mosquitto*, void* self, int reason, const mosquitto_property*) { of(self).disconnected(reason); });
  mosquitto_log_callback_set(handle_, [](mosquitto*, void* self, int level, const char* text) {
    if (level == MOSQ_LOG_ERR) of(self).hearError(text);
  });
}

// "Error: host name verification failed." and "OpenSSL Error[0]: error:0A000086:SSL routines::certificate
// verify failed" are two lines of one failure.
void MosquittoClient::Connection::hearError(std::string_view text) {
  constexpr std::string_view kWord = "Error: ";
  if (text.starts_with(kWord)) text.remove_prefix(kWord.size());
  if (const std::size_t place = text.rfind("::"); place != std::string_view::npos)
    text.remove_prefix(place + 2);
  if (text.ends_with('.')) text.remove_suffix(1);
  said_.append(said_.empty() ? "" : ", ").append(text);
  hearVerdict();
}

// Why a certificate is not believed, which the library does not tell; a wrong name it tells itself.
void MosquittoClient::Connection::hearVerdict() {
  const auto* ssl = static_cast<SSL*>(mosquitto_ssl_get(handle_));
  const long verdict = ssl == nullptr ? X509_V_OK : SSL_get_verify_result(ssl);
  if (verdict == X509_V_OK || verdict == X509_V_ERR_UNSPECIFIED || std::exchange(hasVerdict_, true)) return;
  said_.append(", ").append(X509_verify_cert_error_string(verdict));
}

void MosquittoClient::Connection::greeted(int reason, const mosquitto_property* properties) {
  if (reason != 0) {
    refusal_ = broker_->isVersion5 ? mosquitto_reason_string(reason) : mosquitto_connack_string(reason);
    return;
  }
  Greeted greeting;
  mosquitto_property_read_int16(properties, MQTT_PROP_RECEIVE_MAXIMUM, &greeting.mostUnderWay, false);
  mosquitto_property_read_int32(properties, MQTT_PROP_MAXIMUM_PACKET_SIZE, &greeting.largestMessage, false);
  isGreeted_ = true;
  tell(greeting);
}

// A reason is the broker's own word, from MQTT 5 on; what the library says itself has smaller numbers.
void MosquittoClient::Connection::disconnected(int reason) {
  if (reason < MQTT_RC_UNSPECIFIED || problem_ || refusal_) return;
  said_ = mosquitto_reason_string(reason);
  if (reason == MQTT_RC_SERVER_SHUTTING_DOWN)
    problem_ = kSaid;
  else
    refusal_ = said_;
}

MosquittoClient::MosquittoClient(Broker broker)
    : broker_(std::make_shared<const Broker>(std::move(broker))), bell_(std::make_shared<Bell>()) {
  initialise();
}

MosquittoClient::~MosquittoClient() {
  disconnect();
}

void MosquittoClient::connect() {
  disconnect();
  connection_ = std::make_shared<Connection>(broker_, bell_);
  connection_->begin();
}

void MosquittoClient::disconnect() {
  if (const auto connection = std::exchange(connection_, nullptr)) connection->end();
}

void MosquittoClient::subscribe(const std::string& topics) {
  if (connection_) connection_->order([topics](Connection& one) { one.subscribe(topics); });
}

void MosquittoClient::publish(uint64_t token, const Message& message) {
  if (connection_) connection_->order([token, message](Connection& one) { one.publish(token, message); });
}

int MosquittoClient::wakeDescriptor() const {
  return bell_->descriptor();
}

std::vector<MqttClient::Event> MosquittoClient::takeEvents() {
  bell_->clear();
  return connection_ ? connection_->takeEvents() : std::vector<Event>();
}

}  // namespace brenloft
