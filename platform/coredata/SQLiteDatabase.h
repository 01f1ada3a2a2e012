#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "platform/coredata/BusyWait.h"
#include "platform/coredata/FileStamp.h"
#include "platform/coredata/NSEntityDescription.h"
#include "platform/coredata/StoredValue.h"
#include "platform/foundation/Error.h"

struct sqlite3;
struct sqlite3_stmt;

namespace platform {

/// An operation of SQLite that failed. It stays with those who work on files: what they offer returns Error.
class SQLiteFailure : public std::runtime_error {
 public:
  SQLiteFailure(int code, const std::string& text) : std::runtime_error(text), code_(code) {}
  int code() const { return code_; }
  /// Somebody else holds a lock.
  bool isBusy() const;
  /// There is no room on the disk, or for so large a file.
  bool isFull() const;
  /// A file that SQLite needs beside the database cannot be made or written.
  bool lacksPermission() const;

 private:
  int code_;
};

/// Runs an operation; its failure becomes the result.
Result<> resultOf(const std::function<void()>& operation);

/// One prepared statement. Every operation throws SQLiteFailure.
class SQLiteStatement {
 public:
  SQLiteStatement(sqlite3* database, const std::string& sql);

  /// Parameters count from 1. What is lent must live until `step` returned.
  void bind(int parameter, const StoredView& value);
  /// True when there is a row.
  bool step();
  /// Ready to be bound and run again.
  void reset();
  /// Runs a statement that gives no rows, and resets it.
  void run();

  int64_t integerAt(int column) const;
  std::string textAt(int column) const;
  /// A column as the attribute's type says; lent until the next step.
  StoredView viewAt(int column, NSAttributeType type) const;

 private:
  struct Finalizer {
    void operator()(sqlite3_stmt* statement) const;
  };
  std::unique_ptr<sqlite3_stmt, Finalizer> statement_;
};

/// One connection. Every operation throws SQLiteFailure. Not locked: its owner serialises.
class SQLiteDatabase {
 public:
  enum class Access {
    /// Leaves no trace and takes no lock, but sees only what stands in the file itself, and that only as long
    /// as nobody writes.
    Immutable,
    /// Or read only, where the permissions are lacking.
    ReadWrite,
    /// Makes the file when it is missing.
    Create,
  };
  SQLiteDatabase(const std::filesystem::path& file, Access access);

  void execute(const std::string& sql);
  SQLiteStatement prepare(const std::string& sql) { return {database_.get(), sql}; }
  /// The first column of a query's first row.
  std::optional<int64_t> integer(const std::string& sql);
  std::optional<std::string> text(const std::string& sql);

  int64_t lastInsertedRow() const;
  /// How many rows the last statement changed.
  int64_t changedRows() const;
  bool isReadOnly() const;
  /// Whether the name stands for another file by now, or for none.
  bool hasMoved() const;
  /// Whether nobody has written since the connection was opened.
  bool isAsOpened() const;

  /// Octets as they stand in the file, whatever SQLite makes of them. Shorter at the file's end.
  std::string octets(uint64_t from, std::size_t count) const;
  /// The write-ahead log, where SQLite looks for it.
  std::filesystem::path logFile() const;
  /// Whether the log is left as it is when the connection closes.
  void leaveLogOnClose(bool leave);
  /// Takes the file for an empty one, whatever is in it.
  void takeForEmpty(bool empty);
  /// From here on changes go to a write-ahead log.
  void useLog();
  /// Fails as a full disk does unless so much is free on the file's disk, as far as that can be told.
  void requireRoom(uint64_t octets) const;
  /// Moves what is in the log into the file as far as there is room and nobody is in the way.
  void moveLog();
  /// The same, and waits for others; then the log is cut to nothing.
  void emptyLog();
  /// Called once for each wait for another process that takes longer than a second.
  void setOnWaiting(std::function<void()> onWaiting) { busyWait_->setOnWaiting(std::move(onWaiting)); }

  /// Copies everything, as it is at one moment, to a file that is not there yet. The copy is one file alone.
  void copyTo(const std::filesystem::path& file);

  /// Runs an operation as one transaction that is rolled back when it throws.
  void transaction(const std::function<void()>& operation);

 private:
  struct Closer {
    void operator()(sqlite3* database) const;
  };
  std::unique_ptr<BusyWait> busyWait_;  // outlives the connection, which calls it
  std::unique_ptr<sqlite3, Closer> database_;
  StoreStamp opened_;
};

}  // namespace platform
