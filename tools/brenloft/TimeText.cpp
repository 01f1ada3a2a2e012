#include "tools/brenloft/TimeText.h"

#include <algorithm>
#include <array>
#include <charconv>

#include <fmt/format.h>

namespace brenloft {
namespace {

// Seconds since 1970 with exactly six decimals, "-0.000001" for the microsecond before.
void appendSeconds(platform::Date date, std::string& text) {
  constexpr uint64_t kMillion = 1'000'000;
  constexpr std::ptrdiff_t kDecimals = 6;
  const int64_t micros = date.time_since_epoch().count();
  const uint64_t magnitude = micros < 0 ? 0 - static_cast<uint64_t>(micros) : static_cast<uint64_t>(micros);
  if (micros < 0) text += '-';
  std::array<char, 24> characters{};
  char* const point = std::to_chars(characters.begin(), characters.end(), magnitude / kMillion).ptr;
  *point = '.';
  uint64_t rest = magnitude % kMillion;
  for (char* digit = point + kDecimals; digit != point; --digit, rest /= 10)
    *digit = static_cast<char>('0' + rest % 10);
  text.append(characters.data(), point + kDecimals + 1);
}

}  // namespace

TimeForm timeFormOf(const std::optional<TimeForm>& asked, Format format) {
  return asked.value_or(format == Format::table ? TimeForm::local : TimeForm::epoch);
}

std::string ageText(platform::Date heard, platform::Date now) {
  const auto seconds = std::max<int64_t>(std::chrono::floor<std::chrono::seconds>(now - heard).count(), 0);
  if (seconds < 60) return fmt::format("{}s", seconds);
  if (seconds < 3'600) return fmt::format("{}m", seconds / 60);
  if (seconds < 86'400) return fmt::format("{}h", seconds / 3'600);
  return fmt::format("{}d", seconds / 86'400);
}

TimeText::TimeText(TimeForm form)
    : form_(form), whole_("yyyy-MM-ddTHH:mm:ss.SSSSSSxxx"), clock_("HH:mm:ssxxx") {}

std::string TimeText::whole(platform::Date date) {
  std::string text;
  appendWhole(date, text);
  return text;
}

void TimeText::appendWhole(platform::Date date, std::string& text) {
  switch (form_) {
    case TimeForm::local:
      return whole_.appendDate(date, text);
    case TimeForm::utc:
      text += platform::rfc3339Text(date);
      return;
    case TimeForm::epoch:
      return appendSeconds(date, text);
  }
}

std::string TimeText::clock(platform::Date date) {
  if (form_ == TimeForm::local) return clock_.stringFromDate(date);
  const std::string text = whole(date);
  // hh:mm:ss of the whole date, or what stands before the fraction.
  return form_ == TimeForm::utc ? text.substr(11, 8) + 'Z' : text.substr(0, text.find('.'));
}

}  // namespace brenloft
