#pragma once

#include <string>
#include <string_view>

#include "platform/foundation/Date.h"
#include "platform/foundation/JSONWriter.h"
#include "tools/brenloft/Options.h"
#include "tools/brenloft/TimeText.h"

namespace brenloft {

/// Writes one line of JSON after the other, each one value, with dates in one form.
///
/// Threads: one at a time.
class JsonLine : public platform::JSONWriter {
 public:
  explicit JsonLine(TimeForm timeForm = TimeForm::epoch) : timeForm_(timeForm), times_(timeForm) {}

  /// A number: seconds since 1970 with six decimals; in the other forms a text.
  void date(platform::Date date) {
    if (date != date_ || time_.empty()) {
      time_.clear();
      times_.appendWhole(date, time_);
      date_ = date;
    }
    if (timeForm_ == TimeForm::epoch)
      raw(time_);
    else
      text(time_);
  }

  /// The line with its end; the next one begins. Valid until then.
  std::string_view take() {
    endLine();
    const std::string_view line = written();
    clear();
    return line;
  }

 private:
  const TimeForm timeForm_;
  TimeText times_;
  platform::Date date_;  // the latest; those of one event are mostly the same
  std::string time_;
};

}  // namespace brenloft
