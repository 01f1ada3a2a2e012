#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "BrenloftSDK/BRLDataModel.h"
#include "BrenloftSDK/BRLSensorFrame.h"
#include "tools/brenloft/JsonLine.h"

namespace brenloft {

/// An object with the ten readings, or null.
void writeReadings(JsonLine& line, const std::optional<BRLSensorReadings>& readings);

/// The ten readings as fields of a CSV line, empty ones without readings, and their names.
std::string readingsFields(const std::optional<BRLSensorReadings>& readings);
inline constexpr std::string_view kReadingsNames =
    "uniqueId,txPower,temperature,humidity,battery,emergency,tbd,xAccel,yAccel,zAccel";

/// "23.45 50.00 tx 0 battery 100 …", for people.
std::string readingsText(const BRLSensorReadings& readings);

/// An object with the eighteen properties in their declared order, absent texts and dates as null.
void writeRecord(JsonLine& line, const BRLBeaconSnapshot& record);

/// The columns of a record in a table for people, and their names.
std::string recordRow(const BRLBeaconSnapshot& record);
std::string recordHeader();

}  // namespace brenloft
