#pragma once

#include "BrenloftSDK/SensorLog+CoreDataProperties.h"

/// One logged reading: a row of the sensor log. Thread safety: as NSManagedObject.
class BRL_EXPORT SensorLog : public SensorLogCoreDataProperties {};
