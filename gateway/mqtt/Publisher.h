#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "gateway/configuration/LiveSettings.h"
#include "gateway/mqtt/CursorFile.h"
#include "gateway/mqtt/Discovery.h"
#include "gateway/mqtt/MosquittoClient.h"
#include "gateway/mqtt/Outbox.h"
#include "platform/dispatch/Dispatch.h"
#include "platform/foundation/Error.h"

namespace brenloft {

struct PublisherOptions {
  std::filesystem::path history;
  std::filesystem::path cursor;
  /// The first row to be published, whatever the cursor says; absent: where the cursor stands, and without
  /// one what comes from now on.
  std::optional<int64_t> from{};
  bool isFromNow = false;  ///< the same: nothing that is there already
  std::string gateway{};
  Broker broker{};
  Outbox::Options limits{};
  Discovery::Options discovery{};
  std::string version{};
  std::string source{};  ///< where the same process hears; "" where another does
};

/// Follows a history and publishes it: what puts the session, its client and the files together.
///
/// Threads: `run` on one; `stop` and `wake` any.
class Publisher {
 public:
  Publisher(PublisherOptions options, std::shared_ptr<platform::DispatchService> dispatch,
            std::shared_ptr<LiveSettings> settings, std::function<void(const std::string& line)> onLine);
  ~Publisher();
  Publisher(const Publisher&) = delete;
  Publisher& operator=(const Publisher&) = delete;

  /// Until `stop`. An error is one that trying again does not mend.
  platform::Result<> run();
  void stop();
  /// The settings in force may be others.
  void wake();

 private:
  class Run;

  platform::Result<Cursor> firstCursor(HistoryReader& reader, bool isFirst, bool isNew);
  platform::Result<> waitForHistory();

  const PublisherOptions options_;
  const std::shared_ptr<platform::DispatchService> dispatch_;
  const std::shared_ptr<LiveSettings> settings_;
  const std::function<void(const std::string&)> onLine_;
  const int wake_;  // an event descriptor
  std::atomic<bool> isStopped_{false};
};

}  // namespace brenloft
