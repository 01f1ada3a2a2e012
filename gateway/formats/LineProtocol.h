#pragma once

#include <string>
#include <string_view>

#include "gateway/Record.h"

namespace brenloft {

/// Appends a record in InfluxDB's line protocol, with its line end:
/// `reading,id=C0-C1-5C-00-00-01,name=Fridge temperature=4.21,rssi=-60i 1767225600061993000`. What is absent
/// is left out; a reading without any value appends nothing.
void appendLineProtocol(std::string& lines, const Record& record, const Label& label);

/// Appends a line of another measurement of a beacon; `fields` as the protocol has them, `a=1,b=2i`.
void appendLineProtocol(std::string& lines, std::string_view measurement, const BeaconId& beacon,
                        const Label& label, std::string_view fields, platform::Date time);

}  // namespace brenloft
