#pragma once

#include <cstdint>
#include <functional>

#include "gateway/history/Chunk.h"
#include "gateway/history/HistorySchema.h"

namespace brenloft::history {

/// A row as chunks take it.
struct ChunkReading {
  int64_t seq = 0;
  int64_t source = 0;
  int64_t beacon = 0;
  int64_t heard = 0;
  ChunkValues values{};

  int64_t second() const { return secondOf(heard); }
};

/// Hands over the readings from a number to another, in their order.
void eachReading(platform::SQLiteDatabase& database, int64_t first, int64_t last,
                 const std::function<void(const ChunkReading&)>& take);

std::optional<int32_t> numberAt(const platform::SQLiteStatement& statement, int column);

}  // namespace brenloft::history
