#include "BrenloftSDK/SensorLogJSON.h"

#include <cstdint>
#include <utility>

#include "platform/foundation/Date.h"

namespace {

constexpr std::size_t kPieceSize = std::size_t{64} * 1024;

}  // namespace

SensorLogJSON::SensorLogJSON(const platform::NSEntityDescription& entity, Sink sink)
    : columns_(entity), dates_("yyyyMMddHHmmss"), sink_(std::move(sink)) {
  json_.beginArray();
}

void SensorLogJSON::add(const platform::StoredRow& row) {
  json_.beginObject();
  const std::size_t present = columns_.presentMembers(row);
  for (std::size_t i = 0; i < present; ++i) {
    json_.plainKey(kSensorLogMembers[i].name);
    addValue(kSensorLogMembers[i].kind, columns_.valueAt(row, i));
  }
  json_.endObject();
  if (json_.written().size() >= kPieceSize) handOver();
}

void SensorLogJSON::addValue(BRLKind kind, const platform::StoredView& value) {
  switch (kind) {
    case BRLKind::integer:
      json_.number(std::get<int64_t>(value));
      return;
    case BRLKind::unsignedInteger:
      json_.number(static_cast<uint64_t>(std::get<int64_t>(value)));
      return;
    case BRLKind::text:
      json_.text(std::get<std::string_view>(value));
      return;
    case BRLKind::date:
      date_.clear();
      dates_.appendDate(platform::dateWithTimeIntervalSince1970(std::get<double>(value)), date_);
      json_.text(date_);
      return;
  }
}

void SensorLogJSON::handOver() {
  sink_(json_.written());
  json_.clear();
}

void SensorLogJSON::finish() {
  json_.endArray();
  handOver();
}
