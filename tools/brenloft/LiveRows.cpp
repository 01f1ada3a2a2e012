#include "tools/brenloft/LiveRows.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <string_view>
#include <tuple>

#include <fmt/format.h>

#include "gateway/Texts.h"
#include "gateway/formats/Decimal.h"

namespace brenloft {
namespace {

// What each letter sorts by; the letters stand in this order above the table.
constexpr std::array<std::pair<char, std::string_view>, 9> kKeys{{{'i', "id"},
                                                                  {'s', "state"},
                                                                  {'n', "name"},
                                                                  {'p', "place"},
                                                                  {'a', "age"},
                                                                  {'t', "temperature"},
                                                                  {'h', "humidity"},
                                                                  {'b', "battery"},
                                                                  {'r', "rssi"}}};

// Columns whose texts people choose get so much on 80 columns, and share what is beyond.
constexpr std::size_t kWholeWidth = 90;
constexpr std::size_t kLongText = 12;
constexpr std::size_t kShortText = 8;

std::string shortened(const std::string& text, std::size_t width) {
  const std::string whole = printable(text);
  if (fitted(whole, width) == whole) return whole;
  return fitted(whole, std::max<std::size_t>(width, 1) - 1) + "…";
}

std::size_t lengthOf(const std::string& text) {
  return static_cast<std::size_t>(
      std::ranges::count_if(text, [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

std::string hundredthsOr(const std::optional<int32_t>& value, const char* otherwise) {
  if (!value) return otherwise;
  std::string text;
  appendHundredths(text, *value);
  return text;
}

// Without the zone, which stands above the table.
std::string clockText(platform::Date heard, TimeText& times) {
  const std::string text = times.clock(heard);
  return text.find(':') == std::string::npos ? text : text.substr(0, 8);
}

}  // namespace

struct LiveRows::Column {
  std::string header;
  std::size_t most;  // characters of a cell
  bool isRight;
  std::vector<std::string> cells{};

  std::size_t width() const {
    std::size_t width = 0;
    for (const std::string& cell : cells) width = std::max(width, lengthOf(cell));
    return width == 0 ? 0 : std::max(std::min(width, most), lengthOf(header));
  }
  void appendTo(std::string& line, const std::string& cell, std::size_t width) const {
    const std::string text = shortened(cell, width);
    const std::string blanks(width - lengthOf(text), ' ');
    line += (line.empty() ? "" : " ") + (isRight ? blanks + text : text + blanks);
  }
};

bool LiveRows::take(const Record& record) {
  const BeaconId* beacon = beaconOf(record);
  if (beacon == nullptr) return false;
  const auto row = rowOf(*beacon);
  if (!row) return true;
  if (const auto* event = std::get_if<BeaconEvent>(&record)) {
    takeEvent(*event, (*row)->second);
    return true;
  }
  const auto& reading = std::get<Reading>(record);
  const auto raised = raisedAlarms_(*beacon);  // also those of the last run
  put(*row, Row{.reading = reading,
                .alarms = {raised.begin(), raised.end()},
                .isEmergency = reading.raw.emergency.value_or(0) >= 1});
  return true;
}

void LiveRows::takeEvent(const BeaconEvent& event, Row& row) {
  switch (event.kind) {
    case BeaconEvent::Kind::found:
    case BeaconEvent::Kind::lost:
      row.isLost = event.kind == BeaconEvent::Kind::lost;
      return;
    case BeaconEvent::Kind::emergency:
    case BeaconEvent::Kind::emergencyOver:
      row.isEmergency = event.kind == BeaconEvent::Kind::emergency;
      return;
    case BeaconEvent::Kind::alarmRaised:
      row.alarms.insert(event.text);
      return;
    case BeaconEvent::Kind::alarmCleared:
      row.alarms.erase(event.text);
      return;
    case BeaconEvent::Kind::radio:
    case BeaconEvent::Kind::gap:
      return;
  }
}

void LiveRows::takeStranger(const Reading& reading) {
  const auto row = rowOf(reading.beacon);
  if (!row) return;
  Reading shown = reading;
  shown.shown = reading.raw;
  put(*row, Row{.reading = std::move(shown), .isStranger = true});
}

bool LiveRows::Worth::operator<(const Worth& other) const {
  return std::tie(isNamed, isBelieved, heard, row->first) <
         std::tie(other.isNamed, other.isBelieved, other.heard, other.row->first);
}

LiveRows::Worth LiveRows::worthOf(Rows::iterator row) {
  const auto& [id, one] = *row;
  return {.isNamed = one.isNamed,
          .isBelieved = !one.isStranger,
          .heard = one.reading ? one.reading->heard : platform::Date::min(),
          .row = row};
}

// None where it would have to take the place of one with a name.
std::optional<LiveRows::Rows::iterator> LiveRows::rowOf(const BeaconId& beacon) {
  if (const auto known = rows_.find(beacon); known != rows_.end()) return known;
  const bool isNamed = !labels_(beacon).name.empty();
  if (rows_.size() >= kMost) {
    const auto least = worths_.begin();
    if (least->isNamed && !isNamed) return std::nullopt;
    const auto row = least->row;
    worths_.erase(least);
    rows_.erase(row);
  }
  const auto added = rows_.emplace(beacon, Row{.isNamed = isNamed}).first;
  worths_.insert(worthOf(added));
  return added;
}

void LiveRows::put(Rows::iterator at, Row row) {
  worths_.erase(worthOf(at));
  row.isNamed = at->second.isNamed;
  at->second = std::move(row);
  worths_.insert(worthOf(at));
}

bool LiveRows::sortBy(char key) {
  if (std::ranges::find(kKeys, key, &std::pair<char, std::string_view>::first) == kKeys.end()) return false;
  isReversed_ = key == key_ && !isReversed_;
  key_ = key;
  return true;
}

// Strangers come last, and what has no value behind what has one, whichever way round.
bool LiveRows::isBefore(const Entry& a, const Entry& b) const {
  if (a.row->isStranger != b.row->isStranger) return b.row->isStranger;
  const auto by = [&](const auto& valueOf) {
    const auto left = valueOf(a);
    const auto right = valueOf(b);
    if (left == right) return *a.id < *b.id;
    if (!left || !right) return left.has_value();
    return isReversed_ ? *right < *left : *left < *right;
  };
  const auto text = [](const std::string& one) { return one.empty() ? std::nullopt : std::optional(one); };
  const auto quantity = [](std::optional<int32_t> Quantities::*member) {
    return [member](const Entry& one) {
      return one.row->reading ? one.row->reading->shown.*member : std::nullopt;
    };
  };
  switch (key_) {
    case 's':
      return by([](const Entry& one) {
        return std::optional(std::tuple(one.row->alarms.empty(), !one.row->isEmergency, !one.row->isLost));
      });
    case 'n':
      return by([&](const Entry& one) { return text(one.label.name); });
    case 'p':
      return by([&](const Entry& one) { return text(one.label.place); });
    case 'a':
      return by([](const Entry& one) {
        return one.row->reading ? std::optional(-one.row->reading->heard.time_since_epoch()) : std::nullopt;
      });
    case 't':
      return by(quantity(&Quantities::temperature));
    case 'h':
      return by(quantity(&Quantities::humidity));
    case 'b':
      return by(quantity(&Quantities::battery));
    case 'r':
      return by([](const Entry& one) { return one.row->reading ? one.row->reading->rssi : std::nullopt; });
    default:
      return by([](const Entry& one) { return std::optional(*one.id); });
  }
}

// Settings that were read again may have given a name, or taken one.
std::vector<LiveRows::Entry> LiveRows::sorted() {
  std::vector<Entry> entries;
  for (auto row = rows_.begin(); row != rows_.end(); ++row) {
    auto& [id, one] = *row;
    entries.push_back({&id, &one, labels_(id)});
    const bool isNamed = !entries.back().label.name.empty();
    if (isNamed == one.isNamed) continue;
    worths_.erase(worthOf(row));
    one.isNamed = isNamed;
    worths_.insert(worthOf(row));
  }
  std::ranges::sort(entries, [this](const Entry& a, const Entry& b) { return isBefore(a, b); });
  return entries;
}

LiveRows::Mood LiveRows::moodOf(const Row& row) {
  if (row.isStranger) return Mood::stranger;
  if (!row.alarms.empty() || row.isEmergency) return Mood::alarm;
  return row.isLost ? Mood::absent : Mood::usual;
}

std::string LiveRows::stateOf(const Row& row) {
  if (row.isStranger) return "stranger";
  std::vector<std::string> states(row.alarms.begin(), row.alarms.end());
  if (row.isEmergency) states.emplace_back("EMERGENCY");
  if (row.isLost) states.emplace_back("lost");
  return states.empty() ? "present" : fmt::format("{}", fmt::join(states, ", "));
}

std::string LiveRows::summary() const {
  const auto count = [&](const auto& isOne) {
    return std::ranges::count_if(rows_, [&](const auto& one) { return isOne(one.second); });
  };
  const auto strangers = count([](const Row& row) { return row.isStranger; });
  const auto lost = count([](const Row& row) { return row.isLost; });
  const auto beacons = static_cast<std::ptrdiff_t>(rows_.size()) - strangers;
  std::string text = fmt::format("{} beacon{}", beacons, beacons == 1 ? "" : "s");
  if (lost != 0) text += fmt::format(", {} lost", lost);
  if (strangers != 0) text += fmt::format(", {} stranger{}", strangers, strangers == 1 ? "" : "s");
  std::string letters;
  std::string_view name;
  for (const auto& [key, column] : kKeys) {
    letters += std::string(letters.empty() ? "" : " ") + key;
    if (key == key_) name = column;
  }
  return text + fmt::format("; by {}{}; sort: {}", name, isReversed_ ? ", reversed" : "", letters);
}

// An iBeacon's UUID leaves no room on 80 columns, and those of one search share it.
std::string LiveRows::commonPrefix() const {
  if (rows_.empty()) return {};
  const std::string& first = rows_.begin()->first.text();
  const std::string prefix = first.substr(0, first.find('/') + 1);
  const auto hasIt = [&](const auto& one) { return one.first.text().starts_with(prefix); };
  return std::ranges::all_of(rows_, hasIt) ? prefix : std::string();
}

LiveRows::Shown LiveRows::shown(platform::Date now, std::size_t width, std::size_t mostLines,
                                TimeText& times) {
  const std::vector<Entry> entries = sorted();
  const std::string common = commonPrefix();
  const std::size_t more = width > kWholeWidth ? (width - kWholeWidth) / 3 : 0;
  std::vector<Column> columns{{"id", std::string::npos, false},
                              {"state", kLongText + more, false},
                              {"name", kLongText + more, false},
                              {"place", kShortText + more, false},
                              {"age", 4, true},
                              {"heard", 10, false},
                              {"°C", 7, true},
                              {"%RH", 6, true},
                              {"bat", 3, true},
                              {"rssi", 4, true}};
  Shown shown{.summary = summary(),
              .common = common.empty() ? "" : "iBeacons of " + common.substr(0, common.size() - 1)};
  const std::size_t count = std::min(entries.size(), mostLines);
  shown.left = entries.size() - count;
  for (std::size_t i = 0; i < count; ++i) {
    const Entry& one = entries[i];
    const auto& reading = one.row->reading;
    const Quantities values = reading ? reading->shown : Quantities{};
    const std::array cells{one.id->text().substr(common.size()),
                           stateOf(*one.row),
                           one.label.name,
                           one.label.place,
                           reading ? ageText(reading->heard, now) : "-",
                           reading ? clockText(reading->heard, times) : "-",
                           hundredthsOr(values.temperature, ""),
                           hundredthsOr(values.humidity, ""),
                           values.battery ? std::to_string(*values.battery) : "",
                           reading && reading->rssi ? std::to_string(*reading->rssi) : ""};
    for (std::size_t column = 0; column < cells.size(); ++column)
      columns[column].cells.push_back(cells[column]);
    shown.lines.push_back({moodOf(*one.row), ""});
  }
  // What does not fit is left out whole, from the right.
  std::size_t used = 0;
  for (const Column& column : columns) {
    const std::size_t needed = column.width();
    if (needed == 0) continue;
    if (used != 0 && used + 1 + needed > width) break;
    used += (used != 0 ? 1 : 0) + needed;
    column.appendTo(shown.header, column.header, needed);
    for (std::size_t i = 0; i < count; ++i) column.appendTo(shown.lines[i].text, column.cells[i], needed);
  }
  return shown;
}

}  // namespace brenloft
