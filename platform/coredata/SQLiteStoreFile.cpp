#include "platform/coredata/SQLiteStoreFile.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <system_error>

namespace platform {
namespace {

// "BRLS": the store files of this library.
constexpr int64_t kApplicationId = 0x42524c53;

// Every database file has a header, https://www.sqlite.org/fileformat.html
constexpr std::uintmax_t kHeaderSize = 100;

[[noreturn]] void refuse(const std::string& why) {
  throw SQLiteFailure(0, why);
}

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

bool hasLog(const std::filesystem::path& file) {
  std::error_code error;
  const auto size = std::filesystem::file_size(file.string() + "-wal", error);
  return !error && size > 0;
}

// A glance, because opening a stranger's database leaves SQLite's files beside it. (Reading the header
// without SQLite would be worse: closing a file drops every lock that this process holds on it.) False when
// there is nothing yet: no file, or one of no octets, as a creation that was cut short leaves it.
bool holdsStore(const NSManagedObjectModel& model, const std::filesystem::path& file) {
  std::error_code error;
  const auto status = std::filesystem::status(file, error);
  if (status.type() == std::filesystem::file_type::not_found) return false;
  if (error) refuse(error.message());
  if (!std::filesystem::is_regular_file(status)) refuse("not a file");
  const auto size = std::filesystem::file_size(file, error);
  if (size == 0) return false;
  if (size < kHeaderSize) refuse("not a database");
  SQLiteDatabase glance(file, SQLiteDatabase::Access::Glance);
  // A kill amid a checkpoint leaves a header that promises more pages than the file has yet; its log has
  // them.
  if (hasLog(file)) glance.execute("PRAGMA writable_schema = ON");
  if (glance.integer("PRAGMA application_id") != kApplicationId) refuse("another application's database");
  if (glance.integer("PRAGMA user_version") != versionOf(model)) refuse("a store of another model");
  return true;
}

// In one transaction, so that a process that dies leaves the whole schema or nothing.
void createSchema(const NSManagedObjectModel& model, SQLiteDatabase& database) {
  database.transaction([&] {
    // Another process may have been quicker.
    if (database.integer("SELECT count(*) FROM sqlite_schema") != 0) return;
    for (const auto& entity : model.entities()) database.execute(EntityTable(entity).create());
    database.execute("CREATE TABLE NSStoreMetadata (key TEXT PRIMARY KEY, value TEXT) WITHOUT ROWID");
    database.execute("INSERT INTO NSStoreMetadata VALUES ('modelFingerprint', '" + fingerprintText(model) +
                     "')");
    database.execute("PRAGMA user_version = " + std::to_string(versionOf(model)));
    database.execute("PRAGMA application_id = " + std::to_string(kApplicationId));
  });
}

// The whole fingerprint, and the pages that the next inserts go to.
void verify(const NSManagedObjectModel& model, SQLiteDatabase& database) {
  if (database.integer("PRAGMA application_id") != kApplicationId) refuse("another application's database");
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

// The row's number is the last parameter.
std::string EntityTable::update() const {
  return "UPDATE " + table_ + " SET " + columns(" = ?, ") + " = ? WHERE rowid = ?";
}

std::string EntityTable::select(std::string_view condition) const {
  return "SELECT rowid, " + columns(", ") + " FROM " + table_ + std::string(condition);
}

std::string EntityTable::selectLast() const {
  return select(" WHERE rowid IN (SELECT rowid FROM " + table_ +
                " ORDER BY rowid DESC LIMIT ?1) ORDER BY rowid");
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
  const bool held = holdsStore(model, file);
  if (!held && !options.create) refuse("no such file");
  using Access = SQLiteDatabase::Access;
  SQLiteDatabase database(file, options.create ? Access::Create : Access::ReadWrite);
  // A log that a killed process left behind goes into the file only once the file has proved to be ours.
  database.leaveLogOnClose(hasLog(file));
  // A creation that was cut short is rolled back when it is first read, and begun anew.
  if (options.create && database.integer("SELECT count(*) FROM sqlite_schema") == 0) {
    createSchema(model, database);
  }
  verify(model, database);
  database.leaveLogOnClose(false);
  if (database.isReadOnly()) refuse("the file cannot be written");
  if (database.text("PRAGMA journal_mode") != "wal") database.execute("PRAGMA journal_mode = WAL");
  database.execute(options.synchronousFull ? "PRAGMA synchronous = FULL" : "PRAGMA synchronous = NORMAL");
  // Deleted rows need not be overwritten with zeros at the price of more writing.
  database.execute("PRAGMA secure_delete = FAST");
  return database;
}

}  // namespace platform
