#include "gateway/history/ChunkReading.h"

namespace brenloft::history {

std::optional<int32_t> numberAt(const platform::SQLiteStatement& statement, int column) {
  const auto view = statement.viewAt(column, platform::NSAttributeType::Integer64);
  const auto* number = std::get_if<int64_t>(&view);
  return number != nullptr ? std::optional(static_cast<int32_t>(*number)) : std::nullopt;
}

void eachReading(platform::SQLiteDatabase& database, int64_t first, int64_t last,
                 const std::function<void(const ChunkReading&)>& take) {
  auto statement = database.prepare(
      "SELECT seq, source, beacon, heard, rssi, temperature + temperature_offset, humidity + "
      "humidity_offset, "
      "battery + battery_offset, emergency FROM reading JOIN source ON source.id = reading.source "
      "WHERE seq BETWEEN ?1 AND ?2 ORDER BY seq");
  statement.bind(1, first);
  statement.bind(2, last);
  while (statement.step()) {
    ChunkReading reading{statement.integerAt(0), statement.integerAt(1), statement.integerAt(2),
                         statement.integerAt(3)};
    for (std::size_t i = 0; i < kChunkColumns; ++i)
      reading.values[i] = numberAt(statement, 4 + static_cast<int>(i));
    take(reading);
  }
}

}  // namespace brenloft::history
