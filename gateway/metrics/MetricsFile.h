#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "gateway/Sink.h"
#include "platform/dispatch/Dispatch.h"

namespace brenloft {

/// A file that says how it is now, written whole every so often and at each `flush`: another program finds
/// the old one or the new one, never half of it. A medium that stalls leaves out what became old meanwhile.
///
/// Threads: as a `Sink`. The file is worked on in blocks of a queue of its own.
class MetricsFile final : public Sink {
 public:
  /// `make` and `handler` are called on `queue`.
  using Make = std::function<std::string()>;
  MetricsFile(std::filesystem::path file, std::shared_ptr<platform::DispatchService> dispatch,
              platform::dispatch_queue_t queue, Make make, StateHandler handler);
  ~MetricsFile() override;

  /// The first is written now.
  void writeEvery(std::chrono::microseconds interval);

  void accept(const Record&) override {}
  void flush() override;
  State state() const override;

 private:
  class Core;
  const std::shared_ptr<Core> core_;
};

}  // namespace brenloft
