#include "gateway/web/PageTexts.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

#include "gateway/alarms/DewPoint.h"
#include "gateway/web/LocalTime.h"

namespace brenloft::web {
namespace {

using platform::Date;

constexpr const char* kMinus = "\u2212";

std::string withMinus(std::string text) {
  if (text.starts_with('-')) text.replace(0, 1, kMinus);
  return text;
}

std::string capitalised(std::string text) {
  if (!text.empty() && text[0] >= 'a' && text[0] <= 'z') text[0] = static_cast<char>(text[0] - 'a' + 'A');
  return text;
}

bool isHundredths(AlarmQuantity quantity) {
  return quantity == AlarmQuantity::temperature || quantity == AlarmQuantity::humidity ||
         quantity == AlarmQuantity::dewPoint;
}

std::string_view unitOf(AlarmQuantity quantity) {
  constexpr std::string_view kUnits[] = {" °C", " % RH", " °C dew point", " % battery", " dBm", "", ""};
  return kUnits[static_cast<std::size_t>(quantity)];
}

constexpr int kMostPlaces = 2;

int usualPlaces(AlarmQuantity quantity) {
  return quantity == AlarmQuantity::humidity ? 0 : 1;
}

// In hundredths, rounded to so many places.
int64_t rounded(int32_t value, int places) {
  const int64_t step = places == 0 ? 100 : places == 1 ? 10 : 1;
  return std::llround(static_cast<double>(value) / static_cast<double>(step)) * step;
}

// A value in the unit of a rule's quantity, with as many places as leave it on its side of a limit.
std::string valueWithUnit(AlarmQuantity quantity, int32_t value, std::optional<int32_t> limit = {}) {
  const std::string unit(unitOf(quantity));
  if (!isHundredths(quantity)) return wholeText(value) + unit;
  int places = usualPlaces(quantity);
  while (limit && places < kMostPlaces && (rounded(value, places) <=> *limit) != (int64_t{value} <=> *limit))
    ++places;
  return decimalText(value, places) + unit;
}

// A limit is told as it was given.
std::string limitWithUnit(AlarmQuantity quantity, int32_t limit) {
  const std::string unit(unitOf(quantity));
  if (!isHundredths(quantity)) return wholeText(limit) + unit;
  int places = usualPlaces(quantity);
  while (rounded(limit, places) != limit) ++places;
  return decimalText(limit, places) + unit;
}

// Which limit a value that raised the alarm has passed.
std::optional<int32_t> limitPassed(const AlarmRule& rule, int32_t value) {
  if (!rule.above || !rule.below) return rule.above ? rule.above : rule.below;
  return int64_t{value} * 2 > int64_t{*rule.above} + *rule.below ? rule.above : rule.below;
}

// Nothing for what no single reading has.
std::string_view liveKeyOf(AlarmQuantity quantity) {
  switch (quantity) {
    case AlarmQuantity::temperature:
      return "temperature";
    case AlarmQuantity::humidity:
      return "humidity";
    case AlarmQuantity::battery:
      return "battery";
    case AlarmQuantity::rssi:
      return "rssi";
    case AlarmQuantity::dewPoint:
    case AlarmQuantity::emergency:
    case AlarmQuantity::silence:
      return {};
  }
  return {};
}

std::optional<int32_t> valueOf(AlarmQuantity quantity, const Reading& reading) {
  switch (quantity) {
    case AlarmQuantity::temperature:
      return reading.shown.temperature;
    case AlarmQuantity::humidity:
      return reading.shown.humidity;
    case AlarmQuantity::dewPoint:
      if (!reading.shown.temperature || !reading.shown.humidity) return std::nullopt;
      return dewPoint(*reading.shown.temperature, *reading.shown.humidity);
    case AlarmQuantity::battery:
      return reading.shown.battery;
    case AlarmQuantity::rssi:
      return reading.rssi;
    case AlarmQuantity::emergency:
    case AlarmQuantity::silence:
      return std::nullopt;
  }
  return std::nullopt;
}

// Rules without their hold: "above 5.0 °C".
std::string limitText(const AlarmRule& rule) {
  if (rule.quantity == AlarmQuantity::silence) return "not heard";
  if (rule.quantity == AlarmQuantity::emergency) return "emergency";
  std::string text;
  if (rule.below) text += "below " + limitWithUnit(rule.quantity, *rule.below);
  if (rule.above)
    text += (text.empty() ? "above " : " or above ") + limitWithUnit(rule.quantity, *rule.above);
  return text;
}

std::string lastHeardText(const PageModel& page, const Reading& latest) {
  std::string text = "Last heard " + sinceText(latest.heard, page.now());
  if (latest.shown.temperature) text += " with " + decimalText(*latest.shown.temperature, 1) + " °C";
  if (latest.rssi)
    text += fmt::format("{} {} dBm", latest.shown.temperature ? " and" : " with", wholeText(*latest.rssi));
  return text;
}

std::string daysLeftText(const PageModel& page, Date empty) {
  const auto days = std::chrono::round<std::chrono::days>(empty - page.now()).count();
  return days == 1 ? "1 day left" : fmt::format("{} days left", std::max<int64_t>(days, 0));
}

// "3 Dec": which weekday it will be tells nothing.
std::string emptyText(const PageModel& page, const PageBeacon& beacon) {
  if (!beacon.trend) return "not known yet";
  if (!beacon.empty) return "not falling";
  if (*beacon.empty > page.now() + std::chrono::days(365)) return "in over a year";
  const std::string day = dayText(*beacon.empty);
  return "about " + day.substr(day.find(' ') + 1);
}

Attention alarmLine(const PageModel& page, const PageBeacon& beacon, const RaisedAlarm& raised) {
  const AlarmRule* rule = beacon.rule(raised.rule);
  Attention line{.beacon = &beacon, .need = beacon.isInfo(raised) ? Need::info : Need::alarm};
  line.rule = raised.rule;
  line.isCritical = rule != nullptr && rule->severity == AlarmSeverity::critical;
  Date since = raised.since;
  std::string what = raised.rule;
  if (rule != nullptr) {
    since -= rule->hold;
    what = limitText(*rule);
    if (rule->quantity == AlarmQuantity::silence) line.figure = "Not heard";
    if (const auto value = valueOf(rule->quantity, *beacon.latest)) {
      const auto limit = limitPassed(*rule, *value);
      line.figure = valueWithUnit(rule->quantity, *value, limit);
      line.live = {liveKeyOf(rule->quantity), unitOf(rule->quantity), limit};
    }
  }
  if (line.figure.empty()) line.figure = "Raised";
  line.why = fmt::format("{} since {}", capitalised(what), sinceText(since, page.now()));
  if (rule != nullptr)
    line.why += fmt::format(" ({}{}{})", rule->name, rule->text.empty() ? "" : ": ", rule->text);
  line.duration = durationText(page.knownUntil() - since);
  return line;
}

Attention lineOf(const PageModel& page, const PageBeacon& beacon, Need need) {
  Attention line{.beacon = &beacon, .need = need};
  switch (need) {
    case Need::emergency:
      line.figure = "Signalled";
      line.why = fmt::format("By the beacon since {}{}",
                             midnight(*beacon.emergencySince) == midnight(page.now())
                                 ? secondText(*beacon.emergencySince)
                                 : sinceText(*beacon.emergencySince, page.now()),
                             page.deafSince ? "" : ", still on");
      line.duration = durationText(page.knownUntil() - *beacon.emergencySince);
      break;
    case Need::silent:
      line.figure = "Not heard";
      line.why = lastHeardText(page, *beacon.latest);
      line.duration = durationText(page.now() - beacon.latest->heard);
      break;
    case Need::battery:
      line.figure = fmt::format("{} %", *beacon.latest->shown.battery);
      line.live = {"battery", " %"};
      line.why = "Empty " + emptyText(page, beacon);
      if (beacon.empty)
        line.why += fmt::format(" at the trend since {}", dayText(beacon.trend->since, page.now()));
      if (beacon.empty) line.duration = daysLeftText(page, *beacon.empty);
      break;
    case Need::notHeard:
      line.figure = "Never heard";
      line.why = "The settings name it: " + beacon.id.text();
      break;
    case Need::alarm:
    case Need::info:
      break;
  }
  return line;
}

// What was measured and the limit that it passed, as they were then.
std::string alarmText(const BeaconEvent& event) {
  std::string text = event.text;
  if (!event.alarm) return text;
  const AlarmFacts& facts = *event.alarm;
  const bool isSilence = facts.quantity == AlarmQuantity::silence;
  if (facts.value && !isSilence) text += ": " + valueWithUnit(facts.quantity, *facts.value, facts.threshold);
  if (facts.threshold)
    text += isSilence ? ": not heard for " + durationText(std::chrono::seconds(*facts.threshold))
                      : ", limit " + limitWithUnit(facts.quantity, *facts.threshold);
  return facts.text.empty() ? text : text + ". " + facts.text;
}

// An alarm of silence says what the state says.
bool saysAlarm(const PageBeacon& beacon, Need need) {
  return std::ranges::any_of(beacon.raised, [&](const RaisedAlarm& raised) {
    const AlarmRule* rule = beacon.rule(raised.rule);
    return rule != nullptr && need == Need::silent && rule->quantity == AlarmQuantity::silence;
  });
}

std::vector<Attention> linesOf(const PageModel& page, const PageBeacon& beacon) {
  std::vector<Attention> lines;
  for (const Need need : beacon.needs) {
    if (need == Need::alarm || need == Need::info) {
      for (const RaisedAlarm& raised : beacon.raised)
        if (beacon.isInfo(raised) == (need == Need::info)) lines.push_back(alarmLine(page, beacon, raised));
    } else if (!saysAlarm(beacon, need)) {
      lines.push_back(lineOf(page, beacon, need));
    }
  }
  return lines;
}

}  // namespace

StateWord wordOf(Need need) {
  constexpr StateWord kWords[] = {{"Emergency", "em"}, {"Alarm", "al"},         {"Silent", "wa"},
                                  {"Battery", "wa"},   {"Not heard yet", "wa"}, {"Info", "in"}};
  return kWords[static_cast<std::size_t>(need)];
}

std::vector<Attention> attentionOf(const PageModel& page) {
  std::vector<Attention> lines;
  for (const PageBeacon& beacon : page.beacons)
    std::ranges::move(linesOf(page, beacon), std::back_inserter(lines));
  std::ranges::stable_sort(lines, {},
                           [](const Attention& line) { return std::pair(line.need, !line.isCritical); });
  if (page.deafSince)
    lines.insert(lines.begin(),
                 {.beacon = nullptr,
                  .need = Need::alarm,
                  .figure = "Hears nothing",
                  .why = fmt::format("Since {}{}. All values are old", sinceText(*page.deafSince, page.now()),
                                     page.isWritten ? "" : ", and no process writes the history"),
                  .duration = durationText(page.now() - *page.deafSince)});
  return lines;
}

std::string decimalText(double hundredths, int places) {
  // Halves go away from zero, as in the script.
  const double unit = std::pow(10, places);
  std::string text = fmt::format("{:.{}f}", std::round(hundredths * unit / 100) / unit, places);
  // No "-0.0".
  if (text.find_first_not_of("-0.") == std::string::npos && text.starts_with('-')) text.erase(0, 1);
  return withMinus(std::move(text));
}

std::string wholeText(int32_t number) {
  return withMinus(std::to_string(number));
}

std::string ruleText(const AlarmRule& rule) {
  std::string text = limitText(rule);
  if (rule.hold.count() > 0) text += " for " + durationText(rule.hold);
  return text;
}

std::string ageText(const PageModel& page, const PageBeacon& beacon) {
  if (!beacon.latest) return "never";
  const auto age = page.now() - beacon.latest->heard;
  const bool isThere = beacon.isPresent && !page.deafSince;
  return isThere && age < std::chrono::minutes(1) ? "now" : durationText(age);
}

bool isAlarmed(const PageBeacon& beacon, AlarmRule::Quantity quantity) {
  return std::ranges::any_of(beacon.raised, [&](const RaisedAlarm& raised) {
    const AlarmRule* rule = beacon.rule(raised.rule);
    return rule != nullptr && rule->quantity == quantity && !beacon.isInfo(raised);
  });
}

std::string_view stateOf(const PageBeacon& beacon, Need need) {
  return beacon.has(need) ? wordOf(need).css : std::string_view();
}

std::vector<Fact> factsOf(const PageModel& page, const PageBeacon& beacon) {
  std::vector<Fact> facts;
  if (!beacon.latest) return facts;
  const Reading& latest = *beacon.latest;
  const Quantities& shown = latest.shown;
  const bool isOld = page.now() - latest.heard > std::chrono::minutes(5);
  const auto add = [&](const char* name, std::string value, const char* unit, std::string_view css) {
    facts.push_back({name + std::string(isOld ? ", last" : ""), std::move(value), unit, css});
  };
  const auto alarmOf = [&](AlarmQuantity quantity) {
    return isAlarmed(beacon, quantity) ? wordOf(Need::alarm).css : std::string_view();
  };
  if (shown.temperature)
    add("Temperature", decimalText(*shown.temperature, 1), "°C", alarmOf(AlarmQuantity::temperature));
  if (shown.humidity)
    add("Humidity", decimalText(*shown.humidity, 0), "% RH", alarmOf(AlarmQuantity::humidity));
  if (shown.battery) {
    add("Battery", wholeText(*shown.battery), "%", stateOf(beacon, Need::battery));
    facts.push_back({"Battery empty", emptyText(page, beacon), ""});
  }
  if (latest.rssi) add("Signal", wholeText(*latest.rssi), "dBm", alarmOf(AlarmQuantity::rssi));
  const std::string age = ageText(page, beacon);
  facts.push_back({"Heard", age == "now" ? age : age + " ago", sinceText(latest.heard, page.now()),
                   stateOf(beacon, Need::silent)});
  return facts;
}

std::string sayingOf(const PageModel& page, const PageBeacon& beacon) {
  std::string text;
  for (const Attention& line : linesOf(page, beacon)) text += line.why + ". ";
  if (text.empty()) text = "Nothing amiss. ";
  for (const AlarmRule& rule : beacon.rules) text += fmt::format("Alarm {}: {}. ", rule.name, ruleText(rule));
  if (beacon.rules.empty()) text += "No alarm is set. ";
  if (beacon.empty)
    text += fmt::format("Battery {} % a month since {}. ", decimalText(beacon.trend->perDay * 30 * 100, 1),
                        dayText(beacon.trend->since, page.now()));
  return text;
}

EventText textOf(const PageEvent& told) {
  using Happened = BeaconEvent::Kind;
  const BeaconEvent& event = told.event;
  const std::string after = told.after ? " again after " + durationText(*told.after) : "";
  switch (event.kind) {
    case Happened::found:
      return {{"Heard", ""}, told.after ? after.substr(1) : "for the first time"};
    case Happened::lost:
      return {{"Silent", "wa"}, "not heard any more"};
    case Happened::emergency:
      return {{"Emergency", "em"}, "signalled"};
    case Happened::emergencyOver:
      return {{"Emergency over", ""}, "no longer signalled"};
    case Happened::alarmRaised:
      if (event.alarm && event.alarm->severity == AlarmSeverity::info)
        return {{"Info", "in"}, alarmText(event)};
      return {{"Alarm", "al"}, alarmText(event)};
    case Happened::alarmCleared:
      return {{"Alarm over", ""}, alarmText(event)};
    case Happened::radio:
      return {{"Radio", ""},
              event.text.starts_with("poweredOn") ? "hears" + after
                                                  : fmt::format("hears nothing ({})", event.text)};
    case Happened::gap:
      return {{"Gap", "wa"}, fmt::format("{} records could not be written", event.count)};
  }
  return {};
}

}  // namespace brenloft::web
