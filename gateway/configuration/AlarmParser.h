#pragma once

#include <map>
#include <string>

#include "gateway/configuration/SectionValues.h"
#include "gateway/configuration/Settings.h"

namespace brenloft {

/// Adds the rule of one `[[alarm]]` that begins in this line, or complains of it. The beacons are known.
void addAlarm(const TomlValue::Table& table, unsigned line, Settings& settings, Complaints& complaints);

}  // namespace brenloft
