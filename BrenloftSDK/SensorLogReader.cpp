#include "BrenloftSDK/SensorLogReader.h"

#include <utility>

#include "BrenloftSDK/BRLCoreDataManager.h"
#include "BrenloftSDK/SensorLogJSON.h"
#include "platform/coredata/StoreReader.h"

using platform::StoredRow;
using platform::StoredView;
using platform::StoreReader;

namespace {

const platform::NSEntityDescription& sensorLogOf(const StoreReader& reader) {
  return *reader.model().entityNamed("SensorLog");
}

// How a property of each kind takes its value from a column; absent numbers are 0.

void take(int64_t& integer, const StoredView& value) {
  if (const auto* stored = std::get_if<int64_t>(&value)) integer = *stored;
}
void take(uint64_t& integer, const StoredView& value) {
  if (const auto* stored = std::get_if<int64_t>(&value)) integer = static_cast<uint64_t>(*stored);
}
void take(BRLOptionalText& text, const StoredView& value) {
  if (const auto* stored = std::get_if<std::string_view>(&value)) text = *stored;
}
void take(std::optional<platform::Date>& date, const StoredView& value) {
  if (const auto* seconds = std::get_if<double>(&value))
    date = platform::dateWithTimeIntervalSince1970(*seconds);
}

SensorLogReader::Row rowFrom(const SensorLogColumns& columns, const StoredRow& stored) {
  SensorLogReader::Row row{stored.number, {}};
  BRLForEach(kBRLProperties, [&](const auto& property) {
    take(row.values.*property.member, columns.valueAt(stored, property.readBack));
  });
  return row;
}

}  // namespace

SensorLogReader::SensorLogReader(std::unique_ptr<StoreReader> reader, std::string file)
    : reader_(std::move(reader)), file_(std::move(file)) {}

SensorLogReader::~SensorLogReader() = default;

std::filesystem::path SensorLogReader::storeFile() {
  return BRLCoreDataManager::Class::storeFile();
}

std::unique_ptr<SensorLogReader> SensorLogReader::open(const std::filesystem::path& file,
                                                       std::string* problem) {
  platform::NSError error;
  std::unique_ptr<StoreReader> reader;
  try {
    reader = StoreReader::open(BRLCoreDataManager::Class::serviceModel(), file, &error);
  } catch (const platform::NSInvalidArgumentException& missing) {
    error.localizedDescription = missing.what();
  }
  if (!reader && problem != nullptr) *problem = file.string() + ": " + error.localizedDescription;
  if (!reader) return nullptr;
  return std::unique_ptr<SensorLogReader>(new SensorLogReader(std::move(reader), file.string()));
}

template <typename Operation>
auto SensorLogReader::attempt(const Operation& operation) {
  platform::NSError error;
  auto result = operation(sensorLogOf(*reader_), &error);
  if (!result) problem_ = file_ + ": " + error.localizedDescription;
  return result;
}

std::optional<uint64_t> SensorLogReader::count() {
  return attempt([&](const auto& entity, auto* error) { return reader_->count(entity, error); });
}

std::optional<int64_t> SensorLogReader::lastNumber() {
  return attempt([&](const auto& entity, auto* error) { return reader_->lastRow(entity, error); });
}

bool SensorLogReader::rowsAfter(int64_t number, const RowBlock& block) {
  return attempt([&](const auto& entity, auto* error) {
    const SensorLogColumns columns(entity);
    const auto take = [&](const StoredRow& row) { return block(rowFrom(columns, row)); };
    return reader_->rowsAfter(entity, number, take, error);
  });
}

bool SensorLogReader::lastRows(uint64_t limit, const RowBlock& block) {
  return attempt([&](const auto& entity, auto* error) {
    const SensorLogColumns columns(entity);
    const auto take = [&](const StoredRow& row) { return block(rowFrom(columns, row)); };
    return reader_->lastRows(entity, limit, take, error);
  });
}

bool SensorLogReader::exportJSON(const TextSink& sink) {
  return attempt([&](const auto& entity, auto* error) {
    SensorLogJSON json(entity, sink);
    const auto add = [&](const StoredRow& row) { return json.add(row), true; };
    const bool read = reader_->rowsAfter(entity, 0, add, error);
    if (read) json.finish();
    return read;
  });
}
