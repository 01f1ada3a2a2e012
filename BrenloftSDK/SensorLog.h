#pragma once

#include "BrenloftSDK/SensorLog+CoreDataProperties.h"

struct BRLBeaconSnapshot;

/// One logged reading: a row of the sensor log. Thread safety: as NSManagedObject.
class BRL_EXPORT SensorLog : public SensorLogCoreDataProperties {
 private:
  friend class BRLDataManager;
  /// Takes every property of a record.
  void fill(BRLBeaconSnapshot record);
};
