#include "tools/brenloft/Texts.h"

#include <charconv>
#include <cmath>

#include <fmt/format.h>

namespace brenloft {
namespace {

std::optional<double> secondsPerUnit(std::string_view unit) {
  if (unit == "h") return 3600;
  if (unit == "m") return 60;
  if (unit == "s") return 1;
  if (unit == "ms") return 1e-3;
  return std::nullopt;
}

// A century; longer durations would not fit the clock.
constexpr double kLongest = 3.2e9;

}  // namespace

std::string dateText(platform::Date date) {
  using namespace std::chrono;
  const auto day = floor<days>(date);
  const year_month_day ymd(day);
  const hh_mm_ss time(date - day);
  return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:06}Z", static_cast<int>(ymd.year()),
                     static_cast<unsigned>(ymd.month()), static_cast<unsigned>(ymd.day()),
                     time.hours().count(), time.minutes().count(), time.seconds().count(),
                     time.subseconds().count());
}

std::optional<std::chrono::microseconds> durationFromText(std::string_view text) {
  double total = 0;
  bool hasUnits = false;
  if (text.empty()) return std::nullopt;
  while (!text.empty()) {
    double number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{} || !(number >= 0)) return std::nullopt;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    const std::string_view unit = text.substr(0, text.find_first_of("0123456789."));
    text.remove_prefix(unit.size());
    if (unit.empty() && hasUnits) return std::nullopt;
    hasUnits = true;
    const auto factor = unit.empty() ? std::optional<double>(1) : secondsPerUnit(unit);
    if (!factor) return std::nullopt;
    total += number * *factor;
  }
  if (!(total <= kLongest)) return std::nullopt;
  return std::chrono::microseconds(std::llround(total * 1e6));
}

std::string printable(std::string_view text) {
  std::string result(text);
  for (char& c : result)
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = '?';
  return result;
}

}  // namespace brenloft
