// The history: how fast and how small it is written, and how fast it is read.
//
//   bench_history                           writing, and reading one million rows
//   bench_history ROWS BEACONS FILE [DAYS]  the same with so many; the file is kept. With DAYS its rows
//                                           are of so many days up to now, else of a week
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <sqlite3.h>

#include "bench/Seconds.h"
#include "bench/SmallRun.h"
#include "gateway/history/HistoryReader.h"
#include "gateway/history/HistoryWriter.h"
#include "platform/dispatch/VirtualDispatch.h"

namespace {

using namespace brenloft;
using namespace brenloft::bench;

constexpr platform::Date kStart = std::chrono::sys_days(std::chrono::year(2026) / 11 / 1);
constexpr int kBatch = 4096;
const int64_t kRowsReadBack = isSmallRun() ? 5'000 : 1'000'000;

// What the process has handed to the kernel for writing.
uint64_t writtenOctets() {
  std::ifstream io("/proc/self/io");
  for (std::string key; io >> key;) {
    uint64_t value = 0;
    io >> value;
    if (key == "wchar:") return value;
  }
  return 0;
}

std::vector<Reading> beacons(int count) {
  std::vector<Reading> readings;
  for (int i = 0; i < count; ++i) {
    char name[18];
    std::snprintf(name, sizeof name, "C0-C1-5C-%02X-%02X-%02X", i >> 16 & 255, i >> 8 & 255, i & 255);
    readings.push_back({.beacon = BeaconId::sensor(name), .heard = kStart});
  }
  return readings;
}

// A sensor on a wall: slow changes, some noise.
void setReading(Reading& reading, int64_t round, int beacon) {
  const auto noise = static_cast<int32_t>((round * 7919 + int64_t{beacon} * 104'729) % 13);
  const double phase = static_cast<double>(round) / 500 + beacon;
  reading.rssi = -60 - noise;
  reading.raw = {.temperature = 2150 + static_cast<int32_t>(300 * std::sin(phase)),
                 .humidity = 4100 + static_cast<int32_t>(500 * std::cos(phase)),
                 .battery = 90,
                 .emergency = 0,
                 .txPower = 197,
                 .xAccel = -12 + noise,
                 .yAccel = noise,
                 .zAccel = 1024 - noise};
  reading.shown = reading.raw;
}

struct Folder {
  Folder() {
    std::string name = (std::filesystem::temp_directory_path() / "history-bench-XXXXXX").string();
    path = mkdtemp(name.data());
  }
  ~Folder() { std::filesystem::remove_all(path); }
  std::filesystem::path path;
};

struct World {
  explicit World(const std::filesystem::path& file) {
    auto opened = HistoryWriter::open(file, {}, dispatch, dispatch->mainQueue(), {});
    if (!opened) {
      std::fprintf(stderr, "%s\n", opened.error().text.c_str());
      std::exit(1);
    }
    writer = *std::move(opened);
  }
  std::shared_ptr<platform::VirtualDispatch> dispatch = platform::VirtualDispatch::make(kStart);
  std::unique_ptr<HistoryWriter> writer;
};

// The same columns by SQLite alone, with as many rows in a transaction.
class BareInserts {
 public:
  explicit BareInserts(const std::filesystem::path& file) {
    { const World schema(file); }
    sqlite3_open_v2(file.c_str(), &database_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
    run("PRAGMA synchronous = FULL; PRAGMA wal_autocheckpoint = 4000");
    sqlite3_prepare_v2(database_, "INSERT INTO reading VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)", -1, &insert_,
                       nullptr);
  }
  ~BareInserts() {
    sqlite3_finalize(insert_);
    sqlite3_close(database_);
  }
  BareInserts(const BareInserts&) = delete;
  BareInserts& operator=(const BareInserts&) = delete;

  void run(const char* sql) { sqlite3_exec(database_, sql, nullptr, nullptr, nullptr); }
  void insert(const Reading& reading, int beacon) {
    const int64_t values[] = {++seq_,
                              beacon + 1,
                              reading.heard.time_since_epoch().count() - 1'830'297'600'000'000,
                              *reading.rssi,
                              *reading.raw.temperature,
                              *reading.raw.humidity,
                              *reading.raw.xAccel,
                              *reading.raw.yAccel,
                              *reading.raw.zAccel};
    int column = 0;
    for (const int64_t value : values) sqlite3_bind_int64(insert_, ++column, value);
    sqlite3_step(insert_);
    sqlite3_reset(insert_);
  }

 private:
  sqlite3* database_ = nullptr;
  sqlite3_stmt* insert_ = nullptr;
  int64_t seq_ = 0;
};

// In turns, so that both meet the same machine.
void compareWriting() {
  const Folder folder;
  World world(folder.path / "history.sqlite");
  BareInserts bare(folder.path / "bare.sqlite");
  auto readings = beacons(100);
  Seconds written;
  Seconds inserted;
  const int kTurns = isSmallRun() ? 1 : 40;
  const int kBatches = isSmallRun() ? 1 : 4;
  int64_t row = 0;
  const auto each = [&](const auto& take) {
    for (int i = 0; i < kBatch; ++i, ++row) {
      const auto beacon = static_cast<int>(row % 100);
      Reading& reading = readings[static_cast<std::size_t>(beacon)];
      setReading(reading, row / 100, beacon);
      reading.heard = kStart + std::chrono::milliseconds(row * 10);
      take(reading, beacon);
    }
  };
  Seconds making;
  for (int turn = 0; turn < kTurns; ++turn) {
    add(making, secondsOf([&] {
          for (int batch = 0; batch < kBatches; ++batch) each([](const Reading&, int) {});
        }));
    row -= int64_t{kBatches} * kBatch;
    add(written, secondsOf("write", [&] {
          for (int batch = 0; batch < kBatches; ++batch) {
            each([&](const Reading& reading, int) { world.writer->accept(reading); });
            world.dispatch->runDue();
          }
        }));
    row -= int64_t{kBatches} * kBatch;
    add(inserted, secondsOf([&] {
          for (int batch = 0; batch < kBatches; ++batch) {
            bare.run("BEGIN");
            each([&](const Reading& reading, int beacon) { bare.insert(reading, beacon); });
            bare.run("COMMIT");
          }
        }));
  }
  const double rows = kTurns * kBatches * kBatch;
  std::printf("written %.0f rows/s, bare %.0f rows/s, ratio %.2f (of processor time %.2f)\n",
              rows / (written.wall - making.wall), rows / (inserted.wall - making.wall),
              (inserted.wall - making.wall) / (written.wall - making.wall),
              (inserted.processor - making.processor) / (written.processor - making.processor));
}

// A reading of each beacon in each period, for as long as it takes.
void fill(const std::filesystem::path& file, int64_t rows, int count, platform::Date start,
          std::chrono::microseconds period, bool isByTheSecond) {
  World world(file);
  auto readings = beacons(count);
  for (int64_t round = 0; round * count < rows; ++round) {
    for (int i = 0; i < count; ++i) {
      Reading& reading = readings[static_cast<std::size_t>(i)];
      setReading(reading, round, i);
      reading.heard = start + round * period + i * (period / count);
      world.writer->accept(reading);
    }
    if (isByTheSecond)
      world.dispatch->advance(std::chrono::seconds(1));
    else
      world.dispatch->runDue();
  }
}

void measureOctets() {
  const Folder folder;
  constexpr int64_t rows = int64_t{100} * 3600;
  const uint64_t before = writtenOctets();
  fill(folder.path / "history.sqlite", rows, 100, kStart, std::chrono::seconds(1), true);
  const uint64_t octets = writtenOctets() - before;
  std::printf(
      "100 beacons at 1 Hz for an hour: %.1f octets handed to the disk per reading, %.1f in the file\n",
      static_cast<double>(octets) / rows,
      static_cast<double>(std::filesystem::file_size(folder.path / "history.sqlite")) / rows);
}

void measureReading(const std::filesystem::path& file, int64_t rows, int count, platform::Date start,
                    std::chrono::days days) {
  const auto period = std::chrono::microseconds(days) * count / rows;
  if (!std::filesystem::exists(file)) {
    const Seconds filled = secondsOf([&] { fill(file, rows, count, start, period, false); });
    std::printf("%ld rows of %d beacons in %.1f s, %.2f octets each\n", static_cast<long>(rows), count,
                filled.wall,
                static_cast<double>(std::filesystem::file_size(file)) / static_cast<double>(rows));
  }
  auto reader = *HistoryReader::open(file);
  for (int turn = 0; turn < 3; ++turn) {
    std::size_t found = 0;
    const Seconds latest = secondsOf("latest", [&] { found = reader->latest()->size(); });
    std::printf("latest of %zu beacons: %.2f ms\n", found, latest.wall * 1e3);
  }
  const HistorySpan week{start, start + std::chrono::days(7)};
  const auto beacon = beacons(count)[static_cast<std::size_t>(count) / 2].beacon;
  for (int turn = 0; turn < 3; ++turn) {
    uint64_t values = 0;
    std::size_t points = 0;
    const Seconds series = secondsOf("series", [&] {
      const auto found = *reader->series(beacon, Quantity::temperature, week, 500);
      points = found.size();
      for (const auto& point : found) values += point.count;
    });
    std::printf("a week of one beacon, %lu readings in %zu points: %.2f ms\n",
                static_cast<unsigned long>(values), points, series.wall * 1e3);
  }
  const Seconds exported = secondsOf("rows", [&] {
    int64_t after = 0;
    for (bool isLast = false; !isLast;) {
      const auto page = *reader->rows(after, {}, 1000);
      after = page.through;
      isLast = page.isLast;
    }
  });
  std::printf("every row read: %.2f s\n", exported.wall);
}

}  // namespace

int main(int count, char** arguments) {
  if (count < 4) compareWriting();
  if (count < 4 && !isSmallRun()) measureOctets();
  const Folder folder;
  const int64_t rows = count > 1 ? std::stoll(arguments[1]) : kRowsReadBack;
  const int beaconCount = count > 2 ? std::stoi(arguments[2]) : 100;
  const std::chrono::days days(count > 4 ? std::stoi(arguments[4]) : 7);
  const auto now = std::chrono::floor<std::chrono::minutes>(std::chrono::system_clock::now());
  const platform::Date start = count > 4 ? platform::Date(now - days) : kStart;
  measureReading(count > 3 ? std::filesystem::path(arguments[3]) : folder.path / "history.sqlite", rows,
                 beaconCount, start, days);
  return 0;
}
