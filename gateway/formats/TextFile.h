#pragma once

#include <cstddef>
#include <filesystem>
#include <memory>
#include <string_view>

#include "gateway/Sink.h"
#include "platform/dispatch/Dispatch.h"
#include "platform/foundation/Error.h"

namespace brenloft {

/// A file that lines are added to. Writing never waits for the medium: what it cannot take waits in memory,
/// `kMostWaiting` octets at the most, and is tried again every second; lines beyond that are dropped. A named
/// pipe must have its reader when it is opened.
///
/// Threads: one call at a time, on the queue of the handler. The file is worked on in blocks of a queue of
/// its own.
class TextFile {
 public:
  static constexpr std::size_t kMostWaiting = 4 << 20;

  /// Adds to a file that is there. An error names the file.
  static platform::Result<std::unique_ptr<TextFile>> open(
      const std::filesystem::path& file, const std::shared_ptr<platform::DispatchService>& dispatch,
      platform::dispatch_queue_t handlerQueue, Sink::StateHandler handler);
  ~TextFile();
  TextFile(const TextFile&) = delete;
  TextFile& operator=(const TextFile&) = delete;

  /// Whole lines. False when they were dropped.
  bool write(std::string_view lines);
  void flush();
  /// Opens the name again, once what waits is written.
  void reopen();
  Sink::State state() const;

 private:
  class Core;
  explicit TextFile(std::shared_ptr<Core> core);

  const std::shared_ptr<Core> core_;
};

}  // namespace brenloft
