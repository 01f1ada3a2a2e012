#include "gateway/metrics/Metrics.h"

#include <chrono>
#include <initializer_list>
#include <iterator>

#include <fmt/format.h>

#include "gateway/Texts.h"
#include "gateway/formats/Decimal.h"

namespace brenloft {
namespace {

struct MetricLabel {
  std::string_view name;
  std::string_view value;
};
using MetricLabels = std::initializer_list<MetricLabel>;

// Names come from people: a quote must not end the label, nor a line end the line.
void appendLabelValue(std::string& text, std::string_view value) {
  for (const char c : printable(value)) {
    if (c == '"' || c == '\\') text += '\\';
    text += c;
  }
}

std::string secondsText(platform::Date date) {
  const auto milliseconds = std::chrono::floor<std::chrono::milliseconds>(date.time_since_epoch()).count();
  return fmt::format("{:.3f}", static_cast<double>(milliseconds) / 1000);
}

std::string flagText(bool flag) {
  return flag ? "1" : "0";
}

// One metric after the other, each with all its samples: the format wants them together.
class MetricsText {
 public:
  /// The samples that follow are this metric's; without any, nothing is written of it.
  void begin(std::string_view name, std::string_view type, std::string_view help) {
    name_ = name;
    header_ = fmt::format("# HELP {0} {2}\n# TYPE {0} {1}\n", name, type, help);
  }
  void add(MetricLabels labels, std::string_view value) {
    text_ += header_;
    header_.clear();
    text_ += name_;
    char before = '{';
    for (const MetricLabel& label : labels) {
      if (label.value.empty()) continue;
      fmt::format_to(std::back_inserter(text_), "{}{}=\"", before, label.name);
      appendLabelValue(text_, label.value);
      text_ += '"';
      before = ',';
    }
    if (before == ',') text_ += '}';
    fmt::format_to(std::back_inserter(text_), " {}\n", value);
  }
  void addOne(std::string_view name, std::string_view type, std::string_view help, std::string_view value) {
    begin(name, type, help);
    add({}, value);
  }

  std::string take() { return std::move(text_); }

 private:
  std::string text_;
  std::string_view name_;
  std::string header_;  // until it is written
};

// What a beacon may have a value of.
struct BeaconMetric {
  std::string_view name;
  std::string_view type;
  std::string_view help;
  std::optional<std::string> (*value)(const BeaconMetrics&);
};

std::optional<std::string> ratio(const std::optional<int32_t>& parts, int32_t whole, int decimals) {
  if (!parts) return std::nullopt;
  return fmt::format("{:.{}f}", static_cast<double>(*parts) / whole, decimals);
}

constexpr BeaconMetric kBeaconMetrics[] = {
    {"brenloft_beacon_present", "gauge", "Whether the beacon is there.",
     [](const BeaconMetrics& one) {
       return one.isPresent ? std::optional(flagText(*one.isPresent)) : std::nullopt;
     }},
    {"brenloft_beacon_last_reading_timestamp_seconds", "gauge", "When the beacon was heard last.",
     [](const BeaconMetrics& one) {
       return one.heard ? std::optional(secondsText(*one.heard)) : std::nullopt;
     }},
    {"brenloft_beacon_readings_total", "counter", "Readings of the beacon since the program began.",
     [](const BeaconMetrics& one) { return std::optional(std::to_string(one.readings)); }},
    {"brenloft_beacon_temperature_celsius", "gauge", "Temperature, with the offset of the settings.",
     [](const BeaconMetrics& one) -> std::optional<std::string> {
       if (!one.shown.temperature) return std::nullopt;
       std::string text;
       appendHundredths(text, *one.shown.temperature);
       return text;
     }},
    {"brenloft_beacon_humidity_ratio", "gauge",
     "Relative humidity from 0 to 1, with the offset of the settings.",
     [](const BeaconMetrics& one) { return ratio(one.shown.humidity, 100'00, 4); }},
    {"brenloft_beacon_battery_ratio", "gauge", "Battery from 0 to 1.",
     [](const BeaconMetrics& one) { return ratio(one.shown.battery, 100, 2); }},
    {"brenloft_beacon_rssi_dbm", "gauge", "Strength of the newest reading's signal.",
     [](const BeaconMetrics& one) { return ratio(one.rssi, 1, 0); }},
    {"brenloft_beacon_emergency", "gauge", "Whether the beacon signals an emergency.",
     [](const BeaconMetrics& one) -> std::optional<std::string> {
       if (!one.shown.emergency) return std::nullopt;
       return flagText(*one.shown.emergency != 0);
     }},
};

std::string_view kindText(BeaconId::Kind kind) {
  return kind == BeaconId::Kind::sensor ? "sensor" : "ibeacon";
}

void addGateway(MetricsText& text, const MetricsSnapshot& snapshot) {
  text.begin("brenloft_build_info", "gauge", "Always 1; which version this is.");
  text.add({{"version", snapshot.version}}, "1");
  text.addOne("brenloft_metrics_timestamp_seconds", "gauge", "When all this was so.",
              secondsText(snapshot.made));
  text.addOne("brenloft_radio_listening", "gauge", "Whether the radio listens.",
              flagText(snapshot.isListening));
  text.addOne("brenloft_omitted_readings_total", "counter",
              "Readings of beacons that are not told here, because there are too many strangers.",
              std::to_string(snapshot.omittedReadings));
  if (!snapshot.judged) return;
  text.begin("brenloft_readings_total", "counter", "Readings by what was found of them.");
  for (std::size_t i = 0; i < snapshot.judged->byVerdict.size(); ++i)
    text.add({{"verdict", textOf(static_cast<Verdict>(i))}}, std::to_string(snapshot.judged->byVerdict[i]));
  text.addOne("brenloft_dropped_readings_total", "counter",
              "Readings that came faster than they could be judged.", std::to_string(snapshot.dropped));
}

void addOutputs(MetricsText& text, const MetricsSnapshot& snapshot) {
  text.begin("brenloft_output_working", "gauge", "Whether records reach the output.");
  for (const OutputMetrics& output : snapshot.outputs)
    text.add({{"output", output.name}}, flagText(output.isWorking));
  text.begin("brenloft_output_dropped_records_total", "counter", "Records that the output could not take.");
  for (const OutputMetrics& output : snapshot.outputs)
    text.add({{"output", output.name}}, std::to_string(output.dropped));
  if (!snapshot.history) return;
  const HistoryWriter::Counts& counts = *snapshot.history;
  text.begin("brenloft_history_records_total", "counter", "Records by what the history did with them.");
  text.add({{"outcome", "written"}}, std::to_string(counts.written));
  text.add({{"outcome", "thinned"}}, std::to_string(counts.thinned));
  text.add({{"outcome", "implausible"}}, std::to_string(counts.implausible));
  text.add({{"outcome", "dropped"}}, std::to_string(counts.dropped));
  text.addOne("brenloft_history_waiting_records", "gauge", "Records that wait to be written.",
              std::to_string(counts.waiting));
}

void addBeacons(MetricsText& text, const std::vector<BeaconMetrics>& beacons) {
  text.begin("brenloft_beacon_info", "gauge", "Always 1; what the settings say of the beacon.");
  for (const BeaconMetrics& one : beacons)
    text.add({{"beacon", one.beacon.text()},
              {"name", one.label.name},
              {"place", one.label.place},
              {"kind", kindText(one.beacon.kind())}},
             "1");
  for (const BeaconMetric& metric : kBeaconMetrics) {
    text.begin(metric.name, metric.type, metric.help);
    for (const BeaconMetrics& one : beacons)
      if (const auto value = metric.value(one))
        text.add({{"beacon", one.beacon.text()}, {"name", one.label.name}}, *value);
  }
  text.begin("brenloft_alarm_raised", "gauge", "Whether the alarm is raised for the beacon.");
  for (const BeaconMetrics& one : beacons)
    for (const AlarmMetrics& alarm : one.alarms)
      text.add({{"alarm", alarm.name},
                {"severity", textOf(alarm.severity)},
                {"beacon", one.beacon.text()},
                {"name", one.label.name}},
               flagText(alarm.isRaised));
}

}  // namespace

std::string renderMetrics(const MetricsSnapshot& snapshot) {
  MetricsText text;
  addGateway(text, snapshot);
  addOutputs(text, snapshot);
  addBeacons(text, snapshot.beacons);
  return text.take();
}

}  // namespace brenloft
