#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "gateway/Record.h"
#include "platform/foundation/JSONWriter.h"
#include "platform/foundation/NSDateFormatter.h"

namespace brenloft {

/// Records as lines of text for other programs, the same for what is heard now and for what was kept.
///
/// `readings` is one JSON object per line: times in ISO form with their zone, numbers as numbers, null for
/// what is absent. `influx` is InfluxDB's line protocol.
///
/// Threads: one at a time.
class RecordLines {
 public:
  enum class Format { readings, influx };
  enum class Zone { utc, local };

  /// The zone is that of `readings`; the line protocol counts nanoseconds.
  explicit RecordLines(Format format, Zone zone = Zone::utc);

  /// Appends the record's line with its end. `seq` is its number in the history, where it has one. Nothing is
  /// appended for a record that the line protocol cannot say: one without any value.
  void append(std::string& lines, const Record& record, const Label& label,
              std::optional<uint64_t> seq = std::nullopt);

 private:
  void appendReadings(std::string& lines, const Record& record, const Label& label,
                      std::optional<uint64_t> seq);
  std::string timeOf(const Record& record);

  const Format format_;
  const Zone zone_;
  platform::NSDateFormatter local_;
  platform::JSONWriter json_;
};

}  // namespace brenloft
