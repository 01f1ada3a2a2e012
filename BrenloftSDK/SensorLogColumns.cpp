#include "BrenloftSDK/SensorLogColumns.h"

#include <string>

#include "platform/coredata/NSError.h"

SensorLogColumns::SensorLogColumns(const platform::NSEntityDescription& entity) {
  for (std::size_t i = 0; i < kCount; ++i) {
    const auto place = entity.indexOfAttribute(kMembers[i].name);
    if (!place) throw platform::NSInvalidArgumentException("no attribute " + std::string(kMembers[i].name));
    places_[i] = *place;
  }
}

std::size_t SensorLogColumns::presentMembers(const platform::StoredRow& row) const {
  std::size_t count = 0;
  while (count < kCount && !std::holds_alternative<std::monostate>(valueAt(row, count))) ++count;
  return count;
}
