#include "gateway/history/Chunk.h"

#include <algorithm>
#include <limits>

namespace brenloft::history {
namespace {

// A count; the seconds; then for each column how it is written, its length and its octets. Numbers are
// varints of seven bits each, lowest first; signed ones in zigzag; all but the first as differences.
enum class Form : uint8_t { absent, constant, everywhere, somewhere };

constexpr std::size_t kMostReadings = 1 << 20;
constexpr std::size_t kUsualRows = 96;

void putNumber(std::string& octets, uint64_t number) {
  for (; number >= 0x80; number >>= 7) octets += static_cast<char>(number | 0x80);
  octets += static_cast<char>(number);
}

void putSigned(std::string& octets, int64_t number) {
  putNumber(octets, static_cast<uint64_t>(number) << 1 ^ static_cast<uint64_t>(number >> 63));
}

class Octets {
 public:
  explicit Octets(std::string_view rest) : rest_(rest) {}

  uint64_t number() {
    uint64_t number = 0;
    for (unsigned shift = 0; shift < 64; shift += 7) {
      if (rest_.empty()) break;
      const auto octet = static_cast<unsigned char>(rest_.front());
      rest_.remove_prefix(1);
      number |= uint64_t{octet & 0x7FU} << shift;
      if (octet < 0x80) return number;
    }
    isGood_ = false;
    return 0;
  }
  int64_t signedNumber() {
    const uint64_t coded = number();
    return static_cast<int64_t>(coded >> 1 ^ (0 - (coded & 1)));
  }
  std::string_view take(uint64_t count) {
    if (count > rest_.size()) isGood_ = false;
    const auto taken = rest_.substr(0, count);
    rest_.remove_prefix(taken.size());
    return taken;
  }
  bool isGood() const { return isGood_; }

 private:
  std::string_view rest_;
  bool isGood_ = true;
};

int64_t sum(int64_t a, int64_t b) {
  return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}

Form formOf(const std::vector<std::optional<int32_t>>& values) {
  const bool isSame = std::ranges::all_of(values, [&](const auto& value) { return value == values.front(); });
  if (isSame) return values.front() ? Form::constant : Form::absent;
  return std::ranges::all_of(values, [](const auto& value) { return value.has_value(); }) ? Form::everywhere
                                                                                          : Form::somewhere;
}

std::string bitmapOf(const std::vector<std::optional<int32_t>>& values) {
  std::string bits((values.size() + 7) / 8, '\0');
  for (std::size_t i = 0; i < values.size(); ++i)
    if (values[i]) bits[i / 8] = static_cast<char>(bits[i / 8] | 1 << i % 8);
  return bits;
}

void putColumn(std::string& octets, const std::vector<std::optional<int32_t>>& values) {
  const Form form = formOf(values);
  std::string column;
  if (form == Form::somewhere) column = bitmapOf(values);
  int64_t before = 0;
  for (const auto& value : values) {
    if (!value) continue;
    putSigned(column, *value - before);
    before = *value;
    if (form == Form::constant) break;
  }
  putNumber(octets, static_cast<uint64_t>(form));
  putNumber(octets, column.size());
  octets += column;
}

std::vector<std::optional<int32_t>> valuesOf(Octets octets, Form form, std::size_t count, bool& isGood) {
  std::vector<std::optional<int32_t>> values(count);
  if (form == Form::absent) return values;
  const std::string_view bits = form == Form::somewhere ? octets.take((count + 7) / 8) : std::string_view();
  int64_t value = form == Form::constant ? octets.signedNumber() : 0;
  for (std::size_t i = 0; i < count && octets.isGood(); ++i) {
    if (form == Form::somewhere && (bits[i / 8] >> i % 8 & 1) == 0) continue;
    if (form != Form::constant) value = sum(value, octets.signedNumber());
    values[i] = static_cast<int32_t>(value);
  }
  isGood = octets.isGood();
  return values;
}

}  // namespace

void ChunkBuilder::add(int64_t second, const ChunkValues& values) {
  if (rows_.empty()) rows_.reserve(kUsualRows);
  rows_.push_back({second, values});
}

std::string ChunkBuilder::encoded() const {
  std::string octets;
  putNumber(octets, rows_.size());
  int64_t before = 0;
  for (const Row& row : rows_) {
    putSigned(octets, row.second - before);
    before = row.second;
  }
  std::vector<std::optional<int32_t>> column(rows_.size());
  for (std::size_t i = 0; i < kChunkColumns; ++i) {
    std::ranges::transform(rows_, column.begin(), [&](const Row& row) { return row.values[i]; });
    putColumn(octets, column);
  }
  return octets;
}

std::optional<ChunkSeries> decodeChunk(std::string_view octets, ChunkColumn column) {
  Octets rest(octets);
  const uint64_t count = rest.number();
  // Each second takes an octet at least.
  if (!rest.isGood() || count == 0 || count > std::min(kMostReadings, octets.size())) return std::nullopt;
  ChunkSeries series;
  int64_t second = 0;
  for (uint64_t i = 0; i < count; ++i) series.seconds.push_back(second = sum(second, rest.signedNumber()));
  for (std::size_t i = 0; i < kChunkColumns && rest.isGood(); ++i) {
    const uint64_t form = rest.number();
    const std::string_view coded = rest.take(rest.number());
    if (i != static_cast<std::size_t>(column)) continue;
    if (!rest.isGood() || form > static_cast<uint64_t>(Form::somewhere)) return std::nullopt;
    bool isGood = true;
    series.values = valuesOf(Octets(coded), static_cast<Form>(form), count, isGood);
    return isGood ? std::optional(std::move(series)) : std::nullopt;
  }
  return std::nullopt;
}

}  // namespace brenloft::history
