#pragma once

#include <array>
#include <functional>
#include <string>
#include <string_view>

#include "BrenloftSDK/SensorLogColumns.h"
#include "platform/foundation/NSDateFormatter.h"

/// Writes rows of the sensor log as one pretty-printed JSON array (RFC 8259), in pieces. Written by hand
/// because what goes between two values is always the same text, which a general writer would put together
/// anew for each of millions of rows.
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

  SensorLogColumns columns_;
  platform::NSDateFormatter dates_;
  Sink sink_;
  std::array<std::string, kSensorLogMembers.size()> keys_;
  std::string text_;
  bool empty_ = true;
};

/// Appends a text as a JSON string. Octets that are no UTF-8 become U+FFFD.
void appendJSONString(std::string& out, std::string_view text);
