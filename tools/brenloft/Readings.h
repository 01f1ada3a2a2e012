#pragma once

#include <optional>
#include <string>

#include "BrenloftSDK/BRLDataModel.h"
#include "BrenloftSDK/BRLSensorFrame.h"
#include "tools/brenloft/JsonLine.h"
#include "tools/brenloft/TimeText.h"

namespace brenloft {

/// An object with the ten readings, or null.
void writeReadings(JsonLine& line, const std::optional<BRLSensorReadings>& readings);

/// The ten readings as fields of a CSV line, empty ones without readings, and their names.
void appendReadings(std::string& fields, const std::optional<BRLSensorReadings>& readings);
std::string readingsNames();

/// "23.45 50.00 tx 0 battery 100 …", for people.
std::string readingsText(const BRLSensorReadings& readings);

/// An object with the eighteen properties in their declared order, absent texts and dates as null.
void writeRecord(JsonLine& line, const BRLBeaconSnapshot& record);

/// The eighteen properties as fields of a CSV line, absent ones empty, and their names.
void appendRecord(std::string& fields, const BRLBeaconSnapshot& record, TimeText& times);
std::string recordNames();

/// The columns of a record in a table for people, and their names.
std::string recordRow(const BRLBeaconSnapshot& record);
std::string recordHeader();

}  // namespace brenloft
