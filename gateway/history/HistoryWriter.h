#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string_view>

#include "gateway/KeptState.h"
#include "gateway/history/HistoryOptions.h"
#include "platform/dispatch/Dispatch.h"
#include "platform/foundation/Error.h"

namespace brenloft {

/// The history's name in a container.
inline constexpr std::string_view kHistoryFileName = "history.sqlite";

/// Writes the history: routine readings thinned and in batches of a second, everything else at once with what
/// waits before it. A plausible reading of every beacon; what is not plausible is only counted.
///
/// What cannot be written waits in memory, so much at the most; beyond that readings are dropped, and then
/// events. Once it can be written again, a `gap` says how many were.
///
/// Threads: as a `Sink`. The file is worked on in blocks of a queue of its own.
class HistoryWriter final : public KeepingSink {
 public:
  struct Counts {
    uint64_t written = 0;
    uint64_t thinned = 0;
    uint64_t implausible = 0;
    uint64_t dropped = 0;  ///< for want of room, in memory or on the disk
    uint64_t waiting = 0;

    friend bool operator==(const Counts&, const Counts&) = default;
  };

  /// Makes the file where there is none. An error is one line without the file's name: it is another
  /// application's, or another version's, or another process writes it (`busy`). `handler` is called on
  /// `handlerQueue`.
  static platform::Result<std::unique_ptr<HistoryWriter>> open(
      const std::filesystem::path& file, const HistoryOptions& options,
      std::shared_ptr<platform::DispatchService> dispatch, platform::dispatch_queue_t handlerQueue,
      StateHandler handler);
  /// Writes what waits.
  ~HistoryWriter() override;

  void accept(const Record& record) override;
  void accept(const Record& record, const KeptState& state) override;
  void keep(const KeptState& state) override;
  void flush() override;
  State state() const override;
  /// What was accepted is written, thinned, implausible, dropped or waiting.
  Counts counts() const;

 private:
  class Core;
  explicit HistoryWriter(std::shared_ptr<Core> core);

  const std::shared_ptr<Core> core_;
};

}  // namespace brenloft
