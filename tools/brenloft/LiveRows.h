#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "gateway/Record.h"
#include "tools/brenloft/SearchEvents.h"
#include "tools/brenloft/TimeText.h"

namespace brenloft {

/// What the live table shows: a row per beacon, sorted by a key, as lines of a width.
///
/// Threads: one at a time.
class LiveRows {
 public:
  /// Beyond, the one heard longest ago goes: strangers first, those with a name last. None with a name goes
  /// for one without.
  static constexpr std::size_t kMost = 2'000;

  enum class Mood { usual, alarm, absent, stranger };
  struct Line {
    Mood mood;
    std::string text;
  };
  struct Shown {
    std::string summary;  ///< how many, and which keys sort
    std::string common;   ///< what all identifiers begin with, where it is left out of the lines
    std::string header;
    std::vector<Line> lines;
    std::size_t left = 0;  ///< rows for which there was no line
  };

  LiveRows(Labels labels, RaisedAlarms raisedAlarms)
      : labels_(std::move(labels)), raisedAlarms_(std::move(raisedAlarms)) {}

  /// Whether it is of a beacon.
  bool take(const Record& record);
  /// What is not believed.
  void takeStranger(const Reading& reading);
  /// By the column of this letter; again: the other way round. False where there is none.
  bool sortBy(char key);

  Shown shown(platform::Date now, std::size_t width, std::size_t mostLines, TimeText& times);

 private:
  struct Row {
    std::optional<Reading> reading{};
    std::set<std::string> alarms{};
    bool isStranger = false;
    bool isLost = false;
    bool isEmergency = false;
    bool isNamed = false;  // when it was shown last, or else when it came
  };
  using Rows = std::map<BeaconId, Row>;
  // The least goes first.
  struct Worth {
    bool isNamed;
    bool isBelieved;
    platform::Date heard;
    Rows::iterator row;

    bool operator<(const Worth& other) const;
  };
  // One to be shown: its row, and its label as it is now.
  struct Entry {
    const BeaconId* id;
    const Row* row;
    Label label;
  };
  struct Column;

  static Worth worthOf(Rows::iterator row);
  std::optional<Rows::iterator> rowOf(const BeaconId& beacon);
  void put(Rows::iterator at, Row row);
  void takeEvent(const BeaconEvent& event, Row& row);
  std::vector<Entry> sorted();
  bool isBefore(const Entry& a, const Entry& b) const;
  std::string summary() const;
  std::string commonPrefix() const;
  static Mood moodOf(const Row& row);
  static std::string stateOf(const Row& row);

  const Labels labels_;
  const RaisedAlarms raisedAlarms_;
  Rows rows_;
  std::set<Worth> worths_;  // of each row: a flood of new beacons must find the least at once
  char key_ = 'i';
  bool isReversed_ = false;
};

}  // namespace brenloft
