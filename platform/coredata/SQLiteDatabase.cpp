#include "platform/coredata/SQLiteDatabase.h"

#include <algorithm>
#include <utility>

#include <sqlite3.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace platform {
namespace {

SQLiteFailure failureOf(sqlite3* database, int code) {
  // Only the code says that this "I/O error" is a want of room.
  if (code == SQLITE_IOERR_SHMSIZE) return {code, sqlite3_errstr(SQLITE_FULL)};
  // A reader that may not write finds what a writer left in the middle of a commit.
  if (code == SQLITE_READONLY_RECOVERY || code == SQLITE_READONLY_CANTINIT)
    return {code, "its writer was interrupted, and has to go on first"};
  return {code, database != nullptr ? sqlite3_errmsg(database) : sqlite3_errstr(code)};
}

void check(sqlite3* database, int code) {
  if (code != SQLITE_OK) throw failureOf(database, code);
}

int bindText(sqlite3_stmt* statement, int parameter, std::string_view text) {
  // A null pointer would bind an absent value.
  const char* start = text.data() != nullptr ? text.data() : "";
  return sqlite3_bind_text64(statement, parameter, start, text.size(), SQLITE_STATIC, SQLITE_UTF8);
}

int bindData(sqlite3_stmt* statement, int parameter, DataView data) {
  if (data.empty()) return sqlite3_bind_zeroblob(statement, parameter, 0);
  return sqlite3_bind_blob64(statement, parameter, data.data(), data.size(), SQLITE_STATIC);
}

// https://www.sqlite.org/uri.html
std::string uriOf(const std::filesystem::path& file, SQLiteDatabase::Access access) {
  std::string uri = "file:";
  for (const char c : std::filesystem::absolute(file).string()) {
    if (c == '%')
      uri += "%25";
    else if (c == '?')
      uri += "%3f";
    else if (c == '#')
      uri += "%23";
    else
      uri += c;
  }
  return access == SQLiteDatabase::Access::Immutable ? uri + "?immutable=1" : uri;
}

int flagsOf(SQLiteDatabase::Access access) {
  constexpr int common = SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_URI;
  switch (access) {
    case SQLiteDatabase::Access::Immutable:
      return common | SQLITE_OPEN_READONLY;
    case SQLiteDatabase::Access::ReadWrite:
      return common | SQLITE_OPEN_READWRITE;
    case SQLiteDatabase::Access::Create:
      break;
  }
  return common | SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
}

std::filesystem::path logOf(sqlite3* database) {
  return sqlite3_filename_wal(sqlite3_db_filename(database, "main"));
}

StoreStamp stampOf(sqlite3* database) {
  return {FileStamp::of(sqlite3_db_filename(database, "main")), FileStamp::of(logOf(database))};
}

int napWhileBusy(void* wait, int turn) {
  return static_cast<BusyWait*>(wait)->nap(turn) ? 1 : 0;
}

sqlite3_file* fileOf(sqlite3* database) {
  sqlite3_file* file = nullptr;
  sqlite3_file_control(database, "main", SQLITE_FCNTL_FILE_POINTER, static_cast<void*>(&file));
  return file;
}

}  // namespace

bool SQLiteFailure::isBusy() const {
  return (code_ & 0xff) == SQLITE_BUSY;
}

bool SQLiteFailure::isFull() const {
  return code_ == SQLITE_FULL || code_ == SQLITE_IOERR_WRITE || code_ == SQLITE_IOERR_SHMSIZE;
}

bool SQLiteFailure::lacksPermission() const {
  return (code_ & 0xff) == SQLITE_CANTOPEN || (code_ & 0xff) == SQLITE_READONLY;
}

Result<> resultOf(const std::function<void()>& operation) {
  try {
    operation();
    return {};
  } catch (const SQLiteFailure& failure) {
    return Error{failure.isBusy() ? Error::Kind::busy : Error::Kind::failed, failure.what()};
  }
}

void SQLiteStatement::Finalizer::operator()(sqlite3_stmt* statement) const {
  sqlite3_finalize(statement);
}

SQLiteStatement::SQLiteStatement(sqlite3* database, const std::string& sql) {
  sqlite3_stmt* statement = nullptr;
  check(database, sqlite3_prepare_v3(database, sql.c_str(), static_cast<int>(sql.size()) + 1,
                                     SQLITE_PREPARE_PERSISTENT, &statement, nullptr));
  statement_.reset(statement);
}

void SQLiteStatement::bind(int parameter, const StoredView& value) {
  sqlite3_stmt* statement = statement_.get();
  const int code = std::visit(
      [&](const auto& held) {
        using Held = std::decay_t<decltype(held)>;
        if constexpr (std::is_same_v<Held, int64_t>)
          return sqlite3_bind_int64(statement, parameter, held);
        else if constexpr (std::is_same_v<Held, double>)
          return sqlite3_bind_double(statement, parameter, held);
        else if constexpr (std::is_same_v<Held, std::string_view>)
          return bindText(statement, parameter, held);
        else if constexpr (std::is_same_v<Held, DataView>)
          return bindData(statement, parameter, held);
        else
          return sqlite3_bind_null(statement, parameter);
      },
      value);
  check(sqlite3_db_handle(statement), code);
}

bool SQLiteStatement::step() {
  const int code = sqlite3_step(statement_.get());
  if (code == SQLITE_ROW) return true;
  if (code == SQLITE_DONE) return false;
  sqlite3* database = sqlite3_db_handle(statement_.get());
  const int extended = sqlite3_extended_errcode(database);
  SQLiteFailure failure = failureOf(database, extended);
  sqlite3_reset(statement_.get());
  throw SQLiteFailure(std::move(failure));
}

void SQLiteStatement::reset() {
  sqlite3_reset(statement_.get());
}

void SQLiteStatement::run() {
  step();
  reset();
}

int64_t SQLiteStatement::integerAt(int column) const {
  return sqlite3_column_int64(statement_.get(), column);
}

std::string SQLiteStatement::textAt(int column) const {
  const auto view = viewAt(column, NSAttributeType::String);
  const auto* text = std::get_if<std::string_view>(&view);
  return text != nullptr ? std::string(*text) : std::string();
}

StoredView SQLiteStatement::viewAt(int column, NSAttributeType type) const {
  sqlite3_stmt* statement = statement_.get();
  if (sqlite3_column_type(statement, column) == SQLITE_NULL) return {};
  switch (type) {
    case NSAttributeType::Integer64:
    case NSAttributeType::UnsignedInteger64:
      return int64_t{sqlite3_column_int64(statement, column)};
    case NSAttributeType::DateTime:
      return sqlite3_column_double(statement, column);
    case NSAttributeType::String: {
      const auto* text = sqlite3_column_text(statement, column);
      return textOf({reinterpret_cast<const std::byte*>(text),
                     static_cast<std::size_t>(sqlite3_column_bytes(statement, column))});
    }
    case NSAttributeType::BinaryData: {
      const auto* data = static_cast<const std::byte*>(sqlite3_column_blob(statement, column));
      return DataView(data, static_cast<std::size_t>(sqlite3_column_bytes(statement, column)));
    }
  }
  return {};
}

void SQLiteDatabase::Closer::operator()(sqlite3* database) const {
  sqlite3_close_v2(database);
}

SQLiteDatabase::SQLiteDatabase(const std::filesystem::path& file, Access access) {
  sqlite3* database = nullptr;
  const int code = sqlite3_open_v2(uriOf(file, access).c_str(), &database, flagsOf(access), nullptr);
  database_.reset(database);
  check(database, code);
  opened_ = stampOf(database);
  sqlite3_extended_result_codes(database, 1);
  busyWait_ = std::make_unique<BusyWait>([database] { return stampOf(database); });
  sqlite3_busy_handler(database, napWhileBusy, busyWait_.get());
  // A quoted name that is no column is a mistake, not a text. A file may come from anybody: what its schema
  // wants to run does not run.
  for (const int setting : {SQLITE_DBCONFIG_DQS_DML, SQLITE_DBCONFIG_TRUSTED_SCHEMA,
                            SQLITE_DBCONFIG_ENABLE_TRIGGER, SQLITE_DBCONFIG_ENABLE_VIEW})
    sqlite3_db_config(database, setting, 0, nullptr);
}

void SQLiteDatabase::execute(const std::string& sql) {
  check(database_.get(), sqlite3_exec(database_.get(), sql.c_str(), nullptr, nullptr, nullptr));
}

std::optional<int64_t> SQLiteDatabase::integer(const std::string& sql) {
  auto statement = prepare(sql);
  return statement.step() ? std::optional(statement.integerAt(0)) : std::nullopt;
}

std::optional<std::string> SQLiteDatabase::text(const std::string& sql) {
  auto statement = prepare(sql);
  return statement.step() ? std::optional(statement.textAt(0)) : std::nullopt;
}

int64_t SQLiteDatabase::lastInsertedRow() const {
  return sqlite3_last_insert_rowid(database_.get());
}

int64_t SQLiteDatabase::changedRows() const {
  return sqlite3_changes64(database_.get());
}

bool SQLiteDatabase::hasMoved() const {
  int moved = 0;
  sqlite3_file_control(database_.get(), "main", SQLITE_FCNTL_HAS_MOVED, &moved);
  return moved != 0;
}

bool SQLiteDatabase::isAsOpened() const {
  return stampOf(database_.get()) == opened_;
}

// Not through a file of our own: closing that would drop every lock that this process holds on the database.
std::string SQLiteDatabase::octets(uint64_t from, std::size_t count) const {
  sqlite3_file* file = fileOf(database_.get());
  // SQLite says 0 of a file of one octet.
  const uint64_t size = stampOf(database_.get()).file.size;
  std::string octets(std::min<uint64_t>(count, size - std::min(from, size)), '\0');
  const int code = file->pMethods->xRead(file, octets.data(), static_cast<int>(octets.size()),
                                         static_cast<sqlite3_int64>(from));
  // What was cut off meanwhile reads as zeros.
  if (code != SQLITE_IOERR_SHORT_READ) check(nullptr, code);
  return octets;
}

std::filesystem::path SQLiteDatabase::logFile() const {
  return logOf(database_.get());
}

void SQLiteDatabase::takeForEmpty(bool empty) {
  sqlite3_db_config(database_.get(), SQLITE_DBCONFIG_RESET_DATABASE, empty ? 1 : 0, nullptr);
}

// Unlike other statements, this one does not wait by itself for another process that does the same.
void SQLiteDatabase::useLog() {
  for (int turn = 0;; ++turn) {
    try {
      execute("PRAGMA journal_mode = WAL");
      return;
    } catch (const SQLiteFailure& failure) {
      if (!failure.isBusy() || !busyWait_->nap(turn)) throw;
    }
  }
}

void SQLiteDatabase::requireRoom(uint64_t octets) const {
  struct statvfs disk {};
  if (::statvfs(sqlite3_db_filename(database_.get(), "main"), &disk) != 0 || disk.f_blocks == 0) return;
  const uint64_t blocks = ::geteuid() == 0 ? disk.f_bfree : disk.f_bavail;
  if (blocks * disk.f_frsize < octets) throw failureOf(nullptr, SQLITE_FULL);
}

void SQLiteDatabase::moveLog() {
  sqlite3_exec(database_.get(), "PRAGMA wal_checkpoint(PASSIVE)", nullptr, nullptr, nullptr);
}

void SQLiteDatabase::emptyLog() {
  sqlite3_exec(database_.get(), "PRAGMA wal_checkpoint(TRUNCATE)", nullptr, nullptr, nullptr);
}

bool SQLiteDatabase::isReadOnly() const {
  return sqlite3_db_readonly(database_.get(), "main") == 1;
}

void SQLiteDatabase::leaveLogOnClose(bool leave) {
  sqlite3_db_config(database_.get(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, leave ? 1 : 0, nullptr);
}

// Page by page: VACUUM INTO does not promise that rows keep their numbers.
void SQLiteDatabase::copyTo(const std::filesystem::path& file) {
  SQLiteDatabase copy(file, Access::Create);
  sqlite3* target = copy.database_.get();
  sqlite3_backup* backup = sqlite3_backup_init(target, "main", database_.get(), "main");
  if (backup == nullptr) throw failureOf(target, sqlite3_extended_errcode(target));
  const int step = sqlite3_backup_step(backup, -1);
  check(target, sqlite3_backup_finish(backup));
  if (step != SQLITE_DONE) throw failureOf(nullptr, step);
  copy.execute("PRAGMA journal_mode = DELETE");
}

void SQLiteDatabase::transaction(const std::function<void()>& operation) {
  execute("BEGIN IMMEDIATE");
  try {
    operation();
    execute("COMMIT");
  } catch (...) {
    // Where SQLite has rolled back by itself, this one fails and changes nothing.
    sqlite3_exec(database_.get(), "ROLLBACK", nullptr, nullptr, nullptr);
    throw;
  }
}

}  // namespace platform
