#pragma once

#include <chrono>
#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "gateway/KeptState.h"
#include "gateway/beacons/GapLearner.h"
#include "gateway/configuration/Settings.h"
#include "gateway/history/HistoryReader.h"
#include "gateway/mqtt/Payloads.h"

namespace brenloft {

/// What is so now: the newest reading of each beacon, whether it is there, its alarms. It is told when it
/// changes, and all of it anew to a broker that may have forgotten it. Of what changes faster than it can be
/// told only the newest is.
///
/// A reading is told as long as it is fresh: for three of its beacon's usual gaps, or as long as its silence
/// may last, and a minute at least. Of beacons that the settings do not know nothing stays with the broker
/// for long.
///
/// Threads: one at a time.
class View {
 public:
  enum class Kind : uint8_t { presence = 1, alarms = 2, state = 4 };
  struct Key {
    BeaconId beacon;
    Kind kind;
  };
  struct Item {
    Key key;
    Message message;
  };
  static constexpr std::size_t kCapacity = 10'000;

  /// Without `hasExpiry` a broker would keep stale readings, so that none is kept.
  View(Payloads& payloads, std::shared_ptr<const Settings> settings, bool hasExpiry);

  /// What the history knows, before any row.
  void restore(const std::vector<KeptState>& states, const std::vector<HistoryBeacon>& beacons,
               platform::Date now);
  void take(const HistoryRow& row);
  void setSettings(std::shared_ptr<const Settings> settings);

  /// Everything is to be told again.
  void renew();
  bool isTold() const { return changed_.empty(); }
  /// What changed first of what is to be told.
  std::optional<Item> next(platform::Date now);
  /// It was not taken.
  void tellAgain(const Key& key) { change(key.beacon, key.kind); }

  /// How long a reading of this beacon is fresh.
  std::chrono::seconds freshness(const BeaconId& beacon) const;
  std::vector<BeaconId> beacons() const;
  /// The radio's state, as its newest event has it; "" before there is one.
  const std::string& radio() const { return radio_; }

 private:
  struct Entry {
    std::optional<Reading> reading{};
    int64_t seq = 0;
    GapLearner gaps;
    std::optional<bool> isHome{};
    platform::Date presenceTold{};
    std::set<std::string> raised{};
    bool hasAlarms = false;  // was ever raised: quiet is worth telling
    uint8_t changed = 0;     // kinds
  };

  Entry* entryOf(const BeaconId& beacon);
  bool isKnown(const BeaconId& beacon) const { return settings_->beacon(beacon) != nullptr; }
  void takeReading(const Reading& reading, int64_t seq);
  void takeEvent(const BeaconEvent& event);
  void change(const BeaconId& beacon, Kind kind);
  std::optional<Message> messageOf(const Key& key, Entry& entry, platform::Date now);
  void forgetStrangers(platform::Date now);

  Payloads& payloads_;
  std::shared_ptr<const Settings> settings_;
  const bool hasExpiry_;
  std::unordered_map<BeaconId, Entry> entries_;
  std::list<BeaconId> changed_;  // each once, in the order of their changes
  std::string radio_;
};

}  // namespace brenloft
