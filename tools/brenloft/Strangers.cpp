#include "tools/brenloft/Strangers.h"

#include <chrono>
#include <utility>

#include <fmt/format.h>

namespace brenloft {
namespace {

constexpr std::chrono::seconds kWhile{10};

// "321.60 °C", what gave it away.
std::string exampleOf(const Reading& reading) {
  switch (reading.verdict) {
    case Verdict::temperature:
      return fmt::format("{:.2f} °C", *reading.raw.temperature / 100.0);
    case Verdict::humidity:
      return fmt::format("a humidity of {:.2f} %", *reading.raw.humidity / 100.0);
    case Verdict::battery:
      return fmt::format("a battery of {} %", *reading.raw.battery);
    default:
      return "the identifier " + reading.beacon.text();
  }
}

}  // namespace

std::optional<std::string> Strangers::refused(const Reading& reading) {
  if (isSaid_) return std::nullopt;
  if (devices_.empty()) {
    example_ = exampleOf(reading);
    first_ = reading.heard;
  }
  if (devices_.size() <= kMost) devices_.insert(reading.beacon);
  return reading.heard - first_ < kWhile ? std::nullopt : atEnd();
}

std::optional<std::string> Strangers::atEnd() {
  if (devices_.empty() || std::exchange(isSaid_, true)) return std::nullopt;
  return line();
}

std::string Strangers::line() const {
  const std::string count = devices_.size() > kMost ? fmt::format("more than {} devices send", kMost)
                            : devices_.size() == 1  ? "1 device sends"
                                                    : fmt::format("{} devices send", devices_.size());
  return fmt::format(
      "brenloft: {} what no sensor can measure, such as {}; --uuid UUID hears only one service, and of the "
      "live "
      "table and --format readings, --only known or --only ID leaves such devices out",
      count, example_);
}

}  // namespace brenloft
