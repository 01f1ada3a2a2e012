#include "gateway/configuration/AlarmParser.h"

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <optional>
#include <utility>

#include <fmt/format.h>

#include "gateway/SensorRanges.h"

namespace brenloft {
namespace {

using Quantity = AlarmRule::Quantity;

// How a quantity is written, and kept as a whole number. A limit beyond what is believed of a sensor would
// never be passed, or always.
struct Scale {
  std::string_view word;
  Quantity quantity;
  double steps;  // in one unit
  double least;
  double most;
};
constexpr Scale kScales[] = {
    {"temperature", Quantity::temperature, 100, kColdest / 100.0, kHottest / 100.0},
    {"humidity", Quantity::humidity, 100, 0, kWettest / 100.0},
    {"dew-point", Quantity::dewPoint, 100, -100, 60},
    {"battery", Quantity::battery, 1, 0, kFullBattery},
    {"rssi", Quantity::rssi, 1, -127, 20},
};

// One `[[alarm]]` on its way to a rule.
class AlarmReader {
 public:
  AlarmReader(const TomlValue::Table& table, unsigned line, const Settings& settings, Complaints& complaints)
      : table_(table),
        line_(line),
        settings_(settings),
        complaints_(complaints),
        before_(complaints.size()),
        values_(table, alarmKeys(), "[[alarm]]", complaints) {}

  std::optional<AlarmRule> read() {
    readName();
    readBeacons();
    readCondition();
    readRest();
    if (hasComplaint()) return std::nullopt;
    return std::move(rule_);
  }

 private:
  void complain(std::string_view key, std::string reason) {
    complaints_.push_back({values_.line(key, line_), std::move(reason)});
  }
  // Also with a value that is wrong, of which there is a complaint already.
  bool stands(std::string_view key) const {
    return std::ranges::find(table_, key, &TomlEntry::key) != table_.end();
  }

  void readName() {
    rule_.name = values_.text("name");
    if (!stands("name") && !hasComplaint()) complain("name", "an alarm needs a name");
    if (!rule_.name.empty() && settings_.alarm(rule_.name))
      complain("name", fmt::format("another alarm is named \"{}\", too", rule_.name));
  }

  void readBeacons() {
    if (stands("beacon") && stands("place")) complain("place", "give an alarm a beacon or a place, not both");
    if (values_.has("beacon")) readBeacon(values_.text("beacon"));
    if (values_.has("place")) readPlace(values_.text("place"));
  }

  void readBeacon(const std::string& given) {
    std::vector<std::string> names;
    for (const auto& [id, beacon] : settings_.beacons) {
      if (beacon.name.empty()) continue;
      if (beacon.name == given) rule_.beacon = id;
      names.push_back(beacon.name);
    }
    if (!rule_.beacon) rule_.beacon = BeaconId::fromText(given);
    if (!rule_.beacon)
      complain("beacon", fmt::format("\"{}\" is neither a beacon's name nor an identifier{}", given,
                                     suggestion(given, names)));
  }

  void readPlace(const std::string& given) {
    std::vector<std::string> places;
    for (const auto& [id, beacon] : settings_.beacons) places.push_back(beacon.place);
    if (std::ranges::find(places, given) == places.end())
      complain("place", fmt::format("no beacon has the place \"{}\"{}", given, suggestion(given, places)));
    rule_.place = given;
  }

  void readCondition() {
    const bool isEmergency = values_.flag("emergency");
    const int kinds = int(stands("quantity")) + int(stands("silent")) + int(isEmergency);
    if (kinds > 1)
      return complain(stands("quantity") ? "quantity" : "silent",
                      "an alarm has one of quantity, silent and emergency; write one alarm for each");
    if (stands("silent")) return readSilence();
    if (isEmergency) return readEmergency();
    if (!stands("quantity")) return missCondition();
    readLimits();
  }

  // A key that says nothing of this kind of alarm.
  void refuse(std::initializer_list<std::string_view> keys, std::string_view beside) {
    for (const std::string_view key : keys)
      if (stands(key)) complain(key, fmt::format("{} has no effect beside {}", key, beside));
  }

  void readSilence() {
    refuse({"above", "below", "hysteresis", "for"}, "silent");
    rule_.quantity = Quantity::silence;
    rule_.hold = values_.duration("silent");
  }

  void readEmergency() {
    refuse({"above", "below", "hysteresis"}, "emergency");
    rule_.quantity = Quantity::emergency;
    rule_.above = 0;
    rule_.hold = values_.duration("for");
  }

  // Then what is missing may be there, misspelt.
  bool hasComplaint() const { return complaints_.size() != before_; }

  void missCondition() {
    if (hasComplaint()) return;
    const bool hasLimit = stands("above") || stands("below");
    const std::string_view key = stands("above") ? "above" : "below";
    complain(key, hasLimit ? fmt::format("{} of what? Add quantity = \"temperature\", for example", key)
                           : "an alarm needs a quantity with above or below, or silent, or emergency");
  }

  void readLimits() {
    if (!values_.has("quantity")) return;
    const bool hasLimit = stands("above") || stands("below");
    if (!hasLimit && !hasComplaint())
      complain("quantity", "quantity: it needs above or below, such as above = 8");
    if (!hasLimit) return;
    const Scale& scale = *std::ranges::find(kScales, values_.text("quantity"), &Scale::word);
    rule_.quantity = scale.quantity;
    rule_.above = limit("above", scale);
    rule_.below = limit("below", scale);
    rule_.hysteresis = hysteresis(scale);
    rule_.hold = values_.duration("for");
    if (!rule_.above || !rule_.below) return;
    if (*rule_.below > *rule_.above)
      complain("below", fmt::format("below: {} is larger than above, {}: every value would raise the alarm; "
                                    "below is the smaller one",
                                    values_.number("below"), values_.number("above")));
    else if (*rule_.above - *rule_.below < 2 * rule_.hysteresis)
      complain(
          "hysteresis",
          fmt::format("hysteresis: {:g} leaves no value that clears the alarm; half of above "
                      "minus below at most: {:g}",
                      values_.number("hysteresis"), (values_.number("above") - values_.number("below")) / 2));
  }

  std::optional<int32_t> limit(std::string_view key, const Scale& scale) {
    if (!values_.has(key)) return std::nullopt;
    const double value = values_.number(key);
    if (value < scale.least || value > scale.most) {
      complain(key, fmt::format("{}: {} is out of range: {} goes from {} to {}", key, value, scale.word,
                                scale.least, scale.most));
      return std::nullopt;
    }
    return steps(key, value, scale);
  }

  int32_t hysteresis(const Scale& scale) {
    const double value = values_.number("hysteresis");
    if (value > scale.most - scale.least)
      complain("hysteresis", fmt::format("hysteresis: {} is too large", value));
    return steps("hysteresis", std::min(value, scale.most), scale);
  }

  int32_t steps(std::string_view key, double value, const Scale& scale) {
    const double exact = value * scale.steps;
    const double rounded = std::round(exact);
    if (std::abs(exact - rounded) > 1e-6)
      complain(key, fmt::format("{}: {} has more decimals than {}", key, value,
                                scale.steps > 1 ? "the two that are measured" : "a whole number"));
    return static_cast<int32_t>(rounded);
  }

  void readRest() {
    const std::vector<std::string_view>& words =
        std::ranges::find(alarmKeys(), "severity", &SettingsKey::name)->words;
    if (values_.has("severity"))
      rule_.severity = static_cast<AlarmRule::Severity>(std::ranges::find(words, values_.text("severity")) -
                                                        words.begin());
    rule_.cooldown = values_.duration("cooldown");
    rule_.text = values_.text("text");
    rule_.exec = values_.command("exec");
    rule_.execTimeout = values_.duration("exec-timeout", rule_.execTimeout);
    if (stands("exec-timeout") && !stands("exec"))
      complain("exec-timeout", "exec-timeout has no effect without exec");
  }

  const TomlValue::Table& table_;
  const unsigned line_;
  const Settings& settings_;
  Complaints& complaints_;
  const std::size_t before_;
  const SectionValues values_;
  AlarmRule rule_;
};

}  // namespace

void addAlarm(const TomlValue::Table& table, unsigned line, Settings& settings, Complaints& complaints) {
  if (auto rule = AlarmReader(table, line, settings, complaints).read())
    settings.alarms.push_back(*std::move(rule));
}

}  // namespace brenloft
