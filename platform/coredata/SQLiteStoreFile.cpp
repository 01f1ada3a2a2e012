#include "platform/coredata/SQLiteStoreFile.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

namespace platform {
namespace {

// "BRLS": the store files of this library.
constexpr int64_t kApplicationId = 0x42524c53;

// Every database file has a header, https://www.sqlite.org/fileformat.html
constexpr std::size_t kHeaderSize = 100;
constexpr std::string_view kMagic{"SQLite format 3\0", 16};
constexpr std::size_t kUserVersionAt = 60;
constexpr std::size_t kApplicationIdAt = 68;

// What a log that was large once is cut to.
constexpr std::string_view kLogSizeLimit = "4194304";

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

bool hasLog(const SQLiteDatabase& database) {
  std::error_code error;
  const auto size = std::filesystem::file_size(database.logFile(), error);
  return !error && size > 0;
}

bool isZeros(std::string_view octets) {
  return octets.find_first_not_of('\0') == std::string_view::npos;
}

bool isBlank(const SQLiteDatabase& database) {
  constexpr std::size_t piece = 65'536;
  for (uint64_t from = 0;; from += piece) {
    const std::string octets = database.octets(from, piece);
    if (!isZeros(octets)) return false;
    if (octets.size() < piece) return true;
  }
}

int64_t bigEndian32(std::string_view header, std::size_t at) {
  uint32_t number = 0;
  for (const char octet : header.substr(at, 4)) number = number << 8 | static_cast<unsigned char>(octet);
  return number;
}

enum class Contents {
  Nothing,
  /// What a creation leaves that was cut short by a power cut.
  Zeros,
  /// Ours as far as the header tells, whole or not: SQLite finishes or takes back what was cut short.
  Store,
};

// A look at the header only, because opening a stranger's database leaves SQLite's files beside it. What the
// look is for stands there from the first write on and stays.
Contents glance(const NSManagedObjectModel& model, const std::filesystem::path& file) {
  std::error_code error;
  const auto status = std::filesystem::status(file, error);
  if (status.type() == std::filesystem::file_type::not_found) return Contents::Nothing;
  if (error) refuse(error.message());
  if (!std::filesystem::is_regular_file(status)) refuse("not a file");
  const std::string header = SQLiteDatabase(file, SQLiteDatabase::Access::Immutable).octets(0, kHeaderSize);
  if (header.empty()) return Contents::Nothing;
  if (isZeros(header)) return Contents::Zeros;
  if (header.size() < kHeaderSize || !header.starts_with(kMagic)) refuse("not a database");
  if (bigEndian32(header, kApplicationIdAt) != kApplicationId) refuse("another application's database");
  if (bigEndian32(header, kUserVersionAt) != versionOf(model)) refuse("a store of another model");
  return Contents::Store;
}

void writeSchema(const NSManagedObjectModel& model, SQLiteDatabase& database) {
  for (const auto& entity : model.entities()) database.execute(EntityTable(entity).create());
  database.execute("CREATE TABLE NSStoreMetadata (key TEXT PRIMARY KEY, value TEXT) WITHOUT ROWID");
  database.execute("INSERT INTO NSStoreMetadata VALUES ('modelFingerprint', '" + fingerprintText(model) +
                   "')");
  database.execute("PRAGMA user_version = " + std::to_string(versionOf(model)));
  database.execute("PRAGMA application_id = " + std::to_string(kApplicationId));
}

// SQLite makes its files as the umask says, those beside the first with its permissions.
void makeForOwnerOnly(const std::filesystem::path& file) {
  const int descriptor = ::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  // Made by somebody else meanwhile, or not to be made at all: then opening says why.
  if (descriptor >= 0) ::close(descriptor);
}

// In one transaction, so that a process that dies leaves the whole schema or nothing. SQLite makes nothing of
// zeros unless it is told that they are nothing, and then of nothing else either; so the file itself is
// looked at, once the others are locked out.
void create(const NSManagedObjectModel& model, SQLiteDatabase& database, Contents found) {
  const bool isZeros = found == Contents::Zeros;
  database.takeForEmpty(isZeros);
  database.execute("BEGIN");
  // So that the space of deleted rows can be given back in steps. Takes the lock, and must be the first
  // change.
  database.execute("PRAGMA auto_vacuum = INCREMENTAL");
  const bool isQuickest =
      isZeros ? isBlank(database) : database.integer("SELECT count(*) FROM sqlite_schema") == 0;
  if (isQuickest) writeSchema(model, database);
  database.execute(isQuickest ? "COMMIT" : "ROLLBACK");
  database.takeForEmpty(false);
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
  const Contents contents = glance(model, file);
  if (contents == Contents::Nothing && !options.create) refuse("no such file");
  if (contents == Contents::Nothing && options.ownerOnly) makeForOwnerOnly(file);
  using Access = SQLiteDatabase::Access;
  SQLiteDatabase database(file, options.create ? Access::Create : Access::ReadWrite);
  // A log that a killed process left behind goes into the file only once the file has proved to be ours.
  database.leaveLogOnClose(hasLog(database));
  // A creation that was cut short is taken back when it is first read, and begun anew.
  if (contents == Contents::Zeros || database.integer("SELECT count(*) FROM sqlite_schema") == 0)
    create(model, database, contents);
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

void requireInPlace(const SQLiteDatabase& database) {
  if (database.hasMoved()) refuse("the file was removed or replaced while in use");
}

SQLiteDatabase openImmutableStoreFile(const NSManagedObjectModel& model, const std::filesystem::path& file) {
  SQLiteDatabase database(file, SQLiteDatabase::Access::Immutable);
  if (hasLog(database))
    refuse("its log needs an index that cannot be made beside it; copy both to another folder");
  verify(model, database);
  return database;
}

}  // namespace platform
