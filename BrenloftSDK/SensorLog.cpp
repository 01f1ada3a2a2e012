#include "BrenloftSDK/SensorLog.h"

#include "BrenloftSDK/BRLProperties.h"

namespace {

// A property as the store keeps it.

std::optional<int64_t> storedForm(int64_t integer) {
  return integer;
}
std::optional<int64_t> storedForm(uint64_t integer) {
  return static_cast<int64_t>(integer);
}
std::optional<double> storedForm(std::optional<platform::Date> date) {
  return date ? std::optional(platform::timeIntervalSince1970(*date)) : std::nullopt;
}
BRLOptionalText storedForm(BRLOptionalText&& text) {
  return std::move(text);
}

}  // namespace

void SensorLog::fill(BRLBeaconSnapshot record) {
  BRLForEach(kBRLProperties, [&](const auto& property) {
    setStored(storedForm(std::move(record.*property.member)), {property.name, property.column});
  });
}
