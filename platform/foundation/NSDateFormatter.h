#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/foundation/Date.h"
#include "platform/foundation/Export.h"

namespace platform {

/// Writes dates as texts in the local time zone (TZ, else /etc/localtime), Gregorian throughout.
///
/// A format consists of the fields yyyy, MM, dd, HH (00-23), mm, ss, SSS (milliseconds), SSSSSS
/// (microseconds) and xxx (the zone's offset: `+09:00`); everything else is written as it is. Fractions are
/// cut off towards the past, also before 1970. Threads: one at a time; a formatter remembers the zone's
/// latest offsets.
class BRL_EXPORT NSDateFormatter {
 public:
  explicit NSDateFormatter(std::string_view dateFormat);

  std::string stringFromDate(Date date);
  /// The same at the end of a text, for long lists.
  void appendDate(Date date, std::string& text);

 private:
  struct Field {
    char letter;  // 0 for literal text
    std::string literal;
  };
  struct LocalOffset {
    int64_t quarterHour = INT64_MIN;  // since 1970
    std::chrono::seconds offset{};    // east of UTC
  };

  std::chrono::seconds offsetAt(std::chrono::sys_seconds instant);

  std::vector<Field> fields_;
  LocalOffset recent_;
};

/// RFC 3339 in UTC with microseconds: `2026-01-31T12:34:56.789012Z`.
BRL_EXPORT std::string rfc3339Text(Date date);

}  // namespace platform
