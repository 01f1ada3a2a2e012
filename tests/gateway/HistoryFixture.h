#pragma once

#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "gateway/history/HistoryReader.h"
#include "gateway/history/HistoryWriter.h"
#include "platform/dispatch/VirtualDispatch.h"
#include "tests/foundation/TemporaryFolder.h"

namespace brenloft {

inline const platform::Date kNow = std::chrono::sys_days(std::chrono::year(2026) / 11 / 21);

/// A history on virtual time.
class HistoryTest : public testing::Test {
 protected:
  std::unique_ptr<HistoryWriter> openWriter(const HistoryOptions& options = {}) {
    auto opened = HistoryWriter::open(file_, options, dispatch_, dispatch_->mainQueue(),
                                      [this](const Sink::State& state) { states_.push_back(state); });
    EXPECT_TRUE(opened) << (opened ? "" : opened.error().text);
    return opened ? *std::move(opened) : nullptr;
  }
  std::unique_ptr<HistoryReader> openReader() {
    auto opened = HistoryReader::open(file_);
    EXPECT_TRUE(opened) << (opened ? "" : opened.error().text);
    return opened ? *std::move(opened) : nullptr;
  }
  std::string openProblem() {
    const auto opened = HistoryWriter::open(file_, {}, dispatch_, dispatch_->mainQueue(), {});
    return opened ? "" : opened.error().text;
  }

  static BeaconId beacon(int number) {
    if (number % 4 == 3)
      return BeaconId::iBeacon("51C70E2A-9B44-4D1F-8A63-2FD075E81C36", 1, static_cast<uint16_t>(number));
    return BeaconId::sensor("C0-C1-5C-00-00-0" + std::to_string(number));
  }
  static Reading reading(int number, platform::Date heard, int32_t temperature) {
    Reading reading{.beacon = beacon(number), .heard = heard, .rssi = -60};
    reading.raw.temperature = reading.shown.temperature = temperature;
    reading.raw.battery = reading.shown.battery = 90;
    return reading;
  }

  /// All that is there, in pages of an odd size.
  static std::vector<HistoryRow> allRows(HistoryReader& reader, const HistoryFilter& filter = {},
                                         int64_t after = 0) {
    std::vector<HistoryRow> rows;
    for (bool isLast = false; !isLast;) {
      auto page = reader.rows(after, filter, 777);
      if (!page) {
        ADD_FAILURE() << page.error().text;
        return rows;
      }
      EXPECT_LE(page->rows.size(), 777U);
      for (auto& row : page->rows) rows.push_back(std::move(row));
      after = page->through;
      isLast = page->isLast;
    }
    return rows;
  }

  test::TemporaryFolder folder_;
  const std::filesystem::path file_ = folder_ / kHistoryFileName;
  const std::shared_ptr<platform::VirtualDispatch> dispatch_ = platform::VirtualDispatch::make(kNow);
  std::vector<Sink::State> states_;
};

}  // namespace brenloft
