#include "BrenloftSDK/SensorLogRecords.h"

#include <string>

#include "platform/foundation/Date.h"

using platform::Value;

SensorLogRecords::SensorLogRecords(const platform::NSEntityDescription& entity)
    : columns_(entity), dates_("yyyy-MM-dd HH:mm:ss") {}

std::shared_ptr<BRLBeaconDataModel> SensorLogRecords::recordOf(const platform::StoredRow& row) {
  const std::size_t present = columns_.presentMembers(row);
  if (dictionary_.size() > present) dictionary_.clear();
  for (std::size_t i = 0; i < present; ++i) {
    const auto& member = kSensorLogMembers[i];
    auto place = dictionary_.find(member.name);
    if (place == dictionary_.end()) place = dictionary_.emplace(std::string(member.name), Value()).first;
    place->second = valueOf(member.kind, columns_.valueAt(row, i));
  }
  return std::make_shared<BRLBeaconDataModel>(dictionary_);
}

Value SensorLogRecords::valueOf(BRLKind kind, const platform::StoredView& value) {
  switch (kind) {
    case BRLKind::integer:
      return platform::NSNumber(std::get<int64_t>(value));
    case BRLKind::unsignedInteger:
      return platform::NSNumber(static_cast<uint64_t>(std::get<int64_t>(value)));
    case BRLKind::text:
      return std::string(std::get<std::string_view>(value));
    case BRLKind::date:
      break;
  }
  return dates_.stringFromDate(platform::dateWithTimeIntervalSince1970(std::get<double>(value)));
}
