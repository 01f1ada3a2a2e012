#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <variant>

#include "gateway/web/Answer.h"
#include "gateway/web/EventStream.h"
#include "gateway/web/Request.h"
#include "platform/dispatch/Dispatch.h"
#include "platform/foundation/Error.h"

namespace brenloft::web {

struct HttpLimits {
  std::size_t connections = 640;
  std::size_t streams = 520;    ///< of these; the rest stays free for questions
  std::size_t perAddress = 32;  ///< of one machine; behind a proxy on this one are many
  std::size_t requestOctets = std::size_t{16} * 1024;
  std::chrono::seconds requestTime{10};  ///< for a whole request to come, or the next one
  std::chrono::seconds answerTime{60};   ///< for an answer to be made and taken
  std::chrono::seconds stillTime{20};    ///< without an octet, streams too
};

/// Takes requests from a socket and sends answers: what knows HTTP and clients, and nothing of beacons. It
/// lives in the loop of its caller, who waits on its descriptor.
///
/// Threads: one.
class HttpServer {
 public:
  using Reply = std::variant<Answer, std::shared_ptr<EventStream>>;
  /// Answers a request of GET or HEAD; nothing: `answer` will be called with this number.
  using Handler = std::function<std::optional<Reply>(const Request& request, uint64_t number)>;

  struct Census {
    std::size_t connections = 0;
    std::size_t streams = 0;
    uint64_t refused = 0;  ///< connections
  };

  /// The socket listens, and is the server's from now on.
  static platform::Result<std::unique_ptr<HttpServer>> open(
      int socket, const HttpLimits& limits, std::shared_ptr<platform::DispatchService> dispatch,
      Handler handler);
  ~HttpServer();
  HttpServer(const HttpServer&) = delete;
  HttpServer& operator=(const HttpServer&) = delete;

  /// Readable when `run` should be called. Watch it, do not read it.
  int wakeDescriptor() const;
  /// At the latest after this long.
  std::chrono::milliseconds timeout() const;
  void run();
  /// The request may be gone.
  void answer(uint64_t number, Answer answer);
  /// Streams may have something new to say; `heartbeat`, where it is not empty, is said by those that have
  /// not.
  void wakeStreams(const std::string& heartbeat = {});
  /// Every stream says this, also one that is busy now; of several, the newest.
  void tellStreams(std::string notice);
  Census census() const;

 private:
  class Core;
  explicit HttpServer(std::unique_ptr<Core> core);

  const std::unique_ptr<Core> core_;
};

}  // namespace brenloft::web
