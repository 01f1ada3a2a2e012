#pragma once

#include <array>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "gateway/formats/RecordLines.h"
#include "gateway/history/HistoryReader.h"
#include "tools/brenloft/HistoryCommand.h"
#include "tools/brenloft/TimeText.h"

namespace brenloft {

/// The history as lines, in the format that was asked for.
///
/// Threads: one at a time.
class HistoryLines {
 public:
  using Labels = std::function<Label(const BeaconId&)>;

  HistoryLines(HistoryFormat format, const std::optional<TimeForm>& time, Labels labels);

  /// Rows of a table get a column: how old each was at this instant.
  void addAges(platform::Date at) { agesAt_ = at; }

  // Each is appended.

  void header(std::string& lines);
  void row(std::string& lines, const HistoryRow& row);

  /// What beacons did in a while.
  static constexpr std::array kQuantities{Quantity::temperature, Quantity::humidity, Quantity::battery,
                                          Quantity::rssi};
  using Points = std::array<HistoryPoint, kQuantities.size()>;
  void pointHeader(std::string& lines);
  void points(std::string& lines, platform::Date start, const BeaconId& beacon, const Points& points);

 private:
  std::string shownName(const BeaconId* beacon) const;
  void tableRow(std::string& lines, const HistoryRow& row);
  void csvRow(std::string& lines, const HistoryRow& row);
  void tablePoints(std::string& lines, platform::Date start, const BeaconId& beacon, const Points& points);
  void csvPoints(std::string& lines, platform::Date start, const BeaconId& beacon, const Points& points);
  void jsonPoints(std::string& lines, platform::Date start, const BeaconId& beacon, const Points& points);
  void influxPoints(std::string& lines, platform::Date start, const BeaconId& beacon, const Points& points);

  std::string ageCell(const std::string& text) const;

  const HistoryFormat format_;
  const Labels labels_;
  TimeText times_;
  std::optional<platform::Date> agesAt_;
  RecordLines records_;
};

}  // namespace brenloft
