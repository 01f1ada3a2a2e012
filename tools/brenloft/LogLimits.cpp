#include "tools/brenloft/LogLimits.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <string_view>
#include <variant>

#include "BrenloftSDK/BRLCoreDataManager.h"
#include "BrenloftSDK/SensorLog.h"
#include "platform/coredata/NSManagedObjectContext.h"
#include "platform/coredata/SQLiteDatabase.h"

namespace brenloft {
namespace {

constexpr std::string_view kSensorLog = "SensorLog";

// A date that is wrong because the machine did not know better.
constexpr std::chrono::hours kAhead{1};

// Rows that one step looks through for a good one: they hold up the logging no longer than a deletion.
constexpr int64_t kLookedThrough = 5000;

// Asks what no fetch tells, on a connection of its own and of one moment. A file that does not answer is left
// to the logging, whose failure ends the process.
bool askStore(const std::function<void(platform::SQLiteDatabase&)>& question) {
  const auto answered = platform::resultOf([&] {
    platform::SQLiteDatabase database(BRLCoreDataManager::Class::storeFile(),
                                      platform::SQLiteDatabase::Access::ReadWrite);
    database.execute("BEGIN");
    question(database);
  });
  return static_cast<bool>(answered);
}

// Also what stands in the write-ahead log only, and without the room that deleted rows have left.
uint64_t usedOctets() {
  int64_t octets = 0;
  const auto ask = [&](platform::SQLiteDatabase& database) {
    const auto number = [&](const char* sql) { return database.integer(sql).value_or(0); };
    const int64_t pages = number("PRAGMA page_count") - number("PRAGMA freelist_count");
    octets = pages * number("PRAGMA page_size");
  };
  return askStore(ask) ? static_cast<uint64_t>(octets) : 0;
}

}  // namespace

void LogLimits::look() {
  const uint64_t octets = usedOctets();
  if (octets <= *bounds_.mostOctets) return;
  const auto context = BRLCoreDataManager::Class::sharedManager()->managedObjectContext();
  const auto request = platform::NSFetchRequest::fetchRequestWithEntityName(kSensorLog);
  const uint64_t rows = context->countForFetchRequest_error(request).value_or(0);
  if (rows != 0) octetsPerRow_ = static_cast<double>(octets) / static_cast<double>(rows);
}

// Asked anew for each step, because other processes delete, too. The rows are counted by their mean size.
uint64_t LogLimits::rowsTooMany() const {
  if (octetsPerRow_ == 0) return 0;
  const double kept = 0.9 * static_cast<double>(*bounds_.mostOctets);
  const double excess = static_cast<double>(usedOctets()) - kept;
  return excess <= 0 ? 0 : static_cast<uint64_t>(std::ceil(excess / octetsPerRow_));
}

LogLimits::Age LogLimits::ageOf(std::optional<platform::Date> date, platform::Date now) const {
  if (date && *date < now - *bounds_.longest) return Age::old;
  return date && *date <= now + kAhead ? Age::young : Age::ahead;
}

// How many of the first rows are old. Those ahead go with the next good one, which may be far behind them.
LogLimits::Old LogLimits::oldOf(const Dates& dates, platform::Date now) {
  std::size_t count = 0;
  for (std::size_t i = 0; i < dates.size(); ++i) {
    const Age age = ageOf(dates[i], now);
    if (age == Age::young) return {count};
    if (age == Age::old) count = i + 1;
  }
  if (dates.size() < kStep) return {count};
  // Once the others are gone, those ahead come first.
  if (count != 0) return {count, true};
  const Age next = ageBehindAhead(now);
  return {next == Age::old ? dates.size() : 0, next != Age::young};
}

// What the first good row is; `ahead`: not found yet, the next step goes on. Where it stands is remembered,
// because many rows may be ahead of it, but not for long: the clock catches up with them.
LogLimits::Age LogLimits::ageBehindAhead(platform::Date now) {
  if (now < aheadSince_ || now > aheadSince_ + kAhead) {
    ahead_ = 0;
    aheadSince_ = now;
  }
  Age age = Age::young;
  const auto ask = [&](platform::SQLiteDatabase& database) {
    auto rows = database.prepare(
        "SELECT rowid, statusUpdatedDate FROM SensorLog WHERE rowid >= ?1 ORDER BY rowid LIMIT ?2");
    rows.bind(1, ahead_);
    rows.bind(2, kLookedThrough);
    int64_t count = 0;
    for (; rows.step(); ++count) {
      ahead_ = rows.integerAt(0);
      const auto value = rows.viewAt(1, platform::NSAttributeType::DateTime);
      const auto* seconds = std::get_if<double>(&value);
      age = seconds != nullptr ? ageOf(platform::dateWithTimeIntervalSince1970(*seconds), now) : Age::ahead;
      if (age != Age::ahead) return;
    }
    if (count < kLookedThrough) age = Age::young;  // none follows: all stay
  };
  return askStore(ask) ? age : Age::young;
}

bool LogLimits::deleteSome(platform::Date now) {
  BRLCoreDataManager& manager = *BRLCoreDataManager::Class::sharedManager();
  const auto context = manager.managedObjectContext();
  auto request = platform::NSFetchRequest::fetchRequestWithEntityName(kSensorLog);
  request.setFetchLimit(kStep);
  const auto rows = context->executeFetchRequest_error(request).value_or(BRLCoreDataManager::Objects());
  // After the rows were fetched: what others delete from here on is among them.
  const auto tooMany = std::min<uint64_t>(rowsTooMany(), rows.size());
  Old old;
  if (bounds_.longest) {
    Dates dates;
    for (const auto& row : rows) dates.push_back(dynamic_cast<const SensorLog&>(*row).statusUpdatedDate());
    old = oldOf(dates, now);
  }
  const std::size_t count = std::max<std::size_t>(tooMany, old.rows);
  for (std::size_t i = 0; i < count; ++i) context->deleteObject(rows[i]);
  if (count != 0) manager.saveContext();
  deleted_ += count;
  if (count == kStep || old.isMore) return true;
  // The oldest rows may be smaller than the mean. Not once more down to the tenth: a flood would not let it
  // end.
  return tooMany != 0 && usedOctets() > *bounds_.mostOctets;
}

bool LogLimits::step(platform::Date now) {
  const auto context = BRLCoreDataManager::Class::sharedManager()->managedObjectContext();
  if (!context) return false;
  if (bounds_.mostOctets && octetsPerRow_ == 0) look();
  if (octetsPerRow_ == 0 && !bounds_.longest) return false;
  bool isMore = false;
  context->performBlockAndWait([&] { isMore = deleteSome(now); });
  if (!isMore) octetsPerRow_ = 0;
  return isMore;
}

}  // namespace brenloft
