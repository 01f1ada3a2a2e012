#include "gateway/history/HistorySchema.h"

#include <string>

namespace brenloft::history {
namespace {

using platform::refuse;
using platform::SQLiteDatabase;
using platform::SQLiteHeader;

// "BRLH": the histories of this tool.
constexpr int64_t kHistoryApplicationId = 0x42524c48;
constexpr int64_t kHistoryVersion = 1;

// Small pages, because each second's commit writes every page that it touches.
constexpr const char* kPageSize = "PRAGMA page_size = 1024";

constexpr const char* kTables = R"(
CREATE TABLE about (key TEXT PRIMARY KEY, value) WITHOUT ROWID;
CREATE TABLE beacon (
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  kind INTEGER NOT NULL,
  name TEXT NOT NULL UNIQUE,
  last_seq INTEGER NOT NULL,
  last_reading INTEGER
);
CREATE TABLE source (
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  beacon INTEGER NOT NULL,
  battery INTEGER,
  emergency INTEGER,
  tx_power INTEGER,
  temperature_offset INTEGER NOT NULL,
  humidity_offset INTEGER NOT NULL,
  battery_offset INTEGER NOT NULL,
  last_seq INTEGER NOT NULL
);
CREATE TABLE reading (
  seq INTEGER PRIMARY KEY,
  source INTEGER NOT NULL,
  heard INTEGER NOT NULL,
  rssi INTEGER,
  temperature INTEGER,
  humidity INTEGER,
  x INTEGER,
  y INTEGER,
  z INTEGER
);
CREATE TABLE event (
  seq INTEGER PRIMARY KEY,
  kind INTEGER NOT NULL,
  beacon INTEGER,
  heard INTEGER NOT NULL,
  text TEXT,
  count INTEGER,
  severity INTEGER,
  quantity INTEGER,
  value INTEGER,
  threshold INTEGER,
  alarm_text TEXT
);
CREATE TABLE round (
  last_seq INTEGER PRIMARY KEY,
  first_seq INTEGER NOT NULL,
  since INTEGER NOT NULL,
  until INTEGER NOT NULL
);
CREATE TABLE chunk (id INTEGER PRIMARY KEY, data BLOB NOT NULL);
CREATE TABLE state (
  owner TEXT NOT NULL,
  subject TEXT NOT NULL,
  text TEXT NOT NULL,
  PRIMARY KEY (owner, subject)
) WITHOUT ROWID;
)";

// For other tools: plain units, times in UTC and in seconds since 1970.
constexpr const char* kViews = R"(
CREATE VIEW readings AS SELECT
  reading.seq,
  strftime('%Y-%m-%dT%H:%M:%fZ', heard / 1e6 + 1830297600, 'unixepoch') AS time,
  heard / 1e6 + 1830297600 AS seconds,
  name AS beacon,
  rssi,
  (temperature + temperature_offset) / 100.0 AS temperature,
  (humidity + humidity_offset) / 100.0 AS humidity,
  battery + battery_offset AS battery,
  emergency,
  tx_power,
  x, y, z,
  temperature / 100.0 AS raw_temperature,
  humidity / 100.0 AS raw_humidity,
  battery AS raw_battery
FROM reading JOIN source ON source.id = reading.source JOIN beacon ON beacon.id = source.beacon;
CREATE VIEW events AS SELECT
  seq,
  strftime('%Y-%m-%dT%H:%M:%fZ', heard / 1e6 + 1830297600, 'unixepoch') AS time,
  heard / 1e6 + 1830297600 AS seconds,
  CASE event.kind WHEN 1 THEN 'found' WHEN 2 THEN 'lost' WHEN 3 THEN 'emergency'
    WHEN 4 THEN 'emergency_over' WHEN 5 THEN 'alarm_raised' WHEN 6 THEN 'alarm_cleared'
    WHEN 7 THEN 'radio' WHEN 8 THEN 'gap' ELSE event.kind END AS event,
  name AS beacon,
  text,
  count,
  CASE severity WHEN 0 THEN 'info' WHEN 1 THEN 'warning' WHEN 2 THEN 'critical' END AS severity,
  CASE quantity WHEN 0 THEN 'temperature' WHEN 1 THEN 'humidity' WHEN 2 THEN 'dew-point' WHEN 3 THEN 'battery'
    WHEN 4 THEN 'rssi' WHEN 5 THEN 'emergency' WHEN 6 THEN 'silent' END AS quantity,
  CASE WHEN quantity <= 2 THEN value / 100.0 ELSE value END AS value,
  CASE WHEN quantity <= 2 THEN threshold / 100.0 ELSE threshold END AS threshold,
  alarm_text
FROM event LEFT JOIN beacon ON beacon.id = event.beacon;
)";

// A UUID of version 4.
constexpr const char* kStoreId = R"(
INSERT INTO about SELECT 'store', printf('%s-%s-4%s-%s%s-%s', substr(r, 1, 8), substr(r, 9, 4), substr(r, 13, 3),
  substr('89AB', 1 + abs(random() % 4), 1), substr(r, 16, 3), substr(r, 19, 12))
FROM (SELECT hex(randomblob(16)) AS r);
)";

void writeHistorySchema(SQLiteDatabase& database) {
  database.execute(kTables);
  database.execute(kViews);
  database.execute(kStoreId);
  database.execute("PRAGMA user_version = " + std::to_string(kHistoryVersion));
  database.execute("PRAGMA application_id = " + std::to_string(kHistoryApplicationId));
}

void requireOurs(int64_t applicationId, int64_t version) {
  if (applicationId != kHistoryApplicationId) refuse("another application's database");
  if (version > kHistoryVersion)
    refuse("a history of version " + std::to_string(version) + ", made by a newer program; this one knows " +
           std::to_string(kHistoryVersion));
  if (version < kHistoryVersion)
    refuse("a history of version " + std::to_string(version) + ", which never was");
}

SQLiteHeader::Contents glanceAtHistory(const std::filesystem::path& file) {
  const auto header = SQLiteHeader::of(file);
  if (header.contents == SQLiteHeader::Contents::Database)
    requireOurs(header.applicationId, header.userVersion);
  return header.contents;
}

// What the next statements go to.
void verifyHistory(SQLiteDatabase& database) {
  requireOurs(database.integer("PRAGMA application_id").value_or(0),
              database.integer("PRAGMA user_version").value_or(0));
  if (!database.text("SELECT value FROM about WHERE key = 'store'"))
    refuse("a history without its identifier");
  for (const char* table : {"reading", "event", "round", "beacon", "source", "chunk"})
    database.integer(std::string("SELECT max(rowid) FROM ") + table);
}

}  // namespace

SQLiteDatabase openForWriting(const std::filesystem::path& file, const HistoryOptions& options) {
  const auto contents = glanceAtHistory(file);
  if (contents == SQLiteHeader::Contents::Nothing && options.isOwnerOnly) platform::makeForOwnerOnly(file);
  SQLiteDatabase database(file, SQLiteDatabase::Access::Create);
  // Reading where writing is forbidden needs the files beside it.
  database.leaveLogOnClose(true);
  if (contents != SQLiteHeader::Contents::Database) database.execute(kPageSize);
  platform::createSchema(database, contents, [&] { writeHistorySchema(database); });
  verifyHistory(database);
  if (database.isReadOnly()) refuse("the file cannot be written");
  if (database.text("PRAGMA journal_mode") != "wal") database.useLog();
  database.execute(options.isSynced ? "PRAGMA synchronous = FULL" : "PRAGMA synchronous = NORMAL");
  database.execute("PRAGMA secure_delete = FAST");
  database.execute("PRAGMA wal_autocheckpoint = 4000");
  database.execute("PRAGMA journal_size_limit = 4194304");
  return database;
}

platform::SQLiteReadConnection openForReading(const std::filesystem::path& file) {
  return platform::SQLiteReadConnection([file](SQLiteDatabase::Access access) {
    if (glanceAtHistory(file) != SQLiteHeader::Contents::Database) refuse("no history yet");
    SQLiteDatabase database(file, access);
    const bool isImmutable = access == SQLiteDatabase::Access::Immutable;
    // What the writer left in its log is the writer's to move.
    if (!isImmutable) database.leaveLogOnClose(true);
    if (!isImmutable || !platform::hasLog(database)) verifyHistory(database);
    return database;
  });
}

}  // namespace brenloft::history
