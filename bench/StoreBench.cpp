// Records logged beside a bare prepared INSERT with the same settings, and a whole log read back.
//
//   bench_store                     both, with 100,000 rows to read back
//   bench_store ROWS [FILE]         the same with ROWS rows; the file is kept when it is named
//
// Compare the document's time with: time sqlite3 -json FILE 'SELECT * FROM SensorLog' > /dev/null
#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

#include <sqlite3.h>

#include "BrenloftSDK/BRLDataManager.h"
#include "BrenloftSDK/BRLProperties.h"
#include "bench/Seconds.h"
#include "bench/SmallRun.h"
#include "platform/Platform.h"

namespace {

using namespace brenloft::bench;
using Class = BRLDataManager::Class;

const int kRounds = isSmallRun() ? 2 : 10;
const int kRowsPerRound = isSmallRun() ? 100 : 5'000;
const long kRowsReadBack = isSmallRun() ? 2'000 : 100'000;

// Takes the peak back to what is in use now, where the kernel allows it.
void resetPeak() {
  std::ofstream("/proc/self/clear_refs") << "5";
}

long peakMegabytes() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmHWM:")) return std::stol(line.substr(6)) / 1024;
  }
  return 0;
}

void measure(const char* what, const std::function<void()>& work) {
  resetPeak();
  const Seconds seconds = secondsOf(what, work);
  std::printf("%-8s %8.3f s  %8.3f s of processor  peak %5ld MB\n", what, seconds.wall, seconds.processor,
              peakMegabytes());
}

void installPlatform(const std::filesystem::path& folder) {
  platform::Platform platform;
  platform.userDefaults = platform::makeInMemoryUserDefaults();
  platform.fileManager = platform::makeFileManager(folder);
  platform.bundle = platform::libraryBundle();
  platform::Platform::install(std::move(platform));
}

platform::Dictionary sensor() {
  using platform::NSNumber;
  return {{"beaconType", NSNumber(1)},
          {"beaconId", std::string("0C-61-CF-12-34-56")},
          {"uuid", std::string("A1EA8110-0E1B-D4A1-B840-63F88C8DA1EA")},
          {"rssi", NSNumber(-67)},
          {"txPower", NSNumber(200)},
          {"status", NSNumber(1)},
          {"statusUpdatedDate", platform::dateWithTimeIntervalSince1970(1'470'406'990.25)},
          {"battery", NSNumber(99)},
          {"temperature", std::string("23.50")},
          {"humidity", std::string("41.25")},
          {"uniqueId", std::string("0C-61-CF-12-34-56")},
          {"tbd", std::string("0a0b0c")},
          {"xAccel", std::string("-12")},
          {"yAccel", std::string("0")},
          {"zAccel", std::string("1024")}};
}

// The same schema, settings and values by SQLite alone, each row its own transaction.
class BareInserts {
 public:
  explicit BareInserts(const std::filesystem::path& file) {
    sqlite3_open_v2(file.c_str(), &database_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
    run("PRAGMA synchronous = NORMAL; PRAGMA secure_delete = FAST");
    std::array<std::string, kBRLPropertyCount> columns;
    BRLForEach(kBRLProperties, [&](const auto& property) { columns[property.column] = property.name; });
    std::string names = columns.front();
    std::string places = "?";
    for (std::size_t i = 1; i < columns.size(); ++i) {
      names += ", " + columns[i];
      places += ", ?";
    }
    const std::string sql = "INSERT INTO SensorLog (" + names + ") VALUES (" + places + ")";
    sqlite3_prepare_v2(database_, sql.c_str(), -1, &insert_, nullptr);
  }
  ~BareInserts() {
    sqlite3_finalize(insert_);
    sqlite3_close(database_);
  }
  BareInserts(const BareInserts&) = delete;
  BareInserts& operator=(const BareInserts&) = delete;

  void run(const char* sql) { sqlite3_exec(database_, sql, nullptr, nullptr, nullptr); }

  void insert(const BRLBeaconSnapshot& record) {
    BRLForEach(kBRLProperties, [&](const auto& property) {
      bind(static_cast<int>(property.column) + 1, record.*property.member);
    });
    sqlite3_step(insert_);
    sqlite3_reset(insert_);
  }

 private:
  void bind(int parameter, int64_t value) { sqlite3_bind_int64(insert_, parameter, value); }
  void bind(int parameter, uint64_t value) { bind(parameter, static_cast<int64_t>(value)); }
  void bind(int parameter, const BRLOptionalText& value) {
    sqlite3_bind_text(insert_, parameter, value->c_str(), static_cast<int>(value->size()), SQLITE_STATIC);
  }
  void bind(int parameter, std::optional<platform::Date> value) {
    sqlite3_bind_double(insert_, parameter, platform::timeIntervalSince1970(*value));
  }

  sqlite3* database_ = nullptr;
  sqlite3_stmt* insert_ = nullptr;
};

// In turns, so that both meet the same machine.
void compareLogging(const std::filesystem::path& bareFile) {
  const BRLBeaconDataModel record(sensor());
  auto& manager = *Class::shareInstance();
  manager.loggingForSensor(record);
  BareInserts bare(bareFile);
  Seconds logged;
  Seconds inserted;
  for (int round = 0; round < kRounds; ++round) {
    add(logged, secondsOf("log", [&] {
          for (int i = 0; i < kRowsPerRound; ++i) manager.loggingForSensor(record);
        }));
    add(inserted, secondsOf([&] {
          const auto snapshot = record.snapshot();
          for (int i = 0; i < kRowsPerRound; ++i) bare.insert(snapshot);
        }));
  }
  const double rows = kRounds * kRowsPerRound;
  std::printf("logged %.0f rows/s, bare %.0f rows/s, ratio %.2f (of processor time %.2f: %.2f and %.2f us)\n",
              rows / logged.wall, rows / inserted.wall, inserted.wall / logged.wall,
              inserted.processor / logged.processor, logged.processor * 1e6 / rows,
              inserted.processor * 1e6 / rows);
}

void readBack(const std::filesystem::path& file, long rows) {
  {
    BareInserts bare(file);
    const auto snapshot = BRLBeaconDataModel(sensor()).snapshot();
    bare.run("BEGIN; DELETE FROM SensorLog");
    for (long i = 0; i < rows; ++i) bare.insert(snapshot);
    bare.run("COMMIT; PRAGMA wal_checkpoint(TRUNCATE)");
  }
  std::printf("%ld rows\n", rows);
  measure("count", [] { Class::selectBeaconLogAllCountWithCompletionBlock({}); });
  measure("JSON", [] { Class::selectBeaconLogAllJSONWithCompletionBlock({}); });
  measure("records", [] { Class::selectBeaconLogAllWithCompletionBlock({}); });
}

}  // namespace

int main(int count, char** arguments) {
  std::string temporary = (std::filesystem::temp_directory_path() / "store-bench-XXXXXX").string();
  const std::filesystem::path folder = mkdtemp(temporary.data());
  installPlatform(folder);
  std::filesystem::create_directory(folder / "bare");
  Class::selectBeaconLogAllCountWithCompletionBlock({});
  const auto file = BRLCoreDataManager::Class::storeFile();
  std::filesystem::copy_file(file, folder / "bare" / file.filename());
  compareLogging(folder / "bare" / file.filename());
  readBack(file, count > 1 ? std::stol(arguments[1]) : kRowsReadBack);
  if (count > 2)
    std::filesystem::copy_file(file, arguments[2], std::filesystem::copy_options::overwrite_existing);
  measure("delete", [] { Class::deleteBeaconLog(); });
  std::filesystem::remove_all(folder);
  return 0;
}
