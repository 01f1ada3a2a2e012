#include "platform/foundation/NSDateFormatter.h"

#include <array>
#include <ctime>

namespace platform {
namespace {

using std::chrono::days;
using std::chrono::floor;
using std::chrono::sys_seconds;

constexpr int64_t kQuarterHour = 900;

struct KnownField {
  std::string_view spelling;
  char letter;
};
// Of two that begin alike, the longer one last.
constexpr std::array<KnownField, 9> kKnownFields = {{{"yyyy", 'y'},
                                                     {"MM", 'M'},
                                                     {"dd", 'd'},
                                                     {"HH", 'H'},
                                                     {"mm", 'm'},
                                                     {"ss", 's'},
                                                     {"SSS", 'S'},
                                                     {"SSSSSS", 'u'},
                                                     {"xxx", 'x'}}};

void appendPadded(std::string& text, int64_t value, size_t width) {
  std::array<char, 20> digits{};
  size_t first = digits.size();
  for (uint64_t rest = value < 0 ? 0 : static_cast<uint64_t>(value);
       rest != 0 || digits.size() - first < width; rest /= 10) {
    digits[--first] = static_cast<char>('0' + rest % 10);
  }
  text.append(&digits[first], digits.size() - first);
}

void appendOffset(std::string& text, std::chrono::seconds offset) {
  text += offset.count() < 0 ? '-' : '+';
  const auto minutes = std::chrono::abs(std::chrono::duration_cast<std::chrono::minutes>(offset)).count();
  appendPadded(text, minutes / 60, 2);
  text += ':';
  appendPadded(text, minutes % 60, 2);
}

struct CivilTime {
  explicit CivilTime(Date wall) : day(floor<days>(wall)), date(day), sinceMidnight((wall - day).count()) {}

  int64_t field(char letter) const;

  std::chrono::sys_days day;
  std::chrono::year_month_day date;
  int64_t sinceMidnight;  // microseconds
};

int64_t CivilTime::field(char letter) const {
  switch (letter) {
    case 'y':
      return static_cast<int>(date.year());
    case 'M':
      return static_cast<unsigned>(date.month());
    case 'd':
      return static_cast<unsigned>(date.day());
    case 'H':
      return sinceMidnight / 3'600'000'000;
    case 'm':
      return sinceMidnight / 60'000'000 % 60;
    case 's':
      return sinceMidnight / 1'000'000 % 60;
    case 'u':
      return sinceMidnight % 1'000'000;
    default:
      return sinceMidnight / 1'000 % 1'000;
  }
}

size_t widthOf(char letter) {
  if (letter == 'y') return 4;
  if (letter == 'u') return 6;
  return letter == 'S' ? 3 : 2;
}

std::chrono::seconds localOffset(int64_t secondsSince1970) {
  const auto instant = static_cast<std::time_t>(secondsSince1970);
  std::tm local{};
  return std::chrono::seconds(localtime_r(&instant, &local) == nullptr ? 0 : local.tm_gmtoff);
}

}  // namespace

NSDateFormatter::NSDateFormatter(std::string_view dateFormat) {
  tzset();
  while (!dateFormat.empty()) {
    Field field{0, std::string(1, dateFormat.front())};
    size_t length = 1;
    for (const KnownField& known : kKnownFields) {
      if (!dateFormat.starts_with(known.spelling)) continue;
      field = {known.letter, {}};
      length = known.spelling.size();
    }
    fields_.push_back(std::move(field));
    dateFormat.remove_prefix(length);
  }
}

std::string NSDateFormatter::stringFromDate(Date date) {
  std::string text;
  appendDate(date, text);
  return text;
}

void NSDateFormatter::appendDate(Date date, std::string& text) {
  const std::chrono::seconds offset = offsetAt(floor<std::chrono::seconds>(date));
  const CivilTime civil(date + offset);
  for (const Field& field : fields_) {
    if (field.letter == 0)
      text += field.literal;
    else if (field.letter == 'x')
      appendOffset(text, offset);
    else
      appendPadded(text, civil.field(field.letter), widthOf(field.letter));
  }
}

// Asking the zone is slow. An offset that is the same at both ends of a quarter of an hour holds between
// them.
std::chrono::seconds NSDateFormatter::offsetAt(sys_seconds instant) {
  const int64_t seconds = instant.time_since_epoch().count();
  const int64_t quarterHour =
      (seconds - (seconds % kQuarterHour + kQuarterHour) % kQuarterHour) / kQuarterHour;
  if (quarterHour == recent_.quarterHour) return recent_.offset;
  const std::chrono::seconds first = localOffset(quarterHour * kQuarterHour);
  const std::chrono::seconds last = localOffset((quarterHour + 1) * kQuarterHour - 1);
  if (first != last) return localOffset(seconds);
  recent_ = {quarterHour, first};
  return first;
}

std::string rfc3339Text(Date date) {
  const CivilTime civil(date);
  std::string text;
  const auto append = [&](char letter, char after) {
    appendPadded(text, civil.field(letter), widthOf(letter));
    text += after;
  };
  append('y', '-');
  append('M', '-');
  append('d', 'T');
  append('H', ':');
  append('m', ':');
  append('s', '.');
  append('u', 'Z');
  return text;
}

}  // namespace platform
