#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "gateway/beacons/BeaconBook.h"
#include "gateway/configuration/SettingsParser.h"
#include "gateway/history/HistoryOptions.h"
#include "tools/brenloft/LogLimits.h"
#include "tools/brenloft/ReportFilter.h"

namespace brenloft {

class LiveSettings;

// What the command line asked for, one structure per command; `CommandLine.cpp` fills them.

enum class Format { table, jsonl, csv };
/// Of `scan` and `range`.
enum class SearchFormat {
  table,
  jsonl,
  csv,
  readings,  ///< a JSON object per reading, for other programs
  influx,    ///< line protocol
  none,
};
enum class TimeForm { local, utc, epoch };

struct DecodeOptions {
  std::vector<std::string> frames;  ///< hexadecimal; none: one per line on standard input
  Format format = Format::table;
};

struct HearOptions {
  std::string source;
  bool merged = false;  ///< what a central delivers instead of single reports
  Format format = Format::table;
  std::optional<TimeForm> time;  ///< absent: as the format has it
  std::optional<std::chrono::microseconds> duration;
  uint64_t count = 0;  ///< ends after so many; 0: never
  std::string record;  ///< capture file to write, if any
};

struct SimulateOptions {
  std::string out;  ///< none: standard output
  uint32_t beacons = 5;
  uint32_t iBeacons = 0;
  std::chrono::microseconds duration = std::chrono::seconds(60);
  uint64_t seed = 1;
};

/// What the gateway makes of a search.
struct GatewayOptions {
  struct File {
    SearchFormat format;
    std::string name;
  };
  std::vector<File> files;  ///< beside standard output
  std::vector<std::string>
      only{};  ///< names, identifiers or "known", before they are looked up in the settings
  BeaconChoice choice;
  bool keepsHistory = false;
  HistoryOptions history;
  std::string metricsFile{};  ///< none: not written
  std::chrono::microseconds metricsInterval = kMetricsInterval;

  static constexpr std::chrono::seconds kMetricsInterval{30};
};

/// `scan` and `range`.
struct SearchOptions {
  enum class Mode : uint8_t { sensors = 1, iBeacons = 2 };
  Mode mode = Mode::sensors;
  std::string source = "auto";
  std::optional<std::string> uuid;
  ReportChoice heard;             ///< beside `uuid`, `major` and `minor`
  std::optional<uint16_t> major;  ///< only iBeacons with this one
  std::optional<uint16_t> minor;
  std::optional<int64_t> group;  ///< what tells iBeacons apart, as `beaconGroupType`; absent: as it fits
  /// Silence after which a single iBeacon has left.
  std::chrono::microseconds leftAfter = std::chrono::seconds(30);
  double exitTime = 5;  ///< seconds; the library's
  bool log = false;
  LogBounds logBounds;
  std::optional<std::chrono::microseconds> duration;
  uint64_t count = 0;  ///< ends after so many events; 0: never
  /// Absent: a table on a terminal, else nothing where there are files, else JSON lines.
  std::optional<SearchFormat> format;
  std::optional<TimeForm> time;  ///< absent: as the format has it
  bool transitions = false;      ///< only what begins or ends
  bool isPresentOnly = false;    ///< of `range`: a ranging report has no beacon that is lost or has left
  std::filesystem::path container;
  std::string record;
  bool verbose = false;  ///< with the library's diagnostic lines
  std::shared_ptr<LiveSettings> settings;
  GatewayOptions gateway;
};

struct LogOptions {
  enum class Action { show, exportDocument, count, deleteRows, check, backUp };
  Action action = Action::show;
  std::filesystem::path container;
  std::string out;    ///< of `export` and `backup`; none: standard output
  std::string since;  ///< of `show`, `export` and `count`, as `spanFromTexts` reads it
  std::string until;
  std::string before;             ///< of `delete`, as `instantFromText` reads it; none: every row goes
  Format format = Format::table;  ///< of `show`
  std::optional<TimeForm> time;   ///< of `show`; absent: as the format has it
  std::optional<uint64_t> last;   ///< of `show`: only so many
  bool follow = false;
  bool yes = false;
};

struct TagOptions {
  enum class Action { set, get, list, clear };
  Action action = Action::list;
  std::filesystem::path container;
  std::string key;
  std::string file;  ///< of `set`; none: standard input
  Format format = Format::table;
  bool yes = false;
};

struct BeaconsOptions {
  std::filesystem::path container;
  std::shared_ptr<LiveSettings> settings{};  ///< names
  Format format = Format::table;
};

struct ReportOptions {
  std::filesystem::path container;
  std::shared_ptr<LiveSettings> settings{};  ///< names, places and alarms
  std::string since = "7d";                  ///< as `spanFromTexts` reads it
  std::string until{};
  std::vector<std::string> beacons{};  ///< names or identifiers; none: all
  std::string title = "Beacons";
  std::string out{};  ///< none: standard output
};

struct SourcesOptions {
  Format format = Format::table;
};

struct ConfigOptions {
  enum class Action { check, show, keys };
  Action action = Action::check;
  std::filesystem::path file;       ///< none: `kSettingsFile`
  std::filesystem::path container;  ///< of `check`: which beacons were ever heard
  CommandVocabulary vocabulary;
  /// What commands would refuse at their start.
  std::function<std::vector<Complaint>(const std::shared_ptr<LiveSettings>&)> refused;
};

}  // namespace brenloft
