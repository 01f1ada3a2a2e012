#include "gateway/history/ReadStep.h"

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
    learn(database);
    read(database);
  });
}

void ReadStep::learn(SQLiteDatabase& database) {
  if (std::exchange(generation_, connection_.generation()) != connection_.generation()) {
    sources_.clear();
    beacons_.clear();
    lastSource_ = lastBeacon_ = 0;
  }
  auto beacons = database.prepare("SELECT id, kind, name FROM beacon WHERE id > ?");
  beacons.bind(1, lastBeacon_);
  while (beacons.step()) {
    lastBeacon_ = beacons.integerAt(0);
    beacons_.emplace(lastBeacon_, beaconFrom(beacons.integerAt(1), beacons.textAt(2)));
  }
  auto sources = database.prepare(
      "SELECT id, beacon, battery, emergency, tx_power, temperature_offset, humidity_offset, battery_offset "
      "FROM source WHERE id > ?");
  sources.bind(1, lastSource_);
  while (sources.step()) {
    const auto offset = [&](int column) { return static_cast<int32_t>(sources.integerAt(column)); };
    lastSource_ = sources.integerAt(0);
    sources_[lastSource_] = {sources.integerAt(1),
                             {.battery = numberAt(sources, 2),
                              .emergency = numberAt(sources, 3),
                              .txPower = numberAt(sources, 4),
                              .offsets = {offset(5), offset(6), offset(7)}}};
  }
}

const ReadStep::Source& ReadStep::source(int64_t id) const {
  const auto found = sources_.find(id);
  if (found == sources_.end()) platform::refuse("a reading's source is missing");
  return found->second;
}

const BeaconId& ReadStep::beacon(int64_t id) const {
  const auto found = beacons_.find(id);
  if (found == beacons_.end()) platform::refuse("a reading's beacon is missing");
  return found->second;
}

std::optional<int64_t> ReadStep::idOf(const BeaconId& beacon) const {
  // The newest, should an earlier one of the name have been forgotten since.
  std::optional<int64_t> newest;
  for (const auto& [id, known] : beacons_)
    if (known == beacon && id > newest.value_or(0)) newest = id;
  return newest;
}

HistoryRow ReadStep::readingAt(const SQLiteStatement& statement) const {
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

HistoryRow ReadStep::eventAt(const SQLiteStatement& statement) const {
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
