#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

#include "platform/foundation/Date.h"
#include "platform/foundation/NSDateFormatter.h"
#include "tools/brenloft/Options.h"

namespace brenloft {

/// The form that was asked for; else people read local time, and programs seconds since 1970.
TimeForm timeFormOf(const std::optional<TimeForm>& asked, Format format);

/// How long ago, in one unit: "0s", "59s", "12m", "23h", "9d".
std::string ageText(platform::Date heard, platform::Date now);

/// Writes times in one form, each with its zone.
///
/// Threads: one at a time.
class TimeText {
 public:
  explicit TimeText(TimeForm form);

  /// "2026-01-31T13:34:56.789012+01:00", "2026-01-31T12:34:56.789012Z", "1769862896.789012"
  std::string whole(platform::Date date);
  /// The same at the end of a text, for many of them.
  void appendWhole(platform::Date date, std::string& text);
  /// Without the day: "13:34:56+01:00", "12:34:56Z", "1769862896"
  std::string clock(platform::Date date);
  /// How long they are in this millennium, for the columns of a table.
  std::size_t wholeWidth() { return whole(kToday).size(); }
  std::size_t clockWidth() { return clock(kToday).size(); }

 private:
  static constexpr platform::Date kToday = std::chrono::sys_days(std::chrono::year(2026) / 1 / 1);

  const TimeForm form_;
  platform::NSDateFormatter whole_;
  platform::NSDateFormatter clock_;
};

}  // namespace brenloft
