#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "gateway/history/HistoryReader.h"

namespace brenloft {

/// A quantity over time, to be drawn with characters.
struct Chart {
  std::string title;                  ///< what stands above it
  int32_t unitSize = 1;               ///< of the values: 100 for hundredths
  HistorySpan span;                   ///< from the left to the right
  platform::Date now;                 ///< times of another day are told with it
  std::vector<HistoryPoint> points;   ///< by time
  std::vector<std::size_t> breaks{};  ///< before these points the line is broken
};

struct ChartForm {
  std::size_t width = 80;  ///< columns
  bool isBraille = true;   ///< else ASCII
};

/// Lines of text. Every value stays visible: a column goes from the smallest to the largest of its time, so
/// that one reading that is far off is a spike. Pure but for the local zone.
std::string drawn(const Chart& chart, const ChartForm& form);

}  // namespace brenloft
