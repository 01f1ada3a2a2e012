#include "BrenloftSDK/SensorLogReader.h"

#include <utility>

#include "BrenloftSDK/BRLCoreDataManager.h"
#include "BrenloftSDK/SensorLogJSON.h"
#include "platform/coredata/StoreReader.h"

using platform::Error;
using platform::Result;
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

Result<std::unique_ptr<SensorLogReader>> SensorLogReader::open(const std::filesystem::path& file) {
  try {
    auto reader = StoreReader::open(BRLCoreDataManager::Class::serviceModel(), file);
    if (!reader) return reader.error().in(file.string());
    return std::unique_ptr<SensorLogReader>(new SensorLogReader(*std::move(reader), file.string()));
  } catch (const platform::NSInvalidArgumentException& missing) {
    return Error{.text = missing.what()}.in(file.string());
  }
}

template <typename Operation>
auto SensorLogReader::naming(const Operation& operation) {
  auto result = operation(sensorLogOf(*reader_));
  if (!result) result = result.error().in(file_);
  return result;
}

Result<uint64_t> SensorLogReader::count() {
  return naming([&](const auto& entity) { return reader_->count(entity); });
}

Result<int64_t> SensorLogReader::lastNumber() {
  return naming([&](const auto& entity) { return reader_->lastRow(entity); });
}

Result<> SensorLogReader::rowsAfter(int64_t number, const RowBlock& block) {
  return naming([&](const auto& entity) {
    const SensorLogColumns columns(entity);
    const auto take = [&](const StoredRow& row) { return block(rowFrom(columns, row)); };
    return reader_->rowsAfter(entity, number, take);
  });
}

Result<> SensorLogReader::lastRows(uint64_t limit, const RowBlock& block) {
  return naming([&](const auto& entity) {
    const SensorLogColumns columns(entity);
    const auto take = [&](const StoredRow& row) { return block(rowFrom(columns, row)); };
    return reader_->lastRows(entity, limit, take);
  });
}

Result<> SensorLogReader::exportJSON(const TextSink& sink, const RowBlock& wants) {
  return naming([&](const auto& entity) {
    SensorLogJSON json(entity, sink);
    const SensorLogColumns columns(entity);
    const auto add = [&](const StoredRow& row) {
      if (!wants || wants(rowFrom(columns, row))) json.add(row);
      return true;
    };
    auto read = reader_->rowsAfter(entity, 0, add);
    if (read) json.finish();
    return read;
  });
}

Result<std::vector<std::string>> SensorLogReader::check() {
  return naming([&](const auto&) { return reader_->check(); });
}

Result<> SensorLogReader::copyTo(const std::filesystem::path& file) {
  return reader_->copyTo(file);
}
