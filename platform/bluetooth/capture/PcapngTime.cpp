#include "platform/bluetooth/capture/PcapngTime.h"

#include <algorithm>

#include "platform/bluetooth/capture/PacketReader.h"

namespace platform {
namespace {

struct Split {
  uint64_t seconds = 0;
  uint64_t microseconds = 0;
};

Split splitBinary(uint64_t ticks, unsigned power) {
  if (power >= 64) return {0, power < 84 ? (ticks >> 20) * 1'000'000 >> (power - 20) : 0};
  uint64_t fraction = ticks & ((uint64_t{1} << power) - 1);
  const uint64_t seconds = ticks >> power;
  if (power > 44) {  // a million times the fraction has to fit 64 bits
    fraction >>= power - 44;
    power = 44;
  }
  return {seconds, fraction * 1'000'000 >> power};
}

Split splitDecimal(uint64_t ticks, unsigned power) {
  uint64_t perSecond = 1;
  for (; power > 19; --power) ticks /= 10;
  for (unsigned i = 0; i < power; ++i) perSecond *= 10;
  const uint64_t fraction = ticks % perSecond;
  const bool isFine = power > 6;
  return {ticks / perSecond,
          isFine ? fraction / (perSecond / 1'000'000) : fraction * (1'000'000 / perSecond)};
}

}  // namespace

Date PcapngClock::dateOf(uint64_t ticks) const {
  constexpr uint64_t kLimit = uint64_t{1} << 40;  // seconds; 35,000 years, and far from overflow
  const unsigned power = resolution & 0x7FU;
  const Split split = (resolution & 0x80U) != 0 ? splitBinary(ticks, power) : splitDecimal(ticks, power);
  const auto limit = static_cast<int64_t>(kLimit);
  const auto seconds = static_cast<int64_t>(std::min(split.seconds, kLimit));
  return believableDate(Date(std::chrono::seconds(seconds + std::clamp(offsetSeconds, -limit, limit)) +
                             std::chrono::microseconds(static_cast<int64_t>(split.microseconds))));
}

}  // namespace platform
