#include "gateway/web/HttpServer.h"

#include <algorithm>
#include <map>
#include <string_view>
#include <utility>

#include <microhttpd.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

namespace brenloft::web {
namespace {

using platform::dispatch_time_t;

constexpr std::chrono::seconds kLook{1};  // for what took too long
constexpr int kLastLooks = 4;             // so that streams end in order
// What the kernel keeps for a client that does not read.
constexpr int kSendBuffer = 64 * 1024;
constexpr std::size_t kStreamBlock = 4096;

// Whom connections are counted for; of version 6 the network, which one machine has as a whole.
std::string addressOf(const sockaddr* address) {
  if (address == nullptr) return {};
  if (address->sa_family == AF_INET) {
    const auto& octets = reinterpret_cast<const sockaddr_in*>(address)->sin_addr;
    return {reinterpret_cast<const char*>(&octets), sizeof octets};
  }
  if (address->sa_family != AF_INET6) return {};
  const in6_addr& octets = reinterpret_cast<const sockaddr_in6*>(address)->sin6_addr;
  const std::size_t size = IN6_IS_ADDR_V4MAPPED(&octets) || IN6_IS_ADDR_LOOPBACK(&octets) ? 16 : 8;
  return {reinterpret_cast<const char*>(&octets), size};
}

bool isLoopbackAddress(const sockaddr* address) {
  if (address->sa_family == AF_INET)
    return ntohl(reinterpret_cast<const sockaddr_in*>(address)->sin_addr.s_addr) >> 24 == 127;
  return address->sa_family == AF_INET6 &&
         IN6_IS_ADDR_LOOPBACK(&reinterpret_cast<const sockaddr_in6*>(address)->sin6_addr);
}

std::string headerOf(MHD_Connection* connection, const char* name) {
  const char* value = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, name);
  return value == nullptr ? "" : value;
}

void addHeader(MHD_Response* response, const std::string& name, const std::string& value) {
  MHD_add_response_header(response, name.c_str(), value.c_str());
}

struct ResponseEnd {
  void operator()(MHD_Response* response) const { MHD_destroy_response(response); }
};
using Response = std::unique_ptr<MHD_Response, ResponseEnd>;

Response responseOf(const std::shared_ptr<const Content>& content, const std::string& text) {
  auto* kept = new std::shared_ptr<const Content>(content);
  return Response(MHD_create_response_from_buffer_with_free_callback_cls(
      text.size(), const_cast<char*>(text.data()),  // NOLINT(*-const-cast): only read
      [](void* cls) { delete static_cast<std::shared_ptr<const Content>*>(cls); }, kept));
}

}  // namespace

class HttpServer::Core {
 public:
  Core(const HttpLimits& limits, std::shared_ptr<platform::DispatchService> dispatch, Handler handler)
      : limits_(limits), dispatch_(std::move(dispatch)), handler_(std::move(handler)) {}
  ~Core() { stop(); }
  Core(const Core&) = delete;
  Core& operator=(const Core&) = delete;

  bool start(int socket) {
    daemon_ = MHD_start_daemon(
        MHD_USE_EPOLL | MHD_ALLOW_SUSPEND_RESUME, 0, &admits, this, &handles, this, MHD_OPTION_LISTEN_SOCKET,
        socket, MHD_OPTION_CONNECTION_LIMIT, static_cast<unsigned>(limits_.connections + 8),
        MHD_OPTION_CONNECTION_MEMORY_LIMIT, limits_.requestOctets, MHD_OPTION_CONNECTION_TIMEOUT,
        static_cast<unsigned>(limits_.stillTime.count()), MHD_OPTION_URI_LOG_CALLBACK, &begins, this,
        MHD_OPTION_NOTIFY_COMPLETED, &ends, this, MHD_OPTION_NOTIFY_CONNECTION, &connects, this,
        MHD_OPTION_STRICT_FOR_CLIENT, 1, MHD_OPTION_END);
    return daemon_ != nullptr;
  }

  int wakeDescriptor() const { return MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_EPOLL_FD)->epoll_fd; }

  std::chrono::milliseconds timeout() const {
    MHD_UNSIGNED_LONG_LONG left = 0;
    const std::chrono::milliseconds most = kLook;
    if (MHD_get_timeout(daemon_, &left) != MHD_YES) return most;
    return left < 1000 ? std::chrono::milliseconds(left) : most;
  }

  void run() {
    MHD_run(daemon_);
    const dispatch_time_t now = dispatch_->now();
    if (now < nextLook_) return;
    nextLook_ = now + kLook;
    endOverdue(now);
  }

  void answer(uint64_t number, Answer answer) {
    const auto found = exchanges_.find(number);
    if (found == exchanges_.end()) return;
    found->second->answer = std::move(answer);
    resume(*found->second);
  }

  void wakeStreams(const std::string& heartbeat) {
    for (auto& [number, exchange] : exchanges_) {
      if (!exchange->stream || !exchange->isSuspended) continue;
      if (!heartbeat.empty()) exchange->stream->say(heartbeat);
      if (exchange->stream->state() != EventStream::State::waiting) resume(*exchange);
    }
  }

  void tellStreams(std::string text) {
    const auto notice = std::make_shared<const std::string>(std::move(text));
    for (auto& [number, exchange] : exchanges_)
      if (exchange->stream) exchange->stream->tell(notice);
    wakeStreams({});
  }

  Census census() const { return {peers_.size(), streams_, refused_}; }

 private:
  enum class Phase { receiving, answering, streaming };
  // A connection.
  struct Peer {
    int socket = -1;
    std::string address{};
    Phase phase = Phase::receiving;
    dispatch_time_t since{};
  };
  // A request and its answer.
  struct Exchange {
    Core& core;
    uint64_t number = 0;
    MHD_Connection* connection = nullptr;
    Peer* peer = nullptr;
    std::string target{};
    bool isSeen = false;
    bool isHandled = false;
    bool isSuspended = false;
    std::optional<Answer> answer{};
    std::shared_ptr<EventStream> stream{};
  };

  static Core& of(void* self) { return *static_cast<Core*>(self); }

  // What the library calls.

  static MHD_Result admits(void* self, const sockaddr* address, socklen_t) {
    return of(self).hasRoomFor(address) ? MHD_YES : MHD_NO;
  }
  static void connects(void* self, MHD_Connection* connection, void** peer,
                       MHD_ConnectionNotificationCode code) {
    if (code == MHD_CONNECTION_NOTIFY_STARTED)
      *peer = of(self).addPeer(connection);
    else
      of(self).removePeer(static_cast<Peer*>(*peer));
  }
  static void* begins(void* self, const char* target, MHD_Connection* connection) {
    return of(self).addExchange(target, connection);
  }
  static MHD_Result handles(void* self, MHD_Connection*, const char*, const char* method, const char*,
                            const char*, size_t* uploaded,  // NOLINT(*-non-const-parameter): the interface's
                            void** exchange) {
    return of(self).handle(*static_cast<Exchange*>(*exchange), method, *uploaded > 0);
  }
  static void ends(void* self, MHD_Connection*, void** exchange, MHD_RequestTerminationCode) {
    of(self).removeExchange(static_cast<Exchange*>(*exchange));
    *exchange = nullptr;
  }
  static ssize_t reads(void* cls, uint64_t, char* to, size_t most) {
    auto& exchange = *static_cast<Exchange*>(cls);
    if (const std::size_t read = exchange.stream->read(to, most); read > 0) return static_cast<ssize_t>(read);
    if (exchange.stream->state() == EventStream::State::ended) return MHD_CONTENT_READER_END_OF_STREAM;
    exchange.core.suspend(exchange);
    return 0;
  }

  bool hasRoomFor(const sockaddr* address) {
    const auto isSame = [of = addressOf(address)](const auto& one) { return one.first->address == of; };
    const bool isFull = peers_.size() >= limits_.connections ||
                        (!isLoopbackAddress(address) && std::ranges::count_if(peers_, isSame) >=
                                                            static_cast<std::ptrdiff_t>(limits_.perAddress));
    if (isFull) ++refused_;
    return !isFull;
  }

  Peer* addPeer(MHD_Connection* connection) {
    auto peer = std::make_unique<Peer>();
    peer->socket = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD)->connect_fd;
    peer->address =
        addressOf(MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CLIENT_ADDRESS)->client_addr);
    peer->since = dispatch_->now();
    ::setsockopt(peer->socket, SOL_SOCKET, SO_SNDBUF, &kSendBuffer, sizeof kSendBuffer);
    const auto still = static_cast<unsigned>(std::chrono::milliseconds(limits_.stillTime).count());
    ::setsockopt(peer->socket, IPPROTO_TCP, TCP_USER_TIMEOUT, &still, sizeof still);
    Peer* key = peer.get();
    peers_.emplace(key, std::move(peer));
    return key;
  }
  void removePeer(Peer* peer) { peers_.erase(peer); }

  Exchange* addExchange(const char* target, MHD_Connection* connection) {
    auto exchange = std::make_unique<Exchange>(Exchange{*this, ++lastNumber_, connection});
    exchange->target = target;
    exchange->peer = static_cast<Peer*>(
        MHD_get_connection_info(connection, MHD_CONNECTION_INFO_SOCKET_CONTEXT)->socket_context);
    return exchanges_.emplace(lastNumber_, std::move(exchange)).first->second.get();
  }
  void removeExchange(Exchange* exchange) {
    if (exchange == nullptr) return;
    if (exchange->stream) --streams_;
    enter(*exchange->peer, Phase::receiving);
    exchanges_.erase(exchange->number);
  }

  void enter(Peer& peer, Phase phase) {
    peer.phase = phase;
    peer.since = dispatch_->now();
  }

  // First with the headers alone, when nothing of a body has come yet.
  MHD_Result handle(Exchange& exchange, std::string_view method, bool isUpload) {
    if (!std::exchange(exchange.isSeen, true)) {
      if (method != "GET" && method != "HEAD") return send(exchange, notAllowed());
      const std::string size = headerOf(exchange.connection, "Content-Length");
      if (!headerOf(exchange.connection, "Transfer-Encoding").empty() || (!size.empty() && size != "0"))
        return send(exchange, refusal(413, "nothing is taken here, only asked for"));
      return MHD_YES;
    }
    if (isUpload) return MHD_NO;
    if (!std::exchange(exchange.isHandled, true)) {
      enter(*exchange.peer, Phase::answering);
      askHandler(exchange);
    }
    if (exchange.answer) return send(exchange, *std::exchange(exchange.answer, std::nullopt));
    if (exchange.stream) return sendStream(exchange);
    suspend(exchange);
    return MHD_YES;
  }

  static Answer notAllowed() {
    Answer answer = refusal(405, "only GET and HEAD");
    answer.headers.emplace_back("Allow", "GET, HEAD");
    return answer;
  }

  void askHandler(Exchange& exchange) {
    auto target = targetOf(exchange.target);
    if (!target) {
      exchange.answer = refusal(400, "the address cannot be read");
      return;
    }
    const auto header = [&](const char* name) { return headerOf(exchange.connection, name); };
    const Request request{.target = *std::move(target),
                          .host = header("Host"),
                          .authorization = header("Authorization"),
                          .accept = header("Accept"),
                          .lastEventId = header("Last-Event-ID")};
    auto reply = handler_(request, exchange.number);
    if (!reply) return;
    if (auto* answer = std::get_if<Answer>(&*reply)) {
      exchange.answer = std::move(*answer);
    } else if (streams_ >= limits_.streams) {
      exchange.answer = refusal(503, "too many streams");
      exchange.answer->headers.emplace_back("Retry-After", "10");
    } else {
      exchange.stream = std::get<std::shared_ptr<EventStream>>(*std::move(reply));
      ++streams_;
    }
  }

  MHD_Result send(Exchange& exchange, const Answer& answer) {
    const Content& content = *answer.content;
    const std::string& tag = content.tag;
    const bool isKnown = answer.status == 200 && hasTag(headerOf(exchange.connection, "If-None-Match"), tag);
    const bool isZipped =
        !content.zipped.empty() && accepts(headerOf(exchange.connection, "Accept-Encoding"), "gzip");
    static const std::string kNothing;
    const Response response = responseOf(answer.content, isKnown    ? kNothing
                                                         : isZipped ? content.zipped
                                                                    : content.text);
    for (const auto& [name, value] : commonHeaders()) addHeader(response.get(), name, value);
    for (const auto& [name, value] : answer.headers) addHeader(response.get(), name, value);
    addHeader(response.get(), "Content-Type", content.type + "; charset=utf-8");
    addHeader(response.get(), "Vary", "Accept-Encoding");
    if (answer.status == 200) addHeader(response.get(), "ETag", "W/" + tag);
    if (isZipped && !isKnown) addHeader(response.get(), "Content-Encoding", "gzip");
    return MHD_queue_response(exchange.connection, isKnown ? MHD_HTTP_NOT_MODIFIED : answer.status,
                              response.get());
  }

  MHD_Result sendStream(Exchange& exchange) {
    enter(*exchange.peer, Phase::streaming);
    const Response response(
        MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, kStreamBlock, &reads, &exchange, nullptr));
    for (const auto& [name, value] : commonHeaders()) addHeader(response.get(), name, value);
    addHeader(response.get(), "Content-Type", "text/event-stream; charset=utf-8");
    addHeader(response.get(), "X-Accel-Buffering", "no");  // a proxy hands it on at once
    return MHD_queue_response(exchange.connection, MHD_HTTP_OK, response.get());
  }

  void suspend(Exchange& exchange) {
    exchange.isSuspended = true;
    MHD_suspend_connection(exchange.connection);
  }
  void resume(Exchange& exchange) {
    if (std::exchange(exchange.isSuspended, false)) MHD_resume_connection(exchange.connection);
  }

  // A client that sends or takes an octet now and then is never still, and still holds a place.
  void endOverdue(dispatch_time_t now) {
    for (const auto& [key, peer] : peers_) {
      const auto most = peer->phase == Phase::receiving ? limits_.requestTime : limits_.answerTime;
      if (peer->phase != Phase::streaming && now - peer->since > most) ::shutdown(peer->socket, SHUT_RDWR);
    }
  }

  void stop() {
    if (daemon_ == nullptr) return;
    for (auto& [number, exchange] : exchanges_) {
      if (exchange->stream) exchange->stream->end();
      if (exchange->isSuspended && !exchange->stream) exchange->answer = refusal(503, "the server ends");
      resume(*exchange);
    }
    for (int i = 0; i < kLastLooks; ++i) MHD_run(daemon_);
    MHD_stop_daemon(daemon_);
  }

  const HttpLimits limits_;
  const std::shared_ptr<platform::DispatchService> dispatch_;
  const Handler handler_;
  MHD_Daemon* daemon_ = nullptr;
  std::map<Peer*, std::unique_ptr<Peer>> peers_;
  std::map<uint64_t, std::unique_ptr<Exchange>> exchanges_;
  uint64_t lastNumber_ = 0;
  std::size_t streams_ = 0;
  uint64_t refused_ = 0;
  dispatch_time_t nextLook_{};
};

platform::Result<std::unique_ptr<HttpServer>> HttpServer::open(
    int socket, const HttpLimits& limits, std::shared_ptr<platform::DispatchService> dispatch,
    Handler handler) {
  auto core = std::make_unique<Core>(limits, std::move(dispatch), std::move(handler));
  if (!core->start(socket)) {
    ::shutdown(socket, SHUT_RDWR);
    return platform::Error{platform::Error::Kind::failed, "the web server does not start"};
  }
  return std::unique_ptr<HttpServer>(new HttpServer(std::move(core)));
}

HttpServer::HttpServer(std::unique_ptr<Core> core) : core_(std::move(core)) {}
HttpServer::~HttpServer() = default;

int HttpServer::wakeDescriptor() const {
  return core_->wakeDescriptor();
}
std::chrono::milliseconds HttpServer::timeout() const {
  return core_->timeout();
}
void HttpServer::run() {
  core_->run();
}
void HttpServer::answer(uint64_t number, Answer answer) {
  core_->answer(number, std::move(answer));
}
void HttpServer::wakeStreams(const std::string& heartbeat) {
  core_->wakeStreams(heartbeat);
}
void HttpServer::tellStreams(std::string notice) {
  core_->tellStreams(std::move(notice));
}
HttpServer::Census HttpServer::census() const {
  return core_->census();
}

}  // namespace brenloft::web
