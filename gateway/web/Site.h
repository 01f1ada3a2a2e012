#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>

#include "gateway/configuration/LiveSettings.h"
#include "gateway/formats/RecordLines.h"
#include "gateway/history/HistoryIdentity.h"
#include "gateway/web/Answer.h"
#include "gateway/web/PageModel.h"
#include "gateway/web/Request.h"
#include "platform/dispatch/Dispatch.h"

namespace brenloft::web {

/// What stands under each path and has to be read: the page, its programming interface, the stream's past.
///
/// Threads: one at a time, unless its comment says otherwise.
class Site {
 public:
  Site(std::filesystem::path history, std::string title, std::shared_ptr<platform::DispatchService> dispatch,
       std::shared_ptr<LiveSettings> settings);
  ~Site();
  Site(const Site&) = delete;
  Site& operator=(const Site&) = delete;

  Answer answer(const Request& request);
  /// The next events after a row as the stream says them, and through which row; without new ones the same
  /// row.
  std::pair<std::string, int64_t> eventsAfter(int64_t seq);
  /// Something happened in this row: what was made of earlier ones is old. Threads: any.
  void happened(int64_t seq) { happened_ = seq; }

  /// A row as the stream says it.
  static std::string eventText(const HistoryRow& row, const Settings& settings, RecordLines& lines);

 private:
  struct View;

  HistoryReader* reader();
  const View& view();
  bool isFresh(const View& view, bool isWritten) const;
  bool isWritten() const;
  platform::Result<PageModel> readModel(const Settings& settings, bool isWritten);
  Answer page(const Request& request);
  Answer beacons(const Request& request);
  Answer history(const Request& request);
  Answer health(const Request& request);

  const std::filesystem::path file_;
  const std::string title_;
  const std::shared_ptr<platform::DispatchService> dispatch_;
  const std::shared_ptr<LiveSettings> settings_;
  std::unique_ptr<HistoryReader> reader_;
  HistoryIdentity identity_;
  std::unique_ptr<View> view_;
  std::atomic<int64_t> happened_{0};
  RecordLines lines_{RecordLines::Format::readings};
};

}  // namespace brenloft::web
