#include "platform/coredata/SQLiteStoreFile.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <utility>

namespace platform {
namespace {

// "BRLS": the store files of this library.
constexpr int64_t kApplicationId = 0x42524c53;

// What a log that was large once is cut to.
constexpr std::string_view kLogSizeLimit = "4194304";

// The model's fingerprint in the 31 bits that fit the header's user_version; never 0, which is unset.
int64_t versionOf(const NSManagedObjectModel& model) {
  const uint64_t fingerprint = model.fingerprint();
  const auto folded = static_cast<int64_t>((fingerprint ^ fingerprint >> 32) & 0x7fffffff);
  return folded == 0 ? 1 : folded;
}

std::string fingerprintText(const NSManagedObjectModel& model) {
  std::array<char, 17> text{};
  std::snprintf(text.data(), text.size(), "%016llx", static_cast<unsigned long long>(model.fingerprint()));
  return text.data();
}

// Refuses what is not ours as far as the header tells.
SQLiteHeader::Contents glance(const NSManagedObjectModel& model, const std::filesystem::path& file) {
  const auto header = SQLiteHeader::of(file);
  if (header.contents != SQLiteHeader::Contents::Database) return header.contents;
  if (header.applicationId != kApplicationId) refuse("another application's database");
  if (header.userVersion != versionOf(model)) refuse("a store of another model");
  return header.contents;
}

void writeSchema(const NSManagedObjectModel& model, SQLiteDatabase& database) {
  for (const auto& entity : model.entities()) database.execute(EntityTable(entity).create());
  database.execute("CREATE TABLE NSStoreMetadata (key TEXT PRIMARY KEY, value TEXT) WITHOUT ROWID");
  database.execute("INSERT INTO NSStoreMetadata VALUES ('modelFingerprint', '" + fingerprintText(model) +
                   "')");
  database.execute("PRAGMA user_version = " + std::to_string(versionOf(model)));
  database.execute("PRAGMA application_id = " + std::to_string(kApplicationId));
}

// Indexes are welcome. What has no page of its own is a trigger, a view or a virtual table.
void refuseForeignSchema(SQLiteDatabase& database) {
  const auto foreign = database.text("SELECT name FROM sqlite_schema WHERE coalesce(rootpage, 0) = 0");
  if (foreign) refuse("it has a trigger, view or virtual table, which no store has: " + *foreign);
}

// The whole fingerprint, and the pages that the next inserts go to.
void verify(const NSManagedObjectModel& model, SQLiteDatabase& database) {
  if (database.integer("PRAGMA application_id") != kApplicationId) refuse("another application's database");
  refuseForeignSchema(database);
  if (database.text("SELECT value FROM NSStoreMetadata WHERE key = 'modelFingerprint'") !=
      fingerprintText(model)) {
    refuse("a store of another model");
  }
  for (const auto& entity : model.entities()) {
    database.prepare(EntityTable(entity).select(" ORDER BY rowid DESC LIMIT 1")).step();
  }
}

}  // namespace

EntityTable::EntityTable(const NSEntityDescription& entity)
    : attributes_(entity.attributes()),
      table_(quoted(entity.name())),
      lastRowKey_("'lastRow." + entity.name() + "'") {}

std::string EntityTable::quoted(std::string_view name) {
  return '"' + std::string(name) + '"';
}

std::string EntityTable::columns(std::string_view between) const {
  std::string text;
  for (const auto& attribute : attributes_) {
    if (!text.empty()) text += between;
    text += quoted(attribute.name);
  }
  return text;
}

std::string EntityTable::create() const {
  std::string text;
  for (const auto& attribute : attributes_) {
    if (!text.empty()) text += ", ";
    text += quoted(attribute.name);
    switch (attribute.attributeType) {
      case NSAttributeType::Integer64:
      case NSAttributeType::UnsignedInteger64:
        text += " INTEGER";
        break;
      case NSAttributeType::String:
        text += " TEXT";
        break;
      case NSAttributeType::DateTime:
        text += " REAL";
        break;
      case NSAttributeType::BinaryData:
        text += " BLOB";
        break;
    }
  }
  return "CREATE TABLE " + table_ + " (" + text + ")";
}

// SQLite numbers a row after the newest one that is there. Where a newer one was deleted, its number counts.
std::string EntityTable::insert() const {
  std::string marks;
  for (std::size_t i = 0; i < attributes_.size(); ++i) marks += ", ?";
  return "INSERT INTO " + table_ + " (rowid, " + columns(", ") +
         ") VALUES ((SELECT value + 1 FROM NSStoreMetadata WHERE key = " + lastRowKey_ +
         " AND value + 0 >= (SELECT coalesce(max(rowid), 0) FROM " + table_ + "))" + marks + ")";
}

std::string EntityTable::noteLastRow() const {
  return "INSERT INTO NSStoreMetadata SELECT " + lastRowKey_ + ", max(rowid) FROM " + table_ +
         " HAVING max(rowid) ON CONFLICT (key) DO UPDATE SET value = max(value + 0, excluded.value + 0)";
}

std::string EntityTable::removeNewest() const {
  return "DELETE FROM " + table_ + " WHERE rowid <= ?1 AND rowid > (SELECT rowid FROM " + table_ +
         " WHERE rowid <= ?1 ORDER BY rowid DESC LIMIT 1 OFFSET ?2)";
}

// The row's number is the last parameter.
std::string EntityTable::update() const {
  return "UPDATE " + table_ + " SET " + columns(" = ?, ") + " = ? WHERE rowid = ?";
}

std::string EntityTable::select(std::string_view condition) const {
  return "SELECT rowid, " + columns(", ") + " FROM " + table_ + std::string(condition);
}

std::string EntityTable::newest() const {
  return "SELECT min(rowid), max(rowid) FROM (SELECT rowid FROM " + table_ + " ORDER BY rowid DESC LIMIT ?1)";
}

void EntityTable::readRows(SQLiteStatement& statement, const StoredRowBlock& block) const {
  std::vector<StoredView> values(attributes_.size());
  while (statement.step()) {
    for (std::size_t i = 0; i < values.size(); ++i) {
      values[i] = statement.viewAt(static_cast<int>(i) + 1, attributes_[i].attributeType);
    }
    if (!block({statement.integerAt(0), values})) return;
  }
}

SQLiteDatabase openStoreFile(const NSManagedObjectModel& model, const std::filesystem::path& file,
                             SQLiteStoreOptions options) {
  using Contents = SQLiteHeader::Contents;
  const Contents contents = glance(model, file);
  if (contents == Contents::Nothing && !options.create) refuse("no such file");
  if (contents == Contents::Nothing && options.ownerOnly) makeForOwnerOnly(file);
  using Access = SQLiteDatabase::Access;
  SQLiteDatabase database(file, options.create ? Access::Create : Access::ReadWrite);
  // A log that a killed process left behind goes into the file only once the file has proved to be ours.
  database.leaveLogOnClose(hasLog(database));
  createSchema(database, contents, [&] { writeSchema(model, database); });
  verify(model, database);
  database.leaveLogOnClose(false);
  if (!options.create) return database;
  if (database.isReadOnly()) refuse("the file cannot be written");
  if (database.text("PRAGMA journal_mode") != "wal") database.useLog();
  database.execute(options.synchronousFull ? "PRAGMA synchronous = FULL" : "PRAGMA synchronous = NORMAL");
  // Deleted rows need not be overwritten with zeros at the price of more writing.
  database.execute("PRAGMA secure_delete = FAST");
  database.execute("PRAGMA journal_size_limit = " + std::string(kLogSizeLimit));
  return database;
}

SQLiteReadConnection readStoreFile(std::shared_ptr<const NSManagedObjectModel> model,
                                   const std::filesystem::path& file) {
  return SQLiteReadConnection([model = std::move(model), file](SQLiteDatabase::Access access) {
    if (access != SQLiteDatabase::Access::Immutable) return openStoreFile(*model, file, {.create = false});
    SQLiteDatabase database(file, access);
    if (!hasLog(database)) verify(*model, database);
    return database;
  });
}

}  // namespace platform
