#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "BrenloftSDK/BRLDataModel.h"
#include "BrenloftSDK/BRLRecordList.h"
#include "gateway/Record.h"
#include "gateway/formats/RecordLines.h"
#include "platform/bluetooth/AdvertisingReport.h"
#include "tools/brenloft/Options.h"
#include "tools/brenloft/Output.h"

namespace brenloft {

/// What a search tells, in one of the forms in which it can be shown. Times are those of the delegate calls.
/// The answer to each call is whether this form shows anything of that event.
///
/// Threads: one call at a time.
class SearchEvents {
 public:
  using Octets = std::vector<std::string>;

  virtual ~SearchEvents() = default;
  /// Before the first event.
  virtual void begin() {}
  /// Whether `bytes` is called at all.
  virtual bool showsBytes() const { return false; }
  virtual bool bytes(platform::Date, const Octets&) { return false; }
  virtual bool beacon(platform::Date time, const BRLBeaconSnapshot& record) = 0;
  virtual bool emergency(platform::Date time, const BRLBeaconSnapshot& record) = 0;
  virtual bool ranged(platform::Date time, const BRLRecordList& records) = 0;
  /// An iBeacon has fallen silent while others stay, which the library does not tell, or is back from that.
  virtual bool left(platform::Date time, const BRLBeaconSnapshot& record) = 0;
  virtual bool returned(platform::Date time, const BRLBeaconSnapshot& record) = 0;
  virtual void radio(platform::Date time, const platform::RadioState& state) = 0;
  /// What the gateway makes of what the library tells: a reading that it believes, or what it found in it.
  virtual bool record(const Record&) { return false; }
  /// A reading that it does not believe.
  virtual void refused(const Reading&) {}
  /// Once every `period`.
  virtual void tick(platform::Date) {}
  /// Short where something is drawn; else just long enough to notice that nobody reads any more.
  virtual std::chrono::milliseconds period() const { return Output::kReaderCheck; }
  /// Somebody is about to write to standard error.
  virtual void makeRoom() {}
  virtual void finish() {}
};

/// A form that shows what the gateway makes of a search, and nothing that the library tells.
class RecordEvents : public SearchEvents {
 public:
  bool bytes(platform::Date, const Octets&) override { return false; }
  bool beacon(platform::Date, const BRLBeaconSnapshot&) override { return false; }
  bool emergency(platform::Date, const BRLBeaconSnapshot&) override { return false; }
  bool ranged(platform::Date, const BRLRecordList&) override { return false; }
  bool left(platform::Date, const BRLBeaconSnapshot&) override { return false; }
  bool returned(platform::Date, const BRLBeaconSnapshot&) override { return false; }
  void radio(platform::Date, const platform::RadioState&) override {}
};

/// The names of the alarms that are raised for a beacon. Asked while one of its records is told.
using RaisedAlarms = std::function<std::vector<std::string>(const BeaconId&)>;

/// One JSON line per event.
std::unique_ptr<SearchEvents> makeJsonEvents(Output& out, TimeForm timeForm);
/// A header, then one line per record that an event shows.
std::unique_ptr<SearchEvents> makeCsvEvents(Output& out, TimeForm timeForm);
/// One line for people per record that changed.
std::unique_ptr<SearchEvents> makeRowEvents(Output& out, TimeForm timeForm);
/// A table on a terminal that is redrawn in place, one line per beacon.
std::unique_ptr<SearchEvents> makeLiveTable(Output& out, TimeForm timeForm, Labels labels,
                                            RaisedAlarms raisedAlarms);
/// As `--format` and `--time` have it.
RecordLines recordLinesOf(SearchFormat format, const std::optional<TimeForm>& time);
/// One line per record, for other programs.
std::unique_ptr<SearchEvents> makeRecordLines(Output& out, RecordLines lines, Labels labels);
/// Nothing.
std::unique_ptr<SearchEvents> makeNoEvents();
/// Passes on what begins or ends: a beacon's presence, an emergency, a state of the radio.
std::unique_ptr<SearchEvents> makeTransitions(std::unique_ptr<SearchEvents> shown);

}  // namespace brenloft
