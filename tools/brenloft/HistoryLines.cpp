#include "tools/brenloft/HistoryLines.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include <fmt/format.h>

#include "gateway/Texts.h"
#include "gateway/formats/Decimal.h"
#include "gateway/formats/LineProtocol.h"
#include "platform/foundation/JSONWriter.h"

namespace brenloft {
namespace {

constexpr std::size_t kBeaconWidth = 24;
constexpr std::array<std::string_view, HistoryLines::kQuantities.size()> kQuantityNames{
    "temperature", "humidity", "battery", "rssi"};

TimeForm historyTimeForm(const std::optional<TimeForm>& asked, HistoryFormat format) {
  if (asked) return *asked;
  return format == HistoryFormat::table   ? TimeForm::local
         : format == HistoryFormat::jsonl ? TimeForm::utc
                                          : TimeForm::epoch;
}

bool isInHundredths(Quantity quantity) {
  return quantity == Quantity::temperature || quantity == Quantity::humidity;
}

std::string hundredths(const std::optional<int32_t>& value) {
  std::string text;
  if (value) appendHundredths(text, *value);
  return text;
}

std::string number(const std::optional<int32_t>& value) {
  return value ? std::to_string(*value) : std::string();
}

std::string alarmValue(const AlarmFacts& alarm, const std::optional<int32_t>& value) {
  return value ? valueText(alarm.quantity, *value) : std::string();
}

std::string orHyphen(const std::string& text) {
  return text.empty() ? "-" : text;
}

std::string valueText(Quantity quantity, int32_t value) {
  return isInHundredths(quantity) ? hundredths(value) : std::to_string(value);
}

std::string meanText(Quantity quantity, double mean) {
  return fmt::format("{:.3f}", isInHundredths(quantity) ? mean / 100 : mean);
}

uint64_t countOf(const HistoryLines::Points& points) {
  return std::ranges::max(points, {}, &HistoryPoint::count).count;
}

}  // namespace

HistoryLines::HistoryLines(HistoryFormat format, const std::optional<TimeForm>& time, Labels labels)
    : format_(format),
      labels_(std::move(labels)),
      times_(historyTimeForm(time, format)),
      records_(format == HistoryFormat::influx ? RecordLines::Format::influx : RecordLines::Format::readings,
               historyTimeForm(time, format) == TimeForm::local ? RecordLines::Zone::local
                                                                : RecordLines::Zone::utc) {}

void HistoryLines::header(std::string& lines) {
  if (format_ == HistoryFormat::table)
    lines += fmt::format("{:<{}}{}  {:<{}}  {:>4}  {:>7}  {:>6}  {:>4}  {}\n", "time", times_.wholeWidth(),
                         ageCell("age"), "beacon", kBeaconWidth, "rssi", "°C", "%RH", "batt", "event");
  if (format_ == HistoryFormat::csv)
    lines +=
        "seq,time,event,id,name,place,rssi,temperature,humidity,battery,emergency,tx_power,accel_x,accel_y,"
        "accel_z,raw_temperature,raw_humidity,text,count,severity,quantity,value,threshold,alarm_text\n";
}

void HistoryLines::row(std::string& lines, const HistoryRow& row) {
  if (format_ == HistoryFormat::table) return tableRow(lines, row);
  if (format_ == HistoryFormat::csv) return csvRow(lines, row);
  const BeaconId* beacon = beaconOf(row.record);
  records_.append(lines, row.record, beacon != nullptr ? labels_(*beacon) : Label{},
                  static_cast<uint64_t>(row.seq));
}

// The name, or the identifier, which is never cut.
std::string HistoryLines::shownName(const BeaconId* beacon) const {
  if (beacon == nullptr) return "-";
  const std::string name = labels_(*beacon).name;
  return name.empty() ? printable(beacon->text()) : fitted(printable(name), kBeaconWidth);
}

std::string HistoryLines::ageCell(const std::string& text) const {
  return agesAt_ ? fmt::format("  {:>5}", text) : "";
}

void HistoryLines::tableRow(std::string& lines, const HistoryRow& row) {
  const BeaconId* beacon = beaconOf(row.record);
  const platform::Date heard = heardAt(row.record);
  const std::string age = agesAt_ ? ageCell(ageText(heard, *agesAt_)) : "";
  fmt::format_to(std::back_inserter(lines), "{:<{}}{}  {:<{}}  ", times_.whole(heard), times_.wholeWidth(),
                 age, shownName(beacon), kBeaconWidth);
  if (const auto* reading = std::get_if<Reading>(&row.record)) {
    const Quantities& shown = reading->shown;
    fmt::format_to(std::back_inserter(lines), "{:>4}  {:>6}  {:>6}  {:>4}{}\n",
                   orHyphen(number(reading->rssi)), orHyphen(hundredths(shown.temperature)),
                   orHyphen(hundredths(shown.humidity)), orHyphen(number(shown.battery)),
                   shown.emergency.value_or(0) != 0 ? "  EMERGENCY" : "");
    return;
  }
  const auto& event = std::get<BeaconEvent>(row.record);
  std::string text(textOf(event.kind));
  if (!event.text.empty()) text += ": " + printable(event.text);
  if (event.count != 0) text += fmt::format(" ({})", event.count);
  if (event.alarm && event.alarm->value)
    text +=
        fmt::format(" ({} {})", textOf(event.alarm->quantity), alarmValue(*event.alarm, event.alarm->value));
  fmt::format_to(std::back_inserter(lines), "{:>4}  {:>6}  {:>6}  {:>4}  {}\n", "", "", "", "", text);
}

void HistoryLines::csvRow(std::string& lines, const HistoryRow& row) {
  const BeaconId* beacon = beaconOf(row.record);
  const Label label = beacon != nullptr ? labels_(*beacon) : Label{};
  const auto* reading = std::get_if<Reading>(&row.record);
  const auto* event = std::get_if<BeaconEvent>(&row.record);
  fmt::format_to(std::back_inserter(lines), "{},{},{},{},{},{},", row.seq, times_.whole(heardAt(row.record)),
                 event != nullptr ? textOf(event->kind) : "reading",
                 beacon != nullptr ? csvField(beacon->text()) : "", csvField(label.name),
                 csvField(label.place));
  if (reading == nullptr) {
    fmt::format_to(std::back_inserter(lines), ",,,,,,,,,,,{},{},", csvField(event->text),
                   event->count != 0 ? std::to_string(event->count) : "");
    if (!event->alarm) {
      lines += ",,,,\n";
      return;
    }
    const AlarmFacts& alarm = *event->alarm;
    fmt::format_to(std::back_inserter(lines), "{},{},{},{},{}\n", textOf(alarm.severity),
                   textOf(alarm.quantity), alarmValue(alarm, alarm.value), alarmValue(alarm, alarm.threshold),
                   csvField(alarm.text));
    return;
  }
  const Quantities& shown = reading->shown;
  fmt::format_to(std::back_inserter(lines), "{},{},{},{},{},{},{},{},{},{},{},,,,,,,\n",
                 number(reading->rssi), hundredths(shown.temperature), hundredths(shown.humidity),
                 number(shown.battery), number(shown.emergency), number(shown.txPower), number(shown.xAccel),
                 number(shown.yAccel), number(shown.zAccel), hundredths(reading->raw.temperature),
                 hundredths(reading->raw.humidity));
}

void HistoryLines::pointHeader(std::string& lines) {
  if (format_ == HistoryFormat::table)
    lines += fmt::format("{:<{}}  {:<{}}  {:>6}  {:>21}  {:>21}  {:>17}  {:>20}\n", "from",
                         times_.wholeWidth(), "beacon", kBeaconWidth, "count", "°C mean  min  max",
                         "%RH mean  min  max", "batt mean min max", "rssi mean min max");
  if (format_ != HistoryFormat::csv) return;
  lines += "time,id,name,place,count";
  for (const auto name : kQuantityNames) lines += fmt::format(",{0}_mean,{0}_min,{0}_max", name);
  lines += '\n';
}

void HistoryLines::points(std::string& lines, platform::Date start, const BeaconId& beacon,
                          const Points& points) {
  switch (format_) {
    case HistoryFormat::table:
      return tablePoints(lines, start, beacon, points);
    case HistoryFormat::csv:
      return csvPoints(lines, start, beacon, points);
    case HistoryFormat::jsonl:
      return jsonPoints(lines, start, beacon, points);
    case HistoryFormat::influx:
      return influxPoints(lines, start, beacon, points);
  }
}

void HistoryLines::tablePoints(std::string& lines, platform::Date start, const BeaconId& beacon,
                               const Points& points) {
  constexpr std::array widths{6, 6, 5, 6};
  fmt::format_to(std::back_inserter(lines), "{:<{}}  {:<{}}  {:>6}", times_.whole(start), times_.wholeWidth(),
                 shownName(&beacon), kBeaconWidth, countOf(points));
  for (std::size_t i = 0; i < points.size(); ++i) {
    const HistoryPoint& point = points[i];
    const bool isThere = point.count != 0;
    const bool isFine = isInHundredths(kQuantities[i]);
    const std::string mean = fmt::format("{:.{}f}", isFine ? point.mean / 100 : point.mean, isFine ? 2 : 1);
    fmt::format_to(std::back_inserter(lines), "  {:>{}} {:>{}} {:>{}}", isThere ? mean : "-", widths[i] + 1,
                   isThere ? valueText(kQuantities[i], point.minimum) : "-", widths[i],
                   isThere ? valueText(kQuantities[i], point.maximum) : "-", widths[i]);
  }
  lines += '\n';
}

void HistoryLines::csvPoints(std::string& lines, platform::Date start, const BeaconId& beacon,
                             const Points& points) {
  const Label label = labels_(beacon);
  fmt::format_to(std::back_inserter(lines), "{},{},{},{},{}", times_.whole(start), csvField(beacon.text()),
                 csvField(label.name), csvField(label.place), countOf(points));
  for (std::size_t i = 0; i < points.size(); ++i) {
    const HistoryPoint& point = points[i];
    if (point.count == 0)
      lines += ",,,";
    else
      fmt::format_to(std::back_inserter(lines), ",{},{},{}", meanText(kQuantities[i], point.mean),
                     valueText(kQuantities[i], point.minimum), valueText(kQuantities[i], point.maximum));
  }
  lines += '\n';
}

void HistoryLines::jsonPoints(std::string& lines, platform::Date start, const BeaconId& beacon,
                              const Points& points) {
  const Label label = labels_(beacon);
  const auto textOrNull = [](const std::string& text) {
    return text.empty() ? std::nullopt : std::optional(text);
  };
  platform::JSONWriter json;
  json.beginObject().plainKey("time").text(times_.whole(start)).plainKey("id").text(beacon.text());
  json.plainKey("name")
      .textOrNull(textOrNull(label.name))
      .plainKey("place")
      .textOrNull(textOrNull(label.place));
  json.plainKey("count").number(countOf(points));
  for (std::size_t i = 0; i < points.size(); ++i) {
    const HistoryPoint& point = points[i];
    json.plainKey(kQuantityNames[i]);
    if (point.count == 0) {
      json.null();
      continue;
    }
    json.beginObject().plainKey("mean").raw(meanText(kQuantities[i], point.mean));
    json.plainKey("min").raw(valueText(kQuantities[i], point.minimum));
    json.plainKey("max").raw(valueText(kQuantities[i], point.maximum)).endObject();
  }
  json.endObject().endLine();
  lines += json.written();
}

void HistoryLines::influxPoints(std::string& lines, platform::Date start, const BeaconId& beacon,
                                const Points& points) {
  std::string fields = fmt::format("count={}i", countOf(points));
  for (std::size_t i = 0; i < points.size(); ++i) {
    const HistoryPoint& point = points[i];
    if (point.count == 0) continue;
    const char* kind = isInHundredths(kQuantities[i]) ? "" : "i";
    fields += fmt::format(",{0}_mean={1},{0}_min={2}{4},{0}_max={3}{4}", kQuantityNames[i],
                          meanText(kQuantities[i], point.mean), valueText(kQuantities[i], point.minimum),
                          valueText(kQuantities[i], point.maximum), kind);
  }
  appendLineProtocol(lines, "summary", beacon, labels_(beacon), fields, start);
}

}  // namespace brenloft
