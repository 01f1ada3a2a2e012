#pragma once

#include <atomic>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "gateway/Secret.h"
#include "gateway/configuration/LiveSettings.h"
#include "gateway/web/HttpServer.h"
#include "gateway/web/ListenAddress.h"
#include "platform/dispatch/Dispatch.h"
#include "platform/foundation/Error.h"

namespace brenloft::web {

struct PageServerOptions {
  std::filesystem::path history{};
  std::string title = "Beacons";
  ListenAddress listen{};
  std::string version{};
  std::optional<Secret> token{};  ///< what every request must know
  HttpLimits limits{};
};

/// Follows a history and serves the live page of it: what puts the server, the site and the stream together.
/// It only reads.
///
/// Threads: `run` on one; `stop` and `wake` any.
class PageServer {
 public:
  /// Listens from now on, and answers once it runs.
  static platform::Result<std::unique_ptr<PageServer>> open(
      PageServerOptions options, std::shared_ptr<platform::DispatchService> dispatch,
      std::shared_ptr<LiveSettings> settings);
  ~PageServer();
  PageServer(const PageServer&) = delete;
  PageServer& operator=(const PageServer&) = delete;

  /// "http://127.0.0.1:8880/"
  std::string url() const;
  /// Until `stop`. `onReady` is called once it answers. An error is one that trying again does not mend.
  platform::Result<> run(const std::function<void()>& onReady = {});
  void stop();
  /// The settings in force may be others.
  void wake();

 private:
  class Run;
  PageServer(PageServerOptions options, std::shared_ptr<platform::DispatchService> dispatch,
             std::shared_ptr<LiveSettings> settings, int socket);

  const PageServerOptions options_;
  const std::shared_ptr<platform::DispatchService> dispatch_;
  const std::shared_ptr<LiveSettings> settings_;
  const int socket_;
  const int wake_;  // an event descriptor
  std::atomic<bool> isStopped_{false};
};

}  // namespace brenloft::web
