#include "gateway/alarms/DewPoint.h"

#include <algorithm>
#include <cmath>

namespace brenloft {

std::optional<int32_t> dewPoint(int32_t temperature, int32_t humidity) {
  constexpr double kFactor = 17.62;
  constexpr double kOffset = 243.12;
  if (temperature < -4500 || temperature > 6000 || humidity <= 0) return std::nullopt;
  const double celsius = temperature / 100.0;
  const double exponent =
      std::log(std::min(humidity, 10'000) / 10'000.0) + kFactor * celsius / (kOffset + celsius);
  return static_cast<int32_t>(std::lround(100 * kOffset * exponent / (kFactor - exponent)));
}

}  // namespace brenloft
