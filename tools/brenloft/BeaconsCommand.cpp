#include <algorithm>
#include <cmath>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "gateway/Texts.h"
#include "gateway/beacons/BeaconBook.h"
#include "gateway/configuration/LiveSettings.h"
#include "gateway/formats/Decimal.h"
#include "gateway/history/BatteryTrend.h"
#include "gateway/history/HistoryReader.h"
#include "gateway/history/HistoryWriter.h"
#include "platform/foundation/JSONWriter.h"
#include "tools/brenloft/Commands.h"
#include "tools/brenloft/ContainerFiles.h"
#include "tools/brenloft/Output.h"
#include "tools/brenloft/Store.h"
#include "tools/brenloft/TimeText.h"

namespace brenloft {
namespace {

constexpr double kMonth = 30;  // days

struct KnownBeacon {
  std::optional<Reading> latest{};
  std::optional<GapLearner::Time> usualGap{};
  std::optional<double> batteryPerMonth{};
};
using KnownBeacons = std::map<BeaconId, KnownBeacon>;

// A file that may be lost or damaged at any time.
class KnownBeaconsReader {
 public:
  KnownBeaconsReader(HistoryReader& reader, std::string file) : reader_(reader), file_(std::move(file)) {}

  KnownBeacons read() {
    KnownBeacons beacons;
    for (const KeptState& state : require(reader_.states()))
      if (const auto beacon = BeaconId::fromText(state.subject); beacon && state.owner == BeaconBook::kOwner)
        beacons[*beacon].usualGap = BeaconBook::usualGapIn(state);
    for (const HistoryBeacon& one : require(reader_.latest())) {
      KnownBeacon& known = beacons[one.beacon];
      if (!one.latest) continue;
      known.latest = std::get<Reading>(one.latest->record);
      if (const auto trend = require(readBatteryTrend(reader_, *known.latest)))
        known.batteryPerMonth = trend->perDay * kMonth;
    }
    return beacons;
  }

 private:
  template <typename Value>
  Value require(platform::Result<Value> result) const {
    if (!result) throw Failure(ExitStatus::storeUnusable, file_ + ": " + result.error().text);
    return *std::move(result);
  }

  HistoryReader& reader_;
  const std::string file_;
};

TimeForm timeFormIn(Format format) {
  return format == Format::table   ? TimeForm::local
         : format == Format::jsonl ? TimeForm::utc
                                   : TimeForm::epoch;
}

// What is known of one beacon as texts, empty ones for what is not.
struct BeaconTexts {
  std::string id, name, place, heard, gap, battery, trend, temperature, humidity;
};

std::string decimalOf(const std::optional<int32_t>& value) {
  std::string text;
  if (value) appendHundredths(text, *value);
  return text;
}

BeaconTexts textsOf(const BeaconId& id, const KnownBeacon& known, const Label& label, TimeText& times) {
  BeaconTexts texts{.id = id.text(), .name = label.name, .place = label.place};
  if (known.usualGap)
    texts.gap = fmt::format("{:.3f}", std::chrono::duration<double>(*known.usualGap).count());
  if (known.batteryPerMonth) {
    // No "-0.0".
    const double rounded = std::round(*known.batteryPerMonth * 10) / 10;
    texts.trend = fmt::format("{:.1f}", rounded == 0 ? 0.0 : rounded);
  }
  if (!known.latest) return texts;
  texts.heard = times.whole(known.latest->heard);
  if (known.latest->shown.battery) texts.battery = std::to_string(*known.latest->shown.battery);
  texts.temperature = decimalOf(known.latest->shown.temperature);
  texts.humidity = decimalOf(known.latest->shown.humidity);
  return texts;
}

std::string tableOf(const std::vector<BeaconTexts>& beacons) {
  const BeaconTexts header{"id", "name", "place", "last heard", "gap s", "batt", "/month", "°C", "%RH"};
  std::vector<BeaconTexts> rows{header};
  rows.insert(rows.end(), beacons.begin(), beacons.end());
  const auto shown = [](const std::string& text) { return text.empty() ? "-" : printable(text); };
  // Names may be of any length; those of two octets a character are padded a little less.
  const auto widest = [&](std::string BeaconTexts::*column) {
    std::size_t width = 0;
    for (const BeaconTexts& row : rows) width = std::max(width, shown(row.*column).size());
    return width;
  };
  const std::size_t id = widest(&BeaconTexts::id);
  const std::size_t name = widest(&BeaconTexts::name);
  const std::size_t place = widest(&BeaconTexts::place);
  const std::size_t heard = widest(&BeaconTexts::heard);
  std::string table;
  for (const BeaconTexts& row : rows)
    table +=
        fmt::format("{:<{}}  {:<{}}  {:<{}}  {:<{}}  {:>8}  {:>4}  {:>6}  {:>6}  {:>6}\n", shown(row.id), id,
                    shown(row.name), name, shown(row.place), place, shown(row.heard), heard, shown(row.gap),
                    shown(row.battery), shown(row.trend), shown(row.temperature), shown(row.humidity));
  return table;
}

std::string csvOf(const std::vector<BeaconTexts>& beacons) {
  std::string lines = "id,name,place,last_heard,usual_gap,battery,battery_per_month,temperature,humidity\n";
  for (const BeaconTexts& one : beacons)
    lines +=
        fmt::format("{},{},{},{},{},{},{},{},{}\n", csvField(one.id), csvField(one.name), csvField(one.place),
                    one.heard, one.gap, one.battery, one.trend, one.temperature, one.humidity);
  return lines;
}

std::string jsonOf(const std::vector<BeaconTexts>& beacons) {
  std::string lines;
  for (const BeaconTexts& one : beacons) {
    platform::JSONWriter json;
    const auto text = [&](const char* key, const std::string& value) {
      json.plainKey(key).textOrNull(value.empty() ? std::nullopt : std::optional(value));
    };
    const auto number = [&](const char* key, const std::string& value) {
      json.plainKey(key).raw(value.empty() ? "null" : value);
    };
    json.beginObject();
    text("id", one.id);
    text("name", one.name);
    text("place", one.place);
    text("last_heard", one.heard);
    number("usual_gap", one.gap);
    number("battery", one.battery);
    number("battery_per_month", one.trend);
    number("temperature", one.temperature);
    number("humidity", one.humidity);
    json.endObject().endLine();
    lines += json.written();
  }
  return lines;
}

}  // namespace

ExitStatus runBeacons(const BeaconsOptions& options) {
  installForStore(options.container);
  if (!options.container.empty()) storeIn(options.container);  // says what is wrong with the folder
  const std::filesystem::path file = folderOfContainer(options.container) / kHistoryFileName;
  const auto opened = HistoryReader::open(file);
  const bool isThere = opened || opened.error().kind != platform::Error::Kind::absent;
  if (isThere && !opened)
    throw Failure(ExitStatus::storeUnusable, file.string() + ": " + opened.error().text);

  const auto settings = options.settings->current();
  TimeText times(timeFormIn(options.format));
  std::vector<BeaconTexts> beacons;
  if (isThere)
    for (const auto& [id, known] : KnownBeaconsReader(**opened, file.string()).read())
      beacons.push_back(textsOf(id, known, settings->labelOf(id), times));
  Output out(Output::Buffering::blocks);
  out.write(options.format == Format::table   ? tableOf(beacons)
            : options.format == Format::jsonl ? jsonOf(beacons)
                                              : csvOf(beacons));
  out.finish();
  if (!isThere) printEmpty("no history", options.container);
  return ExitStatus::done;
}

}  // namespace brenloft
