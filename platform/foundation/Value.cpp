#include "platform/foundation/Value.h"

#include <cmath>
#include <limits>

namespace platform {
namespace {

template <typename Integer>
Integer saturated(double value) {
  if (std::isnan(value)) return 0;
  if (value <= static_cast<double>(std::numeric_limits<Integer>::min())) {
    return std::numeric_limits<Integer>::min();
  }
  if (value >= static_cast<double>(std::numeric_limits<Integer>::max())) {
    return std::numeric_limits<Integer>::max();
  }
  return static_cast<Integer>(value);
}

template <typename Integer>
Integer convert(const NSNumber::Storage& storage) {
  return std::visit(
      [](auto value) {
        if constexpr (std::floating_point<decltype(value)>)
          return saturated<Integer>(value);
        else
          return static_cast<Integer>(value);
      },
      storage);
}

}  // namespace

int32_t NSNumber::intValue() const {
  return convert<int32_t>(storage_);
}
int64_t NSNumber::integerValue() const {
  return convert<int64_t>(storage_);
}
uint64_t NSNumber::unsignedIntegerValue() const {
  return convert<uint64_t>(storage_);
}

double NSNumber::doubleValue() const {
  return std::visit([](auto value) { return static_cast<double>(value); }, storage_);
}

bool NSNumber::boolValue() const {
  return std::visit([](auto value) { return value != decltype(value){}; }, storage_);
}

}  // namespace platform
