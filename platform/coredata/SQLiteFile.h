#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/coredata/SQLiteDatabase.h"

namespace platform {

// What every kind of file over SQLite needs. All throw SQLiteFailure, in words for the operator.

[[noreturn]] void refuse(const std::string& why);

/// What a file's header tells. Looking leaves no trace, where opening a stranger's database leaves SQLite's
/// files beside it; what the look is for stands there from the first write on and stays.
struct SQLiteHeader {
  enum class Contents {
    Nothing,
    /// What a creation leaves that was cut short by a power cut.
    Zeros,
    /// Whole or not: SQLite finishes or takes back what was cut short.
    Database,
  };

  Contents contents = Contents::Nothing;
  int64_t applicationId = 0;
  int64_t userVersion = 0;

  static SQLiteHeader of(const std::filesystem::path& file);
};

/// Makes an empty file; what SQLite puts beside it gets its permissions.
void makeForOwnerOnly(const std::filesystem::path& file);

/// Whether there is something in the write-ahead log.
bool hasLog(const SQLiteDatabase& database);

/// Fills a new file in one transaction, unless another process was quicker; a process that dies leaves the
/// whole schema or nothing. A creation that was cut short is taken back when it is first read, and begun
/// anew.
void createSchema(SQLiteDatabase& database, SQLiteHeader::Contents found, const std::function<void()>& write);

/// Fails when the file is no longer the one that its name stands for.
void requireInPlace(const SQLiteDatabase& database);

/// What is wrong with the file's structure, in lines; none: nothing. Reads all of it.
std::vector<std::string> damagesOf(SQLiteDatabase& database);

/// Reads a file beside whoever writes it, also where it may not be written.
///
/// Threads: one at a time.
class SQLiteReadConnection {
 public:
  /// Opens and verifies the file.
  using Open = std::function<SQLiteDatabase(SQLiteDatabase::Access)>;

  explicit SQLiteReadConnection(Open open);

  /// Runs `read`, once more for each time that the file was changed in a way that no lock tells of.
  void atOneMoment(const std::function<void(SQLiteDatabase&)>& read);
  /// Grows when the connection is replaced; prepared statements are then void.
  uint64_t generation() const { return generation_; }

 private:
  void connect();
  bool hasChanged() const;

  const Open open_;
  std::unique_ptr<SQLiteDatabase> database_;
  bool isImmutable_ = false;
  uint64_t generation_ = 0;
};

}  // namespace platform
