#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace brenloft::history {

/// What charts show of a beacon's readings, in few octets: per reading the second in which it was heard and
/// the quantities that follow. The rows stay what is true; a chunk can be made from them anew.
enum class ChunkColumn : uint8_t { rssi, temperature, humidity, battery, emergency };
constexpr std::size_t kChunkColumns = 5;
using ChunkValues = std::array<std::optional<int32_t>, kChunkColumns>;

class ChunkBuilder {
 public:
  /// `second` is since 1970, rounded down.
  void add(int64_t second, const ChunkValues& values);
  std::string encoded() const;

 private:
  struct Row {
    int64_t second;
    ChunkValues values;
  };
  std::vector<Row> rows_;
};

/// One column of a chunk, with the seconds.
struct ChunkSeries {
  std::vector<int64_t> seconds;
  std::vector<std::optional<int32_t>> values;
};
/// Nothing when the octets are no chunk.
std::optional<ChunkSeries> decodeChunk(std::string_view octets, ChunkColumn column);

}  // namespace brenloft::history
