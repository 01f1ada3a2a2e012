#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "BrenloftSDK/SensorLogColumns.h"
#include "platform/foundation/JSONWriter.h"
#include "platform/foundation/NSDateFormatter.h"

/// Writes rows of the sensor log as one pretty-printed JSON array, in pieces. Octets of a text that are no
/// UTF-8 become U+FFFD.
///
/// Threads: one at a time.
class SensorLogJSON {
 public:
  using Sink = std::function<void(std::string_view piece)>;

  SensorLogJSON(const platform::NSEntityDescription& entity, Sink sink);

  void add(const platform::StoredRow& row);
  /// Ends the document and hands over its last piece.
  void finish();

 private:
  void addValue(BRLKind kind, const platform::StoredView& value);
  void handOver();

  SensorLogColumns columns_;
  platform::NSDateFormatter dates_;
  std::string date_;
  Sink sink_;
  platform::JSONWriter json_{platform::JSONWriter::Layout::indented};
};
