#include "gateway/history/HistoryStore.h"

#include <algorithm>
#include <atomic>

#include "gateway/history/ChunkReading.h"

namespace brenloft::history {
namespace {

// A deletion may need what the store's does.
constexpr uint64_t kReserve = 1 << 20;
constexpr std::size_t kRememberedSources = 8;

using platform::SQLiteDatabase;
using platform::SQLiteStatement;
using platform::StoredView;

StoredView viewOf(const std::optional<int32_t>& value) {
  return value ? StoredView(int64_t{*value}) : StoredView();
}

StoredView viewOf(const std::string& text) {
  return text.empty() ? StoredView() : StoredView(std::string_view(text));
}

std::optional<int32_t> shown(const std::optional<int32_t>& raw, int32_t offset) {
  return raw ? std::optional(*raw + offset) : std::nullopt;
}

void bindAll(SQLiteStatement& statement, std::initializer_list<StoredView> values, int first = 1) {
  int parameter = first;
  for (const auto& value : values) statement.bind(parameter++, value);
}

constexpr int kAlarmParameter = 7;  // of an event's insertion

void bindAlarm(SQLiteStatement& insertion, const std::optional<AlarmFacts>& alarm) {
  if (!alarm) return bindAll(insertion, {{}, {}, {}, {}, {}}, kAlarmParameter);
  bindAll(insertion,
          {static_cast<int64_t>(alarm->severity), static_cast<int64_t>(alarm->quantity), viewOf(alarm->value),
           viewOf(alarm->threshold), viewOf(alarm->text)},
          kAlarmParameter);
}

// Subjects outlive a store, and must not take another one's rows for theirs.
uint64_t freshNumber() {
  static std::atomic<uint64_t> last{0};
  return ++last;
}

}  // namespace

HistoryStore::HistoryStore(const std::filesystem::path& file, const HistoryOptions& options)
    : lock_(file, options.isOwnerOnly),
      database_(openForWriting(file, options)),
      insertReading_(database_.prepare("INSERT INTO reading VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)")),
      appendReading_(
          database_.prepare("INSERT INTO reading (source, heard, rssi, temperature, humidity, x, y, z) "
                            "VALUES (?, ?, ?, ?, ?, ?, ?, ?)")),
      insertEvent_(database_.prepare("INSERT INTO event VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)")) {
  load();
}

HistoryStore::~HistoryStore() {
  database_.moveLog();
}

void HistoryStore::load() {
  const auto number = [&](const char* sql) { return database_.integer(sql).value_or(0); };
  newestReading_ = number("SELECT max(seq) FROM reading");
  // What was newest once may be deleted.
  const int64_t newest = std::max({newestReading_, number("SELECT max(seq) FROM event"),
                                   number("SELECT value FROM about WHERE key = 'last_seq'")});
  nextSeq_ = newest + 1;
  // What was deleted after the last round needs no round.
  firstOfTail_ = std::max(number("SELECT max(last_seq) FROM round"),
                          number("SELECT value FROM about WHERE key = 'deleted_through'")) +
                 1;
  loadTail();
  generation_ = freshNumber();
  isLoaded_ = true;
}

void HistoryStore::clearTail() {
  tail_.clear();
  tailUsed_.clear();
  tailSince_ = INT64_MAX;
  tailUntil_ = INT64_MIN;
  tailNumber_ = freshNumber();
}

void HistoryStore::widenTail(int64_t heard) {
  tailSince_ = std::min(tailSince_, heard);
  tailUntil_ = std::max(tailUntil_, heard);
}

void HistoryStore::loadTail() {
  clearTail();
  eachReading(database_, firstOfTail_, nextSeq_, [&](const ChunkReading& reading) {
    TailBeacon& beacon = tail_[reading.beacon];
    beacon.chunk.add(reading.second(), reading.values);
    beacon.lastSeq = beacon.lastReading = reading.seq;
    tailUsed_[reading.source] = reading.seq;
    widenTail(reading.heard);
  });
  auto events = database_.prepare("SELECT seq, beacon, heard FROM event WHERE seq >= ?");
  events.bind(1, firstOfTail_);
  while (events.step()) {
    widenTail(events.integerAt(2));
    if (const int64_t beacon = events.integerAt(1); beacon != 0) {
      TailBeacon& tail = tail_[beacon];
      tail.lastSeq = std::max(tail.lastSeq, events.integerAt(0));
    }
  }
}

void HistoryStore::write(std::span<NewRecord> records) {
  if (!isLoaded_) load();
  database_.requireRoom(kReserve);
  // What a failure leaves here is ahead of the file.
  isLoaded_ = false;
  database_.transaction([&] {
    for (NewRecord& record : records) std::visit([&](auto& one) { add(one); }, record);
  });
  platform::requireInPlace(database_);
  isLoaded_ = true;
}

bool HistoryStore::isEmpty() {
  return database_.integer("SELECT EXISTS (SELECT 1 FROM reading) OR EXISTS (SELECT 1 FROM event)") == 0;
}

int64_t HistoryStore::takeSeq() {
  if (nextSeq_ - firstOfTail_ >= kRoundSize) closeRound();
  return nextSeq_++;
}

void HistoryStore::resolve(Subject& subject) {
  if (subject.generation != generation_) {
    subject.beacon = rowOf(subject.id);
    subject.sources.clear();
    subject.generation = generation_;
    subject.tailNumber = 0;
  }
  if (subject.tailNumber == tailNumber_) return;
  subject.tail = &tail_[subject.beacon];
  for (auto& source : subject.sources) source.lastSeq = nullptr;
  subject.tailNumber = tailNumber_;
}

int64_t HistoryStore::rowOf(const BeaconId& beacon) {
  auto find = database_.prepare("SELECT id FROM beacon WHERE name = ?");
  find.bind(1, std::string_view(beacon.text()));
  if (find.step()) return find.integerAt(0);
  auto insert = database_.prepare("INSERT INTO beacon (kind, name, last_seq) VALUES (?, ?, ?)");
  bindAll(insert, {static_cast<int64_t>(beacon.kind()), std::string_view(beacon.text()), nextSeq_});
  insert.run();
  return database_.lastInsertedRow();
}

const Subject::Source& HistoryStore::sourceOf(Subject& subject, const Traits& traits) {
  auto& sources = subject.sources;
  const auto known = std::ranges::find(sources, traits, &Subject::Source::traits);
  if (known == sources.end()) {
    if (sources.size() == kRememberedSources) sources.pop_back();
    sources.insert(sources.begin(), {traits, insertSource(subject, traits)});
  } else if (known != sources.begin()) {
    std::rotate(sources.begin(), known, known + 1);
  }
  Subject::Source& source = sources.front();
  if (source.lastSeq == nullptr) source.lastSeq = &tailUsed_[source.id];
  return source;
}

int64_t HistoryStore::insertSource(const Subject& subject, const Traits& traits) {
  auto insert = database_.prepare(
      "INSERT INTO source (beacon, battery, emergency, tx_power, temperature_offset, humidity_offset, "
      "battery_offset, last_seq) VALUES (?, ?, ?, ?, ?, ?, ?, ?)");
  const Offsets& offsets = traits.offsets;
  bindAll(insert,
          {subject.beacon, viewOf(traits.battery), viewOf(traits.emergency), viewOf(traits.txPower),
           int64_t{offsets.temperature}, int64_t{offsets.humidity}, int64_t{offsets.battery}, nextSeq_});
  insert.run();
  return database_.lastInsertedRow();
}

void HistoryStore::insert(int64_t seq, std::initializer_list<StoredView> columns) {
  const bool isNext = newestReading_ != 0 && newestReading_ == seq - 1;
  SQLiteStatement& statement = isNext ? appendReading_ : insertReading_;
  if (!isNext) statement.bind(1, seq);
  bindAll(statement, columns, isNext ? 1 : 2);
  statement.run();
  if (database_.lastInsertedRow() != seq) platform::refuse("another program has written to it");
  newestReading_ = seq;
}

void HistoryStore::add(NewReading& reading) {
  const int64_t seq = takeSeq();
  Subject& subject = *reading.subject;
  resolve(subject);
  const Quantities& raw = reading.raw;
  const Offsets& offsets = reading.offsets;
  const auto& source = sourceOf(subject, {raw.battery, raw.emergency, raw.txPower, offsets});
  const int64_t heard = ticksOf(reading.heard);
  insert(seq, {source.id, heard, viewOf(reading.rssi), viewOf(raw.temperature), viewOf(raw.humidity),
               viewOf(raw.xAccel), viewOf(raw.yAccel), viewOf(raw.zAccel)});
  *source.lastSeq = subject.tail->lastSeq = subject.tail->lastReading = seq;
  widenTail(heard);
  subject.tail->chunk.add(secondOf(heard), {reading.rssi, shown(raw.temperature, offsets.temperature),
                                            shown(raw.humidity, offsets.humidity),
                                            shown(raw.battery, offsets.battery), raw.emergency});
}

void HistoryStore::add(const std::unique_ptr<NewEvent>& added) {
  if (added->event) {
    const BeaconEvent& event = *added->event;
    const int64_t seq = takeSeq();
    StoredView beacon;
    if (added->subject) {
      resolve(*added->subject);
      beacon = added->subject->beacon;
      added->subject->tail->lastSeq = seq;
    }
    const int64_t heard = ticksOf(event.heard);
    widenTail(heard);
    bindAll(insertEvent_, {seq, static_cast<int64_t>(event.kind), beacon, heard, viewOf(event.text),
                           event.count == 0 ? StoredView() : StoredView(static_cast<int64_t>(event.count))});
    bindAlarm(insertEvent_, event.alarm);
    insertEvent_.run();
  }
  if (added->state) keep(*added->state);
}

void HistoryStore::keep(const KeptState& state) {
  auto statement = database_.prepare(
      state.text ? "INSERT INTO state VALUES (?1, ?2, ?3) ON CONFLICT DO UPDATE SET text = ?3"
                 : "DELETE FROM state WHERE owner = ?1 AND subject = ?2");
  statement.bind(1, std::string_view(state.owner));
  statement.bind(2, std::string_view(state.subject));
  if (state.text) statement.bind(3, std::string_view(*state.text));
  statement.run();
}

void HistoryStore::insertChunks(int64_t round, const std::unordered_map<int64_t, TailBeacon>& beacons) {
  std::vector<int64_t> order;
  for (const auto& [id, beacon] : beacons)
    if (beacon.lastReading != 0) order.push_back(id);
  std::ranges::sort(order);
  auto insert = database_.prepare("INSERT INTO chunk VALUES (?, ?)");
  for (const int64_t id : order) {
    const std::string octets = beacons.at(id).chunk.encoded();
    bindAll(insert, {chunkId(round, id), platform::DataView(std::as_bytes(std::span(octets)))});
    insert.run();
  }
}

// Everything since the last one. Inside a transaction.
void HistoryStore::closeRound() {
  auto insert = database_.prepare("INSERT INTO round VALUES (?, ?, ?, ?)");
  bindAll(insert, {nextSeq_ - 1, firstOfTail_, tailSince_, tailUntil_});
  insert.run();
  insertChunks(nextSeq_ - 1, tail_);
  noteUse();
  forgetUnused();
  firstOfTail_ = nextSeq_;
  clearTail();
}

void HistoryStore::noteUse() {
  auto beacon = database_.prepare(
      "UPDATE beacon SET last_seq = ?2, last_reading = CASE ?3 WHEN 0 THEN last_reading ELSE ?3 END "
      "WHERE id = ?1");
  for (const auto& [id, use] : tail_) {
    bindAll(beacon, {id, use.lastSeq, use.lastReading});
    beacon.run();
  }
  auto source = database_.prepare("UPDATE source SET last_seq = ?2 WHERE id = ?1");
  for (const auto& [id, seq] : tailUsed_) {
    bindAll(source, {id, seq});
    source.run();
  }
}

// No row of what follows a round refers to anything yet, so what was last used in deleted rows is unused.
void HistoryStore::forgetUnused() {
  const std::string condition = " WHERE last_seq <= (SELECT value FROM about WHERE key = 'deleted_through')";
  for (const char* table : {"beacon", "source"}) {
    database_.execute("DELETE FROM " + std::string(table) + condition);
    if (database_.changedRows() != 0) generation_ = freshNumber();
  }
}

}  // namespace brenloft::history
