#include "tools/brenloft/TimeText.h"

#include <fmt/format.h>

namespace brenloft {

TimeForm timeFormOf(const std::optional<TimeForm>& asked, Format format) {
  return asked.value_or(format == Format::table ? TimeForm::local : TimeForm::epoch);
}

TimeText::TimeText(TimeForm form)
    : form_(form), whole_("yyyy-MM-ddTHH:mm:ss.SSSSSSxxx"), clock_("HH:mm:ssxxx") {}

std::string TimeText::whole(platform::Date date) {
  switch (form_) {
    case TimeForm::local:
      return whole_.stringFromDate(date);
    case TimeForm::utc:
      return platform::rfc3339Text(date);
    case TimeForm::epoch:
      break;
  }
  return secondsText(date);
}

std::string TimeText::clock(platform::Date date) {
  if (form_ == TimeForm::local) return clock_.stringFromDate(date);
  const std::string text = whole(date);
  // hh:mm:ss of the whole date, or what stands before the fraction.
  return form_ == TimeForm::utc ? text.substr(11, 8) + 'Z' : text.substr(0, text.find('.'));
}

std::string secondsText(platform::Date date) {
  constexpr int64_t kMillion = 1'000'000;
  const int64_t micros = date.time_since_epoch().count();
  const uint64_t magnitude = micros < 0 ? 0 - static_cast<uint64_t>(micros) : static_cast<uint64_t>(micros);
  return fmt::format("{}{}.{:06}", micros < 0 ? "-" : "", magnitude / kMillion, magnitude % kMillion);
}

}  // namespace brenloft
