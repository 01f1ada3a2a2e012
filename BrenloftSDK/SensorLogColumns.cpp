#include "BrenloftSDK/SensorLogColumns.h"

#include <string>

#include "platform/coredata/NSInvalidArgumentException.h"

SensorLogColumns::SensorLogColumns(const platform::NSEntityDescription& entity) {
  for (std::size_t i = 0; i < places_.size(); ++i) {
    const std::string_view name = kSensorLogMembers[i].name;
    const auto place = entity.indexOfAttribute(name);
    if (!place) throw platform::NSInvalidArgumentException("no attribute " + std::string(name));
    places_[i] = *place;
  }
}

std::size_t SensorLogColumns::presentMembers(const platform::StoredRow& row) const {
  std::size_t count = 0;
  while (count < places_.size() && !std::holds_alternative<std::monostate>(valueAt(row, count))) ++count;
  return count;
}
