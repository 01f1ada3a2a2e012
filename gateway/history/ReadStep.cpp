#include "gateway/history/ReadStep.h"

#include <algorithm>
#include <string>

#include "gateway/history/ChunkReading.h"

namespace brenloft::history {
namespace {

using platform::SQLiteDatabase;
using platform::SQLiteStatement;

// A snapshot that ends with the scope.
class Snapshot {
 public:
  explicit Snapshot(SQLiteDatabase& database) : database_(database) { database_.execute("BEGIN"); }
  ~Snapshot() {
    static_cast<void>(platform::resultOf([&] { database_.execute("COMMIT"); }));
  }
  Snapshot(const Snapshot&) = delete;
  Snapshot& operator=(const Snapshot&) = delete;

 private:
  SQLiteDatabase& database_;
};

std::optional<int32_t> withOffset(const std::optional<int32_t>& raw, int32_t offset) {
  return raw ? std::optional(*raw + offset) : std::nullopt;
}

BeaconId beaconFrom(int64_t kind, const std::string& name) {
  if (kind == static_cast<int64_t>(BeaconId::Kind::iBeacon))
    if (auto id = BeaconId::fromText(name)) return *std::move(id);
  return BeaconId::sensor(name);
}

const std::string kSources =
    "SELECT id, beacon, battery, emergency, tx_power, temperature_offset, humidity_offset, battery_offset "
    "FROM source";

ReadStep::Source sourceAt(const SQLiteStatement& statement) {
  const auto offset = [&](int column) { return static_cast<int32_t>(statement.integerAt(column)); };
  return {statement.integerAt(1),
          {.battery = numberAt(statement, 2),
           .emergency = numberAt(statement, 3),
           .txPower = numberAt(statement, 4),
           .offsets = {offset(5), offset(6), offset(7)}}};
}

std::optional<AlarmFacts> alarmAt(const SQLiteStatement& statement, int column) {
  if (!numberAt(statement, column)) return std::nullopt;
  return AlarmFacts{static_cast<AlarmSeverity>(statement.integerAt(column)),
                    static_cast<AlarmQuantity>(statement.integerAt(column + 1)),
                    numberAt(statement, column + 2), numberAt(statement, column + 3),
                    statement.textAt(column + 4)};
}

}  // namespace

void ReadStep::at(const std::function<void(SQLiteDatabase&)>& read) {
  connection_.atOneMoment([&](SQLiteDatabase& database) {
    const Snapshot snapshot(database);
    database_ = &database;
    learn();
    read(database);
  });
}

void ReadStep::learn() {
  const bool isOther = std::exchange(generation_, connection_.generation()) != connection_.generation();
  if (isOther || beacons_.size() > 2 * kMostKnown || sources_.size() > 2 * kMostKnown) {
    sources_.clear();
    beacons_.clear();
    lastSource_ = lastBeacon_ = 0;
  }
  learnBeacons();
  learnSources();
}

void ReadStep::learnBeacons() {
  auto beacons =
      database_->prepare("SELECT id, kind, name FROM beacon WHERE id > ? ORDER BY id DESC LIMIT ?");
  beacons.bind(1, lastBeacon_);
  beacons.bind(2, kMostKnown);
  while (beacons.step()) {
    const int64_t id = beacons.integerAt(0);
    lastBeacon_ = std::max(lastBeacon_, id);
    beacons_.emplace(id, beaconFrom(beacons.integerAt(1), beacons.textAt(2)));
  }
}

void ReadStep::learnSources() {
  auto sources = database_->prepare(kSources + " WHERE id > ? ORDER BY id DESC LIMIT ?");
  sources.bind(1, lastSource_);
  sources.bind(2, kMostKnown);
  while (sources.step()) {
    const int64_t id = sources.integerAt(0);
    lastSource_ = std::max(lastSource_, id);
    sources_.emplace(id, sourceAt(sources));
  }
}

const ReadStep::Source& ReadStep::source(int64_t id) {
  if (const auto found = sources_.find(id); found != sources_.end()) return found->second;
  auto source = database_->prepare(kSources + " WHERE id = ?");
  source.bind(1, id);
  if (!source.step()) platform::refuse("a reading's source is missing");
  return sources_.emplace(id, sourceAt(source)).first->second;
}

const BeaconId& ReadStep::beacon(int64_t id) {
  if (const auto found = beacons_.find(id); found != beacons_.end()) return found->second;
  auto beacon = database_->prepare("SELECT kind, name FROM beacon WHERE id = ?");
  beacon.bind(1, id);
  if (!beacon.step()) platform::refuse("a reading's beacon is missing");
  return beacons_.emplace(id, beaconFrom(beacon.integerAt(0), beacon.textAt(1))).first->second;
}

std::optional<int64_t> ReadStep::idOf(const BeaconId& beacon) {
  const auto ids = idsOf({&beacon, 1});
  return ids.empty() ? std::nullopt : std::optional(ids.front().second);
}

std::vector<std::pair<BeaconId, int64_t>> ReadStep::idsOf(std::span<const BeaconId> beacons) {
  std::vector<std::pair<BeaconId, int64_t>> ids;
  auto known = database_->prepare("SELECT id, kind, name FROM beacon WHERE name = ?");
  for (const BeaconId& beacon : beacons) {
    known.bind(1, beacon.text());
    if (known.step() && beaconFrom(known.integerAt(1), known.textAt(2)) == beacon)
      ids.emplace_back(beacon, known.integerAt(0));
    known.reset();
  }
  return ids;
}

std::vector<std::pair<BeaconId, int64_t>> ReadStep::everyBeacon() {
  std::vector<std::pair<BeaconId, int64_t>> beacons;
  auto known = database_->prepare("SELECT id, kind, name FROM beacon");
  while (known.step())
    beacons.emplace_back(beaconFrom(known.integerAt(1), known.textAt(2)), known.integerAt(0));
  return beacons;
}

HistoryRow ReadStep::readingAt(const SQLiteStatement& statement) {
  const Source& from = source(statement.integerAt(1));
  const Traits& traits = from.traits;
  Reading reading{.beacon = beacon(from.beacon), .heard = dateOf(statement.integerAt(2))};
  reading.rssi = numberAt(statement, 3);
  reading.raw = {.temperature = numberAt(statement, 4),
                 .humidity = numberAt(statement, 5),
                 .battery = traits.battery,
                 .emergency = traits.emergency,
                 .txPower = traits.txPower,
                 .xAccel = numberAt(statement, 6),
                 .yAccel = numberAt(statement, 7),
                 .zAccel = numberAt(statement, 8)};
  reading.shown = reading.raw;
  reading.shown.temperature = withOffset(reading.raw.temperature, traits.offsets.temperature);
  reading.shown.humidity = withOffset(reading.raw.humidity, traits.offsets.humidity);
  reading.shown.battery = withOffset(reading.raw.battery, traits.offsets.battery);
  return {statement.integerAt(0), std::move(reading)};
}

HistoryRow ReadStep::eventAt(const SQLiteStatement& statement) {
  BeaconEvent event{.beacon = std::nullopt,
                    .heard = dateOf(statement.integerAt(3)),
                    .kind = static_cast<BeaconEvent::Kind>(statement.integerAt(1)),
                    .text = statement.textAt(4),
                    .count = static_cast<uint64_t>(statement.integerAt(5))};
  if (const int64_t id = statement.integerAt(2); id != 0) event.beacon = beacon(id);
  event.alarm = alarmAt(statement, 6);
  return {statement.integerAt(0), std::move(event)};
}

}  // namespace brenloft::history
