#pragma once

#include <memory>

#include "BrenloftSDK/BRLDataModel.h"
#include "BrenloftSDK/SensorLogColumns.h"
#include "platform/foundation/NSDateFormatter.h"
#include "platform/foundation/Value.h"

/// Turns rows of the sensor log into records. Threads: one at a time.
class SensorLogRecords {
 public:
  explicit SensorLogRecords(const platform::NSEntityDescription& entity);

  std::shared_ptr<BRLBeaconDataModel> recordOf(const platform::StoredRow& row);

 private:
  platform::Value valueOf(BRLKind kind, const platform::StoredView& value);

  SensorLogColumns columns_;
  platform::NSDateFormatter dates_;
  platform::Dictionary dictionary_;  // of the row before: most rows have the same keys
};
