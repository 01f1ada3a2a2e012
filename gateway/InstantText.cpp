#include "gateway/InstantText.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <ctime>

#include "gateway/Texts.h"

namespace brenloft {
namespace {

using platform::Date;

// As the machine's zone has it.
std::optional<Date> localDate(std::tm fields) {
  fields.tm_isdst = -1;
  const std::time_t seconds = std::mktime(&fields);
  if (seconds == -1) return std::nullopt;
  return Date(std::chrono::seconds(seconds));
}

// Where its day begins.
std::optional<std::tm> localDay(Date now) {
  const std::time_t seconds = platform::wholeSecondsSince1970(now);
  std::tm fields{};
  if (::localtime_r(&seconds, &fields) == nullptr) return std::nullopt;
  fields.tm_hour = fields.tm_min = fields.tm_sec = 0;
  return fields;
}

// Takes so many digits, and nothing else, from the beginning.
std::optional<int> takeDigits(std::string_view& text, std::size_t count) {
  if (text.size() < count) return std::nullopt;
  int number = 0;
  for (const char c : text.substr(0, count)) {
    if (c < '0' || c > '9') return std::nullopt;
    number = number * 10 + (c - '0');
  }
  text.remove_prefix(count);
  return number;
}

bool take(std::string_view& text, std::string_view oneOf) {
  if (text.empty() || oneOf.find(text.front()) == std::string_view::npos) return false;
  text.remove_prefix(1);
  return true;
}

std::optional<std::chrono::microseconds> takeFraction(std::string_view& text) {
  if (!take(text, ".,")) return std::chrono::microseconds(0);
  int64_t micros = 0;
  int64_t unit = 100'000;
  std::size_t digits = 0;
  for (; digits < text.size() && text[digits] >= '0' && text[digits] <= '9'; ++digits, unit /= 10)
    micros += (text[digits] - '0') * unit;
  text.remove_prefix(digits);
  return digits == 0 ? std::nullopt : std::optional(std::chrono::microseconds(micros));
}

// Hour, minute, second; false where there is something else.
bool takeClock(std::string_view& text, std::tm& fields) {
  const auto hour = takeDigits(text, 2);
  if (!hour || *hour > 24 || !take(text, ":")) return false;
  const auto minute = takeDigits(text, 2);
  if (!minute || *minute > 59) return false;
  const auto second = take(text, ":") ? takeDigits(text, 2) : 0;
  if (!second || *second > 60) return false;
  fields.tm_hour = *hour;
  fields.tm_min = *minute;
  fields.tm_sec = *second;
  return true;
}

bool takeWord(std::string_view& text, std::string_view word) {
  if (!text.starts_with(word)) return false;
  text.remove_prefix(word.size());
  return true;
}

// "yesterday", "yesterday 15:00", "15:00", which is of today.
std::optional<Date> dayAndClock(std::string_view text, Date now) {
  auto fields = localDay(now);
  if (!fields) return std::nullopt;
  const bool isYesterday = takeWord(text, "yesterday");
  const bool isNamed = isYesterday || takeWord(text, "today");
  if (isYesterday) --fields->tm_mday;
  if (isNamed && text.empty()) return localDate(*fields);
  if (isNamed && !take(text, "Tt ")) return std::nullopt;
  return takeClock(text, *fields) && text.empty() ? localDate(*fields) : std::nullopt;
}

// What to take off a time to get it in UTC.
std::optional<std::chrono::minutes> takeZone(std::string_view& text) {
  if (take(text, "Zz")) return std::chrono::minutes(0);
  const int sign = text.front() == '-' ? -1 : 1;
  if (!take(text, "+-")) return std::nullopt;
  const auto hours = takeDigits(text, 2);
  take(text, ":");
  const auto minutes = text.empty() ? 0 : takeDigits(text, 2);
  if (!hours || !minutes || *hours > 23 || *minutes > 59) return std::nullopt;
  return std::chrono::minutes(sign * (*hours * 60 + *minutes));
}

std::optional<Date> absoluteDate(std::string_view text) {
  const auto year = takeDigits(text, 4);
  if (!year || !take(text, "-")) return std::nullopt;
  const auto month = takeDigits(text, 2);
  if (!month || !take(text, "-")) return std::nullopt;
  const auto day = takeDigits(text, 2);
  if (!day) return std::nullopt;
  const auto date = std::chrono::year(*year) / *month / *day;
  if (!date.ok()) return std::nullopt;
  std::tm fields{};
  fields.tm_year = *year - 1900;
  fields.tm_mon = *month - 1;
  fields.tm_mday = *day;
  if (text.empty()) return localDate(fields);
  if (!take(text, "Tt ") || !takeClock(text, fields)) return std::nullopt;
  const auto fraction = takeFraction(text);
  if (!fraction) return std::nullopt;
  if (text.empty()) {
    const auto local = localDate(fields);
    return local ? std::optional(*local + *fraction) : std::nullopt;
  }
  const auto zone = takeZone(text);
  if (!zone || !text.empty()) return std::nullopt;
  const auto clock = std::chrono::hours(fields.tm_hour) + std::chrono::minutes(fields.tm_min) +
                     std::chrono::seconds(fields.tm_sec);
  return Date(std::chrono::sys_days(date)) + clock + *fraction - *zone;
}

std::optional<Date> secondsSince1970(std::string_view text) {
  double seconds = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return platform::dateWithTimeIntervalSince1970(seconds);
}

}  // namespace

std::optional<Date> instantFromText(std::string_view text, Date now) {
  if (text == "now") return now;
  if (text.starts_with('@')) return secondsSince1970(text.substr(1));
  if (const auto date = absoluteDate(text)) return date;
  if (const auto date = dayAndClock(text, now)) return date;
  // A number without a unit might be anything.
  const bool hasUnit = !text.empty() && (text.back() < '0' || text.back() > '9');
  const auto ago = hasUnit ? durationFromText(text) : std::nullopt;
  return ago ? std::optional(now - *ago) : std::nullopt;
}

}  // namespace brenloft
