#include "gateway/web/LocalTime.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <ctime>

#include <fmt/format.h>

namespace brenloft::web {
namespace {

using platform::Date;
using Minutes = std::chrono::minutes;

constexpr Minutes kZoneStep(15);  // zones change at multiples of it

constexpr const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                   "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
constexpr const char* kWeekdays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};

std::tm fieldsOf(Date date) {
  const std::time_t seconds = std::chrono::floor<std::chrono::seconds>(date).time_since_epoch().count();
  std::tm fields{};
  ::localtime_r(&seconds, &fields);
  return fields;
}

}  // namespace

std::chrono::seconds zoneOffset(Date date) {
  return std::chrono::seconds(fieldsOf(date).tm_gmtoff);
}

std::string zoneName(Date date) {
  const std::tm fields = fieldsOf(date);
  const std::string name = fields.tm_zone == nullptr ? "" : fields.tm_zone;
  if (!name.empty() && std::ranges::all_of(name, [](unsigned char c) { return std::isalpha(c) != 0; }))
    return name;
  const auto minutes = std::chrono::duration_cast<Minutes>(std::chrono::seconds(fields.tm_gmtoff)).count();
  return fmt::format("UTC{}{}:{:02}", minutes < 0 ? '-' : '+', std::abs(minutes) / 60,
                     std::abs(minutes) % 60);
}

std::string clockText(Date date) {
  const std::tm fields = fieldsOf(date);
  return fmt::format("{:02}:{:02}", fields.tm_hour, fields.tm_min);
}

std::string secondText(Date date) {
  return fmt::format("{}:{:02}", clockText(date), fieldsOf(date).tm_sec);
}

std::string dayText(Date date) {
  const std::tm fields = fieldsOf(date);
  return fmt::format("{} {} {}", kWeekdays[fields.tm_wday], fields.tm_mday, kMonths[fields.tm_mon]);
}

std::string dateText(Date date) {
  return fmt::format("{} {}", dayText(date), fieldsOf(date).tm_year + 1900);
}

std::string dayText(Date date, Date now) {
  return fieldsOf(date).tm_year == fieldsOf(now).tm_year ? dayText(date) : dateText(date);
}

std::string sinceText(Date date, Date now) {
  const bool isToday = midnight(date) == midnight(now);
  return isToday ? clockText(date) : dayText(date, now) + ' ' + clockText(date);
}

std::string durationText(std::chrono::microseconds duration) {
  constexpr int64_t kMinutesADay = int64_t{24} * 60;
  const auto minutes = std::max<int64_t>(std::chrono::floor<Minutes>(duration).count(), 0);
  if (minutes < 1)
    return fmt::format("{} s",
                       std::max<int64_t>(std::chrono::floor<std::chrono::seconds>(duration).count(), 0));
  if (minutes < 90) return fmt::format("{} min", minutes);
  if (minutes < 2 * kMinutesADay) return fmt::format("{} h {:02} min", minutes / 60, minutes % 60);
  return fmt::format("{} days", minutes / kMinutesADay);
}

Date midnight(Date date) {
  std::tm fields = fieldsOf(date);
  const int day = fields.tm_yday;
  fields.tm_hour = fields.tm_min = fields.tm_sec = 0;
  fields.tm_isdst = -1;
  Date begin(std::chrono::seconds(std::mktime(&fields)));
  // Where a zone changes at midnight there are two of them, or none.
  while (fieldsOf(begin).tm_yday != day) begin += kZoneStep;
  while (fieldsOf(begin - kZoneStep).tm_yday == day) begin -= kZoneStep;
  return begin;
}

std::vector<ZoneChange> zoneChanges(const HistorySpan& span) {
  std::vector<ZoneChange> changes;
  const auto take = [&](Date date) { changes.push_back({date, zoneOffset(date), zoneName(date)}); };
  const Date first = std::chrono::floor<std::chrono::days>(span.since);
  take(first);
  for (Date day = first; day < span.until; day += std::chrono::days(1)) {
    if (zoneOffset(day + std::chrono::days(1)) == changes.back().offset) continue;
    Date change = day;
    while (zoneOffset(change) == changes.back().offset) change += kZoneStep;
    take(change);
  }
  return changes;
}

}  // namespace brenloft::web
