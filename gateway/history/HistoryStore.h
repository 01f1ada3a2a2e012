#pragma once

#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <utility>
#include <variant>
#include <vector>

#include "gateway/KeptState.h"
#include "gateway/history/Chunk.h"
#include "gateway/history/HistorySchema.h"
#include "gateway/history/WriterLock.h"

namespace brenloft::history {

/// What is added to a beacon's raw values to get the shown ones.
struct Offsets {
  int32_t temperature = 0;
  int32_t humidity = 0;
  int32_t battery = 0;

  friend bool operator==(const Offsets&, const Offsets&) = default;
};

/// What of a reading rarely changes, and is kept once for many.
struct Traits {
  std::optional<int32_t> battery{};
  std::optional<int32_t> emergency{};
  std::optional<int32_t> txPower{};
  Offsets offsets{};

  friend bool operator==(const Traits&, const Traits&) = default;
};

/// The rows of a beacon since the last round, and their newest numbers.
struct TailBeacon {
  ChunkBuilder chunk{};
  int64_t lastSeq = 0;
  int64_t lastReading = 0;  ///< 0: only events
};

/// A beacon, and what the store remembers of it.
struct Subject {
  explicit Subject(BeaconId beaconId) : id(std::move(beaconId)) {}

  struct Source {
    Traits traits;
    int64_t id = 0;
    int64_t* lastSeq = nullptr;  // in the store's tail; null: not used in it yet
  };

  const BeaconId id;
  // The store's, as long as its generation is the same.
  uint64_t generation = 0;
  int64_t beacon = 0;             // its row
  std::vector<Source> sources{};  // the latest
  uint64_t tailNumber = 0;
  TailBeacon* tail = nullptr;
};

struct NewReading {
  std::shared_ptr<Subject> subject;
  platform::Date heard;
  std::optional<int32_t> rssi{};
  Quantities raw{};
  Offsets offsets{};
};
struct NewEvent {
  std::shared_ptr<Subject> subject;    // none: the gateway's own
  std::optional<BeaconEvent> event{};  // none: the state alone
  std::optional<KeptState> state{};
};
/// Events are few, and readings must not be as large as they.
using NewRecord = std::variant<NewReading, std::unique_ptr<NewEvent>>;

/// Which rows are to go.
struct PruneGoal {
  std::optional<platform::Date> before{};
  std::optional<uint64_t> size{};  ///< octets of the file
  /// Up to the row, instead of in pieces that are worth their price.
  bool isExact = false;
};

/// The history file in the hands of its one writer. Every operation throws platform::SQLiteFailure and has
/// then changed nothing.
///
/// Threads: one at a time.
class HistoryStore {
 public:
  HistoryStore(const std::filesystem::path& file, const HistoryOptions& options);
  ~HistoryStore();
  HistoryStore(const HistoryStore&) = delete;
  HistoryStore& operator=(const HistoryStore&) = delete;

  /// One transaction.
  void write(std::span<NewRecord> records);
  bool isEmpty();
  /// Deletes some of the rows that are to go; false when there are no more. A time later than `now` is one of
  /// a wrong clock: such a row goes with the next good one.
  bool pruneStep(const PruneGoal& goal, platform::Date now);
  /// Gives some space back to the disk; false when there is no more worth giving.
  bool vacuumStep(bool isExact);
  /// Moves what is in the log into the file, as far as nobody is in the way.
  void moveLog() { database_.moveLog(); }

 private:
  // A range of numbers: a closed round, or what came after the last one.
  struct Piece {
    bool isRound = false;
    int64_t first = 0;
    int64_t last = 0;
    int64_t since = INT64_MIN;
  };

  void load();
  void loadTail();
  void clearTail();
  void widenTail(int64_t heard);
  void add(NewReading& reading);
  void add(const std::unique_ptr<NewEvent>& added);
  void keep(const KeptState& state);
  int64_t takeSeq();
  void insert(int64_t seq, std::initializer_list<platform::StoredView> columns);
  void resolve(Subject& subject);
  int64_t rowOf(const BeaconId& beacon);
  const Subject::Source& sourceOf(Subject& subject, const Traits& traits);
  int64_t insertSource(const Subject& subject, const Traits& traits);
  void closeRound();
  void noteUse();
  void forgetUnused();
  void insertChunks(int64_t round, const std::unordered_map<int64_t, TailBeacon>& beacons);

  std::optional<Piece> oldestPiece();
  int64_t cutIn(const Piece& piece, platform::Date before, platform::Date now);
  bool goesWithNext(const Piece& piece, platform::Date before, platform::Date now);
  void remove(const Piece& piece, int64_t through);
  void rebuild(int64_t first, int64_t last);
  uint64_t usedOctets();

  const WriterLock lock_;
  platform::SQLiteDatabase database_;
  platform::SQLiteStatement insertReading_;
  platform::SQLiteStatement appendReading_;  // takes the next number by itself, which is quicker
  platform::SQLiteStatement insertEvent_;
  bool isLoaded_ = false;
  uint64_t generation_ = 0;  // of the rows that subjects remember
  uint64_t tailNumber_ = 0;  // of the tail that they point into
  int64_t nextSeq_ = 1;
  int64_t newestReading_ = 0;  // 0: none is there
  int64_t firstOfTail_ = 1;
  int64_t tailSince_ = INT64_MAX;
  int64_t tailUntil_ = INT64_MIN;
  std::unordered_map<int64_t, TailBeacon> tail_;   // by row of the beacon
  std::unordered_map<int64_t, int64_t> tailUsed_;  // sources, with the last numbers that use them
};

}  // namespace brenloft::history
